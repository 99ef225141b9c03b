#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "ingest/JSONLTail.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

TEST_F(JSONLTailTest, ReadsOnlyCompleteLinesAndPicksUpTheRestLater) {
  const auto path = write("log.jsonl", "a\nb");
  auto first = JSONLTail::read(path, std::nullopt, 1 << 20);
  EXPECT_THAT(linesOf(first), ElementsAre("a"));
  EXPECT_EQ(first.cursor, (FileCursor{path.string(), inodeOf(path), 2, {}}));
  EXPECT_FALSE(first.reset);
  EXPECT_TRUE(first.atEOF);

  append("log.jsonl", "\n");
  first.cursor.context["provider"] = "claude";
  const auto second = JSONLTail::read(path, first.cursor, 1 << 20);
  EXPECT_THAT(linesOf(second), ElementsAre("b"));
  EXPECT_EQ(second.cursor.offset, 4);
  EXPECT_EQ(second.cursor.context.at("provider"), "claude");  // carried while not reset

  const auto third = JSONLTail::read(path, second.cursor, 1 << 20);
  EXPECT_THAT(linesOf(third), IsEmpty());
  EXPECT_EQ(third.cursor, second.cursor);
  EXPECT_FALSE(third.reset);
  EXPECT_TRUE(third.atEOF);
}

TEST_F(JSONLTailTest, AnUnfinishedLineIsNeverConsumed) {
  const auto path = write("log.jsonl", R"({"type":"assistant"})");
  for (int i = 0; i < 3; ++i) {
    const auto result = JSONLTail::read(path, std::nullopt, 4);
    EXPECT_THAT(linesOf(result), IsEmpty());
    EXPECT_EQ(result.cursor.offset, 0);
    EXPECT_TRUE(result.atEOF);
  }
}

TEST_F(JSONLTailTest, LineEndsAndEmptyLinesAreDroppedButConsumed) {
  EXPECT_EQ(JSONLTail::read(write("crlf", "\r\n"), std::nullopt, 100).cursor.offset, 2);
  EXPECT_THAT(linesOf(JSONLTail::read(write("lf", "\n\n"), std::nullopt, 100)), IsEmpty());
  const auto mixed =
      JSONLTail::read(write("mixed", "x\r\n\n  \ny\r\r\nnot json\n"), std::nullopt, 100);
  EXPECT_THAT(linesOf(mixed), ElementsAre("x", "  ", "y\r", "not json"));
  EXPECT_EQ(mixed.cursor.offset, 20);
}

TEST_F(JSONLTailTest, ALongLineDoublesTheRequestUntilItFits) {
  const std::string longLine(1000, 'x');
  const std::string rest(2000, 'y');
  const auto path = write("long", longLine + "\nshort\n" + rest + "\n");
  // 7 doubles to 1792 bytes, the first request to take in a line feed.
  const auto result = JSONLTail::read(path, std::nullopt, 7);
  EXPECT_THAT(linesOf(result), ElementsAre(longLine, "short"));
  EXPECT_EQ(result.cursor.offset, 1007);
  EXPECT_FALSE(result.atEOF);
  const auto next = JSONLTail::read(path, result.cursor, 7);
  EXPECT_THAT(linesOf(next), ElementsAre(rest));
  EXPECT_TRUE(next.atEOF);

  for (int64_t maxBytes : {0, -5}) {  // below 1 counts as 1: one byte at a time, doubling
    const auto tiny = JSONLTail::read(write("tiny", "ab\ncd\n"), std::nullopt, maxBytes);
    EXPECT_THAT(linesOf(tiny), ElementsAre("ab"));
    EXPECT_EQ(tiny.cursor.offset, 3);
  }
}

TEST_F(JSONLTailTest, AChunkEndingExactlyAtALineFeedIsNotTheEnd) {
  const auto path = write("exact", "abc\n");
  const auto first = JSONLTail::read(path, std::nullopt, 4);
  EXPECT_THAT(linesOf(first), ElementsAre("abc"));
  EXPECT_FALSE(first.atEOF);
  const auto second = JSONLTail::read(path, first.cursor, 4);
  EXPECT_THAT(linesOf(second), IsEmpty());
  EXPECT_TRUE(second.atEOF);
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
  const auto path = dir() / "absent.jsonl";
  EXPECT_THROW(JSONLTail::read(path, std::nullopt, 100), std::filesystem::filesystem_error);
  EXPECT_THROW(JSONLTail::read(path, FileCursor{path.string(), 1, 10, {}}, 100),
               std::filesystem::filesystem_error);
  try {
    JSONLTail::read(path, std::nullopt, 100);
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(error.path1(), path);
  }
  EXPECT_THROW(JSONLTail::read(dir(), std::nullopt, 100), std::filesystem::filesystem_error);
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
