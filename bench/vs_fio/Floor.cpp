// The least that checking of pooled data can cost: a copy of what is written and a compare of what was read.
//
// Prints one number, the nanoseconds of CPU time for 512 bytes. Each transfer of 256 sectors takes runs of sectors from
// random places of a pool of the default size, copies them into a buffer, one call of memcpy for each run, and compares
// the buffer with the pool again after other transfers have passed through the caches.
//
// The first argument is the sectors of a run, a power of two: 256, unless it is given, as in the agent's transfers of
// that length; 1 picks every sector by itself. The second one says how often all of it is done, 64 times unless given.

#include <bit>
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
constexpr uint64_t usualRounds = 64;

double cpuNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

class Floor {
 public:
  explicit Floor(uint64_t runSectors)
      : runSectors_(runSectors),
        first_(buffers * transferSectors / runSectors),
        pool_(poolSectors * sectorBytes),
        buffer_(buffers * transferSectors * sectorBytes) {
    for (uint8_t& byte : pool_) {
      byte = static_cast<uint8_t>(random_.next());
    }
  }

  /// Fills every buffer and then compares each; returns the buffers that differ.
  uint64_t round() {
    for (uint64_t i = 0; i < first_.size(); ++i) {
      first_[i] = random_.below(poolSectors - runSectors_ + 1);
      std::memcpy(run(i), sectors(first_[i]), runSectors_ * sectorBytes);
    }
    uint64_t differing = 0;
    for (uint64_t i = 0; i < first_.size(); ++i) {
      if (std::memcmp(run(i), sectors(first_[i]), runSectors_ * sectorBytes) != 0) {
        ++differing;
      }
    }
    return differing;
  }

 private:
  const uint8_t* sectors(uint64_t first) const { return pool_.data() + first * sectorBytes; }
  uint8_t* run(uint64_t i) { return buffer_.data() + i * runSectors_ * sectorBytes; }

  uint64_t runSectors_;
  std::vector<uint64_t> first_;  ///< of each run, in the pool
  host::Random random_{1};
  std::vector<uint8_t> pool_;
  std::vector<uint8_t> buffer_;
};

int measure(uint64_t runSectors, uint64_t rounds) {
  Floor floor(runSectors);
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

int main(int count, char** arguments) {
  using namespace corvane::bench;
  const uint64_t sectors = count > 1 ? std::strtoull(arguments[1], nullptr, 10) : transferSectors;
  const uint64_t rounds = count > 2 ? std::strtoull(arguments[2], nullptr, 10) : usualRounds;
  if (!std::has_single_bit(sectors) || sectors > transferSectors || rounds == 0) {
    std::fputs("usage: vs_fio_floor [SECTORS OF A RUN: 1, 2, 4, ... 256] [ROUNDS: 1 or more]\n", stderr);
    return 2;
  }
  return measure(sectors, rounds);
}
