#include "MersenneTwister.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace vdl {

namespace {

using Words = MersenneTwister::Words;

constexpr std::size_t words = MersenneTwister::words;
constexpr std::size_t distance = 397;  // of the word that is mixed into the one that is replaced

/// What a word is replaced by, but for the word at the distance.
inline uint32_t twisted(uint32_t word, uint32_t next) {
  const uint32_t joined = (word & 0x80000000U) | (next & 0x7FFFFFFFU);
  return (joined >> 1) ^ ((0U - (next & 1U)) & 0x9908B0DFU);
}

inline uint32_t tempered(uint32_t word) {
  word ^= word >> 11;
  word ^= (word << 7) & 0x9D2C5680U;
  word ^= (word << 15) & 0xEFC60000U;
  return word ^ (word >> 18);
}

/// Always inlined, so that each caller below compiles it for its own instructions.
__attribute__((always_inline)) inline void twistAndTemper(uint32_t* state, uint32_t* outputs) {
  for (std::size_t i = 0; i < words - distance; ++i) {
    state[i] = state[i + distance] ^ twisted(state[i], state[i + 1]);
  }
  for (std::size_t i = words - distance; i < words - 1; ++i) {
    state[i] = state[i + distance - words] ^ twisted(state[i], state[i + 1]);
  }
  state[words - 1] = state[distance - 1] ^ twisted(state[words - 1], state[0]);
  for (std::size_t i = 0; i < words; ++i) {
    outputs[i] = tempered(state[i]);
  }
}

void refillPlainly(uint32_t* __restrict state, uint32_t* __restrict outputs) { twistAndTemper(state, outputs); }

#if defined(__x86_64__)
__attribute__((target("avx2"))) void refillBy8(uint32_t* __restrict state, uint32_t* __restrict outputs) {
  twistAndTemper(state, outputs);
}
#endif

using Refill = void (*)(uint32_t*, uint32_t*);

/// Chosen by hand: the dynamic linker's own way calls back before a sanitizer's runtime is ready.
Refill fastestRefill() {
#if defined(__x86_64__)
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2")) {
    return refillBy8;
  }
#endif
  return refillPlainly;
}

const Refill refillWords = fastestRefill();

}  // namespace

void MersenneTwister::seed(uint32_t seed) {
  state_[0] = seed;
  for (std::size_t i = 1; i < words; ++i) {
    const uint32_t before = state_[i - 1];
    state_[i] = 1812433253U * (before ^ (before >> 30)) + static_cast<uint32_t>(i);
  }
  next_ = words;
}

void MersenneTwister::copy(uint8_t* out, uint64_t count) {
  static_assert(std::endian::native == std::endian::little, "outputs are copied as they are kept");
  while (count > 0) {
    if (next_ == words) {
      refill();
    }
    const uint64_t part = std::min<uint64_t>(count, words - next_);
    std::memcpy(out, outputs_.data() + next_, part * sizeof(result_type));
    next_ += part;
    out += part * sizeof(result_type);
    count -= part;
  }
}

void MersenneTwister::refill() {
  refillWords(state_.data(), outputs_.data());
  next_ = 0;
}

}  // namespace vdl
