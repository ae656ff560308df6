// Memory that runs out while a document is made. The library of JSON is left with a value that breaks its destructor
// when one that was nothing becomes an object and there is no memory for it.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <functional>
#include <new>
#include <string>

#include "host/cli/EventJson.h"
#include "host/cli/ExitStatus.h"
#include "host/cli/RunJson.h"
#include "host/cli/SelftestText.h"
#include "host/report/PageData.h"
#include "tests/cli/SampleRun.h"
#include "tests/support/EachAllocation.h"

namespace corvane::host {
namespace {

[[noreturn]] void sayOutOfMemory() {
  std::puts("out of memory");
  std::fflush(stdout);
  _exit(exit_status::internal);
}

/// Each allocation of it fails once. As in the program, a destructor of a library that has no memory is an end, too.
///
/// @return how often there was no document
uint64_t failEachOf(const std::function<std::string()>& document) {
  return tests::failEachAllocation(
      [&document] {
        std::set_terminate(sayOutOfMemory);
        try {
          return document().empty() ? exit_status::usage : exit_status::clean;
        } catch (const std::bad_alloc&) {
          sayOutOfMemory();
        }
      },
      exit_status::clean, exit_status::internal);
}

/// Something of everything.
Explanation sampleExplanation() {
  Explanation explanation;
  explanation.suspects = {FaultClass::lostWrite};
  explanation.sentences = {"one"};
  explanation.read = JournalEntry{};
  explanation.expected = BlockStamp{};
  explanation.legal.resize(1);
  explanation.neighbours.resize(1);
  explanation.commands.resize(1);
  return explanation;
}

TEST(DocumentMemory, OfARun) {
  testing::SampleRun sample;
  sample.result.drives[0].injections.resize(1);
  sample.result.drives[0].injections[0].altered.resize(1);
  sample.result.drives[0].unanswered.resize(1);
  EXPECT_GT(
      failEachOf([&] {
        return runJson(sample.settings, sample.drives, {"careful"}, sample.result, {std::nullopt, sampleExplanation()});
      }),
      100U);
}

TEST(DocumentMemory, OfARunThatHasNotEnded) {
  const testing::SampleRun sample;
  EXPECT_GT(failEachOf([&] { return unfinishedRunJson(sample.settings, {}); }), 50U);
  EXPECT_GT(failEachOf([&] { return failedRunJson(sample.settings, RunStatus::drive, "gone"); }), 50U);
}

TEST(DocumentMemory, OfTheEvents) {
  const testing::SampleRun sample;
  RunEvent event;
  event.what = StartEvent{.version = "1", .repeat = {"run"}, .warnings = {}, .drives = sample.drives};
  EXPECT_GT(failEachOf([&] { return eventLine(event, {}); }), 20U);
  event.what = ProgressEvent{};
  EXPECT_GT(failEachOf([&] { return eventLine(event, {}); }), 20U);
  event.what = FindingEvent{.finding = sample.result.findings[0]};
  EXPECT_GT(failEachOf([&] { return eventLine(event, {}); }), 5U);
  event.what = DriveEndEvent{};
  EXPECT_GT(failEachOf([&] { return eventLine(event, {}); }), 20U);
}

TEST(DocumentMemory, OfASelftest) {
  CampaignResult result;
  result.classes.resize(1);
  result.classes[0].cells.resize(1);
  result.classes[0].cells[0].reasons["overwritten"] = 1;
  result.clean.resize(1);
  EXPECT_GT(failEachOf([&] { return campaignJson(result); }), 50U);
}

TEST(DocumentMemory, OfAPage) {
  report::RunReport run;
  run.result.drives.resize(1);
  run.result.drives[0].issued.resize(1);
  run.result.drives[0].latency.resize(1);
  run.result.drives[0].injections.resize(1);
  run.result.drives[0].checked.emplace();
  run.findings.resize(1);
  run.findings[0].finding.explanation.emplace();
  run.findings[0].commands.resize(1);
  run.findings[0].fields.resize(1);
  run.findings[0].history.resize(1);
  EXPECT_GT(failEachOf([&] { return report::pageData(run); }), 100U);
}

}  // namespace
}  // namespace corvane::host
