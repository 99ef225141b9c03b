#include "views/Sparkline.hpp"

#include <algorithm>

namespace brimlog {

using namespace ui;

View Sparkline::body() const {
  std::vector<Shape> shapes;
  if (values.size() >= 2) {
    const double peak = std::max(0.01, *std::max_element(values.begin(), values.end()));
    const double last = static_cast<double>(values.size() - 1);
    // Point i lies at x = i / (n - 1) of the width and y = (H - 1) - r (H - 2), where r is the
    // value's share of the peak: (1 - r) of the height plus 2r - 1 points.
    std::vector<std::pair<Length, Length>> points;
    for (size_t i = 0; i < values.size(); ++i) {
      const double share = std::max(0.0, values[i]) / peak;
      points.emplace_back(Length{static_cast<double>(i) / last, 0},
                          Length{1 - share, 2 * share - 1});
    }
    Shape area;
    area.kind = Shape::Kind::path;
    area.points.emplace_back(Length{0, 0}, Length{1, 0});
    area.points.insert(area.points.end(), points.begin(), points.end());
    area.points.emplace_back(Length{1, 0}, Length{1, 0});
    area.closed = true;
    area.opacity = 0.08;
    Shape line;
    line.kind = Shape::Kind::path;
    line.points = std::move(points);
    line.opacity = 0.6;
    line.lineWidth = 1.5;
    shapes = {std::move(area), std::move(line)};
  }
  return Canvas(std::move(shapes)).accessibility("Daily cost, last 30 days");
}

}  // namespace brimlog
