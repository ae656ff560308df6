#include "host/drive/block/BlockTrim.h"

namespace corvane::host {
namespace {

using Operation = EngineRequest::Operation;

BlockTrim offered(Operation operation, const std::string& text) {
  return {.offered = true, .operation = operation, .text = text, .refusal = {}};
}

BlockTrim none(const std::string& why) {
  return {.offered = false, .operation = Operation::punchHole, .text = "no trim (" + why + ")", .refusal = {}};
}

BlockTrim refused(const std::string& refusal) {
  BlockTrim trim;
  trim.refusal = refusal;
  return trim;
}

}  // namespace

BlockTrim settleTrim(TrimChoice choice, const BlockTraits& traits) {
  const bool punches = traits.mostWriteZerosBytes != 0;
  const std::string noPunch = "the device has no command that makes zeros";
  switch (choice) {
    case TrimChoice::off:
      return none("switched off");
    case TrimChoice::zero:
      return offered(Operation::writeZeros, "trim by writing zeros");
    case TrimChoice::discard:
      return traits.mostDiscardBytes != 0 ? offered(Operation::discard, "trim by discard")
                                          : refused("the device cannot discard; choose trim=zero, or leave trim= out");
    case TrimChoice::punch:
      if (!punches) {
        return refused(noPunch + "; choose trim=zero, which sends zeros, or leave trim= out");
      }
      break;
    case TrimChoice::wherePossible:
      if (!punches) {
        return none(noPunch + "; trim=zero sends them");
      }
      break;
  }
  return offered(Operation::punchHole, "trim by zeroing that deallocates where the device can");
}

}  // namespace corvane::host
