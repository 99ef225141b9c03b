#pragma once

#include "display/Snapshot.hpp"
#include "model/ProviderID.hpp"
#include "platform/Date.hpp"
#include "ui/View.hpp"

namespace brimlog {

/// A provider's logo, tinted in its accent colour, beside its name at `size` points.
struct ProviderName {
  ProviderID provider;
  double size = 11;
  ui::View body() const;
};

/// The faint one-line row of a provider without windows: "Grok · no live limits".
struct NoLimitsRow {
  Snapshot::Provider provider;
  ui::View body() const;
};

/// A provider's name and its two tightest windows side by side. A single window keeps the width
/// of one of two; the rest of the row stays empty.
struct ProviderRow {
  Snapshot::Provider provider;
  Date now;
  bool live = false;
  ui::View body() const;
};

/// One row per provider of the snapshot, in its order: `NoLimitsRow` for a provider without
/// windows, `ProviderRow` otherwise.
struct ProviderRows {
  Snapshot snapshot;
  Date now;
  bool live = false;
  double spacing = 8;
  ui::View body() const;
};

}  // namespace brimlog
