#include "host/cli/RunJunit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/cli/SampleRun.h"

namespace corvane::host {
namespace {

using ::testing::HasSubstr;
using testing::SampleRun;
using ::testing::StartsWith;

TEST(RunJunitTest, isOneSuiteWithOneCaseADrive) {
  const SampleRun sample;
  EXPECT_EQ(runJunit(sample.settings, sample.result),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<testsuite name=\"corvane run\" tests=\"2\" failures=\"1\" errors=\"0\" skipped=\"0\" time=\"2.100\">\n"
            "  <properties>\n"
            "    <property name=\"seed\" value=\"42\"/>\n"
            "  </properties>\n"
            "  <testcase classname=\"corvane.run\" name=\"sim0\" time=\"2.000\">\n"
            "    <system-out>Drive sim:1g: clean&#10;Repeat with:&#10;corvane run --drive sim:1g --drive file:b.img "
            "--commands 100 --seed 42 --output out&#10;</system-out>\n"
            "  </testcase>\n"
            "  <testcase classname=\"corvane.run\" name=\"b.img\" time=\"0.000\">\n"
            "    <failure type=\"data failure\" message=\"Miscompare Detected at LBA 0x1\">Miscompare Detected at LBA "
            "0x1&#10;status of the agent: -1046&#10;file: out/trace.txt&#10;file: out/drive.bin&#10;file: "
            "out/reference.bin&#10;</failure>\n"
            "    <system-out>Drive file:b.img: DATA FAILURE: Miscompare Detected at LBA 0x1&#10;Repeat "
            "with:&#10;corvane run --drive sim:1g --drive file:b.img --commands 100 --seed 42 --output "
            "out&#10;</system-out>\n"
            "  </testcase>\n"
            "</testsuite>\n");
}

TEST(RunJunitTest, whatIsNoDataFailureIsAnError) {
  SampleRun sample;
  sample.result.findings.clear();
  sample.result.drives[1].status = RunStatus::drive;
  sample.result.drives[1].error = "the \"drive\" is <gone>";
  const std::string text = runJunit(sample.settings, sample.result);
  EXPECT_THAT(text, HasSubstr(" tests=\"2\" failures=\"0\" errors=\"1\" "));
  EXPECT_THAT(text, HasSubstr("<error type=\"drive error\" message=\"the &quot;drive&quot; is &lt;gone&gt;\">the "));
}

TEST(RunJunitTest, saysWhenTheTestWasStopped) {
  SampleRun sample;
  sample.result.stopped = true;
  EXPECT_THAT(runJunit(sample.settings, sample.result), HasSubstr("clean&#10;Stopped before its end.&#10;Repeat"));
}

TEST(RunJunitTest, aTestThatCouldNotBeginIsAnErrorOfEachDrive) {
  const SampleRun sample;
  const std::string text = failedRunJunit(sample.settings, RunStatus::configuration, "not so");
  EXPECT_THAT(text, StartsWith("<?xml"));
  EXPECT_THAT(text, HasSubstr(" tests=\"2\" failures=\"0\" errors=\"2\" "));
  EXPECT_THAT(text, HasSubstr("name=\"file:b.img\" time=\"0.000\">\n    <error type=\"configuration error\" "
                              "message=\"not so\">not so&#10;</error>"));
}

}  // namespace
}  // namespace corvane::host
