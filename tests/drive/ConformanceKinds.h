#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "host/drive/Drive.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {

/// An open drive with what it stands on.
struct Stand {
  std::shared_ptr<const void> under;  ///< a loop device, a target; gone after the drive
  std::unique_ptr<Drive> drive;
  std::string missing;  ///< why there is no such drive here; then `drive` is null
};

/// A kind of drive of which everything is expected that drives promise. Empty drives of a few MiB.
struct Kind {
  std::string name;
  std::function<Stand(const tests::TempFolder& folder)> open;
};

inline void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

constexpr uint32_t conformanceDepth = 32;

/// A drive that only needs an address. FILE in it stands for a path that is free.
Kind addressKind(const std::string& name, const std::string& address);

std::vector<Kind> simKinds();
std::vector<Kind> fileKinds();
std::vector<Kind> blockKinds();
std::vector<Kind> scsiKinds();
std::vector<Kind> nvmeKinds();
std::vector<Kind> iscsiKinds();
/// Drives that only the caller can know of: addresses in CORVANE_TEST_DRIVES, with blanks between. They are
/// overwritten.
std::vector<Kind> givenKinds();

}  // namespace corvane::host
