#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "ingest/JSONLTail.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> linesOf(const JSONLTail::Result& result) {
  std::vector<std::string> lines;
  for (std::string_view line : result.lines) lines.emplace_back(line);
  return lines;
}

uint64_t inodeOf(const std::filesystem::path& path) {
  struct stat status {};
  ::stat(path.c_str(), &status);
  return status.st_ino;
}

class JSONLTailTest : public testing::TempDirTest {};

// A line finished after a read is taken by the next one, which carries the cursor's context on.
TEST_F(JSONLTailTest, ALineFinishedLaterIsReadFromTheCursorWithItsContext) {
  const auto path = write("log.jsonl", "a\nb");
  auto first = JSONLTail::read(path, std::nullopt, 1 << 20);
  append("log.jsonl", "\n");
  first.cursor.context["provider"] = "claude";
  const auto second = JSONLTail::read(path, first.cursor, 1 << 20);
  EXPECT_THAT(linesOf(second), ElementsAre("b"));
  EXPECT_EQ(second.cursor, (FileCursor{path.string(), inodeOf(path), 4, {{"provider", "claude"}}}));
  EXPECT_FALSE(second.reset);
  // A read at the end gives nothing and changes nothing.
  const auto third = JSONLTail::read(path, second.cursor, 1 << 20);
  EXPECT_TRUE(third.lines.size() == 0 && third.cursor == second.cursor && !third.reset);
}

// A read from the start: only lines ended by a line feed, without their ends (a carriage return
// before the line feed too); empty lines dropped but consumed; a line longer than the request
// doubles it until the line fits. Reads from its cursor on to the end give the rest.
TEST_F(JSONLTailTest, AFirstReadTakesTheCompleteLinesAndLaterOnesTheRest) {
  const std::string wide(1000, 'x'), tail(2000, 'y');
  using Lines = std::vector<std::string>;
  const struct {
    const char* name;
    std::string contents;
    int64_t maxBytes, offset;
    bool atEOF;
    Lines lines, rest;
  } rows[] = {
      {"an unfinished line", R"({"type":"assistant"})", 4, 0, true, {}, {}},
      {"an unfinished last line", "a\nb", 100, 2, true, {"a"}, {}},
      // Line ends of either kind, empty lines of both, a blank line, a carriage return inside a
      // line.
      {"mixed", "\nx\r\n\r\n  \ny\r\r\nz\n", 100, 15, true, {"x", "  ", "y\r", "z"}, {}},
      // 7 doubles to 1792 bytes, the first request to take in a line feed.
      {"a long line", wide + "\nshort\n" + tail + "\n", 7, 1007, false, {wide, "short"}, {tail}},
      // Below 1 counts as 1: one byte at a time, doubling.
      {"a request of nothing", "ab\ncd\n", 0, 3, false, {"ab"}, {"cd"}},
      {"a negative request", "ab\ncd\n", -5, 3, false, {"ab"}, {"cd"}},
      // The read cannot know that the file ends there.
      {"a chunk ending exactly at a line feed", "abc\n", 4, 4, false, {"abc"}, {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto path = write("log", row.contents);
    const auto first = JSONLTail::read(path, std::nullopt, row.maxBytes);
    EXPECT_EQ(linesOf(first), row.lines);
    EXPECT_EQ(first.cursor, (FileCursor{path.string(), inodeOf(path), row.offset, {}}));
    EXPECT_FALSE(first.reset);
    EXPECT_EQ(first.atEOF, row.atEOF);
    Lines later;
    for (JSONLTail::Result next{LineBatch{}, first.cursor}; !next.atEOF;) {
      next = JSONLTail::read(path, next.cursor, row.maxBytes);
      for (const std::string& line : linesOf(next)) later.push_back(line);
    }
    EXPECT_EQ(later, row.rest);
  }
}

TEST_F(JSONLTailTest, AReplacedOrTruncatedFileStartsOverWithAnEmptyContext) {
  const auto path = write("log", "one\ntwo\n");
  auto cursor = JSONLTail::read(path, std::nullopt, 100).cursor;
  cursor.context["session"] = "s1";

  // Same path, new inode, longer than the old offset.
  const auto replacement = write("log.new", "three\nfour\nfive\n");
  std::filesystem::rename(replacement, path);
  const auto replaced = JSONLTail::read(path, cursor, 100);
  EXPECT_TRUE(replaced.reset);
  EXPECT_THAT(linesOf(replaced), ElementsAre("three", "four", "five"));
  EXPECT_EQ(replaced.cursor, (FileCursor{path.string(), inodeOf(path), 16, {}}));

  std::filesystem::resize_file(path, 6);
  const auto truncated = JSONLTail::read(path, replaced.cursor, 100);
  EXPECT_TRUE(truncated.reset);
  EXPECT_THAT(linesOf(truncated), ElementsAre("three"));

  FileCursor damaged = truncated.cursor;
  damaged.offset = -4;
  const auto fromDamaged = JSONLTail::read(path, damaged, 100);
  EXPECT_TRUE(fromDamaged.reset);
  EXPECT_EQ(fromDamaged.cursor.offset, 6);
}

TEST_F(JSONLTailTest, AMissingFileThrowsWithOrWithoutACursor) {
  using Error = std::filesystem::filesystem_error;
  const auto path = dir() / "absent.jsonl";
  const auto absent = ::testing::Throws<Error>(
      ::testing::AllOf(::testing::Property(&Error::code, std::errc::no_such_file_or_directory),
                       ::testing::Property(&Error::path1, path)));
  EXPECT_THAT([&] { JSONLTail::read(path, std::nullopt, 100); }, absent);
  EXPECT_THAT([&] { JSONLTail::read(path, FileCursor{path.string(), 1, 10, {}}, 100); }, absent);
  EXPECT_THROW(JSONLTail::read(dir(), std::nullopt, 100), Error);
}

TEST_F(JSONLTailTest, LinesOwnTheirBytesAndCarryPadding) {
  const auto path = write("log", "first\nsecond\n");
  JSONLTail::Result result = JSONLTail::read(path, std::nullopt, 100);
  const LineBatch copy = result.lines;
  std::filesystem::remove(path);
  result = JSONLTail::Result{};
  EXPECT_EQ(copy.size(), 2u);
  EXPECT_EQ(std::string_view(copy[1]), "second");
  EXPECT_EQ(copy.byteCount(), 11u);
  // The padding after the last line is readable (and zero), for parsers that read ahead.
  const PaddedLine last = copy[1];
  for (size_t i = 1; i < LineBatch::kPadding; ++i) {
    EXPECT_EQ(last.bytes.data()[last.bytes.size() + i], '\0');
  }
}

}  // namespace
}  // namespace brimlog
