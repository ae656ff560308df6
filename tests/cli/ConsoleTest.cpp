#include "host/cli/Console.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace corvane::host {
namespace {

class ConsoleTest : public ::testing::Test {
 public:
  ~ConsoleTest() override { std::fclose(stream_); }

 protected:
  /// What has been put since the last call.
  std::string put() {
    std::fseek(stream_, read_, SEEK_SET);
    std::string text(4096, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), stream_));
    read_ += static_cast<long>(text.size());
    std::fseek(stream_, 0, SEEK_END);
    return text;
  }

  std::FILE* stream_ = std::tmpfile();
  long read_ = 0;
  ScreenSize screen_{.columns = 20, .rows = 5};
  Console terminal_{stream_, true, [this] { return screen_; }};
  Console file_{stream_, false, [this] { return screen_; }};
};

TEST_F(ConsoleTest, elsewhereAStatusIsLines) {
  file_.status({"one", "two, which is longer than a terminal is wide"});
  file_.line("three");
  file_.clearStatus();
  EXPECT_EQ(put(), "one\ntwo, which is longer than a terminal is wide\nthree\n");
}

TEST_F(ConsoleTest, aStatusIsWrittenOverTheOneBefore) {
  terminal_.status({"one", "two"});
  EXPECT_EQ(put(), "one\x1b[K\ntwo\x1b[J");
  terminal_.status({"three", "four"});
  EXPECT_EQ(put(), "\r\x1b[1Athree\x1b[K\nfour\x1b[J");
  terminal_.status({"five"});
  EXPECT_EQ(put(), "\r\x1b[1Afive\x1b[J");
  terminal_.clearStatus();
  EXPECT_EQ(put(), "\r\x1b[J");
  terminal_.clearStatus();
  EXPECT_EQ(put(), "");
}

TEST_F(ConsoleTest, whatStaysStandsAboveTheStatus) {
  terminal_.line("before");
  EXPECT_EQ(put(), "before\n");
  terminal_.status({"one", "two"});
  put();
  terminal_.alarm("fire");
  EXPECT_EQ(put(), "\r\x1b[1A\x1b[J\x1b[1;31mfire\x1b[0m\none\ntwo");
}

TEST_F(ConsoleTest, aLineIsCutToTheWidthThatTheTerminalHasNow) {
  terminal_.status({"0123456789012345678901234"});
  EXPECT_EQ(put(), "01234567890123456\x1b[J");
  screen_.columns = 7;
  terminal_.status({"\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F\xC3\xA9\xC3\xA8"});
  EXPECT_EQ(put(), "\r\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F\x1b[J") << "characters are not torn";
}

TEST_F(ConsoleTest, moreLinesThanRowsAreCounted) {
  terminal_.status({"1", "2", "3", "4", "5", "6"});
  EXPECT_EQ(put(), "1\x1b[K\n2\x1b[K\n3\x1b[K\nand 3 more\x1b[J");
}

}  // namespace
}  // namespace corvane::host
