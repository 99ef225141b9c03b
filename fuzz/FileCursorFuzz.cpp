// Decoding a stored cursor must never crash, and its quick path must agree with the general
// one: whenever the general reader (parse the text, then decode the tree) gives a cursor, the
// quick decoder gives the same; when the general reader refuses the text, the quick one gives
// nothing. A cursor that decodes survives being encoded and decoded again, both from its tree
// and from its text.
//
// The input is the stored text.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Finding.hpp"
#include "model/FileCursor.hpp"

using namespace brimlog;

namespace {

std::string describe(const std::optional<FileCursor>& cursor) {
  return cursor ? json::dump(cursor->toJson()) : std::string("nothing");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::optional<FileCursor> quick = FileCursor::fromJsonText(text);

  std::optional<FileCursor> general;
  try {
    general = FileCursor::fromJson(json::parse(text));
  } catch (const JsonDecodeError&) {
    // The text does not decode: nothing is the answer.
  }
  fuzz::expect(quick == general, [&] {
    return "the quick decoder gives " + describe(quick) + ", the general one " + describe(general);
  });
  if (!quick) return 0;

  const Json tree = quick->toJson();
  fuzz::expect(FileCursor::fromJson(tree) == *quick,
               [&] { return "the tree of " + describe(quick) + " decodes to another cursor"; });
  const std::string encoded = json::dump(tree);
  fuzz::expect(FileCursor::fromJsonText(encoded) == quick, [&] {
    return "the text " + encoded + " decodes to " + describe(FileCursor::fromJsonText(encoded));
  });
  return 0;
}
