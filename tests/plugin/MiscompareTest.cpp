#include "Miscompare.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/CompletionBench.h"
#include "support_model/TempDir.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;

/// An agent on a drive with a device interface that records what it is asked.
struct Miscompare : ::testing::Test {
  Miscompare() : bench({.device = &device}) {
    bench.start();
    bench.takeLog();
    bench.takeTrace();
    device.calls.clear();
  }

  void trigger() {
    vdl::agent::Step step = bench.step();
    vdl::agent::triggerMiscompare(step, 0x1234567890, 8, 6, 77, true);
  }
  void expectMarked(CompletionBench& on) {
    EXPECT_TRUE(on.data().miscompareSeen);
    EXPECT_EQ(on.data().miscompareLBA, 0x1234567890U);
    const auto entry = on.lastEntry();
    EXPECT_EQ(entry.type, TraceType::Miscompare);
    EXPECT_EQ(entry.lba, 0x1234567890U);
    EXPECT_EQ(entry.cmd_id, 77U);
    EXPECT_EQ(entry.block, 8U) << "what was expected";
    EXPECT_EQ(entry.tag, 6U) << "what was found";
    EXPECT_EQ(entry.flag, 1);
    EXPECT_EQ(entry.xfer_len, 0U);
  }

  RecordingDevice device;
  CompletionBench bench;
};

TEST_F(Miscompare, WithoutShowstopOnlyTheLbaIsTold) {
  device.showstopSetting = 0;
  trigger();
  EXPECT_THAT(device.calls, ElementsAre("miscompare 0 at 78187493520"));
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  expectMarked(bench);
}

TEST_F(Miscompare, ShowstopSetsTheSettingSendsAndPutsItBack) {
  bench.config().showstopOnMiscompare = true;
  trigger();
  EXPECT_THAT(device.calls,
              ElementsAre("read setting", "write setting 1", "send", "write setting 0", "miscompare 0 at 78187493520"));
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  expectMarked(bench);
}

TEST_F(Miscompare, SettingThatStoodAlreadyIsWrittenOnce) {
  bench.config().showstopOnMiscompare = true;
  device.showstopSetting = 1;
  trigger();
  EXPECT_THAT(device.calls, ElementsAre("read setting", "write setting 1", "send", "miscompare 0 at 78187493520"));
  EXPECT_EQ(device.showstopSetting, 1U);
}

TEST_F(Miscompare, AnyOtherSettingIsPutBack) {
  bench.config().showstopOnMiscompare = true;
  device.showstopSetting = 0xDEADBEEF;
  trigger();
  EXPECT_EQ(device.showstopSetting, 0xDEADBEEFU);
}

TEST_F(Miscompare, SettingThatCannotBeReadCountsAsZero) {
  bench.config().showstopOnMiscompare = true;
  device.settingStatus = 5;
  device.showstopSetting = 1;
  trigger();
  EXPECT_THAT(device.calls,
              ElementsAre("read setting", "write setting 1", "send", "write setting 0", "miscompare 0 at 78187493520"));
}

TEST_F(Miscompare, FailedSendPutsTheSettingBackAndIsLogged) {
  bench.config().showstopOnMiscompare = true;
  device.sendStatus = 5;
  trigger();
  EXPECT_THAT(device.calls,
              ElementsAre("read setting", "write setting 1", "send", "write setting 0", "miscompare 0 at 78187493520"));
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Failed to issue Showstop, ostra err 5"}));
  expectMarked(bench);
}

TEST_F(Miscompare, RequestBlockIsTheVendorCommand) {
  bench.config().showstopOnMiscompare = true;
  trigger();
  Bytes expected(112, 0);
  expected[0] = 112;
  expected[4] = 1;
  expected[6] = 10;
  expected[24] = 0xC0;
  expected[25] = 0x81;
  expected[26] = 0x91;
  expected[27] = 0x02;
  EXPECT_EQ(device.request, expected);
}

TEST_F(Miscompare, ShowstopWithoutADeviceIsLogged) {
  CompletionBench alone;
  alone.config().showstopOnMiscompare = true;
  alone.start();
  alone.takeLog();
  vdl::agent::Step step = alone.step();
  vdl::agent::triggerMiscompare(step, 0x1234567890, 8, 6, 77, true);
  EXPECT_THAT(alone.takeLog(), ElementsAre(LogLine{2, "Failed to issue Showstop, ostra err -1053"}));
  expectMarked(alone);
}

TEST_F(Miscompare, NothingIsSaidWithoutADeviceAndShowstop) {
  CompletionBench alone;
  alone.start();
  alone.takeLog();
  vdl::agent::Step step = alone.step();
  vdl::agent::triggerMiscompare(step, 0x1234567890, 8, 6, 77, true);
  EXPECT_THAT(alone.takeLog(), IsEmpty());
  expectMarked(alone);
}

TEST_F(Miscompare, LaterMiscompareTakesOver) {
  trigger();
  vdl::agent::Step step = bench.step();
  vdl::agent::triggerMiscompare(step, 5, 1, 2, 3, false);
  EXPECT_EQ(bench.data().miscompareLBA, 5U);
  EXPECT_EQ(bench.lastEntry().flag, 0);
}

TEST_F(Miscompare, TagRowsStay) {
  bench.write(100, 8, 6);
  const auto before = bench.trace().slot(6);
  trigger();
  EXPECT_EQ(bench.trace().slot(6).type, before.type);
  EXPECT_EQ(bench.trace().slot(6).lba, 100U);
}

struct MiscompareDump : Miscompare {
  modeltest::TempDir directory;
};

TEST_F(MiscompareDump, BytesAreWrittenAsTheyStand) {
  const Bytes image = {0x00, 0x0A, 0x0D, 0xFF, 0x1A};
  vdl::agent::dumpMiscompareData(bench.thread(), image.data(), image.size(), "x.bin");
  EXPECT_EQ(modeltest::readFile("x.bin"), std::string(image.begin(), image.end()));
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Miscompare Data Written To 'x.bin'"}));
}

TEST_F(MiscompareDump, ExistingFileIsKept) {
  modeltest::writeFile("x.bin", "old");
  const Bytes image = {1};
  vdl::agent::dumpMiscompareData(bench.thread(), image.data(), image.size(), "x.bin");
  EXPECT_EQ(modeltest::readFile("x.bin"), "old");
  EXPECT_EQ(modeltest::readFile("x.bin.000"), "\x01");
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Miscompare Data Written To 'x.bin.000'"}));
}

TEST_F(MiscompareDump, MissingDirectoriesAreMade) {
  const Bytes image = {1};
  vdl::agent::dumpMiscompareData(bench.thread(), image.data(), image.size(), "a/b/x.bin");
  EXPECT_EQ(modeltest::readFile("a/b/x.bin"), "\x01");
}

TEST_F(MiscompareDump, NoBytesMakeAnEmptyFile) {
  vdl::agent::dumpMiscompareData(bench.thread(), nullptr, 0, "x.bin");
  EXPECT_EQ(modeltest::readFile("x.bin"), "");
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Miscompare Data Written To 'x.bin'"}));
}

TEST_F(MiscompareDump, FileThatCannotBeOpenedIsLogged) {
  const std::string tooLong(300, 'n');
  const Bytes image = {1};
  vdl::agent::dumpMiscompareData(bench.thread(), image.data(), image.size(), tooLong);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "dumpMiscompareData(): could not open '" + tooLong + "' for writing"}));
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST_F(Miscompare, ShowstopGoesOutAtTheComparesFinding) {
  bench.config().showstopOnMiscompare = true;
  bench.finishedWrite(100, 4, 1);
  bench.block(102)[50] ^= 1;
  bench.readBack(4);
  EXPECT_EQ(bench.completeRead(4), -1046);
  EXPECT_THAT(device.calls,
              ElementsAre("read setting", "write setting 1", "send", "write setting 0", "miscompare 0 at 102"));
}

}  // namespace
}  // namespace benchtest
