#include <gtest/gtest.h>

#include "model/FileCursor.hpp"

namespace brimlog {
namespace {

TEST(FileCursorTest, RoundTripsThroughItsStoredForm) {
  const FileCursor cursor{"/home/u/.codex/sessions/a.jsonl",
                          18446744073709551615ull,
                          4096,
                          {{"provider", "codex"}, {"session", "s1"}, {"model", "gpt-5"}}};
  const std::string text = json::dump(cursor.toJson());
  EXPECT_EQ(FileCursor::fromJson(json::parse(text)), cursor);
  EXPECT_EQ(FileCursor::fromJsonText(text), cursor);
  // Shapes the quick reader leaves to the general one decode the same way.
  for (const char* other : {R"({"path":"p","inode":7.0,"offset":12.0,"context":{}})",
                            R"({"path":"p","inode":7,"offset":12,"context":{"a":"1","a":"2"}})",
                            R"({"context":{},"offset":12,"inode":7,"path":"p"})"}) {
    EXPECT_EQ(FileCursor::fromJsonText(other), FileCursor::fromJson(json::parse(other))) << other;
  }
  EXPECT_EQ(FileCursor::fromJson(json::parse(R"({"path":"p","inode":0,"offset":0,"context":{}})")),
            (FileCursor{"p", 0, 0, {}}));
}

TEST(FileCursorTest, DecodingNeedsAllFourKeysWithTheirTypes) {
  for (const char* bad : {
           R"({"inode":1,"offset":0,"context":{}})",
           R"({"path":"p","offset":0,"context":{}})",
           R"({"path":"p","inode":1,"context":{}})",
           R"({"path":"p","inode":1,"offset":0})",
           R"({"path":"p","inode":-1,"offset":0,"context":{}})",
           R"({"path":"p","inode":1,"offset":0.5,"context":{}})",
           R"({"path":"p","inode":1,"offset":0,"context":{"session":1}})",
           R"({"path":"p","inode":1,"offset":0,"context":[]})",
           R"([])",
       }) {
    EXPECT_THROW(FileCursor::fromJson(json::parse(bad)), JsonDecodeError) << bad;
    EXPECT_FALSE(FileCursor::fromJsonText(bad)) << bad;
  }
}

}  // namespace
}  // namespace brimlog
