#pragma once

#include "display/LimitLevel.hpp"
#include "model/Color.hpp"

namespace brimlog {

/// The colour of a window's bar, figure and chart line at its level: `normal` (its own colour,
/// the tool's accent) below 80% used, amber from 80%, red from 95%. Both are dark enough to read
/// on the light widget and bright enough for the dark one.
constexpr Color levelColor(LimitLevel level, Color normal) {
  switch (level) {
    case LimitLevel::warning:
      return Color::srgb(196 / 255.0, 138 / 255.0, 0.0);
    case LimitLevel::critical:
      return Color::srgb(228 / 255.0, 52 / 255.0, 46 / 255.0);
    case LimitLevel::normal:
      break;
  }
  return normal;
}

}  // namespace brimlog
