#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <string_view>
#include <vector>

namespace brimlog {

/// The bytes of one line, followed in memory by at least `LineBatch::kPadding` readable bytes, so
/// a parser that reads ahead in blocks can parse the line where it lies instead of copying it.
struct PaddedLine {
  std::string_view bytes;

  operator std::string_view() const { return bytes; }  // NOLINT: a line is its bytes
};

/// The complete lines of one read, kept back to back in one buffer that the batch owns: one
/// allocation per read rather than one per line. Lines stay valid as long as the batch, and
/// depend on nothing else (neither the reader nor the file).
///
///     for (PaddedLine line : batch) parse(line.bytes);
class LineBatch {
 public:
  /// Readable bytes guaranteed after the end of every line.
  static constexpr size_t kPadding = 64;

  LineBatch() = default;
  LineBatch(const LineBatch& other);
  LineBatch& operator=(const LineBatch& other);
  LineBatch(LineBatch&&) noexcept = default;
  LineBatch& operator=(LineBatch&&) noexcept = default;

  size_t size() const { return spans_.size(); }
  bool empty() const { return spans_.empty(); }

  PaddedLine operator[](size_t index) const {
    return {{bytes_.get() + spans_[index].start, spans_[index].length}};
  }

  class Iterator {
   public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = PaddedLine;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = PaddedLine;

    Iterator() = default;
    Iterator(const LineBatch* batch, size_t index) : batch_(batch), index_(index) {}
    PaddedLine operator*() const { return (*batch_)[index_]; }
    Iterator& operator++() {
      ++index_;
      return *this;
    }
    Iterator operator++(int) {
      Iterator old = *this;
      ++index_;
      return old;
    }
    bool operator==(const Iterator& other) const { return index_ == other.index_; }

   private:
    const LineBatch* batch_ = nullptr;
    size_t index_ = 0;
  };

  Iterator begin() const { return {this, 0}; }
  Iterator end() const { return {this, spans_.size()}; }

  /// Total bytes of all lines, without their line ends.
  size_t byteCount() const;

  /// Every byte the read consumed, from where it started to the end of its last line, line ends
  /// included: what lies just before the cursor it returned.
  std::string_view consumed() const { return {bytes_.get(), consumed_}; }

 private:
  friend class JSONLTail;

  struct Span {
    size_t start;
    size_t length;
  };

  std::unique_ptr<char[]> bytes_;
  size_t capacity_ = 0;  // bytes allocated, padding included
  size_t consumed_ = 0;
  std::vector<Span> spans_;
};

}  // namespace brimlog
