#include "platform/AtomicFile.hpp"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "platform/FileDescriptor.hpp"

namespace brimlog {
namespace {

[[noreturn]] void fail(const char* what, const std::filesystem::path& path) {
  throw std::filesystem::filesystem_error(what, path, {errno, std::generic_category()});
}

// The temporary file, removed when it goes out of scope unless it was renamed into place.
class TemporaryFile {
 public:
  TemporaryFile(const std::filesystem::path& folder, const std::filesystem::path& target) {
    std::filesystem::path name{"."};
    name += target.filename();
    name += ".XXXXXX";
    path_ = (folder / name).string();
    fd_ = FileDescriptor{::mkostemp(path_.data(), O_CLOEXEC)};
    if (!fd_) fail("Cannot create a temporary file for", target);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!renamed_) ::unlink(path_.c_str());
  }

  void write(std::string_view bytes, bool flush) {
    while (!bytes.empty()) {
      const ssize_t n = ::write(fd_.get(), bytes.data(), bytes.size());
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) fail("Cannot write", path_);
      bytes.remove_prefix(static_cast<size_t>(n));
    }
    if (flush && ::fsync(fd_.get()) != 0) fail("Cannot flush to disk", path_);
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

void AtomicFile::replace(const std::filesystem::path& path, std::string_view bytes,
                         Durability durability) {
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
  const bool flush = durability == Durability::durable;
  {
    TemporaryFile temporary{folder, path};
    temporary.write(bytes, flush);
    temporary.renameTo(path);
  }
  if (!flush) return;
  // The rename itself is on disk only once the folder is.
  const FileDescriptor directory{::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (!directory) fail("Cannot open the folder", folder);
  if (::fsync(directory.get()) != 0) fail("Cannot flush to disk", folder);
}

}  // namespace brimlog
