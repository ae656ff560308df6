// The smallest example of every rule by which the agent says something else than what follows from drives alone. They
// stand in docs/detection.md.

#include "tests/oracle/Differences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/oracle/AgentJudge.h"

namespace oracletest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr Value old = baseValue;
constexpr Value A = 1;
constexpr Value B = 2;

constexpr Command write(uint8_t first, uint8_t blocks, Ending ending) {
  return {Kind::write, ending, first, blocks, 1};
}
constexpr Command atomic(uint8_t first, uint8_t blocks, Ending ending) {
  return {Kind::atomicWrite, ending, first, blocks, blocks};
}
constexpr Command look(uint8_t first, uint8_t blocks) { return {Kind::look, Ending::good, first, blocks, 1}; }

struct Differences : testing::Test {
  /// Events by letters: "A" issues command 0, "a" ends it. The judged read is the last command but for reads ahead.
  void play(uint8_t blocks, std::vector<Command> commands, const std::string& events, Base base = Base::written) {
    history.base = base;
    history.blocks = blocks;
    read = static_cast<uint8_t>(commands.size() - 1);
    history.commands = std::move(commands);
    history.events.clear();
    for (const char letter : events) {
      const bool end = letter >= 'a';
      history.events.push_back({static_cast<uint8_t>(letter - (end ? 'a' : 'A')), end});
    }
  }

  /// Adds the agent's reads ahead, which all show the content of the start.
  void addReadsAhead() {
    const auto played = agent.withReadsAhead(history, read, [](const History&, uint8_t) { return Image{0}; });
    ASSERT_TRUE(played.has_value());
    history = *played;
  }

  bool accepts(std::initializer_list<Value> values) {
    const Silence silence;
    return agent.judge(history, read, {image(values)}).at(0).accepted();
  }
  bool possible(std::initializer_list<Value> values) { return Comparison(history, read).possible(image(values)); }
  Rules rules(std::initializer_list<Value> values) {
    return Comparison(history, read).explain(image(values), accepts(values));
  }
  static Image image(std::initializer_list<Value> values) {
    Image made = 0;
    uint32_t block = 0;
    for (const Value value : values) {
      made = withValue(made, block++, value);
    }
    return made;
  }

  AgentJudge agent;
  History history;
  uint8_t read = 0;
};

TEST_F(Differences, ThereIsNoneAboutATornAtomicWriteOverWrittenContent) {
  play(2, {atomic(0, 2, Ending::failed), look(0, 2)}, "AaBb");
  EXPECT_TRUE(accepts({A, A}) && possible({A, A}));
  EXPECT_TRUE(accepts({old, old}) && possible({old, old}));
  EXPECT_FALSE(accepts({A, old}) || possible({A, old}));
  EXPECT_FALSE(accepts({old, A}) || possible({old, A}));
  EXPECT_FALSE(accepts({foreign, A}) || possible({foreign, A}));
  EXPECT_THAT(rules({A, old}), IsEmpty());
}

TEST_F(Differences, IssueOrder) {
  play(1, {write(0, 1, Ending::good), write(0, 1, Ending::good), look(0, 1)}, "ABabCc");
  EXPECT_TRUE(possible({A}));
  EXPECT_FALSE(accepts({A}));
  EXPECT_TRUE(accepts({B}));
  EXPECT_THAT(rules({A}), ElementsAre(Rule::issueOrder));

  play(1, {write(0, 1, Ending::good), look(0, 1)}, "ABab");
  EXPECT_TRUE(possible({old}));
  EXPECT_FALSE(accepts({old}));
  EXPECT_THAT(rules({old}), ElementsAre(Rule::issueOrder));
}

TEST_F(Differences, FailedWrite) {
  play(1, {write(0, 1, Ending::failed), look(0, 1)}, "AaBb");
  EXPECT_FALSE(possible({foreign}));
  EXPECT_TRUE(accepts({foreign}));
  EXPECT_THAT(rules({foreign}), ElementsAre(Rule::failedWrite));

  // The block of B has nothing to say about A, which is torn.
  play(2, {atomic(0, 2, Ending::failed), write(0, 1, Ending::failed), look(0, 2)}, "AaBbCc");
  EXPECT_FALSE(possible({old, A}));
  EXPECT_TRUE(accepts({old, A}));
  EXPECT_THAT(rules({old, A}), ElementsAre(Rule::failedWrite));
}

TEST_F(Differences, NeverWritten) {
  play(2, {write(0, 1, Ending::good), look(0, 2)}, "AaBb", Base::unknown);
  EXPECT_FALSE(possible({A, foreign}));
  EXPECT_TRUE(accepts({A, foreign}));
  EXPECT_THAT(rules({A, foreign}), ElementsAre(Rule::neverWritten));
  EXPECT_FALSE(accepts({foreign, foreign}));
}

TEST_F(Differences, ReadBack) {
  Command back = look(0, 1);
  back.kind = Kind::readBack;
  play(1, {write(0, 1, Ending::good), back, look(0, 1)}, "AaBbCc", Base::unknown);
  history.shown[1] = image({A});
  EXPECT_FALSE(possible({foreign}));
  EXPECT_TRUE(accepts({foreign}));
  EXPECT_THAT(rules({foreign}), ElementsAre(Rule::readBack));
}

TEST_F(Differences, UnstampedContent) {
  play(2, {atomic(0, 2, Ending::failed), look(0, 2)}, "AaBb", Base::trimmed);
  EXPECT_FALSE(possible({zeroes, A}));
  EXPECT_TRUE(accepts({zeroes, A}));
  EXPECT_THAT(rules({zeroes, A}), ElementsAre(Rule::unstampedContent));

  play(2, {atomic(0, 2, Ending::failed), look(0, 2)}, "AaBb", Base::unknown);
  addReadsAhead();
  EXPECT_FALSE(possible({old, A}));
  EXPECT_TRUE(accepts({old, A}));
  EXPECT_FALSE(accepts({foreign, A}));
  EXPECT_THAT(rules({old, A}), ElementsAre(Rule::unstampedContent));
}

TEST_F(Differences, EarlierReads) {
  play(1, {atomic(0, 1, Ending::failed), look(0, 1), look(0, 1)}, "AaBbCc");
  history.shown[1] = image({A});
  EXPECT_FALSE(possible({old}));
  EXPECT_TRUE(accepts({old}));
  EXPECT_THAT(rules({old}), ElementsAre(Rule::earlierReads));
}

TEST_F(Differences, WithoutARuleIsAnError) {
  play(2, {atomic(0, 2, Ending::failed), look(0, 2)}, "AaBb");
  Comparison comparison(history, read);
  EXPECT_THROW(comparison.explain(image({A, old}), true), std::domain_error);
  EXPECT_THROW(comparison.explain(image({A, A}), false), std::domain_error);
}

TEST_F(Differences, AHistoryThatTheAgentDoesNotPlayIsAnError) {
  play(1, {atomic(0, 1, Ending::good), look(0, 1)}, "AaBb", Base::unknown);
  EXPECT_THROW(agent.judge(history, read, {0}), std::runtime_error);
}

}  // namespace
}  // namespace oracletest
