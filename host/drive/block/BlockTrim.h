#pragma once

#include <cstdint>
#include <string>

#include "host/drive/block/BlockTraits.h"
#include "host/drive/engine/Engine.h"

namespace corvane::host {

/// How a trim is to be carried out.
enum class TrimChoice : uint8_t { wherePossible, zero, punch, discard, off };

/// How it is, on a device.
struct BlockTrim {
  bool offered = false;
  EngineRequest::Operation operation = EngineRequest::Operation::punchHole;
  std::string text;     ///< for people: "trim by discard", or "no trim" and why
  std::string refusal;  ///< why the choice is not possible, and the remedy; empty when it is
};

/// Nothing is tried out on the device: what its queue limits do not name it does not have.
BlockTrim settleTrim(TrimChoice choice, const BlockTraits& traits);

}  // namespace corvane::host
