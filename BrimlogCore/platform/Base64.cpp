#include "platform/Base64.hpp"

#include <array>
#include <cstdint>

namespace brimlog {
namespace {

constexpr int8_t kInvalid = -1;

constexpr std::array<int8_t, 256> makeDecodeTable() {
  std::array<int8_t, 256> table{};
  for (auto& entry : table) entry = kInvalid;
  constexpr std::string_view alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (size_t i = 0; i < alphabet.size(); ++i) {
    table[static_cast<unsigned char>(alphabet[i])] = static_cast<int8_t>(i);
  }
  return table;
}

constexpr std::array<int8_t, 256> kDecodeTable = makeDecodeTable();

}  // namespace

std::optional<std::string> base64Decode(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') {
    ++padding;
  }
  const std::string_view digits = text.substr(0, text.size() - padding);

  std::string bytes;
  bytes.reserve(digits.size() / 4 * 3 + 2);
  uint32_t buffer = 0;
  int bits = 0;
  for (const char c : digits) {
    const int8_t value = kDecodeTable[static_cast<unsigned char>(c)];
    if (value == kInvalid) return std::nullopt;  // also a third "=" or one inside the text
    buffer = (buffer << 6) | static_cast<uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes.push_back(static_cast<char>((buffer >> bits) & 0xFF));
    }
  }
  return bytes;
}

std::optional<std::string> base64URLDecode(std::string_view text) {
  std::string standard(text);
  for (char& c : standard) {
    if (c == '-') {
      c = '+';
    } else if (c == '_') {
      c = '/';
    }
  }
  while (standard.size() % 4 != 0) standard.push_back('=');
  return base64Decode(standard);
}

}  // namespace brimlog
