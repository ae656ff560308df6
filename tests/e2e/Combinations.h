#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "host/run/TestDefinition.h"

namespace corvane::host::e2e {

/// One legal way to test a good drive.
struct Combination {
  std::string name;      ///< letters and digits, for the name of a test
  std::string sim;       ///< keys of the simulated drive: ",block=4096"
  TestDefinition test;   ///< without drives, limits and plug-in
  bool onFile = true;    ///< whether a file can play that drive
  bool simOnly = false;  ///< a file lacks a command that the test needs
};

inline void PrintTo(const Combination& combination, std::ostream* out) { *out << combination.name; }

/// All of them: kinds of commands, options, block formats, resets and power cuts.
std::vector<Combination> combinations();

}  // namespace corvane::host::e2e
