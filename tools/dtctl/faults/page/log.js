'use strict';
// What the file holds. The page carries it as records, a line each, with tabs between their fields and
// U+0001 for '<'; texts are escaped as in dtctl's table. First the lines, in the file's order:
//   init or run, time, fault, text    the time may be empty, the text missing
// then the values, and what is to be said about the file:
//   kind, id, fault, value
//   file, its name
//   damage, what is wrong and where
// Lines get no objects of their own, only numbers in columns and places in one text: a million fit.

const at = (selector) => document.querySelector(selector);
const records = at('#records').textContent.trimStart().replaceAll('\x01', '<');

// For comparing: small letters, each in its old place.
const fold = (text) => text.replaceAll('İ', 'i').toLowerCase();
const folded = fold(records);

// ---- faults, numbered in the order in which they are met

const names = [];
const numbers = new Map();

function numberOf(name) {
  if (!numbers.has(name)) numbers.set(name, names.push(name) - 1);
  return numbers.get(name);
}

// ---- the lines' columns

const isLineAt = (place) => records.startsWith('run\t', place) || records.startsWith('init\t', place);

function countRecords(isCounted) {
  let count = 0;
  for (let place = 0, end; isCounted(place) && (end = records.indexOf('\n', place)) >= 0; place = end + 1) ++count;
  return count;
}

const recordCount = countRecords(() => true);
const room = countRecords(isLineAt);
const starts = new Uint32Array(recordCount); // of what is searched of a record: a line's time, a value's kind
const ends = new Uint32Array(recordCount); // its line break
const nameAts = new Uint32Array(room);
const textAts = new Uint32Array(room); // behind the line break when the text is missing
const faultOf = new Uint32Array(room);
const isRun = new Uint8Array(room);
const seconds = new Float64Array(room); // NaN without a time
const order = new Uint32Array(room); // line numbers in the order of time: a line's rank is its place here
const ranked = new Float64Array(room); // the seconds of each rank, -Infinity when nothing tells them

const timeOf = (line) => records.slice(starts[line], nameAts[line] - 1);
const textOf = (line) => (textAts[line] > ends[line] ? null : records.slice(textAts[line], ends[line]));

// Returns where the lines end.
function readLines() {
  let place = 0;
  for (let line = 0; line < room; ++line) {
    const end = records.indexOf('\n', place);
    starts[line] = records.indexOf('\t', place) + 1;
    nameAts[line] = records.indexOf('\t', starts[line]) + 1;
    const tab = records.indexOf('\t', nameAts[line]);
    const behindName = tab < 0 || tab > end ? end : tab;
    ends[line] = end;
    textAts[line] = behindName + 1;
    faultOf[line] = numberOf(records.slice(nameAts[line], behindName));
    isRun[line] = records[place] === 'r';
    place = end + 1;
  }
  return place;
}

// ---- times

const digits = (place, count) => {
  let number = 0;
  for (let i = 0; i < count; ++i) number = 10 * number + records.charCodeAt(place + i) - 48;
  return number;
};
const hasTime = (line) => nameAts[line] > starts[line] + 1;
const hasYear = (line) => nameAts[line] === starts[line] + 20;
let yearsKnown = false;

// Date takes the years to 99 for those of the last century, so it is asked about the same day in
// another 400 years.
function dateOf(year, month, day, ...clock) {
  return Date.UTC(year + 400, month, day, ...clock) / 1000 - 146097 * 86400;
}

function secondsOf(line, year) {
  if (!hasTime(line)) return NaN;
  const place = starts[line] + (hasYear(line) ? 5 : 0);
  return dateOf(hasYear(line) ? digits(starts[line], 4) : year, digits(place, 2) - 1, digits(place + 3, 2),
    digits(place + 6, 2), digits(place + 9, 2), digits(place + 12, 2));
}

// Stamps without a year are in the last year that any has, or in one that has every day. They cannot
// say that a year went by: the widest gap is taken for the time before the first of them, and what
// stands behind it belongs to the year before.
function readTimes() {
  let year = 2000;
  for (let line = 0; line < room; ++line) {
    if (!hasYear(line)) continue;
    year = yearsKnown ? Math.max(year, digits(starts[line], 4)) : digits(starts[line], 4);
    yearsKnown = true;
  }
  for (let line = 0; line < room; ++line) seconds[line] = secondsOf(line, year);
  const all = seconds.filter((time, line) => !isNaN(time) && !hasYear(line)).sort();
  let [widest, from] = [all[0] + 366 * 86400 - all[all.length - 1], Infinity];
  for (let i = 1; i < all.length; ++i)
    if (all[i] - all[i - 1] > widest) [widest, from] = [all[i] - all[i - 1], all[i]];
  for (let line = 0; line < room; ++line)
    if (seconds[line] >= from && !hasYear(line)) seconds[line] = secondsOf(line, year - 1);
}

// A line that lost its time stands before the next one of its log.
function orderLines() {
  const keys = seconds.slice();
  for (let line = room - 1; line >= 0; --line) {
    if (!isNaN(keys[line])) continue;
    const same = line + 1 < room && faultOf[line + 1] === faultOf[line] && isRun[line + 1] === isRun[line];
    keys[line] = same ? keys[line + 1] : -Infinity;
  }
  const sorted = Array.from(keys.keys()); // a plain array's sort is quick where runs are in order
  sorted.sort((a, b) => keys[a] - keys[b]);
  order.set(sorted);
  sorted.forEach((line, rank) => { ranked[rank] = keys[line]; });
}

// ---- the values: a series is all that was recorded of a fault, id and kind

const series = [];
const seriesOf = new Uint32Array(recordCount); // its number
let valueCount = 0;
const about = { file: '', damage: null };
const valueText = (record) => records.slice(records.lastIndexOf('\t', ends[record]) + 1, ends[record]);

function readOthers(place) {
  const known = new Map();
  for (let record = room; record < recordCount; ++record) {
    starts[record] = place;
    ends[record] = records.indexOf('\n', place);
    const [kind, id, fault] = records.slice(place, ends[record]).split('\t', 3);
    place = ends[record] + 1;
    if (kind in about) {
      about[kind] = id;
      continue;
    }
    const key = `${kind}\t${id}\t${fault}`;
    if (!known.has(key)) known.set(key, series.push({ kind, id, fault: numberOf(fault), values: [] }) - 1);
    seriesOf[record] = known.get(key);
    series[known.get(key)].values.push(record);
    ++valueCount;
  }
}

readOthers(readLines());
readTimes();
orderLines();

// ---- what filters leave of it

// For each record whether it holds the text.
function recordsWith(text) {
  if (!text) return new Uint8Array(recordCount).fill(1);
  const holding = new Uint8Array(recordCount);
  const sought = fold(text);
  for (let record = 0, place = folded.indexOf(sought); place >= 0;) {
    while (ends[record] <= place) ++record;
    const inside = place >= starts[record];
    if (inside) holding[record] = 1;
    place = folded.indexOf(sought, inside ? ends[record] : starts[record]);
  }
  return holding;
}

const hasFault = (faults) => {
  const wanted = new Set(faults.map((name) => numbers.get(name)));
  return Uint8Array.from(names, (name, number) => faults.length === 0 || wanted.has(number));
};

// The ranks of the lines that pass, of whatever time.
function matchingLines({ show, faults }, holding) {
  const chosen = new Uint32Array(room);
  const wanted = hasFault(faults);
  const logs = [show === 'all' || show === 'init', show === 'all' || show === 'run'];
  let count = 0;
  for (let rank = 0; rank < room; ++rank) {
    const line = order[rank];
    if (holding[line] && wanted[faultOf[line]] && logs[isRun[line]]) chosen[count++] = rank;
  }
  return chosen.subarray(0, count);
}

// The first place in a sorted row for which it holds.
function firstWhere(length, holds) {
  let [from, to] = [0, length];
  while (from < to) {
    const middle = (from + to) >> 1;
    if (holds(middle)) to = middle; else from = middle + 1;
  }
  return from;
}

// Those of the ranks that lie in a span of time, its last second included.
function within(ranks, { from, to }) {
  return ranks.subarray(firstWhere(ranks.length, (i) => ranked[ranks[i]] >= from),
    firstWhere(ranks.length, (i) => ranked[ranks[i]] > to));
}

function matchingSeries({ show, faults }, holding) {
  if (show !== 'all' && show !== 'values') return [];
  const wanted = hasFault(faults);
  const holds = new Uint8Array(series.length);
  for (let record = room; record < room + valueCount; ++record)
    if (holding[record]) holds[seriesOf[record]] = 1;
  return series.filter((one, number) => wanted[one.fault] && holds[number]);
}
