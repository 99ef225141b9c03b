#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Json.hpp"

namespace brimlog {
namespace {

// Matches a call that throws a JsonDecodeError whose message holds `text`.
auto throwsSaying(const std::string& text) {
  return ::testing::ThrowsMessage<JsonDecodeError>(::testing::HasSubstr(text));
}

TEST(JsonTest, KeysDatesAndIntegersAreCheckedAndNameWhatIsWrong) {
  const Json doc = Json::parse(R"({"a":1,"n":null,"s":"x"})");
  EXPECT_EQ(json::require(doc, "a"), 1);
  EXPECT_THAT([&] { json::require(doc, "b"); }, throwsSaying("\"b\""));
  EXPECT_THAT([&] { json::require(doc, "n"); }, throwsSaying("Null value"));
  EXPECT_EQ(json::optional(doc, "n"), nullptr);
  EXPECT_EQ(json::optional(doc, "b"), nullptr);
  EXPECT_THAT([&] { json::number(doc["s"], "s"); }, throwsSaying("a number"));
  EXPECT_THAT([&] { json::require(Json::array(), "a"); }, throwsSaying("object"));
  // Each date form refuses the other's dates. (What the text form reads is SnapshotTest's table.)
  EXPECT_THROW(json::decodeDate(770474096.5, DateForm::iso8601, "d"), JsonDecodeError);
  EXPECT_THROW(json::decodeDate("2025-06-01T12:34:56Z", DateForm::referenceSeconds, "d"),
               JsonDecodeError);

  EXPECT_EQ(json::integer(Json::parse("12"), "k"), 12);
  EXPECT_EQ(json::integer(Json::parse("-12"), "k"), -12);
  EXPECT_EQ(json::integer(Json::parse("12.0"), "k"), 12);
  EXPECT_THROW(json::integer(Json::parse("12.5"), "k"), JsonDecodeError);
  EXPECT_THROW(json::integer(Json::parse("9223372036854775808"), "k"), JsonDecodeError);
  EXPECT_THROW(json::integer(Json::parse("\"12\""), "k"), JsonDecodeError);
  EXPECT_EQ(json::unsignedInteger(Json::parse("18446744073709551615"), "k"), UINT64_MAX);
  EXPECT_EQ(json::unsignedInteger(Json::parse("-0"), "k"),
            0u);  // a signed zero, as the quick cursor reader takes it
  EXPECT_THROW(json::unsignedInteger(Json::parse("-1"), "k"), JsonDecodeError);
}

TEST(JsonTest, AnEnumerationCaseIsExactlyOneKnownKey) {
  const auto pick = [](const char* text) {
    return std::string(json::onlyCase(Json::parse(text), {"ok", "rateLimited"}, "status"));
  };
  EXPECT_EQ(pick(R"({"rateLimited":{},"note":1})"), "rateLimited");
  for (const char* text : {R"({})", R"({"ok":{},"rateLimited":{}})", R"({"other":{}})"}) {
    EXPECT_THAT([&] { pick(text); }, ::testing::ThrowsMessage<JsonDecodeError>(
                                         "Invalid number of keys found, expected one."))
        << text;
  }
}

TEST(JsonTest, TextIsParsedAndWrittenCompactly) {
  EXPECT_THROW(json::parse("{\"a\":"), JsonDecodeError);
  EXPECT_EQ(json::dump(Json::parse(R"({ "b" : [1, 2], "a" : "x" })")), R"({"a":"x","b":[1,2]})");
  EXPECT_EQ(json::dump(Json(std::string("a\xff"))), "\"a\xef\xbf\xbd\"");  // U+FFFD
}

}  // namespace
}  // namespace brimlog
