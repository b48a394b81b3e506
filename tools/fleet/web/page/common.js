// What all parts of the page use. Texts of devices become text nodes and nothing else.

export const at = (selector) => document.querySelector(selector);

// An element with attributes, and children that are elements or texts.
export function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (typeof value === 'function') made[key] = value;
    else if (value !== undefined && value !== null && value !== false) made.setAttribute(key, value);
  }
  made.append(...children.filter((child) => child !== null && child !== undefined));
  return made;
}

export function drawing(name, attributes = {}, ...children) {
  const made = document.createElementNS('http://www.w3.org/2000/svg', name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children);
  return made;
}

export const grouped = (number) => Number(number).toLocaleString('en-US');

// ---- states: each has a sign, so that nobody needs the colour

export const states = {
  failing: { sign: '✕', text: 'failing', rank: 0 },
  late: { sign: '!', text: 'late', rank: 1 },
  never: { sign: '?', text: 'never collected', rank: 2 },
  ok: { sign: '✓', text: 'ok', rank: 3 },
  paused: { sign: '‖', text: 'paused', rank: 4 },
  off: { sign: '–', text: 'not asked', rank: 5 },
};

export const stateOf = (name) => states[name] ?? states.never;

export const signOf = (name) =>
  element('span', { class: `sign ${name}`, 'aria-hidden': 'true' }, stateOf(name).sign);

// ---- the server's time, in microseconds

let clockOffset = 0;
export function setClock(microseconds) { clockOffset = microseconds / 1000 - Date.now(); }
export const nowMicroseconds = () => (Date.now() + clockOffset) * 1000;

const steps = [[86400e6, 'd'], [3600e6, 'h'], [60e6, 'min'], [1e6, 's']];

export function span(microseconds) {
  const [size, unit] = steps.find(([least]) => microseconds >= least) ?? steps.at(-1);
  return `${Math.round(microseconds / size)} ${unit}`;
}

export function ago(time) {
  if (!time) return 'never';
  const past = nowMicroseconds() - time;
  return past < 1.5e6 ? 'now' : `${span(past)} ago`;
}

export function duration(microseconds) {
  if (microseconds >= 10e6) return span(microseconds);
  return microseconds >= 1e6 ? `${(microseconds / 1e6).toFixed(1)} s` : `${Math.ceil(microseconds / 1000)} ms`;
}

const pad = (number) => String(number).padStart(2, '0');

export function clockText(time) {
  const d = new Date(time / 1000);
  return `${d.getFullYear()}-${pad(d.getMonth() + 1)}-${pad(d.getDate())} ` +
    `${pad(d.getHours())}:${pad(d.getMinutes())}:${pad(d.getSeconds())}`;
}

// ---- bytes: text where they are text

export function bytesOf(row, name) {
  if (row[name] !== undefined) return row[name];
  return (row[`${name}Hex`] ?? '').replace(/(..)(?!$)/g, '$1 ');
}

export function seriesName(series) {
  return series.name ?? `${series.section} · ${series.key}`;
}

// ---- the address's fragment says what is shown, so that a view can be passed on

export const place = () => new URLSearchParams(location.hash.slice(1));

export function linkTo(parameters) {
  const filled = Object.entries(parameters).filter(([, value]) => value !== '' && value !== undefined);
  return `#${new URLSearchParams(filled)}`;
}

// ---- asking the server

export class Refused extends Error {
  constructor(status, reason) {
    super(reason);
    this.status = status;
  }
}

export const query = (path, parameters) => `${path}?${new URLSearchParams(parameters)}`;

async function checked(answer) {
  if (answer.ok) return answer.json();
  const told = await answer.json().catch(() => ({}));
  throw new Refused(answer.status, told.error ?? `the server answers ${answer.status}`);
}

export const ask = async (url) => checked(await fetch(url, { cache: 'no-cache' }));

// Something that is asked for again and again: what has not changed comes once.
export class Followed {
  constructor() { this.tags = new Map(); }

  // The answer, or null when it is the one from before.
  async ask(url) {
    const tag = this.tags.get(url);
    const answer = await fetch(url, { cache: 'no-store', headers: tag ? { 'If-None-Match': tag } : {} });
    if (answer.status === 304) return null;
    const read = await checked(answer);
    this.tags.clear();
    this.tags.set(url, answer.headers.get('ETag'));
    return read;
  }
}
