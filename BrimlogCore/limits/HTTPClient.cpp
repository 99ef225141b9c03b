#include "limits/HTTPClient.hpp"

#include <algorithm>
#include <cctype>

namespace brimlog {

std::optional<std::string> HTTPResponse::header(std::string_view name) const {
  auto sameName = [name](const std::pair<std::string, std::string>& header) {
    return std::equal(header.first.begin(), header.first.end(), name.begin(), name.end(),
                      [](char a, char b) {
                        return std::tolower(static_cast<unsigned char>(a)) ==
                               std::tolower(static_cast<unsigned char>(b));
                      });
  };
  auto found = std::find_if(headers.begin(), headers.end(), sameName);
  if (found == headers.end()) return std::nullopt;
  return found->second;
}

}  // namespace brimlog
