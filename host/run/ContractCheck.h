#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/drive/Drive.h"
#include "host/run/AgentConfig.h"
#include "host/run/LbaAgent.h"
#include "host/run/TestDefinition.h"

namespace corvane::host {

/// What is to be said about a test before it starts. Each text is one sentence that says why and what to change.
struct ContractReport {
  std::vector<std::string> refusals;  ///< the test cannot run, or would raise false alarms by its construction
  std::vector<std::string> warnings;  ///< the test runs, but finds less or costs more than it could
};

/// The part of a drive that a test uses.
struct TestRange {
  uint64_t firstLba = 0;
  uint64_t endLba = 0;  ///< excluded
};

/// Judges a test by itself, before any drive is opened.
ContractReport checkTest(const TestDefinition& test, const AgentOptionValues& options);

/// Judges a test on one drive: its range and zones, and what a power cut may take from the drive.
ContractReport checkTestOnDrive(const TestDefinition& test, const AgentOptionValues& options, const Drive& drive);

/// What the test needs and the drive of this address does not offer: one sentence, empty when there is nothing.
std::string missingCapability(const TestDefinition& test, const Drive& drive, const std::string& address);

/// Why a test cannot go on when the connection to its drive is lost: the rest of a sentence that begins with the loss
/// and says what to change. Empty: it can go on.
std::string whyLossEndsTest(const TestDefinition& test, const AgentOptionValues& options);

/// Where the commands of a test on a range may go.
LbaLimits lbaLimits(const TestDefinition& test, const AgentOptionValues& options, const TestRange& range);

/// The range of a test on a drive; what goes up to the drive's end loses the head-room that sliding reads need there.
TestRange testRange(const TestDefinition& test, const AgentOptionValues& options, const DriveGeometry& drive);

}  // namespace corvane::host
