// One device: what it is, what it brought last, its logs, faults, self-tests and runs.
import { Followed, ago, ask, at, bytesOf, clockText, drawing, duration, element, grouped, linkTo, nowMicroseconds,
         place as fragment, query, seriesName, setClock, signOf, span, stateOf } from './common.js';
import { Chart } from './chart.js';

const tabs = { values: 'Values', log: 'Log', faults: 'Faults', selftests: 'Self-tests', runs: 'Runs' };
const day = 86400e6;

let name = null; // of the device that is shown
let facts = new Followed();
let device = null; // its facts
let view = null; // what the panel shows, and where: asks and draws by itself

const url = (path, parameters = {}) => query(`api/${path}`, { device: name, ...parameters });

// ---- facts

function drawFacts() {
  at('#name').textContent = name;
  at('#state').replaceChildren(signOf(device.state), ` ${stateOf(device.state).text}`);
  at('#state').className = device.state;
  const identity = device.identitySeen ?? device.identityExpected;
  const other = device.identityExpected && device.identitySeen && device.identityExpected !== device.identitySeen;
  const list = {
    'last good run': ago(device.lastOk),
    'took': device.lastTry ? duration(device.duration) : null,
    'asked every': span(device.interval * 1e6),
    'address': `${device.address}:${device.port}` +
      (device.addressSeen && device.addressSeen !== device.address ? `, connects from ${device.addressSeen}` : ''),
    'identity': identity ? identity + (other ? `, expected ${device.identityExpected}` : '') : null,
    'groups': device.groups.join(', ') || null,
    'paused until': device.state === 'paused' ? clockText(device.pausedUntil) : null,
    'trouble': device.failures ? `${grouped(device.failures)} × ${device.outcome}` +
      (device.reason ? `: ${device.reason}` : '') : null,
  };
  at('#facts').replaceChildren(...Object.entries(list).filter(([, text]) => text).map(([term, text]) =>
    element('div', {}, element('dt', {}, term), element('dd', { class: 'text' }, text))));
}

// ---- lists that come in slices, the newest first

class Slices {
  // path and parameters of what is asked for, the list's name in the answer, the member that the next slice
  // begins before, and what makes a row of an entry.
  constructor(path, parameters, list, before, columns, row) {
    Object.assign(this, { path, parameters, list, before, row });
    this.older = [];
    this.followed = new Followed();
    this.body = element('tbody');
    this.more = element('button', { type: 'button', hidden: '', onclick: () => this.askOlder() }, 'Older ones');
    this.nothing = element('p', { class: 'note', hidden: '' }, 'There is nothing here yet.');
    this.node = element('div', { class: 'wide' },
      element('table', {}, element('thead', {}, element('tr', {}, ...columns.map((title) =>
        element('th', { scope: 'col' }, title)))), this.body), this.nothing, this.more);
  }

  async refresh() {
    const answer = await this.followed.ask(url(this.path, this.parameters));
    if (answer === null) return;
    this.newest = this.ordered(answer);
    if (!this.older.length) this.hasMore = answer.more;
    this.draw();
  }

  ordered(answer) {
    const rows = answer[this.list];
    return rows.length > 1 && rows[0][this.before] < rows.at(-1)[this.before] ? rows.reverse() : rows;
  }

  async askOlder() {
    const last = (this.older.at(-1) ?? this.newest.at(-1))[this.before];
    const answer = await ask(url(this.path, { ...this.parameters, before: last }));
    this.older.push(...this.ordered(answer));
    this.hasMore = answer.more;
    this.draw();
  }

  // What has been pushed out of the newest slice since is among the older ones, or is asked for again.
  draw() {
    const oldest = this.newest.at(-1)?.[this.before];
    this.older = this.older.filter((row) => row[this.before] < oldest);
    const rows = [...this.newest, ...this.older];
    this.body.replaceChildren(...rows.flatMap((row) => this.row(row)));
    this.node.querySelector('table').hidden = rows.length === 0;
    this.nothing.hidden = rows.length > 0;
    this.more.hidden = !this.hasMore;
  }
}

const cell = (...children) => element('td', {}, ...children);
const textCell = (text) => element('td', { class: 'text' }, text);

function runRow(run) {
  const good = run.outcome === 'whole';
  const parts = [['to connect', run.toConnect], ['to open', run.toOpening], ['to the end', run.toEnd]];
  return element('tr', {}, cell(element('time', { title: `run ${run.run}` }, clockText(run.time))),
    element('td', { class: 'end' }, signOf(good ? 'ok' : 'failing'), ` ${run.outcome}`,
      run.kind === 'selftest' ? ' · self-test' : ''),
    element('td', { class: 'number', title: parts.map(([what, time]) => `${duration(time)} ${what}`).join(', ') },
      duration(run.toConnect + run.toOpening + run.toEnd)),
    element('td', { class: 'number' }, grouped(run.messages)), element('td', { class: 'number' }, grouped(run.bytes)),
    textCell([run.reason, run.resends ? `asked ${run.resends + 1} times` : ''].filter(Boolean).join('; ')));
}

const runColumns = ['Time', 'End', 'Took', 'Messages', 'Bytes', 'Remarks'];
const makeRuns = () => new Slices('runs', {}, 'runs', 'collection', runColumns, runRow);

// Lines have a time of their own, values a number.
function faultRow(fault) {
  return element('tr', {}, cell(element('time', {}, clockText(fault.passTime))), textCell(bytesOf(fault, 'fault')),
    textCell(fault.kind), cell(fault.valueId ?? element('time', {}, bytesOf(fault, 'stamp'))),
    textCell(bytesOf(fault, 'value')));
}

const makeFaults = () => new Slices('faults', {}, 'faults', 'id', ['Log of', 'Fault', 'Kind', 'Time or id', 'Text or value'],
                                    faultRow);

// ---- logs

function logRow(line) {
  const row = element('tr', {}, cell(element('time', {}, bytesOf(line, 'stamp'))), textCell(bytesOf(line, 'text')));
  const gap = element('tr', { class: 'gap' }, element('td', { colspan: 2 }, 'Lines are missing here.'));
  return line.gap ? [row, gap] : [row];
}

class Logs {
  constructor() {
    this.followed = new Followed();
    this.choice = element('select', { 'aria-label': 'Log', hidden: '', onchange: () => this.choose() });
    this.nothing = element('p', { class: 'note', hidden: '' }, 'This device has brought no log yet.');
    this.node = element('div', {}, this.choice, this.nothing);
  }

  async refresh() {
    const answer = await this.followed.ask(url('logs'));
    if (answer !== null) this.take(answer.logs);
    if (this.lines) await this.lines.refresh();
  }

  take(logs) {
    const before = this.choice.value;
    this.choice.replaceChildren(...logs.map((log) =>
      element('option', { value: log.series }, `${bytesOf(log, 'collector')} · ${seriesName(log)}`)));
    this.nothing.hidden = logs.length > 0;
    this.choice.hidden = logs.length < 2;
    if (logs.some((log) => String(log.series) === before)) this.choice.value = before;
    else if (logs.length) this.choose(false);
  }

  choose(now = true) {
    this.lines?.node.remove();
    this.lines = new Slices('log', { series: this.choice.value }, 'lines', 'seq', ['Stamp', 'Text'], logRow);
    this.node.append(this.lines.node);
    if (now) this.lines.refresh();
  }
}

// ---- values, each number with what there is of its last day

const sparkWidth = 120;
const isNumber = (value) => value.number !== undefined;
const chartName = (value) => `${value.series}.${value.ordinal}`;

function sparkline({ time, min, max }, from, to) {
  const [lows, highs] = [min.map(Number), max.map(Number)];
  const [low, high] = [Math.min(...lows), Math.max(...highs)];
  const x = (i) => Math.max(0, sparkWidth * (time[i] - from) / (to - from)).toFixed(1);
  const y = (value) => (high === low ? 14 : 26 - 24 * (value - low) / (high - low)).toFixed(1);
  const upper = highs.map((value, i) => `${i ? 'L' : 'M'}${x(i)} ${y(value)}`).join('');
  const lower = lows.map((value, i) => `${i ? 'L' : 'M'}${x(i)} ${y(value)}`).join('');
  return drawing('svg', { viewBox: `0 0 ${sparkWidth} 28`, preserveAspectRatio: 'none', 'aria-hidden': 'true' },
    drawing('path', { d: upper + `H${sparkWidth}` }), drawing('path', { d: lower }));
}

function valueText(value) {
  if (value.gone) return [element('i', { class: 'absent' }, 'gone')];
  if (isNumber(value)) {
    const unit = value.unit ? [element('small', {}, ` ${bytesOf(value, 'unit')}`)] : [];
    return [value.number, ...(value.signed ? [element('small', {}, ` or ${value.signed}`)] : []), ...unit];
  }
  const text = bytesOf(value, 'text');
  const note = value.size ? `… of ${grouped(value.size)} bytes` : value.textHex === undefined ? '' : ' (bytes)';
  return [text === '' ? element('i', { class: 'absent' }, 'empty') : text, element('small', {}, note)];
}

class Values {
  constructor(selftest) {
    this.parameters = { selftest: selftest ? 1 : 0 };
    this.pages = [new Followed()];
    this.parts = [];
    this.charts = new Map(); // of a value's name: its drawing, and when it was made
    this.wanted = new Map();
    this.search = element('input', { type: 'search', hidden: '', placeholder: 'Search values', 'aria-label': 'Search values',
                                     oninput: () => this.draw() });
    this.list = element('div', { class: 'cards' });
    this.nothing = element('p', { class: 'note', hidden: '' }, selftest ? 'This device has tested itself not yet.'
      : 'This device has brought no values yet.');
    this.more = element('button', { type: 'button', hidden: '', onclick: () => this.askMore() });
    this.node = element('div', {}, this.search, this.nothing, this.list, this.more);
    this.seen = new IntersectionObserver((entries) => this.look(entries), { rootMargin: '200px' });
  }

  close() { this.seen.disconnect(); }

  async refresh() {
    let from = 0;
    let changed = false;
    for (const [i, page] of this.pages.entries()) {
      const answer = await page.ask(url('values', { ...this.parameters, from }));
      if (answer !== null) [this.parts[i], changed] = [answer, true];
      from += this.parts[i].values.length;
    }
    if (changed) this.draw();
  }

  askMore() {
    this.pages.push(new Followed());
    return this.refresh();
  }

  matching() {
    const q = this.search.value.toLowerCase();
    const all = this.parts.flatMap((part) => part.values);
    return q ? all.filter((value) => [bytesOf(value, 'collector'), value.name, `${value.section} · ${value.key}`,
      value.text].some((text) => text?.toLowerCase().includes(q))) : all;
  }

  draw() {
    const [first, last] = [this.parts[0], this.parts.at(-1)];
    const loaded = this.parts.reduce((sum, part) => sum + part.values.length, 0);
    const cards = new Map();
    this.seen.disconnect();
    for (const value of this.matching()) {
      const collector = bytesOf(value, 'collector');
      if (!cards.has(collector)) cards.set(collector, []);
      cards.get(collector).push(this.drawValue(value));
    }
    this.list.replaceChildren(...Array.from(cards, ([collector, rows]) => element('section', { class: 'card' },
      element('h2', { class: 'text' }, collector), ...rows)));
    this.nothing.hidden = first.all > 0;
    this.search.hidden = first.all < 10;
    this.more.hidden = !last.more;
    this.more.textContent = `Show more: ${grouped(loaded)} of ${grouped(first.all)} are here`;
  }

  drawValue(value) {
    const place = value.name ? [`${value.section} · ${value.key}`] : [];
    const ordinal = value.ordinal ? [`number ${value.ordinal + 1}`] : [];
    const title = [element('b', { class: 'text' }, seriesName(value)),
                   element('small', {}, [...place, ...ordinal, ago(value.time)].join(' · '))];
    if (!isNumber(value) || this.parameters.selftest) // charts are of collections
      return element('div', { class: 'value' }, element('span', {}, ...title),
        element('span', { class: 'what text' }, ...valueText(value)));
    const made = element('a', { class: 'value', href: linkTo({ device: name, series: chartName(value) }) },
      element('span', {}, ...title), element('span', { class: 'what number' }, ...valueText(value)),
      this.charts.get(chartName(value))?.node ?? drawing('svg', { viewBox: `0 0 ${sparkWidth} 28` }));
    made.dataset.chart = chartName(value);
    if (!value.gone) this.seen.observe(made);
    return made;
  }

  look(entries) {
    for (const { target, isIntersecting } of entries) {
      const known = this.charts.get(target.dataset.chart);
      const old = !known || Date.now() - known.made > 30_000;
      if (isIntersecting && old) this.wanted.set(target.dataset.chart, target);
    }
    if (!this.asking) this.asking = this.askCharts().catch(() => this.wanted.clear()).finally(() => { this.asking = null; });
  }

  async askCharts() {
    while (this.wanted.size) {
      const some = [...this.wanted].slice(0, 30);
      const to = Math.round(nowMicroseconds());
      const { charts } = await ask(url('points', { series: some.map(([chart]) => chart).join(','), from: to - day, to,
                                                   columns: 60 }));
      if (!charts.length) return;
      for (const chart of charts) this.putChart(chartName(chart), chart, to);
    }
  }

  putChart(chart, points, to) {
    const target = this.wanted.get(chart);
    this.wanted.delete(chart);
    if (!target || !points.time.length) return;
    const node = sparkline(points, Math.max(to - day, points.time[0]), to);
    this.charts.set(chart, { node, made: Date.now() });
    target.lastChild.replaceWith(node);
  }
}

class SelfTests {
  constructor() {
    this.values = new Values(true);
    this.runs = new Slices('runs', {}, 'runs', 'collection', runColumns, (run) => (run.kind === 'selftest' ? [runRow(run)] : []));
    this.node = element('div', {}, this.values.node, element('h2', {}, 'Runs'), this.runs.node);
  }
  close() { this.values.close(); }
  async refresh() {
    await this.values.refresh();
    await this.runs.refresh();
  }
}

// ---- the panel

const views = { values: () => new Values(false), log: () => new Logs(), faults: makeFaults,
                selftests: () => new SelfTests(), runs: makeRuns };

function openView(hash) {
  const series = hash.get('series');
  const tab = hash.get('tab') in tabs ? hash.get('tab') : 'values';
  const what = series ? `series ${series}` : tab;
  for (const link of at('#tabs').children) {
    const chosen = link.dataset.tab === tab;
    link.setAttribute('aria-selected', chosen);
    link.tabIndex = chosen ? 0 : -1;
    link.href = linkTo({ device: name, tab: link.dataset.tab === 'values' ? '' : link.dataset.tab });
  }
  if (view?.what !== what) {
    view?.close?.();
    view = series ? new Chart(name, series) : views[tab]();
    view.what = what;
    at('#panel').replaceChildren(view.node);
    at('#panel').setAttribute('aria-labelledby', `tab-${tab}`);
  }
  view.follow?.();
}

export async function show() {
  const hash = fragment();
  if (hash.get('device') !== name) {
    view?.close?.();
    [name, facts, device, view] = [hash.get('device'), new Followed(), null, null];
    at('#name').textContent = name;
    at('#state').replaceChildren();
    at('#facts').replaceChildren();
  }
  document.title = `${name} · Fleet`;
  openView(hash);
  await refresh();
}

export async function refresh() {
  const [asked, shown] = [name, view];
  const answer = await facts.ask(query('api/device', { device: name }));
  if (asked !== name) return;
  if (answer) setClock(answer.now);
  device = answer ?? device;
  drawFacts();
  await shown.refresh();
}

export function close() {
  view?.close?.();
  [name, view] = [null, null];
}

export function setUp() {
  at('#tabs').append(...Object.entries(tabs).map(([tab, title]) => {
    const link = element('a', { role: 'tab', id: `tab-${tab}`, 'aria-controls': 'panel' }, title);
    link.dataset.tab = tab;
    return link;
  }));
  at('#tabs').onkeydown = (event) => {
    const links = [...at('#tabs').children];
    const next = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
    if (!next) return;
    event.preventDefault();
    links[(links.indexOf(document.activeElement) + next + links.length) % links.length].focus();
  };
}
