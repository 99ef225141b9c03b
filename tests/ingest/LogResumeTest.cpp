#include <gtest/gtest.h>

#include "ingest/LogResume.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

class LogResumeTest : public testing::TempDirTest {};

// A read takes its cursor's fingerprint from the bytes it just read where it can (the head from
// a read that began at the top, or carried over from the cursor's last fingerprint), and from the
// file otherwise. Either way the fingerprint must be the file's own: chunks of every size around
// the hashed window, starting at the top, inside the first window and past it, and a cursor that
// comes without a fingerprint.
TEST_F(LogResumeTest, EveryReadRecordsTheFilesOwnFingerprint) {
  std::string text;
  for (int i = 0; text.size() < 40'000; ++i) {
    text += R"({"n":)" + std::to_string(i) + R"(,"pad":")" +
            std::string(static_cast<size_t>(i % 97), 'x') + "\"}\n";
  }
  const auto path = write("log.jsonl", text);
  const auto size = static_cast<int64_t>(text.size());
  // Chunk sizes taken in turn, so that reads start at the top, inside the first window and past
  // it, and end before and after one window's length.
  const std::vector<std::vector<int64_t>> turns = {
      {1'000}, {1'000, 9'000}, {4'000, 4'100}, {64'000}};
  for (const std::vector<int64_t>& chunks : turns) {
    for (const bool dropPrint : {false, true}) {
      SCOPED_TRACE(::testing::Message() << chunks.size() << " sizes from " << chunks[0]
                                        << (dropPrint ? ", no fingerprint kept" : ""));
      std::optional<FileCursor> cursor;
      for (size_t turn = 0; !cursor || cursor->offset < size; ++turn) {
        if (cursor && dropPrint) cursor->context.erase("fingerprint");
        JSONLTail::Result read =
            LogResume::read(path.string(), cursor, size, chunks[turn % chunks.size()]);
        ASSERT_GT(read.cursor.offset, cursor ? cursor->offset : 0);
        EXPECT_EQ(read.cursor.context.at("fingerprint"),
                  LogResume::fingerprint(path.string(), read.cursor.offset))
            << "at " << read.cursor.offset;
        cursor = std::move(read.cursor);
      }
    }
  }
}

}  // namespace
}  // namespace brimlog
