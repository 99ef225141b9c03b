#include "limits/HTTPClient.hpp"

#include <algorithm>

#include "platform/AsciiCase.hpp"

namespace brimlog {

bool sameHeaderName(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return asciiLower(x) == asciiLower(y); });
}

std::optional<std::string> HTTPResponse::header(std::string_view name) const {
  auto found = std::find_if(headers.begin(), headers.end(), [name](const auto& header) {
    return sameHeaderName(header.first, name);
  });
  if (found == headers.end()) return std::nullopt;
  return found->second;
}

}  // namespace brimlog
