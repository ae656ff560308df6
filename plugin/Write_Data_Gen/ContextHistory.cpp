#include <iomanip>
#include <ios>
#include <sstream>

#include "AtomicContext.h"

namespace vdl {

namespace {

constexpr int typeWidth = 10;
constexpr int idWidth = 10;
constexpr int blockTypeWidth = 9;
constexpr int blockNumWidth = 8;
constexpr int embedIdWidth = 12;
constexpr int embedLbaWidth = 16;
constexpr int hashWidth = 16;
constexpr int ruleWidth = 93;
constexpr const char* gap = "  ";
constexpr const char* absent = "---";

const char* name(EventType type) {
  switch (type) {
    case EventType::None:
      return "none";
    case EventType::Write:
      return "write";
    case EventType::Atomic:
      return "atomic";
    case EventType::Hash:
      return "hash";
    case EventType::Invalidate:
      return "invalidate";
    case EventType::InvalidateMarker:
      break;
  }
  return "?";
}

const char* name(BlockType type) {
  switch (type) {
    case BlockType::Unknown:
      return "unknown";
    case BlockType::Normal:
      return "normal";
    case BlockType::Atomic:
      return "atomic";
    case BlockType::Hash:
      return "hash";
  }
  return "?";
}

void writeHeading(std::ostream& out, uint64_t lba) {
  out << "Context History for lba 0x" << lba << ":\n";
  out << std::setw(typeWidth) << "EventType" << gap << std::setw(idWidth) << "CmdID" << gap << std::setw(blockTypeWidth)
      << "BlockType" << gap << std::setw(blockNumWidth) << "BlockNum" << gap << std::setw(embedIdWidth) << "EmbedCmdID"
      << gap << std::setw(embedLbaWidth) << "EmbedLBA" << gap << std::setw(hashWidth) << "HashValue" << '\n';
  out << std::setfill('-') << std::setw(ruleWidth) << "-" << std::setfill(' ') << '\n';
}

void writeBlockNum(std::ostream& out, BlockNum block) {
  out << std::setw(blockNumWidth);
  if (block < block_num::bucketLimit) {
    out << block;
  } else {
    out << (block == block_num::zero ? "ZERO" : "INVALID");
  }
}

void writeEvent(std::ostream& out, const Event& event, bool observed) {
  out << std::setw(typeWidth) << name(event.type) << gap;
  // Ids count commands, so they alone are decimal.
  out << std::dec << std::setw(idWidth) << event.cmd_id << std::hex << gap;
  out << std::setw(blockTypeWidth) << name(event.block_type) << gap;
  writeBlockNum(out, event.block_num);
  out << gap;
  if (event.embed.valid) {
    out << std::setw(embedIdWidth) << event.embed.cmd_id << gap << std::setw(embedLbaWidth) << event.embed.lba;
  } else {
    out << std::setw(embedIdWidth) << absent << gap << std::setw(embedLbaWidth) << absent;
  }
  out << gap << std::setw(hashWidth);
  if (event.hash != 0) {
    out << event.hash;
  } else {
    out << absent;
  }
  if (observed) {
    out << "  *observed*";
  }
  out << '\n';
}

}  // namespace

std::string AtomicContext::getHistory(uint64_t lba) const {
  const Node* node = find(lba);
  if (node == nullptr) {
    return {};
  }
  std::ostringstream out;
  out << std::hex << std::left;
  writeHeading(out, lba);
  for (const Event* event = node->history; event != nullptr; event = event->next) {
    writeEvent(out, *event, event == node->observed);
  }
  return out.str();
}

}  // namespace vdl
