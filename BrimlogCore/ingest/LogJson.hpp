#pragma once

#include <simdjson.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ingest/LineBatch.hpp"

namespace brimlog::logjson {

static_assert(LineBatch::kPadding >= simdjson::SIMDJSON_PADDING,
              "lines must carry the padding the JSON parser reads ahead into");

using simdjson::dom::element;
using simdjson::dom::object;

/// Parses one line or document of a tool's log with the calling thread's own parser, fully
/// validated (a syntax error or trailing bytes give nothing). A line whose only fault is its
/// text (bytes that are not UTF-8, an escape of a lone surrogate) is parsed from a copy with
/// those replaced by U+FFFD, so the record it carries is not lost. The tree lives in
/// that parser: it stays valid until the same thread parses again. No allocation once the
/// parser has grown to the largest document seen.
std::optional<object> parseObject(std::string_view bytes);
std::optional<object> parseObject(PaddedLine line);

/// `bytes` with every byte that does not belong to well-formed UTF-8, and every "\\u" escape
/// of a surrogate that is not part of a pair, replaced by U+FFFD; nothing when there is none.
std::optional<std::string> repaired(std::string_view bytes);

/// The value of a line's first top-level "type" key, read from the line's first bytes without
/// indexing or decoding the rest: the tools write "type" near the front of every line but their
/// replies, before the long strings of tool output and file contents. It answers only when every
/// key and value before "type" is a plain string or scalar, the key itself is written without
/// escapes, and so is its string value; otherwise nothing, and the caller parses the whole line.
/// For a line that is valid JSON the answer is exactly what the full parser reads (the first
/// "type"); a line that is not valid yields no record from the full parser either, so a caller
/// that drops lines of uninteresting types drops nothing it would have kept. The view points
/// into the line.
///
///     leadingType(R"({"uuid":"…","type":"user","message":{…}})")  // "user"
///     leadingType(R"({"message":{…},"type":"assistant"})")        // nothing: parse it all
std::optional<std::string_view> leadingType(PaddedLine line);

/// The value under `key`, or nothing when the key is missing.
inline std::optional<element> field(object parent, std::string_view key) {
  element value;
  if (parent.at_key(key).get(value) != simdjson::SUCCESS) return std::nullopt;
  return value;
}

inline std::optional<std::string_view> string(object parent, std::string_view key) {
  std::string_view value;
  if (parent.at_key(key).get_string().get(value) != simdjson::SUCCESS) return std::nullopt;
  return value;
}

inline std::optional<object> objectField(object parent, std::string_view key) {
  object value;
  if (parent.at_key(key).get_object().get(value) != simdjson::SUCCESS) return std::nullopt;
  return value;
}

/// A token count: a JSON number truncated toward zero (held at the int64 limits beyond them),
/// true as 1 and false as 0; a missing key, null, or any other type counts as 0.
int64_t tokenCount(object parent, std::string_view key);

/// The input tokens that were not read from the cache, where a tool (Codex, Grok) counts cached
/// tokens inside its input total: input - cached, never below 0, saturating at the top.
int64_t uncachedInput(int64_t input, int64_t cached);

/// A JSON number as a double; nothing for a missing key or any other type.
std::optional<double> number(object parent, std::string_view key);

/// Whether the value under `key` is the JSON literal true.
bool isTrue(object parent, std::string_view key);

}  // namespace brimlog::logjson
