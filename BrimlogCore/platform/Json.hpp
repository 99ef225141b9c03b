#pragma once

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/Date.hpp"

namespace brimlog {

/// The JSON tree our own records are written to and read from (files, database rows, HTTP bodies).
using Json = nlohmann::json;

/// How dates are written inside a document: the usage database stores seconds since
/// 2001-01-01T00:00:00Z as a number, the snapshot file stores ISO 8601 text in UTC with whole
/// seconds and "Z" (`formatISO8601`). Each form reads back only what it writes: a text date with
/// a fraction or an offset is refused, as a numeric date is where text is due.
enum class DateForm { referenceSeconds, iso8601 };

/// A document that does not hold the record it should: a missing key, a null where a value is
/// required, a value of the wrong type, or text that is not JSON at all.
class JsonDecodeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A record that cannot be written as JSON: JSON has no infinities and no NaN.
class JsonEncodeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Helpers that every record's `toJson` and `fromJson` share, so that all of them report the same
/// errors in the same words. Keys are named in every message.
namespace json {

/// The value under `key`; throws when `object` is not an object, or the key is missing or null.
const Json& require(const Json& object, std::string_view key);

/// The value under `key`, or nullptr when it is missing or null.
const Json* optional(const Json& object, std::string_view key);

/// Typed reads of a value found under `key` (the key only names the value in errors).
std::string string(const Json& value, std::string_view key);
double number(const Json& value, std::string_view key);
int64_t integer(const Json& value, std::string_view key);
uint64_t unsignedInteger(const Json& value, std::string_view key);
bool boolean(const Json& value, std::string_view key);
const Json& object(const Json& value, std::string_view key);
const Json& array(const Json& value, std::string_view key);
/// An array of at most `most` values: a longer one is refused whole, before any value is read.
const Json& array(const Json& value, std::string_view key, size_t most);

/// Typed reads of a member that may be missing or null (nothing, or nullptr, then); a member of
/// another type throws like the reads above.
std::optional<std::string> optionalString(const Json& object, std::string_view key);
std::optional<double> optionalNumber(const Json& object, std::string_view key);
const Json* optionalObject(const Json& object, std::string_view key);

/// A finite number as JSON; throws `JsonEncodeError` naming `key` for an infinity or NaN.
Json finite(double value, std::string_view key);

/// A date in the given form; throws `JsonEncodeError` for a non-finite instant.
Json encodeDate(Date date, DateForm form, std::string_view key);
Date decodeDate(const Json& value, DateForm form, std::string_view key);

/// The case of an enumeration written as an object with exactly one key, the case name: the one
/// key of `object` that is among `cases`. Keys that are not case names do not count; zero or
/// several case names throw "Invalid number of keys found, expected one.".
std::string_view onlyCase(const Json& object, std::initializer_list<std::string_view> cases,
                          std::string_view what);

/// Parses JSON text; throws `JsonDecodeError` with the parser's message.
Json parse(std::string_view text);

/// Compact JSON text; invalid UTF-8 in strings is replaced rather than thrown.
std::string dump(const Json& value);

}  // namespace json
}  // namespace brimlog
