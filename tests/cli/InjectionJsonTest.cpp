#include "host/cli/InjectionJson.h"

#include <gtest/gtest.h>

namespace corvane::host {
namespace {

TEST(InjectionJson, TellsWhatWasThereAndWhatIsThereNow) {
  Injection injection;
  injection.what = FaultClass::tornWrite;
  injection.command = 12;
  injection.kind = CommandKind::writeAtomic;
  injection.lba = 100;
  injection.blocks = 8;
  injection.note = "by hand";
  injection.delivered = 3;
  injection.visible = 2;
  AlteredBlock block{.lba = 104, .was = std::vector<uint8_t>(512, 0xAB), .is = std::vector<uint8_t>(512, 0xAB)};
  block.is[40] = 1;
  block.is[511] = 2;
  injection.altered = {block, {.lba = 105, .was = {0x0F}, .is = {}}};
  const nlohmann::ordered_json json = injectionsJson({injection});
  ASSERT_EQ(json.size(), 1U);
  EXPECT_EQ(json[0]["class"], "torn-write");
  EXPECT_EQ(json[0]["command"], 12);
  EXPECT_EQ(json[0]["kind"], "atomic");
  EXPECT_EQ(json[0]["lba"], 100);
  EXPECT_EQ(json[0]["note"], "by hand");
  EXPECT_EQ(json[0]["visible"], 2);
  const auto& altered = json[0]["altered"];
  ASSERT_EQ(altered.size(), 2U);
  EXPECT_EQ(altered[0]["firstDifference"], 40);
  EXPECT_EQ(altered[0]["differingBytes"], 2);
  EXPECT_EQ(altered[0]["was"].get<std::string>().size(), 64U);
  EXPECT_EQ(altered[1]["was"], "0f");
  EXPECT_TRUE(altered[1]["is"].is_null());
}

TEST(InjectionJson, IsAnEmptyListWithoutFaults) { EXPECT_EQ(injectionsJson({}).dump(), "[]"); }

}  // namespace
}  // namespace corvane::host
