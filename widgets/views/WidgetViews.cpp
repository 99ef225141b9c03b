#include "views/WidgetViews.hpp"

#include <algorithm>

#include "display/MeterFormat.hpp"
#include "display/WidgetDisplay.hpp"
#include "model/ProviderID.hpp"
#include "platform/AsciiCase.hpp"
#include "views/LimitChart.hpp"
#include "views/ProviderRows.hpp"
#include "views/Sparkline.hpp"
#include "views/WidgetHeader.hpp"
#include "views/WindowViews.hpp"

namespace brimlog {

using namespace ui;

View EmptyStateView::body() const {
  return VStack(HorizontalAlignment::center, 6,
                {
                    Symbol(ProviderID::appSymbolName).font(22),
                    Text("Open Brimlog to start").font(12, FontWeight::medium),
                })
      .foreground(Color::secondaryText())
      .frame(Frame::fullWidth())
      .role("empty-state");
}

View SmallWidgetView::body() const {
  if (!entry.snapshot) return EmptyStateView{}.body();
  const Snapshot& snapshot = *entry.snapshot;
  const auto found = std::find_if(
      snapshot.providers.begin(), snapshot.providers.end(),
      [&](const Snapshot::Provider& provider) { return provider.id == entry.provider; });
  std::vector<View> rows{HStack(VerticalAlignment::center, 4,
                                {
                                    ProviderName{entry.provider, 13}.body(),
                                    Spacer(0),
                                    RefreshButton{}.body(),
                                })};
  // Brimlog runs (there is a snapshot) but has nothing of this tool: say so, rather than ask
  // the user to start what already runs.
  if (found == snapshot.providers.end()) {
    rows.push_back(
        Text(entry.provider.isReadable() ? "No usage in 30 days" : "Not read on this system")
            .font(12)
            .foreground(Color::secondaryText())
            .role("absent-note"));
    rows.push_back(Spacer(0));
    rows.push_back(StaleBadge{snapshot.generatedAt, entry.date}.body());
    return VStack(HorizontalAlignment::leading, 8, std::move(rows));
  }
  const Snapshot::Provider& provider = *found;
  const bool live = !entry.isSample;

  const std::vector<LimitWindow> windows = WidgetDisplay::sessionAndWeekly(provider.windows);
  if (windows.empty()) {
    rows.push_back(VStack(HorizontalAlignment::leading, 2,
                          {
                              Text(asciiCapitalized(WidgetDisplay::noLimitsNote(provider.status)))
                                  .font(12)
                                  .foreground(Color::secondaryText()),
                              Text("30 days " + MeterFormat::usd(provider.cost30dUSD))
                                  .font(12)
                                  .foreground(Color::tertiaryText()),
                          }));
  }
  for (const LimitWindow& window : windows) {
    rows.push_back(
        SmallWindowView{window, provider.id.accent(), entry.date, live, provider.readAtOf(window)}
            .body());
  }
  rows.push_back(Spacer(0));
  rows.push_back(StaleBadge{snapshot.generatedAt, entry.date}.body());
  return VStack(HorizontalAlignment::leading, 8, std::move(rows));
}

View MediumWidgetView::body() const {
  if (!entry.snapshot) return EmptyStateView{}.body();
  return VStack(HorizontalAlignment::leading, 8,
                {
                    WidgetHeader{*entry.snapshot, entry.date}.body(),
                    ProviderRows{*entry.snapshot, entry.date, !entry.isSample, 8}.body(),
                    Spacer(0),
                });
}

namespace {

// The charts of the first provider, in the snapshot's order, with a forecast for a window of the
// current period: at most two of its windows, side by side. Nothing when no provider has one.
View limitCharts(const Snapshot& snapshot, Date now) {
  constexpr size_t kMostCharts = 2;
  const Calendar calendar = Calendar::current();
  for (const Snapshot::Provider& provider : snapshot.providers) {
    std::vector<View> charts;
    for (const LimitWindow& window : provider.windows) {
      const LimitForecast* forecast = provider.forecastOf(window.id);
      if (!forecast) continue;
      View chart = LimitChart{window, *forecast, provider.id.accent(), now, calendar}.body(36);
      if (chart.kind != View::Kind::empty) charts.push_back(std::move(chart));
      if (charts.size() == kMostCharts) break;
    }
    if (!charts.empty()) return HStack(VerticalAlignment::top, 12, std::move(charts));
  }
  return Empty();
}

}  // namespace

View LargeWidgetView::body() const {
  if (!entry.snapshot) return EmptyStateView{}.body();
  const Snapshot& snapshot = *entry.snapshot;
  View charts = limitCharts(snapshot, entry.date);
  // The charts take the room of the rows' wider spacing, so that every tool's row still fits.
  const double rowSpacing = charts.kind == View::Kind::empty ? 12 : 6;
  return VStack(HorizontalAlignment::leading, 10,
                {
                    WidgetHeader{snapshot, entry.date}.body(),
                    ProviderRows{snapshot, entry.date, !entry.isSample, rowSpacing}.body(),
                    std::move(charts),
                    Spacer(4),
                    Divider(),
                    Text("Today " + MeterFormat::usd(snapshot.costTodayUSD) + " · 30 days " +
                         MeterFormat::usd(snapshot.cost30dUSD) + " (API estimate)")
                        .font(11)
                        .foreground(Color::secondaryText())
                        .lineLimit(1)
                        .minimumScale(0.8)
                        .role("cost-line"),
                    Sparkline{snapshot.dailyCost30}.body().frame(Frame::heights(44, 80)),
                });
}

}  // namespace brimlog
