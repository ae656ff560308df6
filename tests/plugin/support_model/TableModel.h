#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Event.h"

/// The expected-state table once more: plain structs in vectors, slow and obvious.
namespace modeltest {

using vdl::AtomicSegment;
using vdl::EmbedData;

struct ModelEvent {
  int serial = 0;   ///< tells events apart that carry the same id
  char kind = 'N';  ///< N one, W rite, A tomic, H ash, I nvalidate, M arker
  uint64_t id = 0;
  char content = 'U';  ///< U nknown, N ormal, A tomic (unfinished), H ash
  uint32_t block = 0x80001;
  uint64_t hash = 0;
  bool stamped = false;
  uint64_t stampId = 0;
  uint64_t stampLba = 0;
  uint32_t offset = 0;
  uint32_t length = 0;
  uint32_t segment = 0;
};

struct ModelWait {
  uint64_t id;
  int serialOfHead;
};

struct ModelRecord {
  uint64_t references = 0;
  std::vector<ModelEvent> events;  ///< newest first
  std::vector<ModelWait> waits;    ///< newest first
};

struct ModelPeek {
  int status = -1003;
  char content = 'U';
  uint32_t block = 0x80001;
  uint64_t hash = 0;
  bool stamped = false;
  uint64_t stampId = 0;
  uint64_t stampLba = 0;
  bool invalidated = false;
};

struct Model {
  std::map<uint64_t, ModelRecord> records;
  int nextSerial = 1;
  std::string said;  ///< lines to standard error

  static std::string hex(uint64_t value) {
    std::ostringstream text;
    text << std::hex << value;
    return text.str();
  }
  void say(const std::string& what, uint64_t lba) { said += what + hex(lba) + "\n"; }
  void say(const std::string& what, uint64_t lba, uint64_t id) {
    said += what + hex(lba) + " cmd_id:" + hex(id) + "\n";
  }

  bool has(uint64_t lba) const { return records.count(lba) == 1; }

  void put(ModelRecord& record, ModelEvent event) {
    event.serial = nextSerial++;
    std::vector<ModelEvent>& list = record.events;
    if (list.empty() || event.id == 0 || event.id > list[0].id) {
      list.insert(list.begin(), event);
      return;
    }
    std::size_t behind = 0;
    while (behind + 1 < list.size() && list[behind + 1].id > event.id) {
      ++behind;
    }
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(behind) + 1, event);
  }

  void clean(uint64_t lba) {
    if (has(lba) && records[lba].references == 0 && records[lba].waits.empty()) {
      records.erase(lba);
    }
  }

  /// The newest event from position `from` on that is no marker.
  static ModelPeek peekFrom(const std::vector<ModelEvent>& list, std::size_t from) {
    ModelPeek result;
    for (std::size_t i = from; i < list.size(); ++i) {
      const ModelEvent& e = list[i];
      if (e.kind == 'M') {
        result.invalidated = true;
        continue;
      }
      result.status = 0;
      result.content = e.content;
      result.block = e.block;
      result.hash = e.hash;
      result.stamped = e.stamped;
      result.stampId = e.stampId;
      result.stampLba = e.stampLba;
      return result;
    }
    return result;
  }

  ModelPeek peek(uint64_t lba) const { return has(lba) ? peekFrom(records.at(lba).events, 0) : ModelPeek{}; }

  int write(uint64_t id, uint64_t lba, uint32_t block, const EmbedData& embed) {
    ModelRecord& record = records[lba];
    record.references += 1;
    ModelEvent e;
    e.kind = 'W';
    e.id = id;
    e.content = 'N';
    e.block = block;
    e.stamped = embed.valid;
    e.stampId = embed.cmd_id;
    e.stampLba = embed.lba;
    put(record, e);
    return 0;
  }

  int atomicWrite(uint64_t id, uint64_t lba, uint32_t block, const EmbedData& embed, const AtomicSegment& where) {
    ModelRecord& record = records[lba];
    record.references += 1;
    ModelEvent e;
    e.kind = 'A';
    e.id = id;
    e.content = 'A';
    e.block = block;
    e.stamped = embed.valid;
    e.stampId = embed.cmd_id;
    e.stampLba = embed.lba;
    e.offset = where.offset;
    e.length = where.length;
    e.segment = where.segment;
    put(record, e);
    return 0;
  }

  void finishWrite(uint64_t id, uint64_t lba) {
    if (!has(lba)) {
      return;
    }
    for (ModelEvent& e : records[lba].events) {
      if (e.id == id) {
        if (e.content == 'A') {
          e.content = 'N';
        }
        return;
      }
    }
  }

  void failWrite(uint64_t id, uint64_t lba) {
    if (!has(lba)) {
      return;
    }
    for (ModelEvent& e : records[lba].events) {
      if (e.id == id) {
        if (e.kind == 'W') {
          e.block = 0x80001;
        }
        return;
      }
    }
  }

  bool known(const ModelRecord& record) const {
    for (const ModelEvent& e : record.events) {
      if (e.content == 'N' || e.content == 'H') {
        return true;
      }
      if (e.content != 'A') {
        return false;
      }
    }
    return false;
  }

  bool known(uint64_t first, uint64_t end) const {
    if (!has(first) || !has(end)) {
      return false;
    }
    for (uint64_t lba = first; lba < end; ++lba) {
      if (!has(lba) || !known(records.at(lba))) {
        return false;
      }
    }
    return true;
  }

  void invalidate(uint64_t first, uint64_t last, bool replace) {
    for (auto& [lba, record] : records) {
      if (lba >= first && lba <= last) {
        ModelEvent e;
        e.kind = replace ? 'I' : 'M';
        put(record, e);
      }
    }
  }

  int issueRead(uint64_t id, uint64_t lba, bool expect) {
    if (has(lba)) {
      if (expect) {
        if (records[lba].references == 0) {
          say("<E> SANITY_CHECK readIssued expect=1 ref_count=0 lba:", lba, id);
          return -1200;
        }
        records[lba].references -= 1;
      }
    } else {
      if (expect) {
        say("<E> readIssued !record && expect lba:", lba, id);
        return -1003;
      }
      put(records[lba], ModelEvent{});
    }
    ModelRecord& record = records[lba];
    record.waits.insert(record.waits.begin(), ModelWait{id, record.events.at(0).serial});
    return 0;
  }

  ModelPeek finishRead(uint64_t id, uint64_t lba, bool keep) {
    if (!has(lba)) {
      say("<E> readFinished couldn't find record lba:", lba, id);
      return {};
    }
    ModelRecord& record = records[lba];
    for (std::size_t w = 0; w < record.waits.size(); ++w) {
      if (record.waits[w].id == id) {
        const ModelPeek result = peekFrom(record.events, position(record, record.waits[w].serialOfHead));
        record.waits.erase(record.waits.begin() + static_cast<std::ptrdiff_t>(w));
        if (keep) {
          record.references += 1;
        } else {
          clean(lba);
        }
        return result;
      }
    }
    say("<E> readFinished couldn't find wait_read lba:", lba, id);
    return {};
  }

  static std::size_t position(const ModelRecord& record, int serial) {
    std::size_t i = 0;
    while (record.events.at(i).serial != serial) {
      ++i;
    }
    return i;
  }

  int skipRead(uint64_t lba) {
    if (!has(lba)) {
      say("<E> readSkip couldn't find record lba:", lba);
      return -1003;
    }
    if (records[lba].references > 0) {
      records[lba].references -= 1;
      clean(lba);
    }
    return 0;
  }

  int saveHash(uint64_t id, uint64_t lba, uint64_t hash, bool addRef) {
    ModelRecord& record = records[lba];
    record.references += addRef ? 1 : 0;
    ModelEvent e;
    e.kind = 'H';
    e.id = id;
    e.content = 'H';
    e.hash = hash;
    put(record, e);
    return 0;
  }

  int dropHash(uint64_t id, uint64_t lba) {
    if (!has(lba)) {
      say("<E> dropHash couldn't find record lba:", lba);
      return -1003;
    }
    bool found = false;
    for (const ModelEvent& e : records[lba].events) {
      found = found || e.id == id;
    }
    if (!found) {
      say("<E> dropHash no hash event found. lba:", lba, id);
      return -1003;
    }
    if (records[lba].references == 0) {
      say("<E> SANITY_CHECK dropHash ref_count=0 lba:", lba, id);
      return -1200;
    }
    records[lba].references -= 1;
    clean(lba);
    return 0;
  }
};

}  // namespace modeltest
