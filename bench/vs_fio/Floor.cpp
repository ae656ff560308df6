// The least that checking of pooled data can cost: a copy of what is written and a compare of what was read.
//
// Prints one number, the nanoseconds of CPU time for 512 bytes. Each transfer takes sectors at random places of a pool
// of the default size, as the agent's do, copies them into a buffer, one call of memcpy for each run of sectors, and
// compares the buffer with the pool again after other transfers have passed through the caches.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "host/base/Random.h"

namespace corvane::bench {
namespace {

constexpr uint64_t sectorBytes = 512;
constexpr uint64_t poolSectors = 65536;  // the default of "Bucket Count"
constexpr uint64_t transferSectors = 256;
constexpr uint64_t buffers = 32;  // a drive's queue depth
constexpr uint64_t rounds = 64;

double cpuNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

class Floor {
 public:
  Floor() : pool_(poolSectors * sectorBytes), buffer_(buffers * transferSectors * sectorBytes) {
    for (uint8_t& byte : pool_) {
      byte = static_cast<uint8_t>(random_.next());
    }
  }

  /// Fills every buffer and then compares each; returns the buffers that differ.
  uint64_t round() {
    for (uint64_t i = 0; i < buffers; ++i) {
      first_[i] = random_.below(poolSectors - transferSectors + 1);
      std::memcpy(buffer(i), sectors(first_[i]), transferSectors * sectorBytes);
    }
    uint64_t differing = 0;
    for (uint64_t i = 0; i < buffers; ++i) {
      if (std::memcmp(buffer(i), sectors(first_[i]), transferSectors * sectorBytes) != 0) {
        ++differing;
      }
    }
    return differing;
  }

 private:
  const uint8_t* sectors(uint64_t first) const { return pool_.data() + first * sectorBytes; }
  uint8_t* buffer(uint64_t i) { return buffer_.data() + i * transferSectors * sectorBytes; }

  host::Random random_{1};
  std::vector<uint8_t> pool_;
  std::vector<uint8_t> buffer_;
  uint64_t first_[buffers] = {};
};

int measure() {
  Floor floor;
  uint64_t differing = floor.round();  // touches every page
  const double began = cpuNanoseconds();
  for (uint64_t i = 0; i < rounds; ++i) {
    differing += floor.round();
  }
  const double spent = cpuNanoseconds() - began;
  std::printf("%.2f\n", spent / static_cast<double>(rounds * buffers * transferSectors));
  return differing == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace corvane::bench

int main() { return corvane::bench::measure(); }
