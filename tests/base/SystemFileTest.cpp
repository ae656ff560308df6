#include "host/base/SystemFile.h"

#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

TEST(SystemFile, IsReadWithEveryByteOfIt) {
  const tests::TempFolder folder;
  const std::string content("one\ntwo\0three\n", 14);
  std::ofstream(folder / "file", std::ios::binary) << content;
  EXPECT_EQ(contentOf(folder / "file"), content);
}

TEST(SystemFile, ThatIsEmptyOrNotThereHasNoContent) {
  const tests::TempFolder folder;
  std::ofstream(folder / "empty").close();
  EXPECT_EQ(contentOf(folder / "empty"), "");
  EXPECT_EQ(contentOf(folder / "none"), "");
}

TEST(SystemFile, WhoseReadFailsHasNoContentEither) {
  // A folder opens like a file and fails like one of a device that is gone by then.
  const tests::TempFolder folder;
  EXPECT_EQ(contentOf(folder / "."), "");
}

}  // namespace
}  // namespace corvane::host
