#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace brimlog::fuzz {

/// Memory whose last accessible byte is followed by an inaccessible page, for bytes that a parser
/// may read ahead into: a read past the promised padding faults at once, even inside a library
/// that was built without the address sanitizer (the JSON parser's own code is one).
///
///     static GuardedBuffer buffer;
///     const char* line = buffer.place(input, LineBatch::kPadding);  // then input, then zeros
class GuardedBuffer {
 public:
  GuardedBuffer() = default;
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;
  ~GuardedBuffer() { release(); }

  /// Copies `bytes` followed by `padding` zero bytes so that the last zero is the last readable
  /// byte before the guard page; returns where the copy starts. Valid until the next call.
  const char* place(std::string_view bytes, size_t padding) {
    const size_t needed = bytes.size() + padding;
    if (needed > usable_) grow(needed);
    char* start = region_ + usable_ - needed;
    if (!bytes.empty()) std::memcpy(start, bytes.data(), bytes.size());
    std::memset(start + bytes.size(), 0, padding);
    return start;
  }

 private:
  void grow(size_t needed) {
    release();
    const auto page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    const size_t usable = (needed + page - 1) / page * page;
    void* region =
        ::mmap(nullptr, usable + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (region == MAP_FAILED) fail("mmap", usable + page);
    region_ = static_cast<char*>(region);
    usable_ = usable;
    mapped_ = usable + page;
    if (::mprotect(region_ + usable_, page, PROT_NONE) != 0) fail("mprotect", page);
  }

  void release() {
    if (region_ != nullptr) ::munmap(region_, mapped_);
    region_ = nullptr;
    usable_ = mapped_ = 0;
  }

  [[noreturn]] static void fail(const char* operation, size_t bytes) {
    std::fprintf(stderr, "GuardedBuffer: %s of %zu bytes failed: %s\n", operation, bytes,
                 std::strerror(errno));
    std::abort();
  }

  char* region_ = nullptr;
  size_t usable_ = 0;  // bytes before the guard page
  size_t mapped_ = 0;  // usable bytes and the guard page
};

}  // namespace brimlog::fuzz
