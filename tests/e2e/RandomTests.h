#pragma once

#include <cstdint>
#include <string>

#include "host/run/TestDefinition.h"

namespace corvane::host::e2e {

/// A short test that is drawn at random: what is written and how, the drive's blocks and zones, the range in each way
/// in which it can be given, the options that change where commands go, resets, power cuts and the drive's accidents.
///
/// The same number gives the same test. Some of them are refused, as a person's would be. On a simulated drive and
/// without the plug-in and the folder for reports.
TestDefinition randomTest(uint64_t number);

/// The same on a file: what a file can play of it.
///
/// @param path of the file, which must not be there yet or be as large as `driveBytes` says
TestDefinition randomTestOnFile(uint64_t number, const std::string& path);

/// The size of the drive of `randomTestOnFile`.
uint64_t driveBytesOfRandomTest(uint64_t number);

/// A line about a test for a message: its drive, range, lengths and commands.
std::string describe(const TestDefinition& test);

}  // namespace corvane::host::e2e
