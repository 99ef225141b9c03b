#include "limits/CredentialSource.hpp"

namespace brimlog {

std::string_view caseName(CredentialError::Kind kind) {
  switch (kind) {
    case CredentialError::Kind::notFound:
      return "notFound";
    case CredentialError::Kind::denied:
      return "denied";
    case CredentialError::Kind::malformed:
      return "malformed";
  }
  return "denied";
}

}  // namespace brimlog
