#pragma once

#include <vector>

#include "ui/View.hpp"

namespace brimlog {

/// The daily cost of the last 30 days as a line over a faint area, filling the space it is
/// given: the largest value (at least 0.01) touches one point below the top, zero lies one point
/// above the bottom. Fewer than two values draw nothing.
struct Sparkline {
  std::vector<double> values;
  ui::View body() const;
};

}  // namespace brimlog
