#include <gtest/gtest.h>

#include <limits>

#include "display/SnapshotStore.hpp"
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
