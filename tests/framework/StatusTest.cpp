#include "vdl/Status.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "vdl/EventLog.h"

namespace vdl {
namespace {

const std::vector<std::pair<int32_t, int32_t>>& failures() {
  static const std::vector<std::pair<int32_t, int32_t>> numbers{
      {status::outOfMemory, -1002},       {status::notFound, -1003},       {status::notInContext, -1004},
      {status::badQueueRange, -1009},     {status::bufferTooLarge, -1022}, {status::missingSetting, -1027},
      {status::noWriteToReadBack, -1045}, {status::miscompare, -1046},     {status::incompatibleOptions, -1050},
      {status::reportNotOpened, -1052},   {status::showstopFailed, -1053}, {status::pointerBeyondBuffer, -1057},
      {status::writeSplice, -1062},       {status::atomicOrder, -1063},    {status::noRecord, -1200}};
  return numbers;
}

TEST(Status, SuccessIsZeroAndEveryFailureKeepsItsNumber) {
  EXPECT_EQ(status::ok, 0);
  for (const auto& [named, number] : failures()) {
    EXPECT_EQ(named, number);
    EXPECT_LT(named, 0);
  }
}

TEST(Status, IsAPlainIntegerOf32Bits) {
  using Code = decltype(status::ok);
  EXPECT_TRUE((std::is_same_v<std::underlying_type_t<Code>, int32_t>));
  EXPECT_TRUE((std::is_convertible_v<Code, int32_t>));
}

TEST(Status, EveryFailureHasATextOfItsOwn) {
  const EventLog log;
  const std::string unknown = log.errStr(-77777);
  std::set<std::string> texts{unknown, log.errStr(status::ok)};
  for (const auto& [named, number] : failures()) {
    EXPECT_TRUE(texts.insert(log.errStr(named)).second) << number << " shares \"" << log.errStr(named) << '"';
  }
}

TEST(Status, CodesThatTheListDoesNotNameHaveATextToo) {
  const EventLog log;
  for (const int code : {1, -1, -1001, -1005, -1201, -2147483647 - 1, 2147483647}) {
    ASSERT_NE(log.errStr(code), nullptr) << code;
    EXPECT_STRNE(log.errStr(code), "") << code;
    EXPECT_STRNE(log.errStr(code), log.errStr(status::ok)) << code;
  }
}

}  // namespace
}  // namespace vdl
