#pragma once

#include "ingest/ToolSource.hpp"

namespace brimlog {

/// Grok Build's places and reader: its session documents are in `<home>/.grok/sessions`, and it
/// is installed when that folder exists.
struct GrokSource {
  static ToolPlaces places(const std::filesystem::path& home, const ToolVariables& variables);
  static std::unique_ptr<LogReader> reader(const IngestOptions& options);

  static const ToolSource source;
};

inline constexpr ToolSource GrokSource::source{ProviderID::grok, {}, &places, &reader};

}  // namespace brimlog
