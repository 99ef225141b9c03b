#include "platform/WholeFile.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/FileDescriptor.hpp"

namespace brimlog {
namespace {

[[noreturn]] void fail(const char* what, const std::filesystem::path& path) {
  throw std::filesystem::filesystem_error(what, path, {errno, std::generic_category()});
}

}  // namespace

WholeFile WholeFile::read(const std::filesystem::path& path) {
  const FileDescriptor fd{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  if (!fd) fail("Cannot open", path);
  WholeFile file;
  if (::fstat(fd.get(), &file.status) != 0) fail("Cannot examine", path);
  // The size is a hint: a file that grows meanwhile is read to its new end, and files such as
  // those under /proc report no size at all. One byte more than the size lets the read that
  // finds the end need no larger buffer.
  file.bytes.resize(file.status.st_size > 0 ? static_cast<size_t>(file.status.st_size) + 1 : 4096);
  size_t have = 0;
  for (;;) {
    if (have == file.bytes.size()) file.bytes.resize(file.bytes.size() * 2);
    const ssize_t n = ::read(fd.get(), file.bytes.data() + have, file.bytes.size() - have);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail("Cannot read", path);
    if (n == 0) break;
    have += static_cast<size_t>(n);
  }
  file.bytes.resize(have);
  return file;
}

}  // namespace brimlog
