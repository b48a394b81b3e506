
// ======== the list of lines: a window in which only the rows in sight exist

const rowHeight = 30; // of a row of one line; others may be higher
const tallestPad = 8e6; // browsers have a limit for the height of what they scroll

let listed = ranked.subarray(0, 0); // the ranks
let lastPosition = 0; // the place in the list with which its end is in sight; fractions are parts of a row
let sought = '';
let found = null; // the rank of the line that stands out

// The text with what was searched for marked, the first times.
function marked(text, q) {
  const parts = [];
  const [where, what] = [fold(text), fold(q)];
  let rest = 0;
  for (let next; q && parts.length < 200 && (next = where.indexOf(what, rest)) >= 0; rest = next + q.length)
    parts.push(text.slice(rest, next), element('mark', {}, text.slice(next, next + q.length)));
  return [...parts, text.slice(rest)];
}

function rowOf(rank, place) {
  const line = order[rank];
  const [time, text, log] = [timeOf(line), textOf(line), isRun[line] ? 'run' : 'init'];
  const absent = (what) => [element('span', { class: 'absent' }, what)];
  const row = element('li', { 'data-rank': rank, 'aria-posinset': place + 1, 'aria-setsize': listed.length },
    element('time', {}, ...(time ? marked(time, sought) : absent('no time'))),
    element('b', {}, ...marked(nameOf(faultOf[line]), sought)),
    element('i', { class: log }, log),
    element('p', {}, ...(text === null ? absent('no text') : marked(text, sought))));
  if (rank === found) row.setAttribute('aria-current', 'true');
  return row;
}

const pad = () => at('#window > div');
const rows = () => at('#window ol');
const mostRows = () => Math.ceil(listHeight() / rowHeight) + 2;
const listHeight = () => Math.max(200, Math.round(innerHeight * 0.7));
const perRow = () => Math.min(rowHeight, tallestPad / Math.max(listed.length, 1)); // to scroll for a row

function putRows(from) {
  rows().replaceChildren(...Array.from(listed.subarray(from, from + mostRows()), (rank, i) => rowOf(rank, from + i)));
}

// The first row in sight moves up by the part of it that has been scrolled away.
function scrollRows() {
  const position = Math.min(at('#window').scrollTop / perRow(), lastPosition);
  const first = Math.floor(position);
  putRows(first);
  const top = rows().firstChild;
  if (top) top.style.marginTop = `${-(position - first) * top.offsetHeight}px`;
}

// Finds out how far to scroll from how high the last rows are.
function layOutList() {
  const first = Math.max(0, listed.length - mostRows());
  rows().style.height = '';
  putRows(first);
  const last = [...rows().children].map((row) => row.offsetHeight);
  const all = last.reduce((sum, height) => sum + height, 0);
  const height = first === 0 ? Math.min(all, listHeight()) : listHeight();
  let [place, left] = [last.length, height];
  while (place > 0 && left > 0) left -= last[--place];
  lastPosition = first + place + (left < 0 ? -left / last[place] : 0);
  at('#window').style.height = rows().style.height = `${height}px`;
  pad().style.height = `${height + lastPosition * perRow()}px`;
}

function drawLines(ranks, q) {
  at('#lines').hidden = ranks.length === 0;
  [listed, sought] = [ranks, q];
  layOutList();
  scrollRows();
}

// Scrolls to the line that stands out, or to the first one.
function goToFound() {
  const place = firstWhere(listed.length, (i) => listed[i] >= found);
  const here = found !== null && listed[place] === found;
  at('#window').scrollTop = here ? Math.max(0, place - 4) * perRow() : 0;
  scrollRows();
}

// Makes a line stand out, in the list and in the timeline.
function showLine(rank) {
  const line = order[rank];
  found = rank;
  goToFound();
  if (!at('#timeline').hidden) paintTimeline();
  at('#window [aria-current]').scrollIntoView({ block: 'nearest' });
  at('#reading').textContent = `${timeOf(line)} · ${nameOf(faultOf[line])} · ${textOf(line) ?? 'no text'}`;
}
