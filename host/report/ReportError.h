#pragma once

#include <stdexcept>

namespace corvane::host::report {

/// Something of which no report can be made: one line that names the file, what is wrong in it, and the remedy.
class ReportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace corvane::host::report
