#include "platform/AppVersion.hpp"

#ifndef BRIMLOG_VERSION
#define BRIMLOG_VERSION "1.0"
#endif

namespace brimlog {

std::string_view appVersion() { return BRIMLOG_VERSION; }

}  // namespace brimlog
