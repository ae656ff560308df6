#include "vdl/TaggedBuffer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <stdexcept>

#include "host/framework/DriveThreadHost.h"

namespace corvane::host {
namespace {

struct Shown {
  uint8_t* data;
  uint64_t bytes;
};

Shown show(vdl::TaggedBuffer& buffer, uint32_t tag) {
  Shown shown{nullptr, 99};
  shown.data = buffer.getData(tag, &shown.bytes);
  return shown;
}

class TaggedBufferTest : public testing::Test {
 protected:
  static constexpr uint32_t tags = 4;

  TaggedViews views{tags};
  vdl::TaggedBuffer& buffer = views.platform();
  std::array<uint8_t, 16> bytes{};
};

TEST_F(TaggedBufferTest, HoldsNothingAtFirst) {
  for (uint32_t tag = 0; tag < tags; ++tag) {
    EXPECT_EQ(show(buffer, tag).data, nullptr);
    EXPECT_EQ(show(buffer, tag).bytes, 0U);
  }
}

TEST_F(TaggedBufferTest, HasOneBufferForEveryTag) {
  for (uint32_t tag = 0; tag < tags; ++tag) {
    views.set(tag, bytes.data() + tag, tag + 1);
  }
  for (uint32_t tag = 0; tag < tags; ++tag) {
    EXPECT_EQ(show(buffer, tag).data, bytes.data() + tag);
    EXPECT_EQ(show(buffer, tag).bytes, tag + 1);
  }
}

TEST_F(TaggedBufferTest, ShowsTheOwnersBytesAndNoCopy) {
  views.set(1, bytes.data(), bytes.size());
  *show(buffer, 1).data = 0xA5;
  EXPECT_EQ(bytes[0], 0xA5);
}

TEST_F(TaggedBufferTest, ALaterSetReplacesBytesAndSize) {
  views.set(1, bytes.data(), 16);
  views.set(1, bytes.data() + 4, 3);
  EXPECT_EQ(show(buffer, 1).data, bytes.data() + 4);
  EXPECT_EQ(show(buffer, 1).bytes, 3U);
}

TEST_F(TaggedBufferTest, UnlockingTouchesNoOtherTagAndNoByte) {
  bytes.fill(0x5A);
  views.set(1, bytes.data(), 8);
  views.set(2, bytes.data() + 8, 8);
  buffer.unlock(1);
  EXPECT_EQ(show(buffer, 1).data, nullptr);
  EXPECT_EQ(show(buffer, 1).bytes, 0U);
  EXPECT_EQ(show(buffer, 2).data, bytes.data() + 8);
  EXPECT_EQ(bytes[0], 0x5A);
}

TEST_F(TaggedBufferTest, UnlockingATagWithoutABufferIsHarmless) {
  views.set(3, bytes.data(), 8);
  for (const uint32_t tag : {0U, 0U, tags, 0xFFFFFFFFU}) {
    buffer.unlock(tag);
  }
  EXPECT_EQ(show(buffer, 3).data, bytes.data());
}

TEST_F(TaggedBufferTest, ClearingIsAsUnlocking) {
  views.set(1, bytes.data(), 8);
  views.clear(1);
  views.clear(1);
  EXPECT_EQ(show(buffer, 1).data, nullptr);
  EXPECT_EQ(show(buffer, 1).bytes, 0U);
}

TEST_F(TaggedBufferTest, TheOwnerMayNotNameATagThatDoesNotExist) {
  EXPECT_THROW(views.set(tags, bytes.data(), 1), std::out_of_range);
  EXPECT_THROW(views.clear(tags), std::out_of_range);
}

TEST(TaggedBuffer, WithoutAHostNoTagHasABuffer) {
  vdl::TaggedBuffer bare;
  bare.unlock(0);
  EXPECT_EQ(show(bare, 0).data, nullptr);
  EXPECT_EQ(show(bare, 0).bytes, 0U);
}

TEST(TaggedBuffer, IsAsLargeAsTheDrivesQueueIsDeep) {
  DriveThreadHost::Settings settings;
  settings.queueDepth = 3;
  DriveThreadHost host(settings);
  int err = 0;
  vdl::TaggedBuffer* mapped = host.thread().mapTaggedBuffer("CDB[TagID]", 1, &err);
  ASSERT_NE(mapped, nullptr);
  uint8_t byte = 0;
  host.variables().tagged("CDB[TagID]").set(2, &byte, 1);
  EXPECT_EQ(show(*mapped, 2).data, &byte);
  EXPECT_THROW(host.variables().tagged("CDB[TagID]").set(3, &byte, 1), std::out_of_range);
}

}  // namespace
}  // namespace corvane::host
