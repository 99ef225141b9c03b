#include "server/WidgetPage.hpp"

#include <fmt/format.h>

#include "ui/HtmlPageAssets.hpp"
#include "ui/HtmlRenderer.hpp"
#include "views/WidgetViews.hpp"

namespace brimlog {

using ui::HtmlRenderer;

namespace {

ui::View body(const WidgetDescription& description, const SnapshotEntry& entry) {
  switch (description.family) {
    case WidgetDescription::Family::small:
      return SmallWidgetView{entry}.body();
    case WidgetDescription::Family::medium:
      return MediumWidgetView{entry}.body();
    case WidgetDescription::Family::large:
      return LargeWidgetView{entry}.body();
  }
  return ui::Empty();
}

constexpr std::string_view kPageStyle = R"css(
html, body { margin: 0; }
body { background: var(--page-background); padding: 24px; }
.widget { position: relative; flex-shrink: 0; overflow: hidden; border-radius: 22px;
  background: var(--widget-background);
  box-shadow: 0 0 0 0.5px rgba(0,0,0,0.12), 0 4px 14px rgba(0,0,0,0.10); }
.widget .entry { position: absolute; inset: 16px; display: flex; flex-direction: column;
  justify-content: center; }
.widget .entry[hidden] { display: none; }
.gallery { display: flex; flex-wrap: wrap; gap: 28px; align-items: flex-start; }
.gallery figure { margin: 0; }
.gallery figcaption { margin-top: 8px; max-width: 170px; font-size: 12px; color: var(--secondary); }
.gallery figcaption b { display: block; color: var(--primary); font-weight: 600; }
.gallery figcaption a { display: block; margin-top: 4px; color: var(--secondary); }
h1 { font-size: 15px; font-weight: 600; margin: 0 0 20px; }
html.bare, html.bare body { background: transparent; padding: 0; overflow: hidden; }
html.bare .widget { box-shadow: none; }
)css";

// Shows each widget's current entry, moves on at the next entry's date, and reloads the page at
// the earliest reload date; the refresh button asks the server to run the refresh intent.
constexpr std::string_view kPageScript = R"js(
(function () {
  function show() {
    var now = Date.now() / 1000;
    document.querySelectorAll('.widget').forEach(function (widget) {
      var entries = widget.querySelectorAll(':scope > .entry'), current = entries[0];
      entries.forEach(function (entry) {
        if (parseFloat(entry.getAttribute('data-date')) <= now) current = entry;
      });
      entries.forEach(function (entry) {
        if (entry === current && entry.hidden) { entry.hidden = false; window.brimlogLayOut(entry); }
        else if (entry !== current) { entry.hidden = true; }
      });
    });
  }
  show();
  setInterval(show, 250);
  var reloads = Array.prototype.map.call(document.querySelectorAll('.widget[data-reload-at]'),
    function (widget) { return parseFloat(widget.getAttribute('data-reload-at')); });
  if (reloads.length) {
    var wait = Math.max(1, Math.min.apply(null, reloads) - Date.now() / 1000);
    setTimeout(function () { location.reload(); }, wait * 1000);
  }
  document.addEventListener('click', function (event) {
    var button = event.target.closest('button[data-action]');
    if (!button) return;
    event.preventDefault();
    event.stopPropagation();
    button.disabled = true;
    fetch('/intents/' + button.getAttribute('data-action'), { method: 'POST' })
      .catch(function () {})
      .then(function () { button.disabled = false; });
  });
})();
)js";

// Each family's name in class names and in titles and its size in points, in the order of
// `Family`.
struct FamilyLook {
  std::string_view name;
  std::string_view title;
  int width;
  int height;
};
constexpr FamilyLook kFamilies[] = {
    {"small", "Small", 170, 170}, {"medium", "Medium", 364, 170}, {"large", "Large", 364, 382}};

const FamilyLook& look(WidgetDescription::Family family) {
  return kFamilies[static_cast<size_t>(family)];
}

}  // namespace

std::pair<int, int> WidgetPage::size(WidgetDescription::Family family) {
  return {look(family).width, look(family).height};
}

std::string WidgetPage::widget(const WidgetDescription& description, const Timeline& timeline,
                               ProviderID provider, Date now) {
  const auto [width, height] = size(description.family);
  std::string out = fmt::format(
      R"(<div class="widget widget-{}" data-kind="{}" data-provider="{}" data-reload-at="{:.0f}" )"
      R"(style="width:{}px;height:{}px">)",
      look(description.family).name, HtmlRenderer::escape(description.kind), provider.rawValue(),
      unixSeconds(timeline.reloadAt), width, height);
  // Before the script runs, the entry whose date was reached last is the one on show.
  size_t current = 0;
  for (size_t i = 0; i < timeline.entries.size(); ++i) {
    if (timeline.entries[i].date <= now) current = i;
  }
  for (size_t i = 0; i < timeline.entries.size(); ++i) {
    const SnapshotEntry& entry = timeline.entries[i];
    out += fmt::format(R"(<section class="entry" data-date="{:.0f}"{}>)", unixSeconds(entry.date),
                       i == current ? "" : " hidden");
    out += HtmlRenderer::render(body(description, entry));
    out += "</section>";
  }
  out += "</div>";
  return out;
}

std::string WidgetPage::title(const WidgetDescription& description, ProviderID provider) {
  std::string title = fmt::format("Brimlog — {}", look(description.family).title);
  if (description.configurable) title += fmt::format(" — {}", provider.displayName());
  return title;
}

std::string WidgetPage::page(std::string_view title, std::string_view body, Frame frame) {
  return fmt::format(
      "<!doctype html>\n<html lang=\"en\"{}><head><meta charset=\"utf-8\">"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
      "<link rel=\"icon\" href=\"data:,\"><title>{}</title><style>{}{}</style></head>"
      "<body>{}<script>{}{}</script></body></html>\n",
      frame == Frame::bare ? " class=\"bare\"" : "", HtmlRenderer::escape(title),
      ui::HtmlPageAssets::styleSheet(), kPageStyle, body, ui::HtmlPageAssets::script(),
      kPageScript);
}

std::string WidgetPage::gallery(const std::vector<Item>& items) {
  std::string out = "<h1>Brimlog widgets</h1><div class=\"gallery\">";
  for (const Item& item : items) {
    out += fmt::format(
        "<figure>{}<figcaption><b>{}</b>{}<a href=\"{}\">On its own, for the desktop</a>"
        "</figcaption></figure>",
        item.widget, HtmlRenderer::escape(item.description.displayName),
        HtmlRenderer::escape(item.description.description), HtmlRenderer::escape(item.address));
  }
  out += "</div>";
  return out;
}

}  // namespace brimlog
