#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/report/Explanation.h"

namespace corvane::host::report {

/// A count with the name that the document gives it.
struct NamedCount {
  std::string name;
  uint64_t count = 0;
};

/// How long the commands of a kind took; times in microseconds.
struct LatencyFigures {
  std::string kind;
  uint64_t count = 0;
  uint64_t minUs = 0;
  double meanUs = 0;
  uint64_t p50Us = 0;
  uint64_t p90Us = 0;
  uint64_t p99Us = 0;
  uint64_t p999Us = 0;
  uint64_t maxUs = 0;
  std::vector<std::pair<uint64_t, uint64_t>> buckets;  ///< upper bound and count
};

/// How closely the blocks that were read could be judged, in blocks.
struct Coverage {
  uint64_t oneOutcome = 0;                  ///< one content was legal
  std::vector<NamedCount> severalOutcomes;  ///< by how many were legal
  std::vector<NamedCount> notCheckable;     ///< by reason
};

/// A fault that the run was told to inject.
struct InjectedFault {
  std::string what;
  uint64_t command = 0;
  std::string kind;
  uint64_t lba = 0;
  uint64_t blocks = 0;
  std::string note;
  uint64_t alteredBlocks = 0;
  uint64_t delivered = 0;  ///< altered blocks that a read delivered
  uint64_t visible = 0;    ///< delivered to the agent's compare
};

/// One drive of a run.
struct DriveOfResult {
  std::string name;
  std::string address;
  std::string description;
  std::string status;
  std::string verdict;
  std::string error;
  uint64_t blocks = 0;
  uint64_t blockSize = 0;
  uint64_t protectionBytes = 0;
  uint64_t physicalBlockSize = 0;
  uint64_t firstLba = 0;
  uint64_t endLba = 0;  ///< not included
  uint64_t elapsedMs = 0;
  std::vector<NamedCount> issued;         ///< commands by kind
  std::vector<NamedCount> completed;      ///< commands by kind
  std::vector<NamedCount> commandCounts;  ///< "failed", "retried", …
  std::vector<NamedCount> events;
  std::vector<NamedCount> blockCounts;
  std::vector<NamedCount> byteCounts;
  std::vector<LatencyFigures> latency;
  std::optional<Coverage> checked;
  std::vector<InjectedFault> injections;
  std::vector<std::string> messages;
};

/// One data failure.
struct FindingOfResult {
  std::string drive;  ///< its name
  std::string text;
  int64_t agentStatus = 0;
  std::optional<uint64_t> driveIndex;
  std::optional<uint64_t> lba;
  std::optional<uint64_t> commandNumber;
  std::optional<uint64_t> step;
  std::optional<uint64_t> elapsedMs;
  std::vector<std::string> files;
  std::optional<Explanation> explanation;
};

/// What a run left for programs, as plain values. What the document does not say is empty, zero or absent.
struct ResultDocument {
  std::string version;
  std::string status;
  std::string error;
  std::string started;
  uint64_t seed = 0;
  uint64_t elapsedMs = 0;
  int64_t exitStatus = 0;
  bool stopped = false;
  std::vector<std::string> repeat;
  std::vector<std::string> warnings;
  std::vector<std::pair<std::string, std::string>> test;  ///< the test's keys and values
  std::vector<DriveOfResult> drives;
  std::vector<FindingOfResult> findings;
};

/// Reads a document.
///
/// Throws ReportError that names the file and the key for a text that is no JSON or nests too deep, a key that is
/// missing without which nothing can be told, a key with a value of another type than promised, and a format of later
/// programs.
///
/// @param file for messages
ResultDocument parseResult(std::string_view json, const std::string& file);

/// Whether a text is a document of a run, right or wrong in its details; never throws.
bool looksLikeResult(std::string_view json);

}  // namespace corvane::host::report
