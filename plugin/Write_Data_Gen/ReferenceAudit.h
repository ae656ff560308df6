#pragma once

#include <string>

#include "DriveData.h"

namespace vdl::agent {

/// Checks that every reference of the expected-state table belongs to a block that a finished or outstanding write
/// will still read back, or that a finished pre-read holds.
///
/// The balance holds after every step of a test on a host that keeps the contract, until a reset drops writes that
/// nobody reads back.
///
/// @return an empty text, or what does not add up
std::string auditReferences(const Corvane::DriveData& data);

/// Checks that no record lives without a reference or a waiting read. Walks the whole table.
std::string auditRecords(const Corvane::DriveData& data);

}  // namespace vdl::agent
