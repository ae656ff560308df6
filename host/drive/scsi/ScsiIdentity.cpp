#include "host/drive/scsi/ScsiIdentity.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "host/drive/DriveError.h"
#include "host/drive/scsi/ScsiCdb.h"
#include "host/drive/scsi/ScsiDialogue.h"
#include "host/drive/scsi/ScsiPages.h"

namespace corvane::host {
namespace {

class Recognition {
 public:
  Recognition(ScsiTransport& transport, const ScsiUnit& known)
      : transport_(transport), known_(known), dialogue_(transport) {}

  void run() {
    recogniseName();
    // A unit may come to grief over a page that it did not list, so only what it had is asked for.
    if (!known_.serial.empty()) {
      demand("serial number", known_.serial, parseSerial(askPage(0x80)));
    }
    if (!known_.designator.empty()) {
      demand("world wide name", known_.designator, parseDesignator(askPage(0x83)));
    }
    recogniseSize();
  }

 private:
  using Reply = std::span<const uint8_t>;

  Reply ask(const Cdb& block, size_t bytes, const char* question) {
    buffer_ = {};
    const std::optional<Reply> reply = dialogue_.read(block, std::span(buffer_).first(bytes));
    return reply ? *reply : doubt(question);
  }
  Reply askPage(uint8_t page) {
    return ask(cdb::inquiryPage(page, pageBytes), pageBytes, page == 0x80 ? "VPD page 80h" : "VPD page 83h");
  }

  [[noreturn]] Reply doubt(const std::string& question) const {
    throw DriveError(transport_.description() + ": it does not say any more which unit it is (no answer to " +
                     question + "), so nothing is written to it; see its own log");
  }

  void demand(const std::string& what, const std::string& before, const std::string& now) const {
    if (before != now) {
      throw DriveError(transport_.description() + ": it is another unit now (" + what + " '" + now + "', before '" +
                       before + "'), so nothing is written to it; bring the unit back that the test began with, or " +
                       "begin a new test");
    }
  }

  void recogniseName() {
    constexpr uint8_t inquiryBytes = 96;
    const std::optional<InquiryData> data = parseInquiry(ask(cdb::inquiry(inquiryBytes), inquiryBytes, "INQUIRY"));
    if (!data) {
      doubt("INQUIRY");
    }
    demand("vendor", known_.inquiry.vendor, data->vendor);
    demand("product", known_.inquiry.product, data->product);
  }

  void recogniseSize() {
    constexpr uint32_t capacityBytes = 32;
    constexpr const char* question = "READ CAPACITY(16)";
    const std::optional<CapacityData> data =
        parseCapacity(ask(cdb::readCapacity16(capacityBytes), capacityBytes, question));
    if (!data) {
      doubt(question);
    }
    demand("blocks", std::to_string(known_.geometry.blocks), std::to_string(data->lastLba + 1));
    demand("bytes of a block", std::to_string(known_.geometry.blockSize), std::to_string(data->blockBytes));
  }

  static constexpr uint16_t pageBytes = 252;

  ScsiTransport& transport_;
  const ScsiUnit& known_;
  ScsiDialogue dialogue_;
  std::array<uint8_t, pageBytes> buffer_{};
};

}  // namespace

void demandSameUnit(ScsiTransport& transport, const ScsiUnit& known) { Recognition(transport, known).run(); }

}  // namespace corvane::host
