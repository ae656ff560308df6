#include "tests/model/ReadContext.h"

#include <algorithm>
#include <cstdio>

namespace refmodel {

namespace {

bool isTransparent(const ModelEvent& event) { return event.content == 'A'; }
bool isMarker(const ModelEvent& event) { return event.kind == 'M'; }

bool matches(const vdl::ObserveData& seen, const ModelEvent& event) {
  return event.stamped && seen.block_num == event.block && seen.embed.cmd_id == event.stampId &&
         seen.embed.lba == event.stampLba;
}

/// The places of a history that may explain a block: down to the first event that is not transparent, that one
/// included.
size_t reachable(const std::vector<ModelEvent>& history) {
  size_t count = 0;
  while (count < history.size() && isTransparent(history[count])) {
    ++count;
  }
  return std::min(count + 1, history.size());
}

/// An atomic write that was seen, as far as it reaches in the direction of a walk.
struct OpenSegment {
  uint64_t id;
  uint64_t last;  ///< position
};

/// Walks blocks in one direction; the place of the first one that shows an older write inside an open segment.
std::optional<size_t> walk(const std::vector<const SeenBlock*>& blocks, bool upwards) {
  std::vector<OpenSegment> open;
  for (size_t i = 0; i < blocks.size(); ++i) {
    while (!open.empty() && open.back().last < i) {
      open.pop_back();
    }
    if (!blocks[i]->observed) {
      continue;
    }
    const ModelEvent& event = blocks[i]->history[*blocks[i]->observed];
    if (event.kind != 'W' && event.kind != 'A') {
      continue;
    }
    if (!open.empty() && open.back().id > event.id) {
      return i;
    }
    const bool sameAsTop = !open.empty() && open.back().id == event.id;
    if (event.kind == 'A' && !sameAsTop) {
      const uint32_t ahead = upwards ? event.length - event.offset - 1 : event.offset;
      const uint32_t last = static_cast<uint32_t>(i) + ahead;
      if (last > i) {
        open.push_back({event.id, last});
      }
    }
  }
  return std::nullopt;
}

const char* kindText(char kind) {
  switch (kind) {
    case 'N':
      return "none";
    case 'W':
      return "write";
    case 'A':
      return "atomic";
    case 'H':
      return "hash";
    case 'I':
      return "invalidate";
    default:
      return "?";
  }
}

const char* contentText(char content) {
  switch (content) {
    case 'U':
      return "unknown";
    case 'N':
      return "normal";
    case 'A':
      return "atomic";
    default:
      return "hash";
  }
}

std::string hexText(uint64_t value) {
  char text[20];
  std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(value));
  return text;
}

std::string numberText(uint32_t block) {
  if (block < 0x80000) {
    return hexText(block);
  }
  return block == 0xFF0000 ? "ZERO" : "INVALID";
}

std::string lineOf(const ModelEvent& e) {
  char text[256];
  std::snprintf(text, sizeof text, "%-10s  %-10llu  %-9s  %-8s  %-12s  %-16s  %-16s", kindText(e.kind),
                static_cast<unsigned long long>(e.id), contentText(e.content), numberText(e.block).c_str(),
                e.stamped ? hexText(e.stampId).c_str() : "---", e.stamped ? hexText(e.stampLba).c_str() : "---",
                e.hash != 0 ? hexText(e.hash).c_str() : "---");
  return text;
}

}  // namespace

ReadContext::ReadContext(const Model& table, uint64_t first, uint64_t last, uint64_t id) {
  for (const auto& [lba, record] : table.records) {
    if (lba < first || lba > last) {
      continue;
    }
    for (const modeltest::ModelWait& wait : record.waits) {
      if (wait.id == id) {
        const auto head = static_cast<std::ptrdiff_t>(Model::position(record, wait.serialOfHead));
        blocks_.push_back({lba, {record.events.begin() + head, record.events.end()}, std::nullopt});
        break;
      }
    }
  }
}

const SeenBlock* ReadContext::find(uint64_t lba) const {
  for (const SeenBlock& block : blocks_) {
    if (block.lba == lba) {
      return &block;
    }
  }
  return nullptr;
}

int ReadContext::observe(uint64_t lba, const Bytes& data) {
  const SeenBlock* found = find(lba);
  if (found == nullptr) {
    return -1004;
  }
  SeenBlock& block = blocks_[static_cast<size_t>(found - blocks_.data())];
  const vdl::ObserveData seen = observationOf(data);
  for (size_t i = 0; i < reachable(block.history); ++i) {
    if (matches(seen, block.history[i])) {
      block.observed = i;
      return 0;
    }
  }
  const uint64_t hash = hashOf(data);
  for (size_t i = 0; i < reachable(block.history); ++i) {
    if (block.history[i].hash == hash) {
      block.observed = i;
      return 0;
    }
  }
  return -1003;
}

ModelPeek ReadContext::peek(uint64_t lba) const {
  ModelPeek result;
  const SeenBlock* block = find(lba);
  if (block == nullptr) {
    result.status = -1004;
    return result;
  }
  for (size_t i = 0; i < block->history.size(); ++i) {
    const ModelEvent& e = block->history[i];
    if (isMarker(e)) {
      result.invalidated = true;
      continue;
    }
    if (block->observed ? *block->observed == i : !isTransparent(e)) {
      result.status = 0;
      result.content = e.content;
      result.block = e.block;
      result.hash = e.hash;
      result.stamped = e.stamped;
      result.stampId = e.stampId;
      result.stampLba = e.stampLba;
      break;
    }
  }
  return result;
}

std::optional<uint64_t> ReadContext::brokenAt() const {
  std::vector<const SeenBlock*> blocks;
  for (const SeenBlock& block : blocks_) {
    blocks.push_back(&block);
  }
  if (const auto place = walk(blocks, true)) {
    return blocks[*place]->lba;
  }
  std::reverse(blocks.begin(), blocks.end());
  if (const auto place = walk(blocks, false)) {
    return blocks[*place]->lba;
  }
  return std::nullopt;
}

std::string ReadContext::historyText(uint64_t lba) const {
  const SeenBlock* block = find(lba);
  if (block == nullptr) {
    return {};
  }
  std::string text = "Context History for lba 0x" + hexText(lba) + ":\n";
  text += "EventType   CmdID       BlockType  BlockNum  EmbedCmdID    EmbedLBA          HashValue       \n";
  text += std::string(93, '-') + "\n";
  for (size_t i = 0; i < block->history.size(); ++i) {
    text += lineOf(block->history[i]);
    text += block->observed && *block->observed == i ? "  *observed*\n" : "\n";
  }
  return text;
}

}  // namespace refmodel
