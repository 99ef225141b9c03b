#include "output/MetricsText.hpp"

#include <fmt/format.h>

#include <cmath>
#include <iterator>

namespace brimlog {
namespace {

// Shortest text that reads back as the same double; the format's own words for the rest.
std::string number(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "+Inf" : "-Inf";
  return fmt::format("{}", value);
}

class Writer {
 public:
  void family(std::string_view name, std::string_view type, std::string_view help) {
    fmt::format_to(std::back_inserter(text_), "# HELP {} {}\n# TYPE {} {}\n", name, help, name,
                   type);
  }

  // `labels` alternate name and value.
  void sample(std::string_view name, std::initializer_list<std::string_view> labels, double value) {
    text_ += name;
    if (labels.size() > 0) {
      text_ += '{';
      for (auto it = labels.begin(); it != labels.end(); it += 2) {
        if (it != labels.begin()) text_ += ',';
        fmt::format_to(std::back_inserter(text_), "{}=\"{}\"", *it,
                       MetricsText::escapeLabel(*(it + 1)));
      }
      text_ += '}';
    }
    fmt::format_to(std::back_inserter(text_), " {}\n", number(value));
  }

  std::string take() { return std::move(text_); }

 private:
  std::string text_;
};

double seconds(Date date) { return unixSeconds(date); }

}  // namespace

std::string MetricsText::escapeLabel(std::string_view value) {
  std::string escaped;
  escaped.reserve(value.size());
  for (const char c : value) {
    if (c == '\\') {
      escaped += "\\\\";
    } else if (c == '"') {
      escaped += "\\\"";
    } else if (c == '\n') {
      escaped += "\\n";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string MetricsText::render(const MetricsFigures& figures) {
  Writer out;
  out.family("brimlog_tokens_total", "counter",
             "Tokens of every reply in the ledger, by tool, model and kind.");
  for (const MetricsFigures::Usage& usage : figures.usage) {
    const std::string tool{usage.tool.rawValue()};
    const TokenCounts& t = usage.tokens;
    const std::pair<std::string_view, int64_t> kinds[] = {{"input", t.uncachedInput},
                                                          {"cache_read", t.cacheRead},
                                                          {"cache_write_5m", t.cacheWrite5m},
                                                          {"cache_write_1h", t.cacheWrite1h},
                                                          {"output", t.output},
                                                          {"reasoning", t.reasoning}};
    for (const auto& [kind, count] : kinds) {
      out.sample("brimlog_tokens_total", {"tool", tool, "model", usage.model, "kind", kind},
                 static_cast<double>(count));
    }
  }
  out.family("brimlog_cost_usd_total", "counter",
             "What the ledger's replies cost at list prices, in US dollars, by tool and model.");
  for (const MetricsFigures::Usage& usage : figures.usage) {
    if (!usage.costUSD) continue;
    out.sample("brimlog_cost_usd_total",
               {"tool", std::string{usage.tool.rawValue()}, "model", usage.model}, *usage.costUSD);
  }

  out.family("brimlog_limit_used_ratio", "gauge",
             "Share of a limit window's quota used, 0 to 1, as last read.");
  for (const MetricsFigures::Limit& limit : figures.limits) {
    out.sample("brimlog_limit_used_ratio",
               {"tool", std::string{limit.tool.rawValue()}, "window", limit.window},
               limit.usedRatio);
  }
  out.family("brimlog_limit_resets_at_seconds", "gauge",
             "When a limit window resets, in seconds since the Unix epoch.");
  for (const MetricsFigures::Limit& limit : figures.limits) {
    if (!limit.resetsAt) continue;
    out.sample("brimlog_limit_resets_at_seconds",
               {"tool", std::string{limit.tool.rawValue()}, "window", limit.window},
               seconds(*limit.resetsAt));
  }
  out.family("brimlog_limit_runs_out_at_seconds", "gauge",
             "When a limit window runs out at the current pace, in seconds since the Unix "
             "epoch; only for windows that run out before they reset.");
  for (const MetricsFigures::Limit& limit : figures.limits) {
    if (!limit.runsOutAt) continue;
    out.sample("brimlog_limit_runs_out_at_seconds",
               {"tool", std::string{limit.tool.rawValue()}, "window", limit.window},
               seconds(*limit.runsOutAt));
  }

  out.family("brimlog_pass_duration_seconds", "gauge",
             "How long the last pass over the tools' logs took.");
  if (figures.passSeconds) out.sample("brimlog_pass_duration_seconds", {}, *figures.passSeconds);
  out.family("brimlog_pass_skipped_files", "gauge", "Log files the last pass could not read.");
  out.sample("brimlog_pass_skipped_files", {}, static_cast<double>(figures.passSkippedFiles));
  out.family("brimlog_passes_total", "counter", "Passes over the tools' logs since the start.");
  out.sample("brimlog_passes_total", {}, static_cast<double>(figures.passes));
  out.family("brimlog_last_pass_timestamp_seconds", "gauge",
             "When the last pass ran, in seconds since the Unix epoch.");
  if (figures.lastPass) {
    out.sample("brimlog_last_pass_timestamp_seconds", {}, seconds(*figures.lastPass));
  }
  out.family("brimlog_up", "gauge", "1 while the daemon runs.");
  out.sample("brimlog_up", {}, 1);
  out.family("brimlog_start_time_seconds", "gauge",
             "When the daemon started, in seconds since the Unix epoch.");
  out.sample("brimlog_start_time_seconds", {}, seconds(figures.startTime));
  return out.take();
}

}  // namespace brimlog
