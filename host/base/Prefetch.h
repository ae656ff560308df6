#pragma once

namespace corvane::host {

/// Asks the processor for the cache line of an address, without waiting for it. Results do not depend on it.
inline void prefetch(const void* address) {
  __builtin_prefetch(address);
  // g++ takes a function that does nothing else for one without effects, and leaves calls of it out.
  asm volatile("");
}

}  // namespace corvane::host
