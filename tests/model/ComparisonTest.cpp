// That the comparison sees differences: an agent that is told something else than the model must not pass.

#include "tests/model/Comparison.h"

#include <gtest/gtest.h>

namespace refmodel {
namespace {

using What = Action::What;

constexpr uint64_t lba = 63;  // the next block is in another page
constexpr vdl::BlockRun twoBlocks{lba, lba + 2, 1};

Action issuedWrite(uint64_t id, uint32_t bucket) {
  Action action;
  action.what = What::write;
  action.id = id;
  action.run = twoBlocks;
  action.content = {bucket, {true, id, lba}, true, true};
  return action;
}

Action of(What what, uint64_t id, bool flag = false) {
  Action action;
  action.what = what;
  action.id = id;
  action.run = twoBlocks;
  action.flag = flag;
  action.landed = what == What::finish || what == What::fail;
  return action;
}

struct ComparisonOfAgentAndModel : ::testing::Test {
  /// The model is told of one action and the agent of another; what is noticed.
  std::string differently(const Action& model, const Action& agent) {
    const std::string verdict = comparison.carryOut(agent, table.carryOut(model));
    return verdict.empty() ? comparison.compareTables(table, lba, lba + 2, script) : verdict;
  }
  std::string both(const Action& action) { return differently(action, action); }

  /// A read of both blocks that returns `second` in the second one.
  Action readOf(uint64_t id, const Bytes& second) {
    Action action = of(What::giveData, id);
    action.data = {id, lba, 2, 2, 1, {}, comparison.medium().written(8, {true, 1, lba})};
    action.data.bytes.insert(action.data.bytes.end(), second.begin(), second.end());
    return action;
  }

  Comparison comparison;
  ModelSubject table = comparison.freshModel();
  Script script{comparison.medium(), lba, 0};
};

TEST_F(ComparisonOfAgentAndModel, PassesWhatIsTheSame) {
  EXPECT_EQ(both(issuedWrite(1, 8)), "");
  EXPECT_EQ(both(of(What::finish, 1)), "");
  Action read = of(What::read, 2);
  read.expects = {true, true};
  EXPECT_EQ(both(read), "");
  EXPECT_EQ(both(readOf(2, comparison.medium().written(9, {true, 1, lba + 1}))), "");
}

TEST_F(ComparisonOfAgentAndModel, NoticesAnotherEvent) {
  EXPECT_NE(differently(issuedWrite(1, 8), issuedWrite(1, 9)), "");
  EXPECT_NE(differently(of(What::invalidate, 0, true), of(What::invalidate, 0, false)), "");
}

TEST_F(ComparisonOfAgentAndModel, NoticesAMissingReference) {
  EXPECT_EQ(both(issuedWrite(1, 8)), "");
  EXPECT_EQ(both(issuedWrite(2, 8)), "");
  EXPECT_NE(differently(of(What::finish, 1), of(What::skip, 1)), "");
}

TEST_F(ComparisonOfAgentAndModel, NoticesAReadThatWaitsForSomethingElse) {
  EXPECT_EQ(both(issuedWrite(1, 8)), "");
  Action read = of(What::read, 2);
  read.expects = {false, false};
  Action later = read;
  later.id = 3;
  EXPECT_NE(differently(read, later), "");
}

TEST_F(ComparisonOfAgentAndModel, NoticesAFindingThatIsNotReportedAlike) {
  EXPECT_EQ(both(issuedWrite(1, 8)), "");
  EXPECT_EQ(both(of(What::finish, 1)), "");
  Action read = of(What::read, 2);
  read.expects = {true, true};
  EXPECT_EQ(both(read), "");
  const Bytes wrong = comparison.medium().foreign(lba + 1);
  Bytes other = wrong;
  other[100] ^= 1;
  const std::string text = differently(readOf(2, wrong), readOf(2, other));
  EXPECT_NE(text.find("Miscompare Detected at LBA 0x0000000000000040"), std::string::npos) << text;
}

TEST_F(ComparisonOfAgentAndModel, NoticesAFindingOfOneOnly) {
  EXPECT_EQ(both(issuedWrite(1, 8)), "");
  EXPECT_EQ(both(of(What::finish, 1)), "");
  Action read = of(What::read, 2);
  read.expects = {true, true};
  EXPECT_EQ(both(read), "");
  const Bytes right = comparison.medium().written(9, {true, 1, lba + 1});
  EXPECT_NE(differently(readOf(2, right), readOf(2, comparison.medium().foreign(lba + 1))), "");
}

}  // namespace
}  // namespace refmodel
