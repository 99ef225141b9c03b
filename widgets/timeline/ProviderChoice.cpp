#include "timeline/ProviderChoice.hpp"

namespace brimlog {

std::optional<ProviderChoice> ProviderChoice::fromRawValue(std::string_view rawValue) {
  for (const ProviderChoice choice : allCases) {
    if (choice.rawValue() == rawValue) return choice;
  }
  return std::nullopt;
}

}  // namespace brimlog
