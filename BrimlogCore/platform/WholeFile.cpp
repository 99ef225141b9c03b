#include "platform/WholeFile.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "platform/FileDescriptor.hpp"

namespace brimlog {
namespace {

[[noreturn]] void fail(const std::string& what, const std::filesystem::path& path, int error) {
  throw std::filesystem::filesystem_error(what, path, {error, std::generic_category()});
}

std::string kindOf(mode_t mode) {
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISCHR(mode)) return "a character device";
  if (S_ISBLK(mode)) return "a block device";
  if (S_ISSOCK(mode)) return "a socket";
  if (S_ISDIR(mode)) return "a folder";
  return "not a regular file";
}

}  // namespace

WholeFile WholeFile::read(const std::filesystem::path& path, size_t limit) {
  // O_NONBLOCK makes opening a FIFO return at once instead of waiting for a writer; on a regular
  // file it changes nothing.
  const FileDescriptor fd{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)};
  if (!fd) fail("Cannot open", path, errno);
  WholeFile file;
  if (::fstat(fd.get(), &file.status) != 0) fail("Cannot examine", path, errno);
  if (!S_ISREG(file.status.st_mode)) {
    fail(fmt::format("Refusing to read {} as a file", kindOf(file.status.st_mode)), path, EINVAL);
  }
  const auto tooLarge = [&] {
    fail(fmt::format("Refusing to read more than {} bytes of", limit), path, EFBIG);
  };
  if (static_cast<uint64_t>(file.status.st_size) > limit) tooLarge();
  // The size is a hint: a file that grows meanwhile is read to its new end, up to the limit. One
  // byte more than the size lets the read that finds the end need no larger buffer.
  file.bytes.resize(static_cast<size_t>(file.status.st_size) + 1);
  size_t have = 0;
  for (;;) {
    if (have == file.bytes.size()) {
      if (have > limit) tooLarge();
      file.bytes.resize(std::min(file.bytes.size() * 2, limit + 1));
    }
    const ssize_t n = ::read(fd.get(), file.bytes.data() + have, file.bytes.size() - have);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail("Cannot read", path, errno);
    if (n == 0) break;
    have += static_cast<size_t>(n);
    // The size it had, read in a read that stopped short of the buffer's end: the end, without
    // one more call to find it (a read of a regular file stops short only there).
    if (have == static_cast<size_t>(file.status.st_size) && have < file.bytes.size()) break;
  }
  if (have > limit) tooLarge();
  file.bytes.resize(have);
  return file;
}

}  // namespace brimlog
