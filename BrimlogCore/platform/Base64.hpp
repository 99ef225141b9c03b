#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brimlog {

/// Decodes standard base64 (RFC 4648 section 4: "A-Z a-z 0-9 + /", "=" padding). The text must
/// be padded to a multiple of four characters, hold nothing but the alphabet and at most two
/// trailing "=", and no whitespace. Bits left over in the last group are ignored. Nothing when the
/// text does not meet these rules; never throws.
///
///     base64Decode("aGk=");  // "hi"
///     base64Decode("aGk");   // nothing: not padded
std::optional<std::string> base64Decode(std::string_view text);

/// Decodes the URL-safe alphabet used by JSON Web Tokens (RFC 4648 section 5): "-" and "_" stand
/// for "+" and "/", and the padding may be left out. The text is translated to the standard
/// alphabet, padded with "=" to a multiple of four and decoded by `base64Decode`; a length that
/// leaves one character over cannot be padded into a valid group and gives nothing.
///
///     base64URLDecode("eyJleHAiOjF9");  // {"exp":1}
///     base64URLDecode("_-8");           // the bytes FF EF
std::optional<std::string> base64URLDecode(std::string_view text);

}  // namespace brimlog
