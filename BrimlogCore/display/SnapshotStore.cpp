#include "display/SnapshotStore.hpp"

#include <string>
#include <system_error>

#include "platform/AtomicFile.hpp"
#include "platform/WholeFile.hpp"

namespace brimlog {
namespace {

constexpr std::string_view kFileName = "snapshot.json";

}  // namespace

SnapshotStore::StoreError SnapshotStore::StoreError::noFolder() {
  return {Case::noFolder,
          "No state folder for the snapshot (neither HOME nor XDG_STATE_HOME is an absolute path)"};
}

std::filesystem::path SnapshotStore::file() const {
  return directory_ ? *directory_ / kFileName : std::filesystem::path{};
}

void SnapshotStore::write(const Snapshot& snapshot) const {
  if (!directory_) throw StoreError::noFolder();
  const std::string bytes = json::dump(snapshot.toJson());

  std::error_code error;
  std::filesystem::create_directories(*directory_, error);
  if (error) {
    throw std::filesystem::filesystem_error("Cannot create the folder", *directory_, error);
  }
  AtomicFile::replace(file(), bytes);
}

std::optional<Snapshot> SnapshotStore::read() const {
  if (!directory_) return std::nullopt;
  try {
    return Snapshot::fromJson(json::parse(WholeFile::read(file(), kMaxBytes).bytes));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace brimlog
