#pragma once

#include <stdexcept>

namespace corvane::host {

/// A test that cannot be run as it was asked for; one line that says what is wrong and what to change.
class ConfigurationError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace corvane::host
