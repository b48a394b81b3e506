'use strict';
const data = JSON.parse(document.getElementById('data').textContent);
const at = (selector) => document.querySelector(selector);

// Texts enter the page as text nodes, never as markup.
function element(name, attributes = {}, ...children) {
  const drawn = ['svg', 'line', 'path', 'title'].includes(name);
  const made = drawn ? document.createElementNS('http://www.w3.org/2000/svg', name)
                     : document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children);
  return made;
}

// ---- what the file holds

const nameOf = (entry) => entry.fault ?? '0x' + entry.fault_hex;
const textOf = (line) => line.text ?? (line.hex === undefined ? null : '0x' + line.hex);

const years = data.entries.map((entry) => entry.time?.match(/^\d{4}(?=\/)/)?.[0] ?? '2000').sort();

// Seconds; stamps without a year are in the last year that any has, or in one that has every day.
function secondsOf(stamp) {
  const digits = stamp?.match(/\d+/g);
  if (!digits) return null;
  if (digits.length < 6) digits.unshift(years[years.length - 1]);
  const [year, month, day, ...clock] = digits.map(Number);
  return Date.UTC(year, month - 1, day, ...clock) / 1000;
}

const lines = data.entries.filter((entry) => 'time' in entry)
  .map((entry) => ({ log: entry.type, fault: nameOf(entry), time: entry.time, text: textOf(entry),
                     seconds: secondsOf(entry.time) }));

// Stamps without a year cannot say that a year went by. The widest gap is taken for the time before
// the first of them: what stands behind it belongs to the year before.
function turnTheYear() {
  const year = 366 * 86400;
  const days = lines.filter((line) => line.time && line.time[4] !== '/' && line.seconds !== null);
  const all = days.map((line) => line.seconds).sort((a, b) => a - b);
  let [widest, from] = [all[0] + year - all[all.length - 1], null];
  for (let i = 1; i < all.length; ++i)
    if (all[i] - all[i - 1] > widest) [widest, from] = [all[i] - all[i - 1], all[i]];
  if (from !== null) for (const line of days) if (line.seconds >= from) line.seconds -= year;
}

// In the order of time. A line that lost its stamp stands before the next one of its log.
function orderLines() {
  let next = null;
  for (const line of [...lines].reverse()) {
    const same = next && next.fault === line.fault && next.log === line.log;
    line.order = line.seconds ?? (same ? next.order : -Infinity);
    next = line;
  }
  lines.sort((a, b) => a.order === b.order ? 0 : a.order - b.order);
  lines.forEach((line, index) => { line.index = index; });
}

const signedOf = (entry) => BigInt.asIntN(entry.type.endsWith('64') ? 64 : 32, BigInt(entry.value));

function textOfData(hex) {
  const bytes = Uint8Array.from(hex.match(/../g) ?? [], (pair) => parseInt(pair, 16));
  try {
    const text = new TextDecoder('utf-8', { fatal: true }).decode(bytes);
    return text && !/[\p{Cc}]/u.test(text) ? text : null;
  } catch {
    return null;
  }
}

// A value as dtctl's table shows it: the signed reading of a negative number in brackets.
function shown(entry) {
  if (entry.hex !== undefined) return entry.hex;
  const signed = signedOf(entry);
  return signed < 0 ? `${entry.value} (${signed})` : `${entry.value}`;
}

// By fault, id and kind, in the order in which they were recorded.
const series = [];
for (const entry of data.entries.filter((entry) => 'id' in entry)) {
  const fault = nameOf(entry);
  const same = (known) => known.fault === fault && known.id === entry.id && known.kind === entry.type;
  let found = series.find(same);
  if (!found) series.push(found = { fault, id: entry.id, kind: entry.type, entries: [] });
  found.entries.push(entry);
}

// ---- filters: the address's fragment holds them, so that a view can be passed on

const filters = () => {
  const hash = new URLSearchParams(location.hash.slice(1));
  return { q: hash.get('q') ?? '', show: hash.get('show') ?? 'all', faults: hash.getAll('fault') };
};

function setFilters({ q, show, faults }) {
  const hash = new URLSearchParams();
  if (q) hash.set('q', q);
  if (show !== 'all') hash.set('show', show);
  for (const fault of faults) hash.append('fault', fault);
  location.replace('#' + hash);
}

const holds = (text, q) => text.toLowerCase().includes(q.toLowerCase());
const ofFault = (item, faults) => faults.length === 0 || faults.includes(item.fault);

function matchingLines({ q, show, faults }) {
  return lines.filter((line) => (show === 'all' || show === line.log) && ofFault(line, faults) &&
    holds(`${line.time ?? ''} ${line.fault} ${line.text ?? ''}`, q));
}

function matchingSeries({ q, show, faults }) {
  if (show !== 'all' && show !== 'values') return [];
  return series.filter((one) => ofFault(one, faults) && (holds(`${one.fault} ${one.id} ${one.kind}`, q) ||
    one.entries.some((entry) => holds(`${shown(entry)} ${textOfData(entry.hex ?? '') ?? ''}`, q))));
}

// ---- drawing

// The text with what was searched for marked.
function marked(text, q) {
  const parts = [];
  let rest = 0;
  for (let found; q && (found = text.toLowerCase().indexOf(q.toLowerCase(), rest)) >= 0; rest = found + q.length)
    parts.push(text.slice(rest, found), element('mark', {}, text.slice(found, found + q.length)));
  return [...parts, text.slice(rest)];
}

const two = (number) => String(number).padStart(2, '0');

function clockText(seconds, step) {
  const date = new Date(seconds * 1000);
  const day = `${two(date.getUTCMonth() + 1)}/${two(date.getUTCDate())}`;
  const minute = `${two(date.getUTCHours())}:${two(date.getUTCMinutes())}`;
  if (step >= 86400) return day;
  if (step >= 60) return minute === '00:00' ? day : minute;
  return `${minute}:${two(date.getUTCSeconds())}`;
}

// Round times that divide a span into a few parts.
function ticksOf(from, to) {
  const steps = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200];
  for (let days = 1; days < 400; days *= 2) steps.push(days * 86400);
  const most = innerWidth < 640 ? 3 : 6;
  const step = steps.find((size) => (to - from) / size <= most) ?? 400 * 86400;
  const ticks = [];
  for (let tick = Math.ceil(from / step) * step; tick <= to; tick += step) ticks.push(tick);
  return { step, ticks };
}

function drawTimeline(chosen) {
  const timed = chosen.filter((line) => line.seconds !== null);
  at('#timeline').hidden = timed.length === 0;
  const times = timed.map((line) => line.seconds);
  const first = times.reduce((a, b) => Math.min(a, b), Infinity);
  const last = times.reduce((a, b) => Math.max(a, b), -Infinity);
  const margin = Math.max((last - first) * 0.03, 1);
  const place = (seconds) => (1000 * (seconds - first + margin)) / (last - first + 2 * margin);
  const { step, ticks } = ticksOf(first, last);
  const lanes = names.map((name) => [name, timed.filter((line) => line.fault === name)]);
  at('.lanes').replaceChildren(...lanes.filter(([, own]) => own.length > 0).map(([fault, own]) => element('div', { class: 'lane' },
    element('span', { title: fault }, fault),
    element('svg', { viewBox: '0 0 1000 26', preserveAspectRatio: 'none' },
      ...ticks.map((tick) => element('line', { class: 'grid', x1: place(tick), x2: place(tick), y1: 0, y2: 26 })),
      ...own.map((line) => element('line', { class: line.log, x1: place(line.seconds), x2: place(line.seconds),
                                             y1: 8, y2: 18, 'data-line': line.index },
        element('title', {}, `${line.time} ${line.log}: ${line.text ?? '(no text)'}`)))))));
  at('.axis').replaceChildren(element('div', {}, ...ticks.map((tick) =>
    element('time', { style: `left:${place(tick) / 10}%` }, clockText(tick, step)))));
}

const mostLines = 500;

function drawLines(chosen, q, all = false) {
  const absent = (text) => element('span', { class: 'absent' }, text);
  const more = at('#lines > button');
  at('#lines').hidden = chosen.length === 0;
  at('#lines output').textContent = `${chosen.length} of ${lines.length}`;
  at('#lines ol').replaceChildren(...chosen.slice(0, all ? undefined : mostLines).map((line) =>
    element('li', { id: `line-${line.index}` },
      element('time', {}, line.time === null ? absent('no time') : line.time),
      element('b', {}, ...marked(line.fault, q)),
      element('i', { class: line.log }, line.log),
      element('p', {}, ...(line.text === null ? [absent('no text')] : marked(line.text, q))))));
  more.hidden = all || chosen.length <= mostLines;
  more.textContent = `Show all ${chosen.length} lines`;
  more.onclick = () => drawLines(chosen, q, true);
}

function chartOf(numbers) {
  const low = numbers.reduce((a, b) => Math.min(a, b));
  const high = numbers.reduce((a, b) => Math.max(a, b));
  const x = (i) => (numbers.length === 1 ? 120 : (120 * i) / (numbers.length - 1)).toFixed(1);
  const y = (number) => (high === low ? 17 : 30 - (26 * (number - low)) / (high - low)).toFixed(1);
  const end = `M${x(numbers.length - 1)} ${y(numbers[numbers.length - 1])}`;
  return element('svg', { viewBox: '0 0 120 34', preserveAspectRatio: 'none', role: 'img',
                          'aria-label': `${numbers.length} values from ${low} to ${high}` },
    element('title', {}, numbers.slice(-50).join(', ')),
    element('path', { d: numbers.map((number, i) => `${i ? 'L' : 'M'}${x(i)} ${y(number)}`).join('') }),
    element('path', { class: 'last', d: end + 'h.01' }));
}

function drawData(entry, q) {
  const text = textOfData(entry.hex);
  const code = element('code', {}, ...marked(entry.hex || '(empty)', q));
  const body = entry.hex.length <= 96 ? code
    : element('details', {}, element('summary', {}, `${entry.hex.length / 2} bytes`), code);
  return text === null ? [body] : [body, element('small', {}, ...marked(`“${text}”`, q))];
}

function drawSeries({ id, kind, entries }, q) {
  const last = entries[entries.length - 1];
  const label = element('small', {}, `id ${id} · ${kind}` + (entries.length > 1 ? ` · ${entries.length} times` : ''));
  if (last.hex !== undefined)
    return element('div', { class: 'value wide' }, element('div', {}, label, ...drawData(last, q)));
  const numbers = entries.map(signedOf);
  const [low, high] = [numbers.reduce((a, b) => (a < b ? a : b)), numbers.reduce((a, b) => (a > b ? a : b))];
  const value = element('div', {}, label, element('span', { class: 'number' }, ...marked(shown(last), q)));
  if (low !== high) value.append(element('small', {}, `${low} to ${high}`));
  return element('div', { class: entries.length > 1 ? 'value' : 'value wide' }, value,
    ...(entries.length > 1 ? [chartOf(numbers.map(Number))] : []));
}

function drawValues(chosen, q) {
  const count = (some) => some.reduce((sum, one) => sum + one.entries.length, 0);
  at('#values').hidden = chosen.length === 0;
  at('#values output').textContent = `${count(chosen)} of ${count(series)}`;
  const cards = names.filter((name) => chosen.some((one) => one.fault === name));
  at('.cards').replaceChildren(...cards.map((fault) => element('div', { class: 'card' },
    element('h3', {}, ...marked(fault, q)),
    ...chosen.filter((one) => one.fault === fault).map((one) => drawSeries(one, q)))));
}

function drawFilters({ q, show, faults }) {
  const search = at('#search');
  if (search.value !== q) search.value = q;
  for (const button of at('#show').children) button.setAttribute('aria-pressed', button.value === show);
  for (const button of at('#faults').children) button.setAttribute('aria-pressed', faults.includes(button.value));
  at('#clear').disabled = !q && show === 'all' && faults.length === 0;
}

function draw() {
  const chosen = filters();
  const [someLines, someSeries] = [matchingLines(chosen), matchingSeries(chosen)];
  drawFilters(chosen);
  drawTimeline(someLines);
  drawLines(someLines, chosen.q);
  drawValues(someSeries, chosen.q);
  at('#nothing').hidden = someLines.length + someSeries.length > 0;
}

// ---- the page

function drawHeader(faults) {
  const total = (name, number) => element('div', {}, element('dt', {}, name), element('dd', {}, `${number}`));
  const times = lines.filter((line) => line.time).map((line) => line.time);
  const span = times.length ? `${times[0]} to ${times[times.length - 1]}` : '';
  document.title = `Fault log ${data.file}`;
  at('#subject').textContent = [data.file, span].filter(Boolean).join(' · ');
  at('#totals').append(total('faults', faults.length), total('lines', lines.length),
    total('values', series.reduce((sum, one) => sum + one.entries.length, 0)));
  at('#damage').hidden = data.damage === null;
  at('#damage').textContent = `The file is damaged: ${data.damage}. What stands before that is shown.`;
}

function addFilters(faults) {
  const button = (value, ...label) => element('button', { type: 'button', value }, ...label);
  const count = (fault) => [...lines, ...series].filter((item) => item.fault === fault)
    .reduce((sum, item) => sum + (item.entries?.length ?? 1), 0);
  at('#show').append(button('all', 'All'), button('init', 'Init'), button('run', 'Run'), button('values', 'Values'));
  at('#faults').append(...faults.map((fault) =>
    button(fault, fault || '(no name)', element('small', {}, `${count(fault)}`))));
  at('#search').oninput = (event) => setFilters({ ...filters(), q: event.target.value });
  at('#show').onclick = ({ target }) => target.value && setFilters({ ...filters(), show: target.value });
  at('#faults').onclick = ({ target }) => {
    const pressed = target.closest('button');
    if (!pressed) return;
    const others = filters().faults.filter((fault) => fault !== pressed.value);
    const faults = pressed.getAttribute('aria-pressed') === 'true' ? others : [...others, pressed.value];
    setFilters({ ...filters(), faults });
  };
  at('#clear').onclick = () => setFilters({ q: '', show: 'all', faults: [] });
}

function showLine(index) {
  at('.found')?.classList.remove('found');
  if (!at(`#line-${index}`)) at('#lines > button').click();
  at(`#line-${index}`).classList.add('found');
  at(`#line-${index}`).scrollIntoView({ block: 'center', behavior: 'smooth' });
}

turnTheYear();
const names = [...new Set([...lines, ...series].map((item) => item.fault))];
orderLines();
drawHeader(names);
addFilters(names);
at('.lanes').onclick = ({ target }) => target.dataset.line && showLine(target.dataset.line);
addEventListener('hashchange', draw);
addEventListener('resize', draw);
draw();
