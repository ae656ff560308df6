#include "tests/model/StateDifference.h"

#include <algorithm>

#include "tests/model/ReadContext.h"

namespace refmodel {

namespace {

using modeltest::Model;
using modeltest::ModelEvent;
using modeltest::ModelPeek;
using modeltest::ModelRecord;
using modeltest::ModelWait;

char kindOf(vdl::EventType type) { return "NWAHIM"[static_cast<int>(type)]; }
char contentOf(vdl::BlockType type) { return "UNAH"[static_cast<int>(type)]; }

bool same(const ModelPeek& m, const vdl::PeekResult& r) {
  return m.status == r.status && m.content == contentOf(r.block_type) && m.block == r.block_num && m.hash == r.hash &&
         m.stamped == r.embed.valid && m.stampId == r.embed.cmd_id && m.stampLba == r.embed.lba &&
         m.invalidated == r.invalidated;
}

bool same(const ModelEvent& m, const vdl::Event& e) {
  return m.kind == kindOf(e.type) && m.id == e.cmd_id && m.content == contentOf(e.block_type) &&
         m.block == e.block_num && m.hash == e.hash && m.stamped == e.embed.valid && m.stampId == e.embed.cmd_id &&
         m.stampLba == e.embed.lba && m.offset == e.segment.offset && m.length == e.segment.length &&
         m.segment == e.segment.segment;
}

std::string at(const char* what, uint64_t lba) { return std::string(what) + " at LBA " + std::to_string(lba); }

std::string eventsDifference(uint64_t lba, const ModelRecord& model, const vdl::LBARecord& record) {
  const vdl::Event* event = record.events;
  for (const ModelEvent& expected : model.events) {
    if (event == nullptr) {
      return at("an event is missing", lba);
    }
    if (!same(expected, *event)) {
      return at("an event is different", lba);
    }
    event = event->next;
  }
  return event == nullptr ? "" : at("there is an event too many", lba);
}

std::string waitsDifference(uint64_t lba, const ModelRecord& model, const vdl::LBARecord& record) {
  const vdl::WaitRead* wait = record.wait_read;
  for (const ModelWait& expected : model.waits) {
    if (wait == nullptr || wait->cmd_id != expected.id) {
      return at("the waiting reads are others", lba);
    }
    const vdl::Event* event = record.events;
    for (size_t i = Model::position(model, expected.serialOfHead); i > 0 && event != nullptr; --i) {
      event = event->next;
    }
    if (event != wait->event) {
      return at("a read waits on another event", lba);
    }
    wait = wait->next;
  }
  return wait == nullptr ? "" : at("the waiting reads are others", lba);
}

std::string recordsDifference(const Model& model, const vdl::AtomicHash& table) {
  uint64_t references = 0;
  auto expected = model.records.begin();
  for (const auto& [lba, record] : table.records()) {
    if (expected == model.records.end() || expected->first < lba) {
      return at("the record should be gone", lba);
    }
    if (expected->first != lba) {
      return at("there is no record", expected->first);
    }
    if (expected->second.references != record.ref_count) {
      return at("the references are", lba) + " " + std::to_string(record.ref_count) + " and not " +
             std::to_string(expected->second.references);
    }
    references += expected->second.references;
    if (std::string text = eventsDifference(lba, expected->second, record); !text.empty()) {
      return text;
    }
    if (std::string text = waitsDifference(lba, expected->second, record); !text.empty()) {
      return text;
    }
    ++expected;
  }
  if (expected != model.records.end()) {
    return at("there is no record", expected->first);
  }
  const bool right = references == table.references() && model.records.size() == table.records().size();
  return right ? "" : "the sums over all records are wrong";
}

std::string lookDifference(const Model& model, const vdl::AtomicHash& table, uint64_t first, uint64_t last) {
  for (uint64_t lba = first; lba <= last; ++lba) {
    if (!same(model.peek(lba), table.peek(lba))) {
      return at("the peek is different", lba);
    }
    const bool few = last - first < 8;
    for (uint64_t end = few ? first : lba; end <= (few ? last + 1 : std::min(last, lba + 2)); ++end) {
      if (model.known(lba, end) != table.isStateKnown(lba, end)) {
        return at("the range is known to one only", lba) + " below " + std::to_string(end);
      }
    }
  }
  return {};
}

std::string contextDifference(const Model& model, const vdl::AtomicHash& table, uint64_t first, uint64_t last,
                              uint64_t read) {
  const ReadContext expected(model, first, last, read);
  const vdl::AtomicContext context = table.getContext(first, last, read);
  if (expected.size() != context.size()) {
    return "the context of the read with id " + std::to_string(read) + " has other blocks";
  }
  for (uint64_t lba = first; lba <= last; ++lba) {
    if (!same(expected.peek(lba), context.peek(lba))) {
      return at("the peek into the context is different", lba);
    }
  }
  return {};
}

bool same(const ModelRecord& left, const ModelRecord& right) {
  const auto sameEvent = [](const ModelEvent& l, const ModelEvent& r) {
    return l.serial == r.serial && l.content == r.content && l.block == r.block;
  };
  const auto sameWait = [](const ModelWait& l, const ModelWait& r) { return l.id == r.id; };
  return left.references == right.references &&
         std::equal(left.events.begin(), left.events.end(), right.events.begin(), right.events.end(), sameEvent) &&
         std::equal(left.waits.begin(), left.waits.end(), right.waits.begin(), right.waits.end(), sameWait);
}

}  // namespace

std::string stateDifference(const Model& model, const vdl::AtomicHash& table, uint64_t first, uint64_t last,
                            const std::vector<uint64_t>& reads) {
  if (std::string text = recordsDifference(model, table); !text.empty()) {
    return text;
  }
  if (std::string text = lookDifference(model, table, first, last); !text.empty()) {
    return text;
  }
  for (const uint64_t read : reads) {
    if (std::string text = contextDifference(model, table, first, last, read); !text.empty()) {
      return text;
    }
  }
  return {};
}

bool sameTable(const Model& left, const Model& right) {
  const auto sameEntry = [](const auto& l, const auto& r) { return l.first == r.first && same(l.second, r.second); };
  return std::equal(left.records.begin(), left.records.end(), right.records.begin(), right.records.end(), sameEntry);
}

}  // namespace refmodel
