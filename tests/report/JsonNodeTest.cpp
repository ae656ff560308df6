#include "host/report/JsonNode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/report/ReportError.h"

namespace corvane::host::report {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

class JsonNodeTest : public ::testing::Test {
 protected:
  const JsonNode::Json document_ = JsonNode::Json::parse(R"({
    "text": "t", "number": 18446744073709551615, "negative": -3, "real": 1.5, "truth": true, "nothing": null,
    "hex": "00aF", "odd": "0", "noHex": "0g", "list": ["a", 2, [true]], "object": {"b": {"c": [5]}, "a": 1}})");
  const std::string file_ = "r.json";
  const JsonNode node_{document_, file_};
};

TEST_F(JsonNodeTest, readsEachType) {
  EXPECT_EQ(node_.at("text").text(), "t");
  EXPECT_EQ(node_.at("number").number(), 18446744073709551615U);
  EXPECT_EQ(node_.at("negative").signedNumber(), -3);
  EXPECT_EQ(node_.at("real").real(), 1.5);
  EXPECT_TRUE(node_.at("truth").truth());
  EXPECT_THAT(node_.at("hex").bytes(), ElementsAre(0x00, 0xAF));
  EXPECT_EQ(node_.at("list").anyText(), "a, 2, true");
}

TEST_F(JsonNodeTest, whatMayBeMissingIsEmpty) {
  for (const char* key : {"absent", "nothing"}) {
    EXPECT_FALSE(node_.find(key));
    EXPECT_EQ(node_.textOf(key), "");
    EXPECT_EQ(node_.numberOf(key), 0U);
    EXPECT_FALSE(node_.truthOf(key));
    EXPECT_FALSE(node_.maybeNumber(key));
    EXPECT_TRUE(node_.textsOf(key).empty());
  }
}

TEST_F(JsonNodeTest, membersKeepTheirOrder) {
  std::vector<std::string> names;
  for (const auto& [name, value] : node_.at("object").members()) {
    names.push_back(name);
  }
  EXPECT_THAT(names, ElementsAre("b", "a"));
}

TEST_F(JsonNodeTest, everythingWrongIsNamedWithItsFileAndPlace) {
  const auto says = [](const char* text) { return ThrowsMessage<ReportError>(HasSubstr(text)); };
  EXPECT_THAT([&] { node_.at("absent"); }, says("'r.json' has no key 'absent'"));
  EXPECT_THAT([&] { node_.at("object").at("b").at("d"); }, says("has no key 'object.b.d'"));
  EXPECT_THAT([&] { node_.at("object").at("b").at("c").items()[0].text(); },
              says("'r.json': key 'object.b.c[0]' is 5; a text was expected there"));
  EXPECT_THAT([&] { node_.at("negative").number(); }, says("key 'negative' is -3; a whole number from 0 on"));
  EXPECT_THAT([&] { node_.at("real").signedNumber(); }, says("key 'real' is 1.5; a whole number"));
  EXPECT_THAT([&] { node_.at("text").real(); }, says("a number"));
  EXPECT_THAT([&] { node_.at("text").truth(); }, says("true or false"));
  EXPECT_THAT([&] { node_.at("text").items(); }, says("key 'text' is \"t\"; a list"));
  EXPECT_THAT([&] { node_.at("list").members(); }, says("an object"));
  EXPECT_THAT([&] { node_.at("odd").bytes(); }, says("two hexadecimal digits"));
  EXPECT_THAT([&] { node_.at("noHex").bytes(); }, says("two hexadecimal digits"));
}

TEST_F(JsonNodeTest, aLongValueIsCutInTheMessage) {
  const JsonNode::Json document{{"key", std::string(5000, 'x')}};
  const JsonNode node(document, file_);
  try {
    node.at("key").number();
    FAIL();
  } catch (const ReportError& error) {
    EXPECT_LT(std::string(error.what()).size(), 200U);
  }
}

}  // namespace
}  // namespace corvane::host::report
