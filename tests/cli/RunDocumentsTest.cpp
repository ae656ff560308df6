#include "host/cli/RunDocuments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/cli/UsageError.h"
#include "host/drive/DriveError.h"
#include "host/run/ConfigurationError.h"
#include "tests/cli/SampleRun.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::SampleRun;
using tests::readFile;
using Json = nlohmann::ordered_json;

std::vector<std::string> keysOf(const Json& object) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : object.items()) {
    keys.push_back(key);
  }
  return keys;
}

class RunDocumentsTest : public ::testing::Test {
 protected:
  RunDocumentsTest() { sample_.settings.jsonPath = folder_ / "x.json"; }
  Json document() const { return Json::parse(readFile(folder_ / "x.json")); }

  tests::TempFolder folder_;
  SampleRun sample_;
  RunDocuments documents_{sample_.settings};
};

TEST_F(RunDocumentsTest, theUnfinishedDocumentIsReplacedByTheResult) {
  documents_.begin({"careful"});
  const Json unfinished = document();
  EXPECT_EQ(unfinished["status"], "unfinished");
  EXPECT_TRUE(unfinished["exitStatus"].is_null());
  EXPECT_EQ(unfinished["seed"], 42);
  EXPECT_EQ(unfinished["warnings"], Json::array({"careful"}));
  EXPECT_TRUE(documents_.finish(sample_.drives, {"careful"}, sample_.result));
  const Json finished = document();
  EXPECT_EQ(finished["status"], "data failure");
  EXPECT_EQ(finished["exitStatus"], 1);
  EXPECT_EQ(keysOf(unfinished), keysOf(finished));
}

TEST_F(RunDocumentsTest, aRunThatBrokeOffLeavesItsErrorInstead) {
  documents_.begin({});
  documents_.fail(RunStatus::internal, "no memory");
  EXPECT_EQ(document()["status"], "internal error");
  EXPECT_EQ(document()["exitStatus"], 4);
  EXPECT_EQ(document()["error"], "no memory");
}

TEST_F(RunDocumentsTest, aTestThatCouldNotBeginLeavesNothingUnlessAsked) {
  documents_.fail(RunStatus::drive, "gone");
  EXPECT_THAT(folder_.content(), IsEmpty());
}

TEST_F(RunDocumentsTest, aTestThatCouldNotBeginLeavesWhatWasAskedFor) {
  sample_.settings.jsonGiven = true;
  sample_.settings.junitPath = folder_ / "x.xml";
  documents_.fail(RunStatus::configuration, "not so");
  EXPECT_THAT(folder_.content(), ElementsAre("x.json", "x.xml"));
  EXPECT_EQ(document()["status"], "configuration error");
  EXPECT_THAT(readFile(folder_ / "x.xml"), HasSubstr("<error type=\"configuration error\" message=\"not so\">"));
}

TEST_F(RunDocumentsTest, anErrorIsNoReasonToComplainOfAFileThatCannotBeWritten) {
  sample_.settings.jsonGiven = true;
  sample_.settings.jsonPath = folder_ / "none/x.json";
  ::testing::internal::CaptureStderr();
  documents_.fail(RunStatus::drive, "gone");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(RunDocumentsTest, aResultThatCannotBeWrittenIsComplainedOf) {
  sample_.settings.junitPath = folder_ / "none/x.xml";
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(documents_.finish(sample_.drives, {}, sample_.result));
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("corvane: --junit '"));
  EXPECT_EQ(document()["status"], "data failure") << "the other one is written";
}

TEST_F(RunDocumentsTest, checksWithoutTouching) {
  documents_.check();
  EXPECT_THAT(folder_.content(), IsEmpty());
  sample_.settings.junitPath = folder_.path();
  EXPECT_THROW(documents_.check(), UsageError);
}

TEST(RunStatusOfTest, followsFromTheException) {
  EXPECT_EQ(runStatusOf(UsageError("x")), RunStatus::configuration);
  EXPECT_EQ(runStatusOf(ConfigurationError("x")), RunStatus::configuration);
  EXPECT_EQ(runStatusOf(DriveAddressError("x")), RunStatus::configuration);
  EXPECT_EQ(runStatusOf(DriveError("x")), RunStatus::drive);
  EXPECT_EQ(runStatusOf(std::runtime_error("x")), RunStatus::internal);
}

}  // namespace
}  // namespace corvane::host
