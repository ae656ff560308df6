#include "host/base/TimeSlice.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <future>

#include "tests/support/ThreadSchedule.h"

namespace corvane::host {
namespace {

using tests::kernelKnowsTimeSlices;
using tests::threadSchedule;
using tests::timeSliceUs;

/// On a thread of its own, so that no other test gets what it asks for.
template <typename Work>
void onThread(Work work) {
  std::async(std::launch::async, work).get();
}

TEST(TimeSlice, IsWhatWasAskedForWhereTheKernelKnowsIt) {
  onThread([] {
    const uint64_t before = timeSliceUs();
    askForTimeSlice(50'000);
    EXPECT_EQ(timeSliceUs(), kernelKnowsTimeSlices() ? 50'000 : before);
  });
}

TEST(TimeSlice, IsOfTheCallingThreadAlone) {
  const uint64_t before = timeSliceUs();
  onThread([] { askForTimeSlice(50'000); });
  EXPECT_EQ(timeSliceUs(), before);
}

TEST(TimeSlice, ALongerOneIsKept) {
  onThread([] {
    askForTimeSlice(50'000);
    const uint64_t before = timeSliceUs();
    askForTimeSlice(20'000);
    EXPECT_EQ(timeSliceUs(), before);
  });
}

TEST(TimeSlice, NicenessAndPolicyStay) {
  onThread([] {
    sched_param none{};
    ASSERT_EQ(sched_setscheduler(0, SCHED_BATCH | SCHED_RESET_ON_FORK, &none), 0);
    ASSERT_EQ(setpriority(PRIO_PROCESS, 0, 7), 0);
    const uint64_t flags = threadSchedule().flags;
    askForTimeSlice(50'000);
    EXPECT_EQ(threadSchedule().policy, static_cast<uint32_t>(SCHED_BATCH));
    EXPECT_EQ(threadSchedule().nice, 7);
    EXPECT_EQ(threadSchedule().flags, flags);
    EXPECT_EQ(timeSliceUs(), kernelKnowsTimeSlices() ? 50'000 : 0);
  });
}

TEST(TimeSlice, AThreadThatRunsWhenNobodyElseWillIsLeftAlone) {
  onThread([] {
    sched_param none{};
    ASSERT_EQ(sched_setscheduler(0, SCHED_IDLE, &none), 0);
    const uint64_t before = timeSliceUs();
    askForTimeSlice(50'000);
    EXPECT_EQ(threadSchedule().policy, static_cast<uint32_t>(SCHED_IDLE));
    EXPECT_EQ(timeSliceUs(), before);
  });
}

TEST(TimeSlice, ARealTimeThreadIsLeftAlone) {
  onThread([] {
    const sched_param first{.sched_priority = 1};
    if (sched_setscheduler(0, SCHED_RR, &first) != 0) {
      GTEST_SKIP() << "real-time threads are refused here";
    }
    askForTimeSlice(50'000);
    EXPECT_EQ(threadSchedule().policy, static_cast<uint32_t>(SCHED_RR));
    EXPECT_EQ(threadSchedule().priority, 1U);
  });
}

}  // namespace
}  // namespace corvane::host
