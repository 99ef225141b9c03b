#include "ingest/LogJson.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace brimlog::logjson {
namespace {

constexpr bool isJsonSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

simdjson::dom::parser& threadParser() {
  thread_local simdjson::dom::parser parser;
  return parser;
}

std::optional<object> asObject(simdjson::simdjson_result<element> parsed) {
  object result;
  if (parsed.get_object().get(result) != simdjson::SUCCESS) return std::nullopt;
  return result;
}

// A line that fails only for its text (a byte that is not UTF-8, a lone surrogate escape, as
// truncated emoji in tool output leave them) is parsed once more from a repaired copy, so the
// reply it carries still counts. Lines that parse, most of them, never come here.
std::optional<object> parsedOrRepaired(simdjson::simdjson_result<element> parsed,
                                       std::string_view bytes) {
  const auto error = parsed.error();
  if (error != simdjson::UTF8_ERROR && error != simdjson::STRING_ERROR) return asObject(parsed);
  const std::optional<std::string> copy = repaired(bytes);
  if (!copy) return std::nullopt;
  // The parser copies the bytes into its own padded buffer, so the copy may go at once.
  return asObject(threadParser().parse(copy->data(), copy->size(), true));
}

void appendReplacement(std::string& out) { out.append("\xEF\xBF\xBD"); }

// The length of the well-formed UTF-8 sequence at `at`, or 0.
size_t sequenceLength(std::string_view bytes, size_t at) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const unsigned char first = byte(at);
  if (first < 0x80) return 1;
  size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;  // the allowed range of the second byte
  if (first >= 0xC2 && first <= 0xDF) {
    length = 2;
  } else if (first >= 0xE0 && first <= 0xEF) {
    length = 3;
    if (first == 0xE0) low = 0xA0;
    if (first == 0xED) high = 0x9F;  // no surrogates
  } else if (first >= 0xF0 && first <= 0xF4) {
    length = 4;
    if (first == 0xF0) low = 0x90;
    if (first == 0xF4) high = 0x8F;  // nothing past U+10FFFF
  } else {
    return 0;
  }
  if (at + length > bytes.size()) return 0;
  if (byte(at + 1) < low || byte(at + 1) > high) return 0;
  for (size_t i = 2; i < length; ++i) {
    if (byte(at + i) < 0x80 || byte(at + i) > 0xBF) return 0;
  }
  return length;
}

// The code unit of a "\uXXXX" escape starting at `at`, if that is what stands there.
std::optional<unsigned> escapedUnit(std::string_view bytes, size_t at) {
  if (at + 6 > bytes.size() || bytes[at] != '\\' || bytes[at + 1] != 'u') return std::nullopt;
  unsigned unit = 0;
  for (size_t i = at + 2; i < at + 6; ++i) {
    const char c = bytes[i];
    unit <<= 4;
    if (c >= '0' && c <= '9') {
      unit |= static_cast<unsigned>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      unit |= static_cast<unsigned>(c - 'a' + 10);
    } else if (c >= 'A' && c <= 'F') {
      unit |= static_cast<unsigned>(c - 'A' + 10);
    } else {
      return std::nullopt;
    }
  }
  return unit;
}

}  // namespace

std::optional<std::string> repaired(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size() + 16);
  bool changed = false;
  for (size_t at = 0; at < bytes.size();) {
    if (bytes[at] == '\\') {
      const std::optional<unsigned> unit = escapedUnit(bytes, at);
      if (!unit) {  // another escape: keep it and the character it escapes
        out.append(bytes.substr(at, 2));
        at += 2;
        continue;
      }
      if (*unit >= 0xD800 && *unit <= 0xDBFF) {
        const std::optional<unsigned> next = escapedUnit(bytes, at + 6);
        if (next && *next >= 0xDC00 && *next <= 0xDFFF) {  // a proper pair
          out.append(bytes.substr(at, 12));
          at += 12;
          continue;
        }
      }
      if (*unit >= 0xD800 && *unit <= 0xDFFF) {  // a surrogate standing alone
        out.append("\\uFFFD");
        changed = true;
      } else {
        out.append(bytes.substr(at, 6));
      }
      at += 6;
      continue;
    }
    const size_t length = sequenceLength(bytes, at);
    if (length == 0) {
      appendReplacement(out);
      changed = true;
      ++at;
      continue;
    }
    out.append(bytes.substr(at, length));
    at += length;
  }
  if (!changed) return std::nullopt;
  return out;
}

std::optional<object> parseObject(std::string_view bytes) {
  // The parser copies the bytes into its own padded buffer (reused from call to call).
  return parsedOrRepaired(threadParser().parse(bytes.data(), bytes.size(), true), bytes);
}

std::optional<object> parseObject(PaddedLine line) {
  return parsedOrRepaired(threadParser().parse(line.bytes.data(), line.bytes.size(), false),
                          line.bytes);
}

std::optional<std::string_view> leadingType(PaddedLine line) {
  const char* at = line.bytes.data();
  const char* const end = at + line.bytes.size();
  const auto skipSpace = [&] {
    while (at < end && isJsonSpace(*at)) ++at;
  };
  // A string without escapes, from its opening quote: its contents, or nothing.
  const auto plainString = [&]() -> std::optional<std::string_view> {
    const char* const start = at + 1;
    const auto* quote = static_cast<const char*>(std::memchr(start, '"', end - start));
    if (quote == nullptr || std::memchr(start, '\\', quote - start) != nullptr) return std::nullopt;
    at = quote + 1;
    return std::string_view(start, static_cast<size_t>(quote - start));
  };
  // Any string, from its opening quote: a quote ends it unless an odd run of backslashes
  // stands before it.
  const auto skipString = [&] {
    for (const char* from = at + 1;;) {
      const auto* quote = static_cast<const char*>(std::memchr(from, '"', end - from));
      if (quote == nullptr) return false;
      const char* run = quote;
      while (run > from && run[-1] == '\\') --run;
      from = quote + 1;
      if ((quote - run) % 2 == 0) {
        at = from;
        return true;
      }
    }
  };

  skipSpace();
  if (at == end || *at != '{') return std::nullopt;
  ++at;
  for (;;) {
    skipSpace();
    if (at == end || *at != '"') return std::nullopt;
    const std::optional<std::string_view> key = plainString();
    if (!key) return std::nullopt;
    skipSpace();
    if (at == end || *at != ':') return std::nullopt;
    ++at;
    skipSpace();
    if (at == end) return std::nullopt;
    if (*key == "type") {
      if (*at != '"') return std::nullopt;
      return plainString();
    }
    if (*at == '"') {
      if (!skipString()) return std::nullopt;
    } else if (*at == '{' || *at == '[') {
      return std::nullopt;  // a nested value first: the full parser decides
    } else {
      while (at < end && *at != ',' && *at != '}' && !isJsonSpace(*at)) ++at;  // a scalar
    }
    skipSpace();
    if (at == end || *at != ',') return std::nullopt;
    ++at;
  }
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
