#include "display/SnapshotStore.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "platform/FileDescriptor.hpp"
#include "platform/WholeFile.hpp"

namespace brimlog {
namespace {

constexpr std::string_view kFileName = "snapshot.json";

[[noreturn]] void fail(const char* what, const std::filesystem::path& path,
                       std::error_code error = {errno, std::generic_category()}) {
  throw std::filesystem::filesystem_error(what, path, error);
}

// A temporary file that is removed when it goes out of scope unless it was renamed into place.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::filesystem::path& directory)
      : path_((directory / ".snapshot.json.XXXXXX").string()) {
    fd_ = FileDescriptor{::mkostemp(path_.data(), O_CLOEXEC)};
    if (!fd_) fail("Cannot create a temporary file in", directory);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!renamed_) ::unlink(path_.c_str());
  }

  void write(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t n = ::write(fd_.get(), bytes.data(), bytes.size());
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) fail("Cannot write", path_);
      bytes.remove_prefix(static_cast<size_t>(n));
    }
    if (::fsync(fd_.get()) != 0) fail("Cannot flush to disk", path_);
    // A close that fails can mean that the bytes never reached the disk.
    if (::close(fd_.release()) != 0) fail("Cannot close", path_);
  }

  void renameTo(const std::filesystem::path& target) {
    if (::rename(path_.c_str(), target.c_str()) != 0) fail("Cannot replace", target);
    renamed_ = true;
  }

 private:
  std::string path_;
  FileDescriptor fd_;
  bool renamed_ = false;
};

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
  if (error) fail("Cannot create the folder", *directory_, error);

  TemporaryFile temporary{*directory_};
  temporary.write(bytes);
  temporary.renameTo(file());
  // The rename itself is on disk only once the folder is.
  const FileDescriptor folder{::open(directory_->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (!folder) fail("Cannot open", *directory_);
  if (::fsync(folder.get()) != 0) fail("Cannot flush to disk", *directory_);
}

std::optional<Snapshot> SnapshotStore::read() const {
  if (!directory_) return std::nullopt;
  try {
    return Snapshot::fromJson(json::parse(WholeFile::read(file()).bytes));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace brimlog
