#include "host/drive/Drive.h"

namespace corvane::host {

const char* commandKindName(CommandKind kind) {
  switch (kind) {
    case CommandKind::write:
      return "write";
    case CommandKind::writeAtomic:
      return "atomic";
    case CommandKind::writeSame:
      return "writesame";
    case CommandKind::trim:
      return "trim";
    case CommandKind::read:
      return "read";
    case CommandKind::verify:
      return "verify";
    case CommandKind::syncCache:
      return "sync";
  }
  return "unknown";
}

bool changesMedium(CommandKind kind) {
  return kind == CommandKind::write || kind == CommandKind::writeAtomic || kind == CommandKind::writeSame ||
         kind == CommandKind::trim;
}

}  // namespace corvane::host
