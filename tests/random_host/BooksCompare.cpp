// How the books are compared with the agent's.

#include "Books.h"

namespace randomhost {

namespace {

template <typename Own, typename Theirs, typename Same>
std::string compareLists(const char* name, const Own& own, const Theirs& theirs, Same same) {
  if (own.size() != theirs.size()) {
    return std::string(name) + " holds " + std::to_string(theirs.size()) + " instead of " + std::to_string(own.size());
  }
  auto their = theirs.begin();
  for (const auto& mine : own) {
    if (mine.id != their->cmdId || mine.lba != their->lba || !same(mine, *their)) {
      return std::string(name) + " holds another command " + std::to_string(their->cmdId) + " instead of " +
             std::to_string(mine.id);
    }
    ++their;
  }
  return {};
}

char kindOf(const vdl::Event& event) { return "NWAHIM"[static_cast<int>(event.type)]; }
char contentOf(const vdl::Event& event) { return "UNAH"[static_cast<int>(event.block_type)]; }

/// @return empty when a record of the table is what the model says
std::string compareRecord(const modeltest::ModelRecord& own, const vdl::LBARecord& theirs) {
  if (own.references != theirs.ref_count) {
    return std::to_string(theirs.ref_count) + " references instead of " + std::to_string(own.references);
  }
  const vdl::Event* event = theirs.events;
  for (const modeltest::ModelEvent& mine : own.events) {
    if (event == nullptr || kindOf(*event) != mine.kind || event->cmd_id != mine.id ||
        contentOf(*event) != mine.content || event->block_num != mine.block || event->embed.valid != mine.stamped) {
      return "another history, from the event of command " + std::to_string(mine.id) + " on";
    }
    event = event->next;
  }
  if (event != nullptr) {
    return "an event of command " + std::to_string(event->cmd_id) + " too many";
  }
  const vdl::WaitRead* wait = theirs.wait_read;
  for (const modeltest::ModelWait& mine : own.waits) {
    if (wait == nullptr || wait->cmd_id != mine.id) {
      return "no wait of read " + std::to_string(mine.id);
    }
    wait = wait->next;
  }
  return wait == nullptr ? std::string() : "a wait of read " + std::to_string(wait->cmd_id) + " too many";
}

}  // namespace

std::string Books::compare(bool wholeTable) const {
  const auto sameTag = [](const Command& own, const auto& theirs) {
    return own.length == theirs.xferLength && own.tag == theirs.tagId;
  };
  const auto sameWrite = [&](const Command& own, const auto& theirs) {
    return sameTag(own, theirs) && own.linked == theirs.readCmdId && own.readBack == (theirs.readBack != 0) &&
           own.atomic == (theirs.readBackOnError != 0);
  };
  const auto samePreRead = [&](const Command& own, const auto& theirs) {
    return sameTag(own, theirs) && own.linked == theirs.readCmdId && own.bound == theirs.writeParam;
  };
  const auto sameVerify = [&](const Command& own, const auto& theirs) {
    return sameTag(own, theirs) && own.expectMiscompare == (theirs.expectMiscompare != 0);
  };
  const auto sameSplice = [](const Command& own, const auto& theirs) {
    return own.length == theirs.xferLength && own.splice == (theirs.spliceCheck != 0) &&
           own.retries == theirs.spliceRetries;
  };
  const auto sameKept = [](const KeptRead& own, const auto& theirs) {
    return own.count == theirs.blockCount && own.pending == theirs.pendingWrites;
  };
  for (const std::string& difference :
       {compareLists("writeSent", writeSent_, agent_.writeSent, sameWrite),
        compareLists("writeFinished", writeFinished_, agent_.writeFinished, sameSplice),
        compareLists("readSent", readSent_, agent_.readSent, sameSplice),
        compareLists("verifySent", verifySent_, agent_.verifySent, sameVerify),
        compareLists("preReadSent", preReadSent_, agent_.preReadSent, samePreRead),
        compareLists("preReadFinished", preReadFinished_, agent_.preReadFinished, samePreRead),
        compareLists("comparableReads", keptReads_, agent_.comparableReads, sameKept)}) {
    if (!difference.empty()) {
      return difference;
    }
  }
  if (agent_.nextCmdId != nextId_ || agent_.syncIssued != syncIssued_ || agent_.syncDone != syncDone_ ||
      agent_.miscompareSeen != miscompareSeen_ || agent_.failureSeen != failureSeen_ ||
      agent_.skipGenOnList != skipGenOnList_) {
    return "a counter or flag of the drive differs";
  }
  if (agent_.atomicHash.records().size() != table_.records.size()) {
    return "the table holds " + std::to_string(agent_.atomicHash.records().size()) + " records instead of " +
           std::to_string(table_.records.size());
  }
  uint64_t references = 0;
  for (const auto& [lba, own] : table_.records) {
    references += own.references;
    const vdl::LBARecord* theirs = wholeTable ? agent_.atomicHash.records().record(lba) : nullptr;
    if (wholeTable && theirs == nullptr) {
      return "LBA " + std::to_string(lba) + " has no record";
    }
    if (const std::string difference = wholeTable ? compareRecord(own, *theirs) : std::string(); !difference.empty()) {
      return "LBA " + std::to_string(lba) + " has " + difference;
    }
  }
  if (agent_.atomicHash.references() != references) {
    return "the table counts " + std::to_string(agent_.atomicHash.references()) + " references instead of " +
           std::to_string(references);
  }
  return {};
}

}  // namespace randomhost
