#include "DriveRun.h"

#include <algorithm>
#include <stdexcept>
#include <system_error>

#include "ReferenceAudit.h"
#include "Texts.h"

namespace randomhost {

namespace {

constexpr uint32_t none = 0xFFFFFFFF;

bool isOneOf(int result, std::initializer_list<int> documented) {
  return std::find(documented.begin(), documented.end(), result) != documented.end();
}

std::string wrongResult(const char* callback, int result) {
  return std::string(callback) + " returned " + std::to_string(result) + ", which it never may";
}

}  // namespace

DriveRun::DriveRun(const vdl::AgentTable& agent, const vdl::Corvane::ConfigData& config, const Plan& plan, Dice& dice,
                   StandardStreams& streams)
    : agent_(agent), config_(config), plan_(plan), dice_(dice), streams_(streams), framework_(plan.maps) {
  vdl::DriveThread& thread = framework_.thread;
  thread.blockSize = plan.blockSize;
  thread.protectionEnabled = plan.protection;
  thread.protectionBytes = 8;
  thread.physicalExponent = static_cast<uint32_t>(dice.of<uint64_t>({0, 3, 63, 64, dice.below(8)}));
  thread.queueDepth = plan.queueDepth;
  thread.ostraDevice = plan.ostraDevice;
  thread.name = "d" + std::to_string(dice.below(3));
  // Long ago, or so far ahead that no toggle is due before a power-on.
  thread.timestampUs = plan.powerIsDue ? 0 : uint64_t{1} << 60;
  for (uint32_t tag = 0; tag < plan.queueDepth; ++tag) {
    framework_.tags.free.push_back(tag);
  }
  framework_.u32("TestMaxXferLength") = dice.oneIn(10) ? 0 : plan.longest;
  framework_.u64("MinLBA") = plan.minLba;
  framework_.u64("MaxLBA") = plan.maxLba;
}

DriveRun::~DriveRun() {
  if (registered()) {
    agent_.freeDriveData(framework_.state.driveData);
  }
}

std::string DriveRun::initDriveData() {
  note_ = Note{.callback = "initDriveData"};
  note_.result = agent_.initDriveData(&framework_.thread);
  const MapPlan& maps = plan_.maps;
  const int expected = maps.failingMap != 0 ? maps.failure : maps.registrationStatus;
  if (note_.result != expected) {
    return wrongResult("initDriveData", note_.result);
  }
  if (registered()) {
    books_ = std::make_unique<Books>(config_, framework_.thread, data());
  }
  return judgeTexts();
}

std::string DriveRun::startTest() {
  note_ = Note{.callback = "startTest"};
  ostraPlan = OstraPlan{dice_.of<int>({0, 5}), dice_.of<int>({0, -9}), static_cast<uint32_t>(dice_.below(2))};
  note_.result = agent_.startTest(&framework_.thread, &config_, framework_.state.driveData, 0);
  if (!isOneOf(note_.result, {0, -1002, -1009, -1027, -1050})) {
    return wrongResult("startTest", note_.result);
  }
  if (note_.result != startResult(plan_, config_)) {
    return "startTest returned " + std::to_string(note_.result) + " instead of " +
           std::to_string(startResult(plan_, config_));
  }
  if (note_.result != 0 && plan_.lawful) {
    return "a lawful test did not start";
  }
  started_ = note_.result == 0;
  books_->startTest(note_.result, startMakesTrace(config_));
  return judgeTexts();
}

std::string DriveRun::stopTest() {
  note_ = Note{.callback = "stopTest"};
  note_.result = agent_.stopTest(&framework_.thread, &config_, framework_.state.driveData, 0);
  if (note_.result != 0) {
    return wrongResult("stopTest", note_.result);
  }
  const vdl::Buffer& shown = framework_.buffer("WriteData");
  if (shown.data != data().buckets || shown.owned) {
    return "WriteData does not show the pool after the test";
  }
  lines_.clear();
  for (const Line& line : framework_.said.lines) {
    if (!isDocumented(line)) {
      return "said: " + line.text;
    }
  }
  framework_.said.lines.clear();
  return {};
}

std::string DriveRun::deviceReset() {
  note_ = Note{.callback = "deviceReset"};
  const uint64_t before = traced();
  note_.result = agent_.deviceReset(&framework_.thread, &config_, framework_.state.driveData);
  if (note_.result != 0) {
    return wrongResult("deviceReset", note_.result);
  }
  sent_.clear();
  if (framework_.u32("LastTagID") != 255 || framework_.u32("LastStatusByte") != none ||
      framework_.u32("ReadDataIsValid") != 0 || !framework_.tags.outstanding.empty()) {
    return "the reset left a completion or a tag behind";
  }
  for (const std::string& wrong : {books_->deviceReset(tracedSince(before)), books_->compare(true), judgeTexts()}) {
    if (!wrong.empty()) {
      return wrong;
    }
  }
  return {};
}

std::vector<vdl::CommandTrace::TraceInfo> DriveRun::tracedSince(uint64_t count) const {
  std::vector<vdl::CommandTrace::TraceInfo> entries;
  for (const vdl::CommandTrace* trace = data().trace; trace != nullptr && count < trace->count(); ++count) {
    entries.push_back(trace->entry(count % trace->size()));
  }
  return entries;
}

bool DriveRun::exhausted() const {
  // A step must not trace more than the ring holds, and a failed compare ends the handling of completions.
  const uint64_t room = data().trace == nullptr ? 1000 : data().trace->size() / 3;
  return books_->inFlight() > std::min<uint64_t>(room, 150) || books_->records() > 1500 ||
         data().writeFinished.size() > 300;
}

std::string DriveRun::judgeTexts() {
  streams_.take(lines_);
  uint64_t refusals = 0;
  for (const std::vector<Line>* said : {&lines_, &framework_.said.lines}) {
    for (const Line& line : *said) {
      if (!isDocumented(line)) {
        return "said: " + line.text;
      }
      if (plan_.lawful && (line.channel == Channel::error || line.channel == Channel::standardError ||
                           (line.channel == Channel::warning && line.text.find("DEPRECATED") == std::string::npos))) {
        return "said of a good drive on a good host: " + line.text;
      }
      refusals += line.text.rfind("<E> ", 0) == 0 ? 1U : 0U;
    }
  }
  const uint64_t own = books_ == nullptr ? 0 : books_->takeRefusals();
  lines_.clear();
  framework_.said.lines.clear();
  if (refusals != own) {
    return "the table refused " + std::to_string(refusals) + " times instead of " + std::to_string(own);
  }
  return {};
}

std::string DriveRun::execute(bool wholeTable) {
  Offer offer;
  offerOutsideEvents(offer);
  offerCommand(offer);
  offerCompletion(offer);
  offerTag(offer);
  offerConditions(offer);
  publish(offer);

  note_ = Note{.callback = "execute"};
  note_.tag = offer.tag;
  note_.status = offer.status;
  note_.lba = offer.lba;
  note_.xferLength = offer.xferLength;
  note_.nextTag = offer.nextTag;
  note_.conditions = offer.conditions;

  Outcome outcome;
  const uint64_t before = traced();
  try {
    outcome.result = agent_.execute(&framework_.thread, &config_, framework_.state.driveData);
  } catch (const std::out_of_range&) {
    outcome.outOfRange = true;
  } catch (const std::system_error&) {
    outcome.systemError = true;
  }
  note_.result = outcome.result;
  outcome.traced = tracedSince(before);
  outcome.conditions = framework_.thread.conditions;
  framework_.hide("ReadDataPtr[TagID]", offer.tag);
  return judgeStep(offer, outcome, wholeTable);
}

std::string DriveRun::judgeStep(const Offer& offer, const Outcome& outcome, bool wholeTable) {
  failed_ = failed_ || outcome.result != 0 || outcome.outOfRange || outcome.systemError;
  if (!isOneOf(outcome.result, {0, -1003, -1022, -1046, -1050, -1057, -1062, -1063, -1200})) {
    return wrongResult("execute", outcome.result);
  }
  if (plan_.lawful && outcome.result != 0) {
    return "a step of a good drive on a good host failed with " + std::to_string(outcome.result);
  }
  for (const std::string& wrong :
       {books_->execute(offer, outcome), books_->compare(wholeTable), judgeTexts(), issue(outcome, offer)}) {
    if (!wrong.empty()) {
      return wrong;
    }
  }
  if (plan_.lawful && data().referencesBalanced) {
    return vdl::agent::auditReferences(data());
  }
  return {};
}

void DriveRun::publish(const Offer& offer) {
  framework_.u64("LBA") = offer.lba;
  framework_.u32("XferLength") = offer.xferLength;
  framework_.u32("AtomicBound") = offer.atomicBound;
  framework_.u32("SkipGen") = 0;
  framework_.u32("LastTagID") = offer.tag;
  framework_.u32("LastStatusByte") = offer.status;
  framework_.u32("ReadDataIsValid") = offer.readDataIsValid ? 1 : 0;
  framework_.u32("DeviceInterface") = offer.deviceInterface;
  framework_.u32("EPO") = powerCut_ ? 1 : 0;
  framework_.flag("DeviceReset") = offer.deviceReset;
  framework_.u32("HostManaged") = offer.hostManaged ? 1 : 0;
  framework_.u64("WriteLBA") = offer.writeLba;
  framework_.u32("WriteXferLength") = offer.writeXferLength;
  framework_.thread.conditions = offer.conditions;
  framework_.showSense(offer.sense);
  if (offer.sense.empty() && does(Misdeed::brokenSense, 3)) {
    // A size without bytes.
    framework_.buffer("LastErrSenseData").size = 18;
    framework_.buffer("LastErrSenseData").data = nullptr;
  }
  if (offer.dataShown) {
    framework_.show("ReadDataPtr[TagID]", offer.tag, offer.data);
  }
  if (dice_.oneIn(4)) {
    framework_.show("RecvCDB[TagID]", offer.tag, std::vector<uint8_t>(dice_.below(20), 0x28));
  }
  powerCut_ = false;
}

void DriveRun::giveTagBack(uint32_t tag) {
  std::deque<uint32_t>& outstanding = framework_.tags.outstanding;
  const auto found = std::find(outstanding.begin(), outstanding.end(), tag);
  if (found != outstanding.end()) {
    outstanding.erase(found);
    framework_.tags.free.push_back(tag);
  }
}

bool DriveRun::overlaps(const Sent& left, const Sent& right) const {
  return left.lba < right.lba + uint64_t{right.length} * stride() &&
         right.lba < left.lba + uint64_t{left.length} * stride();
}

bool DriveRun::overlapsAnySent(uint64_t first, uint64_t end) const {
  return std::any_of(sent_.begin(), sent_.end(), [&](const Sent& sent) {
    return sent.lba < end && first < sent.lba + uint64_t{sent.length} * stride();
  });
}

std::vector<uint8_t> DriveRun::readMedium(uint64_t lba, uint32_t length) {
  std::vector<uint8_t> bytes(sector() * length);
  for (uint64_t i = 0; i < length; ++i) {
    const auto block = medium_.find(lba + i * stride());
    if (block != medium_.end()) {
      std::copy(block->second.begin(), block->second.end(), bytes.begin() + static_cast<std::ptrdiff_t>(i * sector()));
    }
  }
  return bytes;
}

std::string DriveRun::checkWriteData(const Sent& sent) const {
  const vdl::Buffer& shown = *data().writeData;
  const uint64_t blocks = sent.type == Type::WriteSameIssued ? 1 : std::max<uint64_t>(sent.length, 1);
  const uint64_t unit = shown.size / blocks;
  if (shown.data == nullptr || shown.owned || shown.size % blocks != 0 || (unit != sector() && unit != sector() + 8)) {
    return "WriteData holds " + std::to_string(shown.size) + " bytes for " + std::to_string(blocks) + " blocks";
  }
  const bool stamped = sent.type == Type::WriteAtomicIssued || config_.embedData;
  for (uint64_t i = 0; stamped && sent.type != Type::VerifyIssued && i < blocks; ++i) {
    uint64_t lba = 0;
    for (uint64_t byte = 8; byte < 16; ++byte) {
      lba = lba << 8 | shown.data[i * unit + byte];
    }
    if (lba != sent.lba + i) {
      return "block " + std::to_string(i) + " of a write says that it is LBA " + std::to_string(lba);
    }
  }
  return {};
}

/// The drive carries a command out when it gets it; what it says of it comes later.
void DriveRun::keepMedium(const Sent& sent, uint32_t blocks) {
  const vdl::Buffer& shown = *data().writeData;
  const bool same = sent.type == Type::WriteSameIssued;
  const uint64_t unit = shown.size / (same ? 1 : std::max<uint64_t>(sent.length, 1));
  for (uint64_t i = 0; i < blocks; ++i) {
    std::vector<uint8_t>& block = medium_[sent.lba + i * stride()];
    if (sent.type == Type::TrimIssued) {
      block.assign(sector(), 0);
    } else {
      const uint8_t* bytes = shown.data + (same ? 0 : i * unit);
      block.assign(bytes, bytes + sector());
    }
  }
}

std::string DriveRun::issue(const Outcome& outcome, const Offer& /*offer*/) {
  std::erase_if(sent_, [this](const Sent& sent) {
    const std::deque<uint32_t>& outstanding = framework_.tags.outstanding;
    return std::find(outstanding.begin(), outstanding.end(), sent.tag) == outstanding.end();
  });
  const vdl::CommandTrace::TraceInfo last =
      outcome.traced.empty() ? vdl::CommandTrace::TraceInfo{} : outcome.traced.back();
  note_.issued = last.type;
  if (last.type == Type::PowerToggleOff) {
    powerCut_ = true;
    return {};
  }
  const bool writes = last.type == Type::WriteIssued || last.type == Type::WriteAtomicIssued ||
                      last.type == Type::WriteSameIssued || last.type == Type::TrimIssued;
  const bool reads = last.type == Type::ReadIssued || last.type == Type::PreReadIssued;
  const bool verifies = last.type == Type::VerifyIssued;
  if (!writes && !reads && !verifies && last.type != Type::SyncIssued) {
    return {};
  }
  if (outcome.result != 0 || does(Misdeed::forgetsToIssue, 5)) {
    return {};
  }
  Sent sent{last.tag, last.type, last.lba, last.xfer_len, {}};
  if (framework_.u64("LBA") != sent.lba && (last.type == Type::ReadIssued || verifies)) {
    return "the shared LBA is not the command's";
  }
  if ((writes && last.type != Type::TrimIssued) || verifies) {
    if (std::string wrong = checkWriteData(sent); !wrong.empty()) {
      return wrong;
    }
  }
  if (writes) {
    // A drive that lost power or gave up may have torn it.
    sent.torn = does(Misdeed::tornData, 8);
    keepMedium(sent, sent.torn ? static_cast<uint32_t>(dice_.below(sent.length + 1ULL)) : sent.length);
  } else if (verifies) {
    const vdl::Buffer& shown = *data().writeData;
    const uint64_t unit = shown.size / std::max<uint64_t>(sent.length, 1);
    const std::vector<uint8_t> held = readMedium(sent.lba, sent.length);
    for (uint64_t i = 0; i < sent.length; ++i) {
      sent.differs = sent.differs || !std::equal(shown.data + i * unit, shown.data + i * unit + sector(),
                                                 held.begin() + static_cast<std::ptrdiff_t>(i * sector()));
    }
  } else if (reads) {
    sent.data = readMedium(sent.lba, sent.length);
  }
  std::deque<uint32_t>& free = framework_.tags.free;
  if (!free.empty() && free.front() == sent.tag) {
    free.pop_front();
    framework_.tags.outstanding.push_back(sent.tag);
  }
  sent_.push_back(std::move(sent));
  return {};
}

}  // namespace randomhost
