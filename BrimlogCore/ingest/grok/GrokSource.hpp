#pragma once

#include "ingest/ToolSource.hpp"

namespace brimlog {

/// Grok Build's places and reader: its session documents are in `<home>/.grok/sessions`, and it
/// is installed when that folder exists.
extern const ToolSource grokSource;

}  // namespace brimlog
