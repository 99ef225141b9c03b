// Loads the widget pages of a real brimlog-widgets in the system's chromium and checks what a
// user sees: pages that load cleanly, the sample texts, running countdowns, the stale badge
// appearing without a reload, the refresh button reaching a real `brimlog daemon`, and each
// widget bare in a window of its size, as on a desktop.
//
//   node widgets.test.mjs --widgets PATH --brimlog PATH --screenshots DIR
//
// Prints each check; stops with status 1 at the first failure and 77 (skipped) when chromium or
// this folder's packages are missing. Every process it starts is ended, whatever happens.
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import readline from 'node:readline';

const CHROMIUM = '/usr/bin/chromium';
const FLAGS = ['--headless', '--no-sandbox', '--disable-gpu', '--no-first-run',
  '--disable-background-networking'];
const KINDS = ['app.brimlog.small', 'app.brimlog.medium', 'app.brimlog.large'];

let scratch = null;
const options = {};
for (let i = 2; i + 1 < process.argv.length; i += 2) options[process.argv[i].slice(2)] = process.argv[i + 1];
for (const name of ['widgets', 'brimlog', 'screenshots']) {
  if (!options[name]) fail(`--${name} is required`);
}
const modules = new URL('./node_modules/playwright-core/', import.meta.url);
if (!fs.existsSync(CHROMIUM) || !fs.existsSync(modules)) {
  console.log(`SKIPPED: needs ${CHROMIUM} and tests/browser/node_modules; \`make deps\` installs them`);
  process.exit(77);
}
const { chromium } = await import('playwright-core');

const children = [];
let browser;
scratch = fs.mkdtempSync(path.join(os.tmpdir(), 'brimlog-browser-'));
const sharedDir = path.join(scratch, 'shared');
fs.mkdirSync(sharedDir);
fs.mkdirSync(path.join(scratch, 'home'));
process.on('exit', () => children.forEach((child) => child.exitCode === null && child.kill('SIGKILL')));
for (const signal of ['SIGINT', 'SIGTERM']) process.on(signal, () => fail(`stopped by ${signal}`));

function fail(message) {
  console.error(`FAIL: ${message}`);
  if (scratch) console.error(`Kept the test's files: ${scratch}`);
  process.exit(1);
}
function check(condition, what, detail = '') {
  if (!condition) fail(`${what}${detail ? `: ${detail}` : ''}`);
  console.log(`ok - ${what}`);
}
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const iso = (seconds) => new Date(seconds * 1000).toISOString().replace(/\.\d+Z$/, 'Z');

// Starts a program of ours; resolves with it and the lines of its output and of its errors.
function start(file, args) {
  const child = spawn(file, args);
  children.push(child);
  const lines = [];
  const errors = [];
  readline.createInterface({ input: child.stdout }).on('line', (line) => lines.push(line));
  readline.createInterface({ input: child.stderr }).on('line', (line) => errors.push(line));
  child.on('exit', (code, signal) => { child.ended = `ended (${code ?? signal}): ${errors.join('\n')}`; });
  return { child, lines, errors };
}
async function until(what, test, seconds = 15) {
  for (let waited = 0; waited < seconds * 1000; waited += 50) {
    const value = test();
    if (value) return value;
    await sleep(50);
  }
  fail(`timed out waiting for ${what}`);
}

// A POST of the refresh intent from another site, outside any browser.
function postRefresh(base, origin) {
  return new Promise((resolve, reject) => {
    const request = http.request(new URL('intents/refresh', base),
      { method: 'POST', headers: { Origin: origin } }, (response) => {
        response.resume();
        resolve(response.statusCode);
      });
    request.on('error', reject);
    request.end();
  });
}

// Snapshots as the host writes them; windows reset hours from now so their countdowns run live.
function writeSnapshot(generatedAt) {
  const now = Math.floor(Date.now() / 1000);
  const window = (id, label, used, duration, resetsIn) => ({
    id, label, usedFraction: used, duration, resetsAt: iso(now + resetsIn), source: { live: {} },
  });
  const provider = (id, windows, status = { ok: {} }, readAt = generatedAt) => ({
    id, windows, status, tokens30d: 1200000, cost30dUSD: 12.5, approximate: false, readAt: iso(readAt),
  });
  // Claude's session nearly used up (red), Codex's week past 80% (amber) and read 3 h ago.
  const snapshot = {
    generatedAt: iso(generatedAt),
    providers: [
      provider('claude', [window('session', 'Session', 0.97, 18000, 7200),
        window('weekly', 'Weekly', 0.5, 604800, 259200)]),
      provider('codex', [window('weekly', 'Weekly', 0.85, 604800, 10800)], { ok: {} }, now - 3 * 3600),
      provider('grok', [], { unavailable: {} }),
    ],
    costTodayUSD: 1.25,
    cost30dUSD: 37.5,
    dailyCost30: Array.from({ length: 30 }, (_, i) => (i % 7) * 0.5),
  };
  fs.writeFileSync(path.join(sharedDir, 'snapshot.json'), JSON.stringify(snapshot));
}

// Opens `address` in a new page (of the window size `viewport`, when given) and checks that it
// loads with no console error and no failed request, and that each widget shows exactly one entry.
async function open(base, address, viewport) {
  const page = await browser.newPage(viewport ? { viewport } : {});
  page.setDefaultTimeout(10000);
  const problems = [];
  page.on('console', (message) => message.type() === 'error' && problems.push(`console: ${message.text()}`));
  page.on('pageerror', (error) => problems.push(`script: ${error.message}`));
  page.on('requestfailed', (request) => problems.push(`failed: ${request.url()}`));
  page.on('response', (response) => response.status() >= 400 && problems.push(`${response.status()}: ${response.url()}`));
  const response = await page.goto(new URL(address, base).href, { waitUntil: 'load' });
  await sleep(300);  // lets the page's own script run its first tick
  const widgets = await page.locator('.widget').evaluateAll((nodes) => nodes.map((node) => ({
    kind: node.dataset.kind, reloadAt: Number(node.dataset.reloadAt),
    shown: node.querySelectorAll('section.entry:not([hidden])').length,
  })));
  check(response.status() === 200 && problems.length === 0 && widgets.length > 0, `${address} loads cleanly`,
    `status ${response.status()}, ${widgets.length} widgets, ${problems.join('; ')}`);
  for (const widget of widgets) {
    if (!KINDS.includes(widget.kind) || !(widget.reloadAt > 0) || widget.shown !== 1) {
      fail(`${address}: a widget breaks the page contract: ${JSON.stringify(widget)}`);
    }
  }
  return page;
}
const shownText = (page) => page.locator('.widget').evaluateAll(
  (nodes) => nodes.map((node) => node.innerText).join('\n').replace(/\s+/g, ' '));

async function main() {
  const server = start(options.widgets, ['serve', '--port', '0', '--shared-dir', sharedDir]);
  const first = await until('the server to announce its address',
    () => server.lines[0] ?? (server.child.ended && fail(`brimlog-widgets ${server.child.ended}`)));
  const address = /^Widgets at (http:\/\/127\.0\.0\.1:\d+\/) \(Ctrl-C stops\)$/.exec(first);
  check(address, 'the server announces a loopback address', first);
  const base = address[1];
  browser = await chromium.launch({ executablePath: CHROMIUM, args: FLAGS });

  // No snapshot yet: the sample data in previews, the empty state otherwise.
  const samples = {
    'app.brimlog.small?provider=codex': ['Codex', 'Weekly'],
    'app.brimlog.medium': ['Grok · no live limits'],
    'app.brimlog.large': ['Today $8.85 · 30 days $329.15 (API estimate)'],
  };
  for (const preview of [false, true]) {
    const query = preview ? 'preview=1' : '';
    await (await open(base, `/${query && `?${query}`}`)).close();
    for (const [widget, texts] of Object.entries(samples)) {
      const page = await open(base, `/widgets/${widget}${query && (widget.includes('?') ? '&' : '?') + query}`);
      const text = await shownText(page);
      const expected = preview ? texts : ['Open Brimlog to start'];
      check(expected.every((part) => text.includes(part)), `${widget} shows ${expected.join(', ')}${preview ? ' in preview' : ''}`, text);
      await page.close();
    }
  }
  fs.rmSync(options.screenshots, { recursive: true, force: true });
  fs.mkdirSync(options.screenshots, { recursive: true });

  // The sample's large widget, bare as on a desktop, charts Claude's session and week: each
  // chart drawn, visible, fitting the widget; pictures of it light and dark.
  const charted = await open(base, '/widgets/app.brimlog.large?preview=1&bare=1', { width: 364, height: 382 });
  const charts = await charted.locator('section.entry:not([hidden]) .limit-chart').evaluateAll((nodes) =>
    nodes.map((node) => {
      const svg = node.querySelector('svg');
      const box = svg ? svg.getBoundingClientRect() : { width: 0, height: 0, bottom: 0 };
      const drawn = svg ? [...svg.querySelectorAll('path')].filter((p) => /^M[\d.]+ [\d.]+ L/.test(p.getAttribute('d') || '')).length : 0;
      return { label: node.querySelector('[aria-label]')?.getAttribute('aria-label') ?? '', width: box.width, height: box.height,
        inside: box.bottom <= innerHeight, drawn, visible: svg && getComputedStyle(svg).visibility === 'visible' };
    }));
  check(charts.length === 2 && charts.every((chart) => chart.visible && chart.width > 100 && chart.height >= 20 &&
    chart.inside && chart.drawn >= 2), 'the large widget shows a chart of each Claude window', JSON.stringify(charts));
  check(charts[1].label.startsWith('Weekly: 42% used, at this pace: '), 'the weekly chart is labelled with its forecast', charts[1].label);
  const chartText = await shownText(charted);
  check(chartText.includes('at this pace: '), 'the forecast line shows under the chart', chartText);
  check(!(await charted.evaluate(() => document.documentElement.scrollHeight > innerHeight)), 'the large widget with its charts does not scroll');
  for (const colorScheme of ['light', 'dark']) {
    await charted.emulateMedia({ colorScheme });
    await charted.screenshot({ path: path.join(options.screenshots, `large-chart-${colorScheme}.png`), omitBackground: true });
  }
  await charted.close();

  const unknown = await fetch(new URL('widgets/app.brimlog.small?provider=nobody', base));
  check(unknown.status === 400, 'an unknown provider is refused with 400', `status ${unknown.status}`);

  // A fresh snapshot: countdowns under a day run live.
  writeSnapshot(Math.floor(Date.now() / 1000) - 60);
  const medium = await open(base, '/widgets/app.brimlog.medium');
  const timer = medium.locator('section.entry:not([hidden]) .timer[data-ends]').first();
  const before = await timer.innerText();
  await sleep(1000);
  const changed = await medium.waitForFunction(
    (was) => document.querySelector('section.entry:not([hidden]) .timer[data-ends]').innerText !== was,
    before, { timeout: 5000 }).then(() => true, () => false);
  check(changed, 'a countdown runs in the page', `still "${before}"`);
  const colours = await medium.locator('section.entry:not([hidden]) .hstack > .text').evaluateAll((nodes) =>
    Object.fromEntries(nodes.filter((node) => /^\d+%$/.test(node.textContent))
      .map((node) => [node.textContent, getComputedStyle(node).color])));
  check(colours['3%'] === 'rgb(228, 52, 46)' && colours['15%'] === 'rgb(196, 138, 0)' &&
    colours['50%'] !== colours['15%'], 'shares left are red from 95% used and amber from 80%', JSON.stringify(colours));
  const mediumText = await shownText(medium);
  check(mediumText.includes('as of 3 h ago'), 'figures read 3 h ago say so', mediumText);

  // The refresh button: with no daemon the server says so; with one it asks it, once, and the
  // daemon answers. A POST from another site is refused.
  const press = async () => {
    const posted = medium.waitForResponse((response) => response.url().endsWith('/intents/refresh'));
    await medium.locator('section.entry:not([hidden]) button.refresh[aria-label="Refresh"]').first().click();
    return posted;
  };
  const unheard = await press();
  check(unheard.status() === 503, 'the refresh button with no daemon is answered 503', `status ${unheard.status()}`);
  const told = await (await fetch(new URL('intents/refresh', base), { method: 'POST' })).text();
  check(told.includes('no Brimlog daemon is running'), 'the answer says that no daemon is running', told);
  const daemon = start(options.brimlog, ['daemon', '--offline', '--interval', '3600',
    '--home', path.join(scratch, 'home'), '--db', path.join(scratch, 'usage.db'), '--shared-dir', sharedDir]);
  await until('the daemon to start', () => daemon.errors.some((line) => line.includes(': started')) ||
    (daemon.child.ended && fail(`brimlog daemon ${daemon.child.ended}`)));
  const answer = await press();
  check(answer.status() === 204, 'the refresh button is answered 204', `status ${answer.status()}`);
  const answered = () => daemon.errors.filter((line) => line.includes('refresh asked for by the widgets'));
  await until('the daemon to answer the refresh', () => answered().length > 0);
  check(await postRefresh(base, 'http://evil.example') === 403, 'a POST from another site is refused with 403');
  await sleep(1000);
  check(answered().length === 1, 'the daemon answered exactly one refresh', daemon.errors.join('\n'));
  daemon.child.kill('SIGTERM');
  await until('the daemon to stop', () => daemon.child.exitCode === 0 ||
    (daemon.child.ended && fail(`brimlog daemon ${daemon.child.ended}`)));
  await medium.close();

  // A snapshot 1799 s old turns stale while the page is open: its next entry takes over.
  const generatedAt = Math.ceil(Date.now() / 1000) - 1799;
  writeSnapshot(generatedAt);
  const large = await open(base, '/widgets/app.brimlog.large');
  await large.evaluate(() => { window.brimlogMarker = 'kept'; });
  // On a machine loaded enough that the page took seconds to open, the badge may already be due.
  const stillFresh = Date.now() / 1000 < generatedAt + 1800;
  const badgeAtFirst = await large.locator('.stale-badge:visible').count();
  if (stillFresh) {
    check(badgeAtFirst === 0, 'a fresh snapshot shows no stale badge');
  } else {
    console.log('note: the page opened after the snapshot turned stale; the first look is skipped');
  }
  const appeared = await large.locator('.stale-badge:visible').first()
    .waitFor({ state: 'visible', timeout: 10000 }).then(() => true, () => false);
  check(appeared, 'the stale badge appears when the snapshot turns stale');
  check(await large.evaluate(() => window.brimlogMarker) === 'kept', 'the page switched entries without reloading');
  await large.close();

  // Pictures of every widget of the gallery, light and dark.
  writeSnapshot(Math.floor(Date.now() / 1000) - 60);
  const gallery = await open(base, '/');
  const widgets = gallery.locator('.widget');
  for (const colorScheme of ['light', 'dark']) {
    await gallery.emulateMedia({ colorScheme });
    for (let i = 0; i < await widgets.count(); ++i) {
      const widget = widgets.nth(i);
      const name = `${await widget.getAttribute('data-kind')}-${await widget.getAttribute('data-provider') || 'all'}-${i}-${colorScheme}.png`;
      await widget.screenshot({ path: path.join(options.screenshots, name) });
    }
  }
  const pictures = fs.readdirSync(options.screenshots).filter((name) => /^app\..*\.png$/.test(name));
  check(pictures.length === 2 * await widgets.count(), `screenshots of the gallery's widgets in ${options.screenshots}`);
  await gallery.close();

  // Each widget bare, in a window of exactly its size, as a desktop launcher opens it: the page
  // is the widget, nothing scrolls, and what lies around the widget is transparent.
  const bare = [
    ['app.brimlog.small?provider=claude', 170, 170, 'Brimlog — Small — Claude'],
    ['app.brimlog.medium', 364, 170, 'Brimlog — Medium'],
    ['app.brimlog.large', 364, 382, 'Brimlog — Large'],
  ];
  const measure = () => {
    const root = document.documentElement;
    const box = document.querySelector('.widget').getBoundingClientRect();
    return {
      scrolls: Math.max(root.scrollWidth, document.body.scrollWidth) > innerWidth ||
        Math.max(root.scrollHeight, document.body.scrollHeight) > innerHeight,
      size: `${root.scrollWidth}x${root.scrollHeight} in ${innerWidth}x${innerHeight}`,
      widget: [box.left, box.top, box.width, box.height].join(','),
      backgrounds: [root, document.body].map((node) => getComputedStyle(node).backgroundColor),
      title: document.title,
    };
  };
  // The measure itself: the page with its padding does scroll in such a window.
  const padded = await open(base, `/widgets/${bare[0][0]}`, { width: bare[0][1], height: bare[0][2] });
  check((await padded.evaluate(measure)).scrolls, 'a padded small widget scrolls in a window of its size');
  await padded.close();
  for (const [widget, width, height, title] of bare) {
    const address = `/widgets/${widget}${widget.includes('?') ? '&' : '?'}bare=1`;
    const page = await open(base, address, { width, height });
    const seen = await page.evaluate(measure);
    check(!seen.scrolls, `${address} does not scroll in a ${width}x${height} window`, seen.size);
    check(seen.widget === `0,0,${width},${height}`, `${address} is the widget alone`, seen.widget);
    check(seen.backgrounds.every((color) => color === 'rgba(0, 0, 0, 0)'),
      `${address} has a transparent background`, seen.backgrounds.join(', '));
    check(seen.title === title, `${address} is titled "${title}"`, seen.title);
    for (const colorScheme of ['light', 'dark']) {
      await page.emulateMedia({ colorScheme });
      const name = `bare-${widget.replace(/\?provider=/, '-')}-${colorScheme}.png`;
      await page.screenshot({ path: path.join(options.screenshots, name), omitBackground: true });
    }
    await page.close();
  }
  console.log(`ok - screenshots of the bare widgets in ${options.screenshots}`);
}

const watchdog = setTimeout(() => fail('the test took longer than 150 s'), 150000);
try {
  await main();
} catch (error) {
  fail(error.stack ?? String(error));
}
clearTimeout(watchdog);
await browser?.close();
for (const child of children) {
  const ended = new Promise((resolve) => (child.exitCode === null ? child.on('exit', resolve) : resolve()));
  child.stdin.end();
  child.kill('SIGTERM');
  await Promise.race([ended, sleep(3000)]);
  if (child.exitCode === null && child.signalCode === null) child.kill('SIGKILL');
}
fs.rmSync(scratch, { recursive: true, force: true });
console.log('all checks passed');
