#include "host/drive/scsi/ScsiDialogue.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <thread>

#include "host/drive/DriveError.h"
#include "vdl/SenseParser.h"

namespace corvane::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t senseHeaderBytes = 8;
constexpr uint8_t notReady = 0x2;
constexpr uint8_t unitAttention = 0x6;
constexpr uint8_t notReadyCode = 0x04;
constexpr uint8_t noMediumCode = 0x3A;
constexpr uint32_t mostAttentions = 256;  ///< in a row; a unit has only so many reasons
constexpr std::chrono::milliseconds busyPause{10};
constexpr std::chrono::milliseconds busyPatience{5000};
constexpr std::chrono::milliseconds readyPause{50};

bool isBusy(const ScsiReply& reply) {
  return reply.status == scsi_status::busy || reply.status == scsi_status::taskSetFull;
}

/// Whether time alone makes the unit ready (SPC, additional sense code 04h).
bool isBecomingReady(const Sense& sense) {
  constexpr std::array<uint8_t, 5> passing{0x01,   // becoming ready
                                           0x07,   // operation in progress
                                           0x09,   // self-test in progress
                                           0x0A,   // asymmetric access state transition
                                           0x11};  // notify (enable spinup) required
  return sense.key == notReady && sense.code == notReadyCode &&
         std::find(passing.begin(), passing.end(), sense.qualifier) != passing.end();
}

std::string whyNotReady(const ScsiReply& reply) {
  const std::string answer = " (" + describeAnswer(reply) + ")";
  const std::optional<Sense> sense = senseOf(reply);
  if (reply.status == scsi_status::reservationConflict) {
    return "another initiator has reserved it" + answer + "; have the reservation released";
  }
  if (isBusy(reply)) {
    return "it says that it is busy" + answer + "; try again when nobody else keeps it so";
  }
  if (!sense || sense->key != notReady) {
    return "it does not get ready" + answer + "; see its own log";
  }
  if (sense->code == noMediumCode) {
    return "it has no medium" + answer + "; insert one";
  }
  constexpr uint8_t needsStart = 0x02;
  constexpr uint8_t formatting = 0x04;
  if (sense->code == notReadyCode && sense->qualifier == needsStart) {
    return "it is stopped" + answer + "; start it with START STOP UNIT";
  }
  if (sense->code == notReadyCode && sense->qualifier == formatting) {
    return "it is being formatted" + answer + "; wait until that has ended";
  }
  return "it is not ready" + answer + "; see its own log";
}

ScsiRequest requestOf(const Cdb& block, ScsiRequest::Data direction, std::span<uint8_t> data) {
  ScsiRequest request;
  request.cdb = block;
  request.cdbBytes = cdbBytesOf(block[0]);
  request.direction = direction;
  request.data = data.data();
  request.bytes = data.size();
  return request;
}

}  // namespace

std::optional<Sense> senseOf(const ScsiReply& reply) {
  vdl::SenseParser::Kcq kcq;
  const uint8_t* bytes = reply.sense.data();
  if (reply.status != scsi_status::checkCondition || reply.senseBytes < senseHeaderBytes ||
      vdl::SenseParser::getKey(bytes, kcq) != 0 || vdl::SenseParser::getCode(bytes, kcq) != 0 ||
      vdl::SenseParser::getQual(bytes, kcq) != 0) {
    return std::nullopt;
  }
  return Sense{kcq.key, kcq.code, kcq.qual};
}

bool hasInformation(const ScsiReply& reply) {
  if (reply.status != scsi_status::checkCondition || reply.senseBytes < senseHeaderBytes) {
    return false;
  }
  DriveCompletion completion;
  takeSense(completion, std::span(reply.sense).first(std::min<size_t>(reply.senseBytes, reply.sense.size())));
  uint8_t valid = 0;
  return vdl::SenseParser::getValidBit(completion.sense.data(), &valid) == 0 && valid != 0;
}

bool isUnitAttention(const ScsiReply& reply) {
  const std::optional<Sense> sense = senseOf(reply);
  return sense && sense->key == unitAttention;
}

std::string describeAnswer(const ScsiReply& reply) {
  std::array<char, 32> text{};
  if (const std::optional<Sense> sense = senseOf(reply)) {
    std::snprintf(text.data(), text.size(), "%02X/%02X/%02X", sense->key, sense->code, sense->qualifier);
  } else {
    std::snprintf(text.data(), text.size(), "status %02Xh", reply.status);
  }
  return text.data();
}

ScsiReply ScsiDialogue::send(const Cdb& block) { return untilTaken(requestOf(block, ScsiRequest::Data::none, {})); }

ScsiReply ScsiDialogue::write(const Cdb& block, std::span<uint8_t> data) {
  return untilTaken(requestOf(block, ScsiRequest::Data::toUnit, data));
}

ScsiReply ScsiDialogue::once(const ScsiRequest& request) {
  transport_.submit(request);
  ScsiReply reply;
  if (!transport_.poll(reply, true)) {
    throw DriveError(transport_.description() + ": it did not answer a command; see whether it can be reached");
  }
  return reply;
}

ScsiReply ScsiDialogue::untilTaken(const ScsiRequest& request) {
  const Clock::time_point end = Clock::now() + busyPatience;
  uint32_t attentions = 0;
  while (true) {
    ScsiReply reply = once(request);
    if (isBusy(reply) && Clock::now() < end) {
      std::this_thread::sleep_for(busyPause);
    } else if (!isUnitAttention(reply) || ++attentions > mostAttentions) {
      return reply;
    }
  }
}

std::optional<std::span<const uint8_t>> ScsiDialogue::read(const Cdb& block, std::span<uint8_t> into) {
  const ScsiReply reply = untilTaken(requestOf(block, ScsiRequest::Data::fromUnit, into));
  if (reply.status != scsi_status::good) {
    return std::nullopt;
  }
  return into.first(std::min<uint64_t>(reply.bytesMoved, into.size()));
}

void ScsiDialogue::waitUntilReady(std::chrono::milliseconds patience) {
  const Clock::time_point end = Clock::now() + patience;
  while (true) {
    const ScsiReply reply = send(cdb::testUnitReady());
    if (reply.status == scsi_status::good) {
      return;
    }
    const std::optional<Sense> sense = senseOf(reply);
    // An aborted command says nothing of the unit, and is to be sent again (SPC).
    const bool aborted = sense && sense->key == sense_key::abortedCommand;
    if (!aborted && (!sense || !isBecomingReady(*sense))) {
      throw DriveError(transport_.description() + ": " + whyNotReady(reply));
    }
    if (Clock::now() >= end) {
      throw DriveError(transport_.description() + ": it " +
                       (aborted ? "still aborts commands (" : "is still becoming ready (") + describeAnswer(reply) +
                       ") after " + std::to_string(patience.count() / 1000) +
                       " s; wait for it, or give it longer with ready=SECONDS");
    }
    std::this_thread::sleep_for(readyPause);
  }
}

}  // namespace corvane::host
