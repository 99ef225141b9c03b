#include "platform/Json.hpp"

#include <fmt/format.h>

#include <cmath>
#include <limits>

namespace brimlog::json {
namespace {

[[noreturn]] void typeMismatch(std::string_view key, std::string_view expected, const Json& value) {
  throw JsonDecodeError(
      fmt::format("Expected {} for key \"{}\" but found {}.", expected, key, value.type_name()));
}

}  // namespace

const Json& require(const Json& object, std::string_view key) {
  if (!object.is_object()) typeMismatch(key, "an object holding it", object);
  const auto it = object.find(key);
  if (it == object.end()) throw JsonDecodeError(fmt::format("No value for key \"{}\".", key));
  if (it->is_null()) throw JsonDecodeError(fmt::format("Null value for key \"{}\".", key));
  return *it;
}

const Json* optional(const Json& object, std::string_view key) {
  if (!object.is_object()) typeMismatch(key, "an object holding it", object);
  const auto it = object.find(key);
  if (it == object.end() || it->is_null()) return nullptr;
  return &*it;
}

std::string string(const Json& value, std::string_view key) {
  if (!value.is_string()) typeMismatch(key, "a string", value);
  return value.get<std::string>();
}

double number(const Json& value, std::string_view key) {
  if (!value.is_number()) typeMismatch(key, "a number", value);
  return value.get<double>();
}

int64_t integer(const Json& value, std::string_view key) {
  if (value.is_number_integer() && !value.is_number_unsigned()) return value.get<int64_t>();
  if (value.is_number_unsigned()) {
    const auto u = value.get<uint64_t>();
    if (u <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
      return static_cast<int64_t>(u);
    }
  } else if (value.is_number_float()) {
    // 12.0 is an integer written with a fraction; 12.5 is not.
    const double d = value.get<double>();
    if (std::trunc(d) == d && d >= -0x1p63 && d < 0x1p63) return static_cast<int64_t>(d);
  }
  typeMismatch(key, "a 64-bit integer", value);
}

uint64_t unsignedInteger(const Json& value, std::string_view key) {
  if (value.is_number_unsigned()) return value.get<uint64_t>();
  // "-0" parses as a signed zero; it is as much an unsigned integer as "0".
  if (value.is_number_integer() && value.get<int64_t>() >= 0) {
    return static_cast<uint64_t>(value.get<int64_t>());
  }
  if (value.is_number_float()) {
    const double d = value.get<double>();
    if (std::trunc(d) == d && d >= 0 && d < 0x1p64) return static_cast<uint64_t>(d);
  }
  typeMismatch(key, "an unsigned 64-bit integer", value);
}

bool boolean(const Json& value, std::string_view key) {
  if (!value.is_boolean()) typeMismatch(key, "a boolean", value);
  return value.get<bool>();
}

const Json& object(const Json& value, std::string_view key) {
  if (!value.is_object()) typeMismatch(key, "an object", value);
  return value;
}

const Json& array(const Json& value, std::string_view key) {
  if (!value.is_array()) typeMismatch(key, "an array", value);
  return value;
}

const Json& array(const Json& value, std::string_view key, size_t most) {
  if (array(value, key).size() > most) {
    throw JsonDecodeError(fmt::format("Expected at most {} values for key \"{}\", found {}.", most,
                                      key, value.size()));
  }
  return value;
}

Json finite(double value, std::string_view key) {
  if (!std::isfinite(value)) {
    throw JsonEncodeError(fmt::format(
        "Unable to encode {} for key \"{}\": JSON numbers must be finite.", value, key));
  }
  return value;
}

Json encodeDate(Date date, DateForm form, std::string_view key) {
  const double seconds = unixSeconds(date);
  if (!std::isfinite(seconds)) finite(seconds, key);
  switch (form) {
    case DateForm::referenceSeconds:
      return referenceSeconds(date);
    case DateForm::iso8601:
      return formatISO8601(date);
  }
  return nullptr;
}

Date decodeDate(const Json& value, DateForm form, std::string_view key) {
  switch (form) {
    case DateForm::referenceSeconds:
      return dateFromReferenceSeconds(number(value, key));
    case DateForm::iso8601: {
      const std::string text = string(value, key);
      if (auto date = parseISO8601UTC(text)) return *date;
      throw JsonDecodeError(fmt::format(
          "Expected a date in UTC with whole seconds, such as 2026-10-29T12:00:00Z, for key "
          "\"{}\".",
          key));
    }
  }
  typeMismatch(key, "a date", value);
}

std::string_view onlyCase(const Json& value, std::initializer_list<std::string_view> cases,
                          std::string_view what) {
  if (!value.is_object()) typeMismatch(what, "an object", value);
  std::string_view found;
  int count = 0;
  for (const auto name : cases) {
    if (value.contains(name)) {
      found = name;
      ++count;
    }
  }
  if (count != 1) throw JsonDecodeError("Invalid number of keys found, expected one.");
  return found;
}

Json parse(std::string_view text) {
  try {
    return Json::parse(text);
  } catch (const Json::exception& error) {
    throw JsonDecodeError(fmt::format("The data is not valid JSON: {}", error.what()));
  }
}

std::string dump(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<std::string> optionalString(const Json& object, std::string_view key) {
  if (const Json* value = optional(object, key)) return string(*value, key);
  return std::nullopt;
}

std::optional<double> optionalNumber(const Json& object, std::string_view key) {
  if (const Json* value = optional(object, key)) return number(*value, key);
  return std::nullopt;
}

const Json* optionalObject(const Json& object, std::string_view key) {
  const Json* value = optional(object, key);
  return value ? &json::object(*value, key) : nullptr;
}

}  // namespace brimlog::json
