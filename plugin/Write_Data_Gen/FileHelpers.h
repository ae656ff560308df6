#pragma once

#include <cstdio>
#include <string>

namespace vdl::fs {

/// What `openFile` may do when the name as it stands will not do.
enum OpenFlags : unsigned {
  fallBackToCurrentDirectory = 1,
  numberedName = 2,  ///< ".000" to ".fff" behind a name that exists already
  createMissingParents = 4,
};

/// Opens a file, finding a usable name for it.
///
/// A name that is numbered when it is taken is given out once, however many threads and programs ask at the same time.
/// Any thread.
///
/// @param path   requested name; receives the name of the file that was opened, untouched when none was
/// @param mode   as for `fopen`
/// @param result written only off the plain road: 5 all numbered names are taken and the plain one was overwritten;
///               6 the file stands in the current directory; 3 no file
/// @param flags  `OpenFlags`
/// @return the open file, the caller's to close; null when none could be opened
FILE* openFile(std::string& path, std::string mode, int& result, unsigned flags);

}  // namespace vdl::fs
