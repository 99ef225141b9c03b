#include "ingest/LogJson.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace brimlog::logjson {
namespace {

simdjson::dom::parser& threadParser() {
  thread_local simdjson::dom::parser parser;
  return parser;
}

std::optional<object> asObject(simdjson::simdjson_result<element> parsed) {
  object result;
  if (parsed.get_object().get(result) != simdjson::SUCCESS) return std::nullopt;
  return result;
}

}  // namespace

std::optional<object> parseObject(std::string_view bytes) {
  // The parser copies the bytes into its own padded buffer (reused from call to call).
  return asObject(threadParser().parse(bytes.data(), bytes.size(), true));
}

std::optional<object> parseObject(PaddedLine line) {
  return asObject(threadParser().parse(line.bytes.data(), line.bytes.size(), false));
}

std::optional<std::string_view> leadingType(PaddedLine line) {
  thread_local simdjson::ondemand::parser parser;
  simdjson::ondemand::document document;
  simdjson::ondemand::object root;
  if (parser.iterate(line.bytes.data(), line.bytes.size(), line.bytes.size() + LineBatch::kPadding)
              .get(document) != simdjson::SUCCESS ||
      document.get_object().get(root) != simdjson::SUCCESS) {
    return std::nullopt;
  }
  for (auto result : root) {
    simdjson::ondemand::field field;
    if (std::move(result).get(field) != simdjson::SUCCESS) return std::nullopt;
    // A key's raw bytes run to its closing quote; a backslash before it means an escape.
    const char* key = field.key().raw();
    size_t length = 0;
    for (; key[length] != '"'; ++length) {
      if (key[length] == '\\') return std::nullopt;
    }
    if (std::string_view(key, length) == "type") {
      std::string_view value;
      if (field.value().get_string().get(value) != simdjson::SUCCESS) return std::nullopt;
      return value;
    }
  }
  return std::nullopt;
}

int64_t tokenCount(object parent, std::string_view key) {
  element value;
  if (parent.at_key(key).get(value) != simdjson::SUCCESS) return 0;
  switch (value.type()) {
    case simdjson::dom::element_type::INT64:
      return value.get_int64().value_unsafe();
    case simdjson::dom::element_type::UINT64: {
      const uint64_t u = value.get_uint64().value_unsafe();
      constexpr auto kMax = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
      return u > kMax ? std::numeric_limits<int64_t>::max() : static_cast<int64_t>(u);
    }
    case simdjson::dom::element_type::DOUBLE: {
      const double d = std::trunc(value.get_double().value_unsafe());
      if (d >= 0x1p63) return std::numeric_limits<int64_t>::max();
      if (d < -0x1p63) return std::numeric_limits<int64_t>::min();
      return static_cast<int64_t>(d);
    }
    case simdjson::dom::element_type::BOOL:
      return value.get_bool().value_unsafe() ? 1 : 0;
    default:
      return 0;
  }
}

std::optional<double> number(object parent, std::string_view key) {
  element value;
  if (parent.at_key(key).get(value) != simdjson::SUCCESS) return std::nullopt;
  switch (value.type()) {
    case simdjson::dom::element_type::INT64:
    case simdjson::dom::element_type::UINT64:
    case simdjson::dom::element_type::DOUBLE:
      return value.get_double().value_unsafe();
    default:
      return std::nullopt;
  }
}

bool isTrue(object parent, std::string_view key) {
  bool value = false;
  return parent.at_key(key).get_bool().get(value) == simdjson::SUCCESS && value;
}

int64_t uncachedInput(int64_t input, int64_t cached) {
  int64_t difference = 0;
  if (__builtin_sub_overflow(input, cached, &difference)) {
    // Only a negative cached count can push the difference past the top.
    return cached < 0 ? std::numeric_limits<int64_t>::max() : 0;
  }
  return std::max<int64_t>(difference, 0);
}

}  // namespace brimlog::logjson
