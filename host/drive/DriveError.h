#pragma once

#include <stdexcept>

namespace corvane::host {

/// A drive that cannot be opened or reached any more; the text names it, the cause and the remedy.
class DriveError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The way to the drive broke while commands were outstanding, and may be there again. What was outstanding is lost.
class DriveConnectionLost : public DriveError {
 public:
  using DriveError::DriveError;
};

/// A drive that does not answer and may still be at work on what it was sent.
class DriveHung : public DriveError {
 public:
  using DriveError::DriveError;
};

/// A drive address that nobody can open; the text names the wrong piece and what would be accepted.
class DriveAddressError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

}  // namespace corvane::host
