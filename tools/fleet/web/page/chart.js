// A series over time: in each column of the screen the least and the largest value, and the last one. The server
// computes the columns, so that a year costs what an hour costs.
import { Followed, ask, bytesOf, clockText, element, grouped, linkTo, nowMicroseconds, place, query, seriesName,
         span } from './common.js';

const hour = 3600e6;
const ranges = { '15 min': hour / 4, '1 h': hour, '6 h': 6 * hour, '1 day': 24 * hour, '7 days': 168 * hour,
                 '30 days': 720 * hour, '1 year': 8766 * hour };
const shortest = 1e6;
const longest = 20 * 8766 * hour;

// How times stand below the chart, by the steps between them: the date where it changes.
const date = '\n{YYYY}-{MM}-{DD}';
const timeTexts = [
  [365 * 86400, '{YYYY}', null, null, null, null, null, null, 1],
  [28 * 86400, '{YYYY}-{MM}', null, null, null, null, null, null, 1],
  [86400, '{MM}-{DD}', '\n{YYYY}', null, null, null, null, null, 1],
  [60, '{HH}:{mm}', date, null, date, null, null, null, 1],
  [1e-3, '{HH}:{mm}:{ss}', date, null, date, null, null, null, 1],
];

// Short enough for the room beside the chart.
const numberText = (value) => (Math.abs(value) < 1e7 ? grouped(value) : value.toExponential(1));

const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

export class Chart {
  constructor(device, series) {
    [this.device, this.series] = [device, series];
    [this.followed, this.points] = [new Followed(), null];
    this.title = element('h2', { class: 'text' });
    this.reading = element('output', { 'aria-live': 'polite' });
    this.plot = element('div', { class: 'plot', tabindex: '0', role: 'application', 'aria-label': 'Chart',
                                 'aria-describedby': 'chart-keys', onkeydown: (event) => this.key(event) });
    this.choice = element('div', { class: 'choice', role: 'group', 'aria-label': 'Time' },
      ...Object.entries(ranges).map(([text, range]) => element('button', { type: 'button', value: range,
        onclick: () => this.go({ range }) }, text)));
    this.node = element('div', {}, this.title, this.choice, this.plot, this.reading,
      element('p', { id: 'chart-keys', class: 'hint' }, 'Drag to zoom, double-click for the last day. Keys: ',
        ...['←', '→', '+', '−'].flatMap((key) => [element('kbd', {}, key), ' '])));
    this.resized = new ResizeObserver(() => this.draw());
    this.resized.observe(this.plot);
    this.dark = matchMedia('(prefers-color-scheme: dark)');
    this.redraw = () => this.draw(true);
    this.dark.addEventListener('change', this.redraw);
    this.askTitle();
  }

  close() {
    this.resized.disconnect();
    this.dark.removeEventListener('change', this.redraw);
    this.uplot?.destroy();
  }

  async askTitle() {
    for (let [from, more] = [0, true]; more;) {
      const answer = await ask(query('api/values', { device: this.device, from }));
      const value = answer.values.find((one) => `${one.series}.${one.ordinal}` === this.series);
      if (value) return this.putTitle(value);
      [from, more] = [from + answer.values.length, answer.more];
    }
  }

  putTitle(value) {
    const unit = value.unit ? element('small', {}, ` in ${bytesOf(value, 'unit')}`) : null;
    this.title.replaceChildren(`${bytesOf(value, 'collector')} · ${seriesName(value)}`, ...(unit ? [unit] : []));
  }

  // ---- the time that is shown: a range up to now that moves on, or one that stands still

  window() {
    const hash = place();
    const [from, to] = [Number(hash.get('from')), Number(hash.get('to'))];
    if (from > 0 && to - from >= shortest) return { from, to, moves: false };
    const range = Number(hash.get('range')) || ranges['1 day'];
    const now = Math.round(nowMicroseconds() / 1e6) * 1e6;
    return { from: Math.max(0, now - Math.min(Math.max(range, shortest), longest)), to: now, moves: true };
  }

  go(time) {
    location.replace(linkTo({ device: this.device, series: this.series, ...time }));
  }

  goTo(from, to) {
    const now = nowMicroseconds();
    const width = Math.min(Math.max(to - from, shortest), longest);
    const end = Math.min(Math.max(to, width), now);
    this.go({ from: Math.round(Math.max(0, end - width)), to: Math.round(end) });
  }

  key(event) {
    const { from, to } = this;
    const width = to - from;
    const moves = { ArrowLeft: [-0.25, -0.25], ArrowRight: [0.25, 0.25], '+': [0.25, -0.25], '-': [-0.5, 0.5] };
    if (!(event.key in moves) || event.ctrlKey || event.altKey || event.metaKey) return;
    event.preventDefault();
    const [left, right] = moves[event.key];
    this.goTo(from + left * width, to + right * width);
  }

  follow() {
    const { from, to, moves } = this.window();
    for (const button of this.choice.children)
      button.setAttribute('aria-pressed', moves && Number(button.value) === to - from);
    [this.points, this.from, this.to] = [null, from, to];
    this.followed = new Followed();
  }

  // ---- the points

  async refresh() {
    const { from, to, moves } = this.window();
    const columns = Math.min(2000, Math.max(50, Math.round(this.plot.clientWidth)));
    const answer = await this.followed.ask(query('api/points', { device: this.device, series: this.series, from, to, columns }));
    if (answer === null) return;
    [this.points] = answer.charts;
    // Of a young series there is no more to see: a range up to now begins where it does.
    const begin = moves ? Math.min(this.points.time[0] ?? from, to - shortest) : from;
    [this.from, this.to] = [Math.max(from, begin), to];
    this.draw();
  }

  data() {
    const { time, min, max, last } = this.points;
    const data = [time.map((t) => t / 1e6), ...[min, max, last].map((row) => row.map(Number))];
    // A value holds until the next one comes.
    if (time.length && time.at(-1) < this.to) {
      data[0].push(this.to / 1e6);
      for (const row of data.slice(1)) row.push(data[3].at(-1));
    }
    return data;
  }

  draw(anew = false) {
    if (!this.points || !this.plot.clientWidth) return;
    const size = { width: this.plot.clientWidth, height: Math.min(420, Math.max(220, innerHeight * 0.5)) };
    if (anew || !this.uplot) {
      this.uplot?.destroy();
      this.uplot = new window.uPlot(this.options(size), this.data(), this.plot);
    }
    this.uplot.setSize(size);
    this.uplot.setData(this.data(), false);
    this.uplot.batch(() => {
      this.uplot.setScale('x', { min: this.from / 1e6, max: this.to / 1e6 });
    });
    this.read(null);
  }

  options(size) {
    const axis = { stroke: colour('--weak'), grid: { stroke: colour('--line'), width: 1 },
                   ticks: { stroke: colour('--line'), width: 1 } };
    const edge = { stroke: colour('--band'), width: 1, points: { show: false }, paths: window.uPlot.paths.stepped({ align: 1 }) };
    return {
      ...size, legend: { show: false }, cursor: { y: false, drag: { setScale: false }, bind: { dblclick: () => () => this.go({}) } },
      scales: { x: { time: true, auto: false } }, axes: [{ ...axis, space: 80, values: timeTexts }, 
        { ...axis, size: 72, values: (plot, marks) => marks.map(numberText) }], bands: [{ series: [2, 1], fill: colour('--band') }],
      series: [{}, edge, edge, { stroke: colour('--accent'), width: 1.75, points: { show: false },
                                 paths: window.uPlot.paths.stepped({ align: 1 }) }],
      hooks: {
        setCursor: [({ cursor }) => this.read(cursor.idx)],
        setSelect: [(plot) => {
          const { left, width } = plot.select;
          if (width > 3) this.goTo(plot.posToVal(left, 'x') * 1e6, plot.posToVal(left + width, 'x') * 1e6);
          plot.setSelect({ left: 0, width: 0, top: 0, height: 0 }, false);
        }],
      },
    };
  }

  // Exact: what is drawn are a browser's numbers, what is told are the device's.
  read(index) {
    const { time, min, max, last, count } = this.points;
    if (!time.length) {
      this.reading.textContent = 'There are no values in this time.';
    } else if (index === null || index === undefined) {
      const values = count.reduce((sum, one) => sum + one, 0);
      this.reading.textContent = `${grouped(values)} values in ${span(this.to - this.from)}, the last one ${last.at(-1)}`;
    } else {
      const i = Math.min(index, time.length - 1);
      const range = min[i] === max[i] ? '' : ` (${min[i]} to ${max[i]}, ${grouped(count[i])} values)`;
      this.reading.textContent = `${clockText(time[i])}: ${last[i]}${range}`;
    }
  }
}
