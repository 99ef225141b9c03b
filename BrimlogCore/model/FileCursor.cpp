#include "model/FileCursor.hpp"

#include <simdjson.h>

#include <charconv>

namespace brimlog {

std::optional<int64_t> FileCursor::integerEntry(const std::string& key) const {
  const auto found = context.find(key);
  if (found == context.end()) return std::nullopt;
  int64_t value = 0;
  const std::string& text = found->second;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

Json FileCursor::toJson() const {
  return {{"path", path}, {"inode", inode}, {"offset", offset}, {"context", context}};
}

FileCursor FileCursor::fromJson(const Json& json) {
  FileCursor cursor;
  cursor.path = json::string(json::require(json, "path"), "path");
  cursor.inode = json::unsignedInteger(json::require(json, "inode"), "inode");
  cursor.offset = json::integer(json::require(json, "offset"), "offset");
  for (const auto& [key, value] : json::object(json::require(json, "context"), "context").items()) {
    cursor.context.emplace(key, json::string(value, key));
  }
  return cursor;
}

std::optional<FileCursor> FileCursor::fromJsonText(std::string_view text) {
  // The plain shape this program writes, read with simdjson: a pass over thousands of cursors
  // spends its time here. Anything else takes the general path, so both agree on every input.
  thread_local simdjson::dom::parser parser;
  const simdjson::padded_string padded{text};
  simdjson::dom::object root;
  if (parser.parse(padded).get_object().get(root) == simdjson::SUCCESS && root.size() == 4) {
    FileCursor cursor;
    std::string_view path;
    simdjson::dom::object context;
    bool plain = root["path"].get_string().get(path) == simdjson::SUCCESS &&
                 root["inode"].get_uint64().get(cursor.inode) == simdjson::SUCCESS &&
                 root["offset"].get_int64().get(cursor.offset) == simdjson::SUCCESS &&
                 root["context"].get_object().get(context) == simdjson::SUCCESS;
    if (plain) {
      for (auto field : context) {
        std::string_view value;
        if (field.value.get_string().get(value) != simdjson::SUCCESS ||
            !cursor.context.emplace(field.key, value).second) {
          plain = false;  // a duplicate key: the general reader decides which one counts
          break;
        }
      }
    }
    if (plain) {
      cursor.path = path;
      return cursor;
    }
  }
  try {
    return fromJson(json::parse(text));
  } catch (const JsonDecodeError&) {
    return std::nullopt;
  }
}

}  // namespace brimlog
