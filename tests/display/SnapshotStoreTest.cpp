#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <limits>

#include "display/SnapshotStore.hpp"
#include "platform/WholeFile.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

class SnapshotStoreTest : public testing::TempDirTest {};

TEST_F(SnapshotStoreTest, WritesCompactJsonIntoNewFoldersAndReadsNothingUnusable) {
  const SnapshotStore store{dir() / "data" / "group"};
  EXPECT_EQ(store.read(), std::nullopt);
  store.write(Snapshot::placeholder());
  EXPECT_EQ(store.read(), Snapshot::placeholder());
  EXPECT_EQ(testing::readFile(store.file()), json::dump(Snapshot::placeholder().toJson()));
  write("data/group/snapshot.json", R"({"generatedAt":"2026-10-29T12:00:00Z"})");
  EXPECT_EQ(store.read(), std::nullopt);
  EXPECT_EQ(SnapshotStore{std::nullopt}.read(), std::nullopt);
  EXPECT_THROW(SnapshotStore{std::nullopt}.write(Snapshot{}), SnapshotStore::StoreError);
}

// Whatever stands in the snapshot's place, the widgets and the status line get "no snapshot" at
// once: a FIFO would block the open, a link to /dev/zero would be read until memory runs out. The
// reader's error names what it found.
TEST_F(SnapshotStoreTest, ReadsNothingAtOnceFromAnythingButASnapshotSizedFile) {
  struct Row {
    const char* name;
    std::function<void(const std::filesystem::path&)> make;
    const char* error;
  };
  const std::vector<Row> rows = {
      {"fifo", [](const auto& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); },
       "Refusing to read a FIFO as a file"},
      {"link to /dev/zero",
       [](const auto& path) { std::filesystem::create_symlink("/dev/zero", path); },
       "Refusing to read a character device as a file"},
      {"folder", [](const auto& path) { std::filesystem::create_directory(path); },
       "Refusing to read a folder as a file"},
      {"valid but oversized",
       [](const auto& path) {
         const std::string valid = json::dump(Snapshot::placeholder().toJson());
         std::ofstream(path) << valid << std::string(SnapshotStore::kMaxBytes, ' ');
       },
       "Refusing to read more than 1048576 bytes of"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const SnapshotStore store{dir() / row.name};
    std::filesystem::create_directories(*store.directory());
    row.make(store.file());
    EXPECT_EQ(store.read(), std::nullopt);
    EXPECT_THAT([&] { WholeFile::read(store.file(), SnapshotStore::kMaxBytes); },
                ::testing::ThrowsMessage<std::filesystem::filesystem_error>(::testing::AllOf(
                    ::testing::HasSubstr(row.error), ::testing::HasSubstr(store.file().string()))));
  }
}

// The snapshot is encoded before anything is touched (the file system's failures are
// AtomicFileTest's).
TEST_F(SnapshotStoreTest, ANumberThatCannotBeEncodedLeavesTheOldFileWhole) {
  const SnapshotStore store{dir()};
  store.write(Snapshot::placeholder());
  const std::string old = testing::readFile(store.file());
  Snapshot broken = Snapshot::placeholder();
  broken.providers[1].cost30dUSD = std::numeric_limits<double>::infinity();
  EXPECT_THROW(store.write(broken), JsonEncodeError);
  EXPECT_EQ(testing::readFile(store.file()), old);
  EXPECT_EQ(testing::fileNames(dir()), "snapshot.json ");
}

}  // namespace
}  // namespace brimlog
