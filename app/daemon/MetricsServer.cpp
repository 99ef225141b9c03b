#include "daemon/MetricsServer.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include "display/LimitOutlook.hpp"
#include "state/HostSettings.hpp"
#include "store/PriceTable.hpp"
#include "store/UsageStore.hpp"

namespace brimlog {

MetricsServer::MetricsServer(const MetricsEndpoint& endpoint, Date startTime) {
  figures_.startTime = startTime;
  publish();
  server_.Get("/metrics", [this](const httplib::Request&, httplib::Response& response) {
    std::lock_guard lock{mutex_};
    response.set_content(text_, std::string{MetricsText::contentType});
  });
  // Not httplib's SO_REUSEPORT: a second daemon on a taken port must fail, not share it.
  server_.set_socket_options([](socket_t socket) {
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  errno = 0;
  if (!server_.bind_to_port(endpoint.host, endpoint.port)) {
    const int error = errno;
    throw CommandError(fmt::format("cannot serve metrics on {}: {}", endpoint.text(),
                                   error != 0 ? std::strerror(error) : "cannot listen there"));
  }
  thread_ = std::thread{[this] {
    server_.listen_after_bind();
    ended_ = true;
  }};
  // httplib's stop does nothing before the serving has begun: wait for it, so that a daemon
  // stopped at once still ends.
  while (!server_.is_running() && !ended_) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

MetricsServer::~MetricsServer() {
  server_.stop();
  thread_.join();
}

void MetricsServer::passed(UsageStore& store, Date now, double seconds, int64_t skippedFiles,
                           bool newReplies) {
  figures_.passSeconds = seconds;
  figures_.passSkippedFiles = skippedFiles;
  figures_.passes += 1;
  figures_.lastPass = now;
  if (newReplies || !usageRead_) {
    figures_.usage = neverLower(figures_.usage, usageOf(store, now));
    usageRead_ = true;
  }
  figures_.limits = limitsOf(store, now);
  publish();
}

void MetricsServer::limitsChanged(UsageStore& store, Date now) {
  figures_.limits = limitsOf(store, now);
  publish();
}

std::vector<MetricsFigures::Usage> MetricsServer::usageOf(UsageStore& store, Date now) {
  // Every day the ledger keeps, up to a day ahead for a clock set back; priced per (tool,
  // model, day) bundle as every report prices it.
  const Calendar calendar = Calendar::utc();
  const LedgerDays days = store.days(
      {dateFromUnixSeconds(0), now + Seconds{86400}, std::nullopt, std::nullopt}, calendar);
  const PriceTable prices = PriceTable::bundled();
  std::map<std::pair<int, std::string>, MetricsFigures::Usage> byModel;
  for (const DayUsage& day : days.usage) {
    MetricsFigures::Usage& usage = byModel[{day.provider.index(), day.model}];
    usage.tool = day.provider;
    usage.model = day.model;
    usage.tokens += day.tokens;
    const PricedCost priced = prices.cost(day.model, day.tokens, day.reportedUSD);
    if (priced.usd) usage.costUSD = usage.costUSD.value_or(0) + *priced.usd;
  }
  std::vector<MetricsFigures::Usage> usage;
  for (auto& [key, row] : byModel) usage.push_back(std::move(row));
  return usage;
}

std::vector<MetricsFigures::Usage> MetricsServer::neverLower(
    const std::vector<MetricsFigures::Usage>& before, std::vector<MetricsFigures::Usage> now) {
  // Pruning takes the oldest days out of the ledger, but what was counted stays counted: a
  // counter that fell would read as a restart and a burst of everything. A restart of the daemon
  // starts from the ledger again, which Prometheus takes as the reset it is.
  for (const MetricsFigures::Usage& old : before) {
    const auto same = std::find_if(now.begin(), now.end(), [&](const MetricsFigures::Usage& u) {
      return u.tool == old.tool && u.model == old.model;
    });
    if (same == now.end()) {
      now.push_back(old);
      continue;
    }
    TokenCounts& t = same->tokens;
    const TokenCounts& o = old.tokens;
    t = {std::max(t.uncachedInput, o.uncachedInput),
         std::max(t.cacheRead, o.cacheRead),
         std::max(t.cacheWrite5m, o.cacheWrite5m),
         std::max(t.cacheWrite1h, o.cacheWrite1h),
         std::max(t.output, o.output),
         std::max(t.reasoning, o.reasoning)};
    if (old.costUSD) same->costUSD = std::max(same->costUSD.value_or(0), *old.costUSD);
  }
  return now;
}

std::vector<MetricsFigures::Limit> MetricsServer::limitsOf(UsageStore& store, Date now) {
  std::vector<MetricsFigures::Limit> limits;
  for (const ProviderID tool : ProviderID::allCases) {
    const std::optional<ProviderLimits> stored = store.limits(tool);
    if (!stored) continue;
    const std::vector<LimitForecast> forecasts = LimitOutlook::forecasts(store, tool, *stored, now);
    for (const LimitWindow& window : stored->windows) {
      MetricsFigures::Limit limit{tool, window.id, window.effectiveUsedFraction(now),
                                  window.resetsAt, std::nullopt};
      for (const LimitForecast& forecast : forecasts) {
        if (forecast.window == window.id) limit.runsOutAt = forecast.runsOutAt;
      }
      limits.push_back(std::move(limit));
    }
  }
  return limits;
}

void MetricsServer::publish() {
  std::string text = MetricsText::render(figures_);
  std::lock_guard lock{mutex_};
  text_ = std::move(text);
}

}  // namespace brimlog
