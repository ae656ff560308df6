#include "host/drive/scsi/sg/SgStatus.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace corvane::host {
namespace {

constexpr uint16_t driverSense = 0x08;

uint32_t statusOf(const SgStatus& status, bool repeatable) {
  const SgVerdict verdict = judge(status, repeatable);
  EXPECT_FALSE(verdict.unitLost);
  return verdict.status;
}

ScsiRequest requestOf(uint8_t operation, ScsiRequest::Data direction) {
  ScsiRequest request;
  request.cdb[0] = operation;
  request.direction = direction;
  return request;
}

TEST(SgStatus, TheUnitsOwnAnswerGoesUpAsItIs) {
  for (const uint32_t status : {scsi_status::good, scsi_status::checkCondition, scsi_status::busy,
                                scsi_status::reservationConflict, scsi_status::taskSetFull}) {
    EXPECT_EQ(statusOf({.scsi = static_cast<uint8_t>(status)}, false), status);
    EXPECT_EQ(statusOf({.scsi = static_cast<uint8_t>(status)}, true), status);
  }
}

TEST(SgStatus, SenseDataWithoutAStatusAreACheckCondition) {
  EXPECT_EQ(statusOf({.driver = driverSense, .senseBytes = 18}, false), scsi_status::checkCondition);
  EXPECT_EQ(statusOf({.driver = driverSense, .senseBytes = 0}, false), scsi_status::good);
  EXPECT_EQ(statusOf({.driver = 0, .senseBytes = 18}, false), scsi_status::good);
}

TEST(SgStatus, WhatWasPerhapsCarriedOutIsAbortedUnlessItMayBeRepeated) {
  // Timed out, aborted, parity, error, reset, interrupt, disrupted, and one that nobody has defined.
  for (const uint16_t host : std::initializer_list<uint16_t>{0x03, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0E, 0x77}) {
    EXPECT_EQ(statusOf({.host = host}, false), scsi_status::aborted) << host;
    EXPECT_EQ(statusOf({.host = host}, true), scsi_status::busy) << host;
  }
}

TEST(SgStatus, WhatTheHostAdapterDidNotTakeIsBusy) {
  // The bus is busy, soft error, to be sent again at once, to be queued again.
  for (const uint16_t host : std::initializer_list<uint16_t>{0x02, 0x0B, 0x0C, 0x0D}) {
    EXPECT_EQ(statusOf({.host = host}, false), scsi_status::busy) << host;
    EXPECT_EQ(statusOf({.host = host}, true), scsi_status::busy) << host;
  }
}

TEST(SgStatus, AHostAdapterWithoutAUnitHasLostIt) {
  // Not connected, no such target, the transport gave up.
  for (const uint16_t host : std::initializer_list<uint16_t>{0x01, 0x04, 0x0F}) {
    EXPECT_TRUE(judge({.host = host}, true).unitLost) << host;
    EXPECT_TRUE(judge({.host = host, .scsi = 2}, false).unitLost) << host;
  }
}

TEST(SgStatus, TheKernelsWordsForAnAnswerDoNotHideTheAnswer) {
  // Target failure, reservation, allocation, medium, marginal path.
  for (const uint16_t host : std::initializer_list<uint16_t>{0x10, 0x11, 0x12, 0x13, 0x14}) {
    EXPECT_EQ(statusOf({.host = host, .scsi = 0x02}, false), scsi_status::checkCondition) << host;
    EXPECT_EQ(statusOf({.host = host, .scsi = 0x18}, true), scsi_status::reservationConflict) << host;
    EXPECT_EQ(statusOf({.host = host}, false), scsi_status::aborted) << host;
    EXPECT_EQ(statusOf({.host = host}, true), scsi_status::busy) << host;
  }
}

TEST(SgStatus, OnlyWhatLeavesTheMediumAloneMayBeRepeated) {
  using Data = ScsiRequest::Data;
  EXPECT_TRUE(mayBeRepeated(requestOf(0x88, Data::fromUnit)));  // READ(16)
  EXPECT_TRUE(mayBeRepeated(requestOf(0x00, Data::none)));      // TEST UNIT READY
  EXPECT_TRUE(mayBeRepeated(requestOf(0x35, Data::none)));      // SYNCHRONIZE CACHE(10)
  EXPECT_TRUE(mayBeRepeated(requestOf(0x91, Data::none)));      // SYNCHRONIZE CACHE(16)
  EXPECT_FALSE(mayBeRepeated(requestOf(0x8A, Data::toUnit)));   // WRITE(16)
  EXPECT_FALSE(mayBeRepeated(requestOf(0x42, Data::toUnit)));   // UNMAP
  EXPECT_FALSE(mayBeRepeated(requestOf(0x93, Data::none)));     // WRITE SAME(16) without data
  EXPECT_FALSE(mayBeRepeated(requestOf(0xC1, Data::none)));     // a vendor's
}

}  // namespace
}  // namespace corvane::host
