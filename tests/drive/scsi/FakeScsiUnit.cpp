#include "tests/drive/scsi/FakeScsiUnit.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "host/base/BigEndian.h"
#include "host/drive/DriveError.h"

namespace corvane::tests {
namespace {

using host::Cdb;
using host::getBigEndian;
using host::putBigEndian;
using host::ScsiReply;
using host::ScsiRequest;
using host::Sense;
namespace operation = host::scsi_operation;
namespace sense = host::sense;

constexpr uint8_t freshByte = 0xA5;  ///< of a medium that nobody wrote to
constexpr Sense unitAttention{0x06, 0x29, 0x00};
constexpr uint64_t protectionBytes = 8;

std::vector<uint8_t> pageOf(uint8_t code, const std::vector<uint8_t>& payload) {
  constexpr size_t headerBytes = 4;
  std::vector<uint8_t> page(headerBytes + payload.size());
  page[1] = code;
  putBigEndian(&page[2], static_cast<uint16_t>(payload.size()));
  std::copy(payload.begin(), payload.end(), page.begin() + headerBytes);
  return page;
}

std::vector<uint8_t> blockLimitsPage(const host::BlockLimits& limits) {
  std::vector<uint8_t> page = pageOf(0xB0, std::vector<uint8_t>(60));
  putBigEndian(&page[8], limits.mostTransfer);
  putBigEndian(&page[20], limits.mostUnmap);
  putBigEndian(&page[28], limits.unmapGranularity);
  putBigEndian(&page[32], limits.unmapAlignment | 0x80000000);
  putBigEndian(&page[36], limits.mostWriteSame);
  putBigEndian(&page[44], limits.mostAtomic);
  putBigEndian(&page[48], limits.atomicAlignment);
  putBigEndian(&page[52], limits.atomicGranularity);
  putBigEndian(&page[56], limits.mostAtomicWithBoundary);
  putBigEndian(&page[60], limits.mostAtomicBoundary);
  return page;
}

uint8_t bit(bool value, uint32_t place) { return static_cast<uint8_t>((value ? 1 : 0) << place); }

}  // namespace

FakeScsiUnit::FakeScsiUnit(const FakeUnitTraits& given)
    : traits(given), medium_(given.blocks * sectorBytes(), freshByte), attentions_(given.attentions) {}

void FakeScsiUnit::submit(const ScsiRequest& request) {
  if (broken) {
    throw host::DriveConnectionLost("fake unit: the connection is lost");
  }
  if (outstanding_.size() == traits.mostRequests) {
    throw std::logic_error("more requests than the transport takes");
  }
  if ((request.direction == ScsiRequest::Data::none) != (request.bytes == 0 || request.data == nullptr)) {
    throw std::logic_error("data without a direction, or a direction without data");
  }
  seen.push_back(request.cdb);
  lastCdbBytes = request.cdbBytes;
  outstanding_.push_back(request);
}

bool FakeScsiUnit::poll(ScsiReply& out, bool) {
  if (broken) {
    throw host::DriveConnectionLost("fake unit: the connection is lost");
  }
  if (outstanding_.empty() || answersAtMost == 0) {
    return false;
  }
  --answersAtMost;
  const auto place = outstanding_.begin() + static_cast<std::ptrdiff_t>(random_.below(outstanding_.size()));
  const ScsiRequest request = *place;
  outstanding_.erase(place);
  out = {};
  out.slot = request.slot;
  answer(request, out);
  return true;
}

void FakeScsiUnit::resetUnit() {
  outstanding_.clear();
  ++resets;
  whenReset();
  attentions_ = traits.attentions;
  broken = breaksAfterReset != 0;
  breaksAfterReset -= broken ? 1U : 0U;
}

void FakeScsiUnit::refuse(ScsiReply& out, const Sense& why, std::optional<uint64_t> information) const {
  host::DriveCompletion completion;
  host::setSense(completion, why, information);
  out.status = completion.status;
  out.senseBytes = completion.senseBytes;
  out.sense = completion.sense;
  out.bytesMoved = 0;
  if (traits.descriptorSense) {
    out.sense = {0x72, why.key, why.code, why.qualifier};
    out.senseBytes = 8;
    if (information) {
      out.sense[7] = 12;
      out.sense[9] = 10;
      out.sense[10] = 0x80;
      putBigEndian(&out.sense[12], *information);
      out.senseBytes = 20;
    }
  }
}

void FakeScsiUnit::reply(const ScsiRequest& request, ScsiReply& out, const std::vector<uint8_t>& bytes,
                         uint64_t allocation) {
  if (request.direction != ScsiRequest::Data::fromUnit || request.bytes != allocation) {
    throw std::logic_error("the allocation length is not that of the data");
  }
  out.bytesMoved = std::min<uint64_t>(bytes.size(), request.bytes);
  std::copy_n(bytes.begin(), out.bytesMoved, request.data);
}

bool FakeScsiUnit::kept(const ScsiRequest& request, ScsiReply& out) {
  if (traits.busyAnswers != 0) {
    --traits.busyAnswers;
    out.status = host::scsi_status::busy;
    return true;
  }
  if (request.cdb[0] == operation::inquiry) {
    return false;
  }
  if (attentions_ != 0) {
    --attentions_;
    refuse(out, unitAttention);
    return true;
  }
  if (traits.notReadyAnswers != 0) {
    --traits.notReadyAnswers;
    refuse(out, traits.notReady);
    return true;
  }
  return false;
}

void FakeScsiUnit::answer(const ScsiRequest& request, ScsiReply& out) {
  if (kept(request, out)) {
    return;
  }
  if (traits.refused.count(request.cdb[0]) != 0) {
    refuse(out, sense::invalidOperation);
    return;
  }
  if (fault && fault->operation == request.cdb[0]) {
    const auto lba = getBigEndian<uint64_t>(&request.cdb[2]);
    const auto count = getBigEndian<uint32_t>(&request.cdb[10]);
    if (fault->lba >= lba && (fault->lba - lba < count || fault->lba == lba)) {
      const Fault met = *fault;
      fault.reset();
      if (met.carriedOut) {
        carryOut(request, out);
      }
      const uint64_t moved = out.bytesMoved;
      refuse(out, met.sense, met.named ? std::optional(met.lba) : std::nullopt);
      out.bytesMoved = met.carriedOut ? moved : 0;
      if (met.status != host::scsi_status::checkCondition) {
        out = {};
        out.slot = request.slot;
        out.status = met.status;
      }
      return;
    }
  }
  carryOut(request, out);
}

void FakeScsiUnit::carryOut(const ScsiRequest& request, ScsiReply& out) {
  switch (request.cdb[0]) {
    case operation::testUnitReady:
    case operation::synchronizeCache16:
      return;
    case operation::inquiry:
      return inquire(request, out);
    case operation::serviceActionIn16:
      return reportCapacity(request, out);
    case operation::maintenanceIn:
      return reportSupport(request, out);
    case operation::modeSense6:
      return senseMode(request, out, true);
    case operation::modeSense10:
      return senseMode(request, out, false);
    case operation::unmap:
      return unmap(request, out);
    case operation::read16:
    case operation::write16:
    case operation::writeAtomic16:
    case operation::verify16:
    case operation::writeSame16:
      return transfer(request, out);
    default:
      return refuse(out, sense::invalidOperation);
  }
}

void FakeScsiUnit::inquire(const ScsiRequest& request, ScsiReply& out) {
  const auto allocation = getBigEndian<uint16_t>(&request.cdb[3]);
  if (request.cdb[1] == 0) {
    std::string text = traits.vendor + std::string(8 - traits.vendor.size(), ' ');
    text += traits.product + std::string(16 - traits.product.size(), ' ') + "1.5 ";
    std::vector<uint8_t> bytes{static_cast<uint8_t>(traits.qualifier << 5 | traits.deviceType), 0, 6, 2, 31, 0, 0, 2};
    bytes.insert(bytes.end(), text.begin(), text.end());
    return reply(request, out, bytes, allocation);
  }
  const uint8_t page = request.cdb[2];
  if (page == 0) {
    std::vector<uint8_t> codes(1 + traits.pages.size());
    std::copy(traits.pages.begin(), traits.pages.end(), codes.begin() + 1);
    return reply(request, out, pageOf(0, codes), allocation);
  }
  if (traits.pages.count(page) == 0) {
    throw std::logic_error("a page is asked for that is not listed");
  }
  switch (page) {
    case 0x80: {
      const std::string padded = "  " + traits.serial;
      return reply(request, out, pageOf(page, {padded.begin(), padded.end()}), allocation);
    }
    case 0x83: {
      std::vector<uint8_t> designator{1, 3, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0};
      putBigEndian(&designator[4], traits.name);
      return reply(request, out, pageOf(page, designator), allocation);
    }
    case 0xB0:
      return reply(request, out, blockLimitsPage(traits.limits), allocation);
    default: {
      const auto flags =
          static_cast<uint8_t>(bit(traits.provisioning.unmaps, 7) | bit(traits.provisioning.writeSameUnmaps, 6) |
                               bit(traits.provisioning.readsZeros, 2));
      return reply(request, out, pageOf(page, {0, flags, 2, 0}), allocation);
    }
  }
}

void FakeScsiUnit::reportCapacity(const ScsiRequest& request, ScsiReply& out) {
  std::vector<uint8_t> bytes(32);
  putBigEndian(&bytes[0], traits.blocks - 1);
  putBigEndian(&bytes[8], traits.blockBytes);
  if (traits.protectionType != 0) {
    bytes[12] = static_cast<uint8_t>((traits.protectionType - 1) << 1 | 1);
  }
  bytes[13] = static_cast<uint8_t>(traits.intervalExponent << 4 | traits.physicalExponent);
  bytes[14] = bit(traits.provisioned, 7) | bit(traits.zerosByCapacity, 6);
  reply(request, out, bytes, getBigEndian<uint32_t>(&request.cdb[10]));
}

void FakeScsiUnit::reportSupport(const ScsiRequest& request, ScsiReply& out) {
  if (!traits.answersSupport) {
    return refuse(out, sense::invalidOperation);
  }
  constexpr uint8_t no = 1;
  constexpr uint8_t yes = 3;
  const uint8_t asked = request.cdb[3];
  std::vector<uint8_t> bytes{0, no, 0, 0};
  if (traits.refused.count(asked) == 0) {
    const uint8_t flags = asked == operation::writeSame16 && !traits.takesUnmapBit ? 0xE0 : 0xFA;
    bytes = {0, yes, 0, 16, asked, flags};
    bytes.resize(20, 0xFF);
  }
  reply(request, out, bytes, getBigEndian<uint32_t>(&request.cdb[6]));
}

void FakeScsiUnit::senseMode(const ScsiRequest& request, ScsiReply& out, bool shortForm) {
  if (shortForm && !traits.answersShortMode) {
    return refuse(out, sense::invalidOperation);
  }
  if (request.cdb[2] == host::cachingPage && !traits.hasCachingPage) {
    return refuse(out, sense::invalidField);
  }
  const uint8_t device = bit(traits.writeProtected, 7) | bit(traits.forcesUnitAccess, 4);
  std::vector<uint8_t> bytes =
      shortForm ? std::vector<uint8_t>{0, 0, device, 0} : std::vector<uint8_t>{0, 0, 0, device, 0, 0, 0, 0};
  const uint8_t page = request.cdb[2];
  const size_t start = bytes.size();
  bytes.resize(start + 20);
  bytes[start] = page | 0x80;
  bytes[start + 1] = 18;
  if (page == host::cachingPage) {
    bytes[start + 2] = bit(traits.writeBackCache, 2);
  } else {
    bytes[start + 5] = bit(traits.keepsApplicationTags, 7);
  }
  reply(request, out, bytes, shortForm ? request.cdb[4] : getBigEndian<uint16_t>(&request.cdb[7]));
}

bool FakeScsiUnit::hasLegalBits(const ScsiRequest& request) const {
  const uint8_t flags = request.cdb[1] & 0x1F;
  constexpr uint8_t bit3 = 0x08;
  switch (request.cdb[0]) {
    case operation::verify16:
      return flags == 0x02;
    case operation::writeSame16:
      return flags == 0 || (flags == bit3 && traits.takesUnmapBit);
    default:
      return flags == 0 || (flags == bit3 && traits.forcesUnitAccess);
  }
}

void FakeScsiUnit::transfer(const ScsiRequest& request, ScsiReply& out) {
  const uint8_t code = request.cdb[0];
  const auto lba = getBigEndian<uint64_t>(&request.cdb[2]);
  uint64_t count = getBigEndian<uint32_t>(&request.cdb[10]);
  if (code == operation::writeAtomic16) {
    count = getBigEndian<uint16_t>(&request.cdb[12]);
  } else if (code == operation::writeSame16 && count == 0) {
    count = traits.blocks - std::min(lba, traits.blocks);
  }
  if (!hasLegalBits(request)) {
    return refuse(out, sense::invalidField);
  }
  if (lba > traits.blocks || count > traits.blocks - lba) {
    return refuse(out, sense::lbaOutOfRange);
  }
  const uint64_t most = code == operation::writeSame16 ? traits.limits.mostWriteSame : traits.limits.mostTransfer;
  if ((most != 0 && count > most) || (code == operation::writeAtomic16 && !isLegalAtomic(request, lba, count))) {
    return refuse(out, sense::invalidField);
  }
  const bool withProtection = request.cdb[1] >> 5 != 0;
  if (withProtection && (traits.protectionType == 0 || request.cdb[1] >> 5 != 3)) {
    return refuse(out, sense::invalidField);
  }
  const uint64_t wire = traits.blockBytes + (withProtection ? protectionBytes : 0);
  if (request.bytes != wire * (code == operation::writeSame16 ? 1 : count)) {
    throw std::logic_error("the data do not have the length that the command block says");
  }
  switch (code) {
    case operation::read16:
      return read(request, out, lba, count);
    case operation::verify16:
      return verify(request, out, lba, count);
    case operation::writeSame16:
      return writeSame(request, out, lba, count);
    default:
      changes += count != 0 ? 1U : 0U;
      out.bytesMoved = request.bytes;
      return write(request, lba, count);
  }
}

void FakeScsiUnit::read(const ScsiRequest& request, ScsiReply& out, uint64_t lba, uint64_t count) {
  const uint64_t wire = count == 0 ? 0 : request.bytes / count;
  std::vector<uint8_t> bytes(request.bytes);
  for (uint64_t i = 0; i < count; ++i) {
    std::copy_n(&medium_[(lba + i) * sectorBytes()], wire, &bytes[i * wire]);
  }
  out.bytesMoved = std::min(request.bytes, readsAtMost);
  std::copy_n(bytes.begin(), out.bytesMoved, request.data);
}

void FakeScsiUnit::write(const ScsiRequest& request, uint64_t lba, uint64_t count) {
  const uint64_t wire = count == 0 ? 0 : request.bytes / count;
  for (uint64_t i = 0; i < count; ++i) {
    uint8_t* sector = &medium_[(lba + i) * sectorBytes()];
    std::memset(sector, 0, sectorBytes());
    std::copy_n(request.data + i * wire, wire, sector);
  }
}

void FakeScsiUnit::verify(const ScsiRequest& request, ScsiReply& out, uint64_t lba, uint64_t count) {
  const uint64_t wire = count == 0 ? 0 : request.bytes / count;
  for (uint64_t i = 0; i < count && !comparesNothing; ++i) {
    if (std::memcmp(&medium_[(lba + i) * sectorBytes()], request.data + i * wire, wire) != 0) {
      return refuse(out, sense::miscompareDuringVerify, traits.namesDifference ? std::optional(lba + i) : std::nullopt);
    }
  }
  out.bytesMoved = request.bytes;
}

void FakeScsiUnit::writeSame(const ScsiRequest& request, ScsiReply& out, uint64_t lba, uint64_t count) {
  ++changes;
  ScsiRequest one = request;
  for (uint64_t i = 0; i < count; ++i) {
    write(one, lba + i, 1);
  }
  out.bytesMoved = request.bytes;
}

bool FakeScsiUnit::isLegalAtomic(const ScsiRequest& request, uint64_t lba, uint64_t count) const {
  const host::BlockLimits& limits = traits.limits;
  const auto boundary = getBigEndian<uint16_t>(&request.cdb[10]);
  if (count == 0) {
    return true;
  }
  const uint64_t most = boundary == 0 ? limits.mostAtomic : limits.mostAtomicWithBoundary;
  return count <= most && boundary <= limits.mostAtomicBoundary &&
         lba % std::max<uint64_t>(limits.atomicAlignment, 1) == 0 &&
         count % std::max<uint64_t>(limits.atomicGranularity, 1) == 0;
}

void FakeScsiUnit::unmap(const ScsiRequest& request, ScsiReply& out) {
  const auto bytes = getBigEndian<uint16_t>(&request.cdb[7]);
  if (bytes != request.bytes) {
    throw std::logic_error("the parameter list does not have the length that the command block says");
  }
  if (bytes == 0) {
    return;
  }
  if (bytes != 24 || getBigEndian<uint16_t>(request.data) != 22 || getBigEndian<uint16_t>(request.data + 2) != 16) {
    return refuse(out, sense::invalidField);
  }
  const auto lba = getBigEndian<uint64_t>(request.data + 8);
  const auto count = getBigEndian<uint32_t>(request.data + 16);
  if (lba > traits.blocks || count > traits.blocks - lba) {
    return refuse(out, sense::lbaOutOfRange);
  }
  if (traits.limits.mostUnmap != 0 && count > traits.limits.mostUnmap) {
    return refuse(out, sense::invalidField);
  }
  ++changes;
  const uint64_t phase = traits.limits.unmapAlignment % traits.granule;
  for (uint64_t granule = lba; granule < lba + count; ++granule) {
    // Only a granule that is covered from its first block to its last is unmapped.
    if (granule % traits.granule == phase && granule + traits.granule <= lba + count) {
      std::memset(&medium_[granule * sectorBytes()], 0, traits.granule * sectorBytes());
    }
  }
  out.bytesMoved = bytes;
}

std::vector<uint8_t> FakeScsiUnit::content(uint64_t lba, uint64_t count) const {
  const auto first = medium_.begin() + static_cast<std::ptrdiff_t>(lba * sectorBytes());
  return {first, first + static_cast<std::ptrdiff_t>(count * sectorBytes())};
}

std::vector<Cdb> FakeScsiUnit::seenOf(uint8_t code) const {
  std::vector<Cdb> found;
  std::copy_if(seen.begin(), seen.end(), std::back_inserter(found), [&](const Cdb& cdb) { return cdb[0] == code; });
  return found;
}

}  // namespace corvane::tests
