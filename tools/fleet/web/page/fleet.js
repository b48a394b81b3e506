// The fleet at a glance: a cell for each device. Only those in sight exist.
import { Followed, ago, at, duration, element, grouped, linkTo, place, query, setClock, signOf, stateOf, states }
  from './common.js';

const mostTiles = 300; // with names; of more devices each gets a small square
const tile = { width: 184, height: 58, gap: 8 };
const square = { width: 22, height: 22, gap: 3 };

const devices = new Map(); // by name
const followed = new Followed();
let list = { edition: '', change: 0 };
let shown = []; // the devices that the filters leave, in their order
let cell = tile;
let columns = 1;
let width = tile.width; // tiles fill their line
let focused = null; // the name of the device that the keys are at
const drawn = new Map(); // name to its element

// ---- what there is

export async function refresh() {
  for (let more = true; more;) {
    const part = await followed.ask(query('api/fleet', { edition: list.edition, after: list.change }));
    if (part === null) break;
    if (part.edition !== list.edition) devices.clear();
    for (const row of part.rows) devices.set(row.name, row);
    [list, more] = [{ edition: part.edition, change: part.change }, part.more];
    setClock(part.now);
    drawReadiness(part.notReady, part.notice);
    drawShare(part.shared);
    dirty = true;
  }
  draw();
}

let dirty = true;
let wanted = ''; // the fragment that was drawn last

function drawReadiness(reason, notice) {
  at('#trouble').hidden = !reason && !notice;
  at('#trouble').textContent = reason ? `No device is asked: ${reason}` : notice;
}

// Of several collectors, what each does.
function drawShare(shared) {
  const collectors = shared?.collectors ?? [];
  const row = (cell, texts) => element('tr', {}, ...texts.map((text) => element(cell, {}, text)));
  at('#collectors').hidden = collectors.length === 0;
  at('#collectors').replaceChildren(
    row('th', ['collector', 'devices it holds', 'runs a second', 'asks late by', 'oldest lease']),
    ...collectors.map((one) => row('td', [one.name, grouped(one.held), one.rate.toFixed(1),
                                          duration(one.lag), duration(one.oldest)])));
}

// ---- what is shown of it

function filters() {
  const hash = place();
  return { q: hash.get('q') ?? '', group: hash.get('group') ?? '', order: hash.get('order') ?? 'name',
           state: hash.get('state') ?? '' };
}

function setFilters(changes) {
  const next = { ...filters(), ...changes };
  if (next.order === 'name') delete next.order;
  history.replaceState(null, '', linkTo(next));
  draw();
}

const byName = (a, b) => (a.name < b.name ? -1 : a.name > b.name ? 1 : 0);
const byState = (a, b) => stateOf(a.state).rank - stateOf(b.state).rank || byName(a, b);

function select({ q, group, order, state }) {
  const sought = q.toLowerCase();
  const counts = Object.fromEntries(Object.keys(states).map((name) => [name, 0]));
  shown = [];
  for (const device of devices.values()) {
    if (sought && !device.name.toLowerCase().includes(sought)) continue;
    if (group && !device.groups.includes(group)) continue;
    counts[device.state] += 1;
    if (!state || device.state === state) shown.push(device);
  }
  shown.sort(order === 'state' ? byState : byName);
  return counts;
}

// Looks at all devices only when they, or the filters, have changed.
export function draw() {
  if (!dirty && wanted === location.hash) return drawTimes();
  [dirty, wanted] = [false, location.hash];
  document.title = 'Fleet';
  const chosen = filters();
  const counts = select(chosen);
  drawFilters(chosen, counts);
  const all = devices.size;
  at('#counts').textContent = shown.length === all ? `${grouped(all)} devices`
    : `${grouped(shown.length)} of ${grouped(all)} devices`;
  at('#nothing').hidden = shown.length > 0;
  at('#nothing').textContent = all ? 'No device matches these filters.' : 'There are no devices yet.';
  layOut();
}

function drawFilters({ q, group, order, state }, counts) {
  if (at('#search').value !== q) at('#search').value = q;
  at('#order').value = order;
  const groups = [...new Set([...devices.values()].flatMap((device) => device.groups))].sort();
  if (groups.join('\n') !== drawFilters.groups) {
    drawFilters.groups = groups.join('\n');
    at('#group').replaceChildren(element('option', { value: '' }, 'all groups'),
      ...groups.map((name) => element('option', { value: name }, name)));
  }
  at('#group').value = group;
  for (const button of at('#states').children) {
    button.setAttribute('aria-pressed', button.value === state);
    button.querySelector('b').textContent = grouped(counts[button.value]);
    button.hidden = counts[button.value] === 0 && button.value !== state && button.value !== 'ok';
  }
}

// ---- the cells

function layOut() {
  cell = shown.length <= mostTiles ? tile : square;
  const room = at('#window').clientWidth;
  columns = Math.max(1, Math.floor((room + cell.gap) / (cell.width + cell.gap)));
  width = cell === tile ? Math.floor((room + cell.gap) / columns) - cell.gap : cell.width;
  const lines = Math.ceil(shown.length / columns);
  at('#window').className = cell === tile ? 'tiles' : 'squares';
  at('#window').setAttribute('aria-rowcount', lines);
  at('#window').setAttribute('aria-colcount', columns);
  at('#cells').style.height = `${lines * (cell.height + cell.gap)}px`;
  if (!shown.some((device) => device.name === focused)) focused = shown[0]?.name ?? null;
  drawCells();
}

// What is told of a device in one line.
function wordsOf(device) {
  const state = stateOf(device.state).text;
  if (!device.lastTry) return state;
  const run = `last good run ${ago(device.lastOk)}`;
  return device.failures ? `${state}: ${device.outcome} ${grouped(device.failures)} times, ${run}`
    : `${state}, ${run}, in ${duration(device.duration)}`;
}

function timeWords(device) {
  if (device.failures) return `${device.outcome} · ${ago(device.lastOk)}`;
  return device.lastTry ? `${ago(device.lastOk)} · ${duration(device.duration)}` : 'not asked yet';
}

function makeCell(device) {
  const link = element('a', { href: linkTo({ device: device.name }), tabindex: '-1' }, signOf(device.state),
    element('b', { class: 'text' }, device.name), element('small'));
  link.dataset.name = device.name;
  return element('div', { role: 'gridcell' }, link);
}

function updateCell(made, device, index) {
  const [row, column] = [Math.floor(index / columns), index % columns];
  made.style.transform = `translate(${column * (width + cell.gap)}px, ${row * (cell.height + cell.gap)}px)`;
  [made.style.width, made.style.height] = [`${width}px`, `${cell.height}px`];
  made.setAttribute('aria-rowindex', row + 1);
  made.setAttribute('aria-colindex', column + 1);
  const [link] = made.children;
  link.className = device.state;
  link.firstChild.className = `sign ${device.state}`;
  link.firstChild.textContent = stateOf(device.state).sign;
  link.tabIndex = device.name === focused ? 0 : -1;
  drawTime(made, device);
}

function drawTime(made, device) {
  const [link] = made.children;
  if (cell === tile) link.lastChild.textContent = timeWords(device);
  link.setAttribute('aria-label', `${device.name}: ${wordsOf(device)}`);
}

function drawTimes() {
  for (const [name, made] of drawn) drawTime(made, devices.get(name));
  drawReading();
}

function inSight() {
  const box = at('#window');
  const line = cell.height + cell.gap;
  const first = Math.max(0, Math.floor(box.scrollTop / line) - 1);
  const lines = Math.ceil(box.clientHeight / line) + 3;
  return [first * columns, Math.min(shown.length, (first + lines) * columns)];
}

// A cell that stays in sight stays the same element: what has the focus keeps it.
function drawCells() {
  const [begin, end] = inSight();
  const visible = new Map();
  for (let i = begin; i < end; ++i) visible.set(shown[i].name, i);
  const held = shown.findIndex((device) => device.name === focused);
  if (held >= 0) visible.set(focused, held);
  for (const [name, made] of drawn)
    if (!visible.has(name)) { made.remove(); drawn.delete(name); }
  const added = [];
  for (const [name, index] of visible) {
    if (!drawn.has(name)) { drawn.set(name, makeCell(shown[index])); added.push(drawn.get(name)); }
    updateCell(drawn.get(name), shown[index], index);
  }
  at('#cells').append(...added);
  drawReading();
}

// ---- where the keys are

function drawReading() {
  const device = devices.get(focused);
  const here = document.activeElement?.dataset?.name === focused && device;
  at('#reading').textContent = here ? `${device.name}: ${wordsOf(device)}` : '';
}

function focusOn(index) {
  const device = shown[Math.min(Math.max(index, 0), shown.length - 1)];
  if (!device) return;
  focused = device.name;
  const box = at('#window');
  const line = cell.height + cell.gap;
  const top = Math.floor(shown.indexOf(device) / columns) * line;
  if (top < box.scrollTop) box.scrollTop = top;
  if (top + line > box.scrollTop + box.clientHeight) box.scrollTop = top + line - box.clientHeight;
  drawCells();
  drawn.get(focused).firstChild.focus({ preventScroll: true });
  drawReading();
}

function move(event) {
  const index = shown.findIndex((device) => device.name === focused);
  const page = columns * Math.max(1, Math.floor(at('#window').clientHeight / (cell.height + cell.gap)));
  const steps = { ArrowLeft: -1, ArrowRight: 1, ArrowUp: -columns, ArrowDown: columns, PageUp: -page, PageDown: page,
                  Home: -Infinity, End: Infinity };
  if (!(event.key in steps) || event.ctrlKey || event.altKey || event.metaKey) return;
  event.preventDefault();
  focusOn(index + steps[event.key]);
}

export function setUp() {
  for (const [name, { text }] of Object.entries(states))
    at('#states').append(element('button', { type: 'button', value: name, 'aria-pressed': 'false',
      onclick: () => setFilters({ state: filters().state === name ? '' : name }) }, signOf(name), ` ${text} `, element('b')));
  at('#search').oninput = () => setFilters({ q: at('#search').value });
  at('#group').onchange = () => setFilters({ group: at('#group').value });
  at('#order').onchange = () => setFilters({ order: at('#order').value });
  at('#window').onscroll = () => requestAnimationFrame(drawCells);
  at('#window').onkeydown = move;
  at('#window').addEventListener('focusin', (event) => {
    focused = event.target.dataset.name ?? focused;
    drawReading();
  });
  at('#window').addEventListener('focusout', drawReading);
  at('#window').addEventListener('mouseover', (event) => {
    const name = event.target.closest('a')?.dataset.name;
    if (name) at('#reading').textContent = `${name}: ${wordsOf(devices.get(name))}`;
  });
  new ResizeObserver(() => { if (shown.length) layOut(); }).observe(at('#window'));
}

export const clear = () => setFilters({ q: '', group: '', state: '' });

// Draws all of it, at the place where it was left.
export function show() {
  wanted = null;
  draw();
  if (focused && drawn.has(focused)) focusOn(shown.findIndex((device) => device.name === focused));
}
