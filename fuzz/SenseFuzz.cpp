// Sense data as a drive may send them: cut off, announcing more than came, in any format.

#include <array>
#include <memory>
#include <optional>
#include <vector>

#include "fuzz/InputBytes.h"
#include "fuzz/Target.h"
#include "host/drive/SenseData.h"
#include "host/run/CommandEnding.h"
#include "vdl/SenseParser.h"

using corvane::fuzz::InputBytes;
using corvane::fuzz::require;
using namespace corvane::host;
using vdl::SenseParser;

namespace {

constexpr size_t headerBytes = 8;

/// Everything that the parser says of sense data.
struct Parsed {
  SenseParser::Kcq kcq{0xEE, 0xEE, 0xEE};
  SenseParser::Uec uec = 0xEEEE;
  uint8_t valid = 0xEE;
  std::array<uint8_t, 8> information{0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
  std::array<int, 6> statuses{};

  explicit Parsed(const uint8_t* sense)
      : statuses{SenseParser::getKey(sense, kcq),         SenseParser::getCode(sense, kcq),
                 SenseParser::getQual(sense, kcq),        SenseParser::getUec(sense, uec),
                 SenseParser::getValidBit(sense, &valid), SenseParser::getInformationBytes(sense, information.data())} {
  }

  bool known() const { return statuses[0] == 0; }
};

/// The same by the tables of SPC, read a second time and without any thought of speed.
struct Expected {
  bool known = false;
  uint8_t key = 0;
  uint8_t code = 0;
  uint8_t qualifier = 0;
  uint16_t uec = 0;
  bool valid = false;
  uint64_t information = 0;
};

uint64_t bigEndian(const std::vector<uint8_t>& bytes, size_t from, size_t count) {
  uint64_t value = 0;
  for (size_t i = from; i < from + count; ++i) {
    value = value * 256 + (i < bytes.size() ? bytes[i] : 0);
  }
  return value;
}

/// The payload of the first descriptor of a type that is whole and long enough.
std::optional<std::vector<uint8_t>> descriptor(const std::vector<uint8_t>& sense, uint8_t type, size_t least) {
  size_t at = headerBytes;
  while (at + 2 <= sense.size()) {
    const size_t length = sense[at + 1];
    if (sense[at] == type && length >= least && at + 2 + length <= sense.size()) {
      const auto begin = sense.begin() + static_cast<std::ptrdiff_t>(at + 2);
      return std::vector<uint8_t>(begin, begin + static_cast<std::ptrdiff_t>(length));
    }
    at += 2 + length;
  }
  return std::nullopt;
}

/// @param sense as long as it says itself
Expected expectedOf(const std::vector<uint8_t>& sense) {
  Expected expected;
  const int code = sense[0] % 128;
  if (code == 0x70 || code == 0x71) {
    expected.known = true;
    expected.key = sense[2] % 16;
    expected.code = static_cast<uint8_t>(bigEndian(sense, 12, 1));
    expected.qualifier = static_cast<uint8_t>(bigEndian(sense, 13, 1));
    expected.uec = sense.size() >= 22 ? static_cast<uint16_t>(bigEndian(sense, 20, 2)) : 0;
    expected.valid = sense[0] >= 128;
    expected.information = bigEndian(sense, 3, 4);
  } else if (code == 0x72 || code == 0x73) {
    expected.known = true;
    expected.key = sense[1] % 16;
    expected.code = sense[2];
    expected.qualifier = sense[3];
    if (const auto vendor = descriptor(sense, 0x80, 2)) {
      expected.uec = static_cast<uint16_t>(bigEndian(*vendor, 0, 2));
    }
    if (const auto information = descriptor(sense, 0, 10)) {
      expected.valid = (*information)[0] >= 128;
      expected.information = bigEndian(*information, 2, 8);
    }
  }
  return expected;
}

void compare(const Parsed& parsed, const Expected& expected) {
  for (const int status : parsed.statuses) {
    require((status == 0) == expected.known && status <= 0, "every field says alike whether the format is known");
  }
  if (!expected.known) {
    require(parsed.kcq.key == 0xEE && parsed.kcq.code == 0xEE && parsed.kcq.qual == 0xEE && parsed.uec == 0xEEEE &&
                parsed.valid == 0xEE && parsed.information[0] == 0xEE && parsed.information[7] == 0xEE,
            "of an unknown format nothing is taken");
    return;
  }
  require(parsed.kcq.key == expected.key, "the sense key is that of the format");
  require(parsed.kcq.code == expected.code, "the additional sense code is that of the format");
  require(parsed.kcq.qual == expected.qualifier, "the qualifier is that of the format");
  require(parsed.uec == expected.uec, "the unit error code is that of the format");
  require(parsed.valid == (expected.valid ? 1 : 0), "the valid bit is that of the format");
  const std::vector<uint8_t> information(parsed.information.begin(), parsed.information.end());
  require(bigEndian(information, 0, 8) == expected.information, "the information is that of the format");
}

/// Sense data in memory that ends where they say that they end.
void parseExact(std::span<const uint8_t> input) {
  std::vector<uint8_t> sense(headerBytes);
  std::copy_n(input.begin(), std::min(input.size(), headerBytes), sense.begin());
  sense.resize(headerBytes + sense[7]);
  std::copy_n(input.begin(), std::min(input.size(), sense.size()), sense.begin());
  // A vector may have more memory than elements, where a read too far would meet no fence.
  const std::unique_ptr<uint8_t[]> exact(new uint8_t[sense.size()]);
  std::copy(sense.begin(), sense.end(), exact.get());
  compare(Parsed(exact.get()), expectedOf(sense));
}

/// Sense data as they come from a drive: what has arrived, whatever they announce.
void endCommand(std::span<const uint8_t> came) {
  const auto completion = std::make_unique<DriveCompletion>();
  completion->status = scsi_status::checkCondition;
  takeSense(*completion, came);
  const CommandEnding ending = endingOf(*completion, true);
  require(!ending.aborted, "a check condition is no abort");
  require(isCarriedOut(*completion) == !ending.failed, "all who judge a command by its sense data judge alike");
  require(completion->senseBytes <= came.size(), "no more sense data are there than came");
  require(!ending.failingLba || ending.mediumError, "only a medium error has a failing LBA");

  // What stands behind the end of what came decides nothing.
  DriveCompletion noisy = *completion;
  std::fill(noisy.sense.begin() + noisy.senseBytes, noisy.sense.end(), uint8_t{0xA5});
  const CommandEnding again = endingOf(noisy, true);
  require(again.failed == ending.failed && again.mediumError == ending.mediumError &&
              again.failingLba == ending.failingLba && again.verifyMiscompare == ending.verifyMiscompare,
          "bytes that did not come decide nothing");
}

/// What our own drives write is read back.
void writeAndRead(InputBytes& input) {
  const Sense sense{static_cast<uint8_t>(input.number<uint8_t>() & 0x0F), input.number<uint8_t>(),
                    input.number<uint8_t>()};
  const bool hasInformation = (input.number<uint8_t>() & 1) != 0;
  const auto information = hasInformation ? std::optional(input.number<uint64_t>()) : std::nullopt;
  DriveCompletion completion;
  setSense(completion, sense, information);
  const Parsed parsed(completion.sense.data());
  require(parsed.known(), "our own sense data have a known format");
  require(parsed.kcq.key == sense.key && parsed.kcq.code == sense.code && parsed.kcq.qual == sense.qualifier,
          "our own sense data say what was written");
  require((parsed.valid != 0) == information.has_value(), "information is valid when it was given");
  const std::vector<uint8_t> bytes(parsed.information.begin(), parsed.information.end());
  require(bigEndian(bytes, 0, 8) == information.value_or(0), "the information is what was given");
  require(isCarriedOut(completion) == (sense.key == sense_key::recoveredError), "a recovered error is no failure");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  parseExact({data, size});
  endCommand({data, size});
  InputBytes input(data, size);
  writeAndRead(input);
  return 0;
}
