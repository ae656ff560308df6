#pragma once

#include <stdexcept>

namespace corvane::host {

/// A command line that cannot be followed; one line that names the flag, the value and what is accepted.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace corvane::host
