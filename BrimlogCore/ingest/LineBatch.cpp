#include "ingest/LineBatch.hpp"

#include <cstring>

namespace brimlog {

LineBatch::LineBatch(const LineBatch& other)
    : capacity_(other.capacity_), consumed_(other.consumed_), spans_(other.spans_) {
  if (other.bytes_) {
    bytes_ = std::make_unique_for_overwrite<char[]>(capacity_);
    std::memcpy(bytes_.get(), other.bytes_.get(), capacity_);
  }
}

LineBatch& LineBatch::operator=(const LineBatch& other) {
  if (this != &other) *this = LineBatch(other);
  return *this;
}

size_t LineBatch::byteCount() const {
  size_t total = 0;
  for (const Span& span : spans_) total += span.length;
  return total;
}

}  // namespace brimlog
