#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "AtomicHash.h"
#include "tests/plugin/support_model/TableModel.h"

namespace refmodel {

/// What is different between the model's table and the agent's; empty when nothing is.
///
/// All records with their histories and waiting reads, peeks, known ranges among the LBAs from `first` to `last` (both
/// included), the sum of references, and the contexts of the reads with the ids given.
std::string stateDifference(const modeltest::Model& model, const vdl::AtomicHash& table, uint64_t first, uint64_t last,
                            const std::vector<uint64_t>& reads);

/// Whether two tables of the model are the same for everybody who looks.
bool sameTable(const modeltest::Model& left, const modeltest::Model& right);

}  // namespace refmodel
