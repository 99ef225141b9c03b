#include "ui/HtmlPageAssets.hpp"

namespace brimlog::ui {

std::string_view HtmlPageAssets::styleSheet() {
  return R"css(
:root { color-scheme: light dark;
  --primary: rgba(0,0,0,0.85); --secondary: rgba(0,0,0,0.5); --tertiary: rgba(0,0,0,0.26);
  --separator: rgba(0,0,0,0.1); --widget-background: #ffffff; --page-background: #e8e8ed; }
@media (prefers-color-scheme: dark) { :root {
  --primary: rgba(255,255,255,0.85); --secondary: rgba(255,255,255,0.55);
  --tertiary: rgba(255,255,255,0.25); --separator: rgba(255,255,255,0.12);
  --widget-background: #2c2c2e; --page-background: #161618; } }
body { font-family: system-ui, -apple-system, "Segoe UI", Roboto, Ubuntu, Cantarell, "Noto Sans", "Helvetica Neue", Arial, sans-serif;
  font-size: 13px; color: var(--primary); -webkit-font-smoothing: antialiased; }
.vstack, .hstack, .frame { display: flex; box-sizing: border-box; }
.vstack { flex-direction: column; }
.vstack > * { min-height: 0; max-width: 100%; }
.hstack { flex-direction: row; }
.hstack > * { min-width: 0; }
.frame { flex-direction: row; align-items: center; }
.zstack { display: grid; align-items: center; }
.zstack > * { grid-area: 1 / 1; }
.text { display: block; line-height: 1.2; }
.spacer { flex: 1 1 0; }
.divider { background: var(--separator); min-height: 1px; min-width: 1px; }
.image { display: inline-flex; width: 1em; height: 1em; flex-shrink: 0; }
.image svg { width: 100%; height: 100%; }
.image.resizable { width: 100%; height: 100%; }
.canvas { display: block; min-width: 0; position: relative; }
.canvas svg { position: absolute; inset: 0; display: block; width: 100%; height: 100%; overflow: visible; }
.button { all: unset; cursor: pointer; display: inline-flex; }
.button:focus-visible { outline: 2px solid var(--secondary); border-radius: 4px; }
)css";
}

std::string_view HtmlPageAssets::script() {
  return R"js(
(function () {
  function at(length, side) { return length[0] * side + length[1]; }
  function layOut(svg) {
    var box = svg.getBoundingClientRect(), w = box.width, h = box.height;
    if (!w || !h) return;
    svg.querySelectorAll('[data-geometry]').forEach(function (shape) {
      var g = JSON.parse(shape.getAttribute('data-geometry'));
      if (g.points) {
        var d = g.points.map(function (p, i) {
          return (i ? 'L' : 'M') + at(p[0], w).toFixed(2) + ' ' + at(p[1], h).toFixed(2);
        }).join(' ');
        shape.setAttribute('d', d + (g.closed ? ' Z' : ''));
        return;
      }
      var x = at(g.x, w);
      if (g.xMax) x = Math.min(x, at(g.xMax, w));
      if (g.xMin) x = Math.max(x, at(g.xMin, w));
      shape.setAttribute('x', x);
      shape.setAttribute('y', at(g.y, h));
      shape.setAttribute('width', Math.max(0, at(g.width, w)));
      shape.setAttribute('height', Math.max(0, at(g.height, h)));
    });
  }
  function fit(text) {
    var scale = parseFloat(text.getAttribute('data-min-scale'));
    if (!text.hasAttribute('data-size')) {
      text.setAttribute('data-size', parseFloat(getComputedStyle(text).fontSize));
    }
    var size = parseFloat(text.getAttribute('data-size')), least = size * scale;
    text.style.fontSize = size + 'px';
    while (text.scrollWidth > text.clientWidth && size > least) {
      size = Math.max(least, size - 0.25);
      text.style.fontSize = size + 'px';
    }
  }
  function pad(n) { return (n < 10 ? '0' : '') + n; }
  function tick() {
    var now = Date.now() / 1000;
    document.querySelectorAll('.timer[data-ends]').forEach(function (timer) {
      var left = Math.max(0, Math.ceil(parseFloat(timer.getAttribute('data-ends')) - now));
      timer.textContent = Math.floor(left / 3600) + ':' + pad(Math.floor(left / 60) % 60) + ':' + pad(left % 60);
    });
  }
  window.brimlogLayOut = function (root) {
    root.querySelectorAll('.canvas svg').forEach(layOut);
    root.querySelectorAll('[data-min-scale]').forEach(fit);
    tick();
  };
  if (window.ResizeObserver) {
    var observer = new ResizeObserver(function (entries) {
      entries.forEach(function (entry) { layOut(entry.target); });
    });
    document.querySelectorAll('.canvas svg').forEach(function (svg) { observer.observe(svg); });
  }
  window.brimlogLayOut(document);
  setInterval(tick, 1000);
})();
)js";
}

}  // namespace brimlog::ui
