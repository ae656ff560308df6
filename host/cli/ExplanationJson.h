#pragma once

#include <nlohmann/json.hpp>
#include <span>
#include <string>

#include "host/explain/Explanation.h"

namespace corvane::host {

/// An explanation for programs. Its keys are a promise, like those of the document that it is a part of.
///
/// | Key                               | Value |
/// |-----------------------------------|-------------------------------------------------------------------------------|
/// | `kind`                            | see `findingKindName` | | `suspects`                        | names of fault
/// classes, likeliest first                                       | | `sentences`                       | the
/// explanation for people                                                    | | `lba`, `blockSize`                | of
/// the wrong block; bytes with protection bytes                               | | `read`                            |
/// the command that met it, or null                                              | | `expected`, `observed` | what
/// reference and block say of themselves: `bucket`, `lba`, `commandId`, `zeros`; or null | | `expectedWrite`,
/// `observedWrite`  | the commands that wrote them, or null                                         | | `legal` |
/// contents that would have been accepted: `text`, `commandId`, `bucket`         | | `firstDifference`,
/// `differingBytes` | numbers, or null                                                            | | `driveData`,
/// `referenceData`      | the blocks in hexadecimal; empty when unknown                                 | | `reread` |
/// what a read after the test returned, see `rereadName`; or null                | | `neighbours` | `lba`, `state`,
/// `commandId`                                                   | | `commands`                        | those over the
/// neighbourhood, oldest first                                    | | `history`                         | the agent's
/// own table                                                         | | `replay`                          | the
/// command line that runs the test to this finding again                     |
///
/// A command has `number` (1: the drive's first), `id` (the agent's), `kind`, `tag`, `lba`, `blocks`, `lbaStep`,
/// `issuedUs`, `finishedUs` (null: not finished), `status` (SCSI; null: none) and `preRead`. Times count from the
/// test's start.
nlohmann::ordered_json explanationJson(const Explanation& explanation, const std::string& replay);

/// Bytes as lower-case hexadecimal digits.
std::string hexText(std::span<const uint8_t> bytes);

}  // namespace corvane::host
