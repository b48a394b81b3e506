
// ======== the timeline: how many lines there are in each column of pixels, a lane for each fault

// Texts enter the page as text nodes, never as markup.
function element(name, attributes = {}, ...children) {
  const drawn = ['svg', 'path', 'title'].includes(name);
  const made = drawn ? document.createElementNS('http://www.w3.org/2000/svg', name)
                     : document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children);
  return made;
}

const grouped = (number) => number.toLocaleString('en');
const counted = (number, name) => `${grouped(number)} ${name}${number === 1 ? '' : 's'}`;
const nameOf = (fault) => names[fault] || '(no name)';
const two = (number) => String(number).padStart(2, '0');

// ---- time as text

const month = 30 * 86400;
const yearText = (date) => String(date.getUTCFullYear()).padStart(4, '0');

function clockText(time, step) {
  const date = new Date(time * 1000);
  const day = `${two(date.getUTCMonth() + 1)}/${two(date.getUTCDate())}`;
  const minute = `${two(date.getUTCHours())}:${two(date.getUTCMinutes())}`;
  if (yearsKnown && step >= month) return yearText(date) + (step < 12 * month ? `/${day.slice(0, 2)}` : '');
  if (step >= 86400 || (step >= 60 && minute === '00:00')) return day;
  return step >= 60 ? minute : `${minute}:${two(date.getUTCSeconds())}`;
}

function stampText(time) {
  const year = yearsKnown ? `${yearText(new Date(time * 1000))}/` : '';
  return `${year}${clockText(time, 86400)} ${clockText(time, 1)}`;
}

const steps = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200,
  86400, 2 * 86400, 5 * 86400, 10 * 86400];
const monthSteps = [1, 3, 6, ...[1, 10, 100, 1000].flatMap((years) => [12 * years, 24 * years, 60 * years])];

// At most so many round times of a span, and the step between them.
function ticksOf({ from, to }, most) {
  const ticks = [];
  const step = steps.find((size) => (to - from) / size < most);
  if (step) {
    for (let tick = Math.ceil(from / step) * step; tick <= to; tick += step) ticks.push(tick);
    return { step, ticks };
  }
  const months = monthSteps.find((size) => (to - from) / (size * month) < most) ?? monthSteps.at(-1);
  const first = new Date(from * 1000).getUTCFullYear() * 12 + new Date(from * 1000).getUTCMonth();
  for (let next = Math.ceil(first / months) * months; ticks.length < most; next += months) {
    const tick = dateOf(Math.floor(next / 12), next % 12, 1);
    if (tick > to) break;
    if (tick >= from) ticks.push(tick);
  }
  return { step: months * month, ticks };
}

// ---- lanes

const columnWidth = 3;
const mostLanes = 12; // the faults with the most lines; the others share the last one
const lanes = []; // the first shows all faults and the whole time
const laneOf = new Uint32Array(names.length);
const lineCounts = new Uint32Array(names.length);
const whole = { from: 0, to: 0 };
let view = whole; // the time that the other lanes show
let span = null; // what is selected of it
let columns = 1;
let shownTimes = ranked.subarray(0, 0); // the ranks in view

function addLane(name) {
  const canvas = element('canvas');
  const row = element('div', { class: 'lane' }, element('span', { title: name }, name), canvas);
  at('#lanes').append(row);
  return lanes.push({ name, row, canvas }) - 1;
}

function addLanes() {
  for (const fault of faultOf) ++lineCounts[fault];
  const used = [...lineCounts.keys()].filter((fault) => lineCounts[fault]);
  const own = used.length <= mostLanes ? used
    : used.slice().sort((a, b) => lineCounts[b] - lineCounts[a]).slice(0, mostLanes - 1).sort((a, b) => a - b);
  addLane('all');
  for (const fault of own) laneOf[fault] = addLane(nameOf(fault));
  const others = own.length < used.length ? addLane(counted(used.length - own.length, 'other')) : 0;
  for (const fault of used) laneOf[fault] ||= others;
  const firstTimed = firstWhere(room, (rank) => ranked[rank] > -Infinity);
  const margin = Math.max((ranked[room - 1] - ranked[firstTimed]) * 0.015, 1);
  whole.from = Math.floor(ranked[firstTimed] - margin);
  whole.to = Math.ceil(ranked[room - 1] + margin);
}

function count(ranks, { from, to }, laneFor) {
  const scale = columns / (to - from);
  for (let i = 0; i < ranks.length; ++i) {
    const line = order[ranks[i]];
    const lane = laneFor(line);
    const column = Math.min(columns - 1, Math.floor((ranked[ranks[i]] - from) * scale));
    if (lane.total[column]++ === 0) lane.first[column] = ranks[i];
    lane.init[column] += 1 - isRun[line];
  }
}

// ---- drawing

const colour = (name) => getComputedStyle(document.body).getPropertyValue(`--${name}`);

// The canvas in pixels of the screen, to be drawn on in those of the page.
function cleared(canvas) {
  const [width, height] = [canvas.clientWidth, canvas.clientHeight];
  canvas.width = Math.round(width * devicePixelRatio);
  canvas.height = Math.round(height * devicePixelRatio);
  const pen = canvas.getContext('2d');
  pen.scale(canvas.width / width, canvas.height / height);
  return { pen, height };
}

function paintLane(lane, time, ticks, tallest, colours) {
  const { pen, height } = cleared(lane.canvas);
  const width = columns * columnWidth;
  const x = (second) => ((second - time.from) / (time.to - time.from)) * width;
  const fill = (name, ...box) => { pen.fillStyle = colours[name]; pen.fillRect(...box); };
  for (const tick of ticks) fill('line', Math.round(x(tick)), 0, 1, height);
  if (time === whole && span) fill('chosen', x(span.from), 0, Math.max(x(span.to) - x(span.from), 2), height);
  for (let column = 0; column < columns; ++column) {
    const total = lane.total[column];
    if (!total) continue;
    const top = Math.round(7 + (height - 9) * Math.sqrt((total - 1) / (tallest - 1)));
    const init = lane.init[column] && Math.max(5, Math.round(top * lane.init[column] / total));
    fill('run', column * columnWidth, height - top, columnWidth, top);
    if (init) fill('init', column * columnWidth, height - init, columnWidth, init);
  }
  if (found !== null && ranked[found] >= time.from) fill('text', Math.round(x(ranked[found])), 0, 1.5, height);
}

function paintTimeline() {
  const { step, ticks } = ticksOf(view, innerWidth < 640 ? 4 : 7);
  const tallestOf = (some) => some.reduce((most, lane) => lane.total.reduce((a, b) => Math.max(a, b), most), 2);
  const [all, ...others] = lanes;
  const tallest = tallestOf(others);
  const colours = Object.fromEntries(['run', 'init', 'line', 'text', 'chosen'].map((name) => [name, colour(name)]));
  paintLane(all, whole, [], tallestOf([all]), colours);
  for (const lane of others) {
    lane.row.hidden = !lane.total.some(Boolean);
    if (!lane.row.hidden) paintLane(lane, view, ticks, tallest, colours);
  }
  const place = (tick) => 100 * (tick - view.from) / (view.to - view.from);
  at('#axis').replaceChildren(element('span', {}, step < 86400 ? clockText(view.from, 86400) : ''),
    element('div', {}, ...ticks.filter((tick) => place(tick) < 99).map((tick) =>
      element('time', { style: `left:${place(tick)}%` }, clockText(tick, step)))));
}

// ranks: of all times; within the span, if one is selected, they are shown nearer.
function drawTimeline(ranks, chosenSpan) {
  at('#timeline').hidden = !isFinite(whole.from) || ranks.length === 0;
  if (at('#timeline').hidden) return;
  span = chosenSpan;
  view = span ? { from: span.from, to: Math.max(span.to, span.from + 1) } : whole;
  columns = Math.max(1, Math.floor(lanes[0].canvas.clientWidth / columnWidth));
  for (const lane of lanes) {
    lane.total = new Uint32Array(columns);
    lane.init = new Uint32Array(columns);
    lane.first = new Uint32Array(columns);
  }
  shownTimes = within(ranks, view);
  count(within(ranks, whole), whole, () => lanes[0]);
  count(shownTimes, view, (line) => lanes[laneOf[faultOf[line]]]);
  paintTimeline();
}

// ---- pointing

const timeOfLane = (lane) => (lane === lanes[0] ? whole : view);
const timeAt = (lane, x) => {
  const { from, to } = timeOfLane(lane);
  const share = Math.min(Math.max(x / (columns * columnWidth), 0), 1);
  return from + (to - from) * share;
};

// The column with lines that is nearest to the place, if it is near.
function markAt(lane, x) {
  const column = Math.floor(x / columnWidth);
  return [0, -1, 1, -2, 2].map((away) => column + away).find((near) => lane.total[near] > 0);
}

function read(lane, x) {
  const mark = markAt(lane, x);
  const text = mark === undefined ? '' : ` · ${lane.name} · ${counted(lane.total[mark], 'line')}`;
  at('#reading').textContent = stampText(mark === undefined ? timeAt(lane, x) : ranked[lane.first[mark]]) + text;
}

// Selects what lies between two times, or all when that is as good as all.
function select(from, to) {
  const chosen = { from: Math.max(Math.floor(from), whole.from), to: Math.min(Math.ceil(to), whole.to) };
  setFilters({ ...filters(), span: chosen.from <= whole.from && chosen.to >= whole.to ? null : chosen });
}

// Selects so much time, with the given one in its middle where that is possible.
function selectAround(time, size) {
  const middle = Math.max(Math.min(time, whole.to - size / 2), whole.from + size / 2);
  select(middle - size / 2, middle + size / 2);
}

function click(lane, x) {
  const mark = markAt(lane, x);
  if (lane === lanes[0]) selectAround(timeAt(lane, x), span ? span.to - span.from : (whole.to - whole.from) / 10);
  else if (mark !== undefined) showLine(lane.first[mark]);
}

let drag = null;

function drawBand(x) {
  const left = drag.canvas.offsetLeft + Math.max(0, Math.min(drag.x, x));
  const right = drag.canvas.offsetLeft + Math.min(columns * columnWidth, Math.max(drag.x, x));
  at('#band').hidden = Math.abs(x - drag.x) < 4;
  at('#band').style.left = `${left}px`;
  at('#band').style.width = `${right - left}px`;
}

function endDrag() {
  drag = null;
  at('#band').hidden = true;
}

function listenToPointer() {
  const placeOn = (canvas, event) => event.clientX - canvas.getBoundingClientRect().left;
  at('#lanes').addEventListener('pointerdown', (event) => {
    const lane = lanes.find((one) => one.canvas === event.target);
    if (lane && event.button === 0) drag = { lane, canvas: lane.canvas, x: placeOn(lane.canvas, event) };
  });
  addEventListener('pointermove', (event) => {
    const lane = drag?.lane ?? lanes.find((one) => one.canvas === event.target);
    if (!lane) return;
    const x = placeOn(lane.canvas, event);
    if (drag) drawBand(x);
    read(lane, x);
  });
  addEventListener('pointerup', (event) => {
    if (!drag) return;
    const { lane, canvas, x } = drag;
    const end = placeOn(canvas, event);
    endDrag();
    if (Math.abs(end - x) < 4) click(lane, x);
    else select(timeAt(lane, Math.min(x, end)), timeAt(lane, Math.max(x, end)));
  });
  addEventListener('pointercancel', endDrag);
}

// ---- keys

function zoom(factor) {
  const aim = found !== null && ranked[found] >= view.from && ranked[found] <= view.to;
  selectAround(aim ? ranked[found] : (view.from + view.to) / 2, Math.max((view.to - view.from) * factor, 1));
}

function step(by) {
  const next = firstWhere(shownTimes.length, (i) => shownTimes[i] >= found);
  const known = found !== null && shownTimes[next] === found;
  const target = known ? next + by : found !== null && by < 0 ? next - 1 : next;
  if (shownTimes.length) showLine(shownTimes[Math.min(Math.max(target, 0), shownTimes.length - 1)]);
}

function listenToKeys() {
  const keys = { ArrowLeft: () => step(-1), ArrowRight: () => step(1),
                 '+': () => zoom(0.5), '=': () => zoom(0.5), '-': () => zoom(2) };
  at('#plot').addEventListener('keydown', (event) => {
    if (!keys[event.key] || event.ctrlKey || event.metaKey || event.altKey) return;
    event.preventDefault();
    keys[event.key]();
  });
}
