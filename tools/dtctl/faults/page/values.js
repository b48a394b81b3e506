
// ======== the values, each series with its last value and its course

const seriesAtOnce = 60;
const chartWidth = 120;

// The number behind a value's text, "18446744073709551612 (-4)" or "75", with its sign.
const numberIn = (text) => BigInt(/-?\d+(?=\)?$)/.exec(text)[0]);
const isNumber = (one) => !/data|value/.test(one.kind);

function courseOf(one) {
  if (one.course) return one.course;
  const exact = one.values.map((record) => numberIn(valueText(record)));
  const [low, high] = [exact.reduce((a, b) => (a < b ? a : b)), exact.reduce((a, b) => (a > b ? a : b))];
  return one.course = { low, high, points: Float64Array.from(exact, Number) };
}

// Of many points, the lowest and the highest of each column.
function thinned(points) {
  const kept = Array.from(points.keys());
  if (points.length <= 4 * chartWidth) return kept;
  const extremes = Array.from({ length: chartWidth }, (_, column) => {
    const from = Math.floor(column * points.length / chartWidth);
    const to = Math.floor((column + 1) * points.length / chartWidth);
    let [low, high] = [from, from];
    for (let i = from; i < to; ++i) {
      if (points[i] < points[low]) low = i;
      if (points[i] > points[high]) high = i;
    }
    return [Math.min(low, high), Math.max(low, high)];
  });
  return extremes.flat();
}

function chartOf({ low, high, points }) {
  const range = Number(high) - Number(low);
  const x = (i) => (chartWidth * i / (points.length - 1)).toFixed(1);
  const y = (i) => (range === 0 ? 17 : 30 - 26 * (points[i] - Number(low)) / range).toFixed(1);
  const last = points.length - 1;
  return element('svg', { viewBox: `0 0 ${chartWidth} 34`, preserveAspectRatio: 'none', role: 'img',
                          'aria-label': `${counted(points.length, 'value')} from ${low} to ${high}` },
    element('title', {}, points.slice(-50).join(', ')),
    element('path', { d: thinned(points).map((i, nth) => `${nth ? 'L' : 'M'}${x(i)} ${y(i)}`).join('') }),
    element('path', { class: 'last', d: `M${x(last)} ${y(last)}h.01` }));
}

function drawData(value, q) {
  const [hex, ...text] = value.split(' ');
  const code = element('code', {}, ...marked(hex || '(empty)', q));
  const body = hex.length <= 96 ? code
    : element('details', {}, element('summary', {}, counted(hex.length / 2, 'byte')), code);
  if (!text.length) return [body];
  return [body, element('small', {}, ...marked(`“${text.join(' ').slice(1, -1)}”`, q))];
}

function drawSeries(one, q) {
  const [count, last] = [one.values.length, valueText(one.values.at(-1))];
  const label = element('small', {},
    `id ${one.id} · ${one.kind}` + (count > 1 ? ` · ${grouped(count)} times` : ''));
  if (!isNumber(one)) return element('div', { class: 'value wide' }, element('div', {}, label, ...drawData(last, q)));
  const value = element('div', {}, label, element('span', { class: 'number' }, ...marked(last, q)));
  if (count === 1) return element('div', { class: 'value wide' }, value);
  const course = courseOf(one);
  if (course.low !== course.high) value.append(element('small', {}, `${course.low} to ${course.high}`));
  return element('div', { class: 'value' }, value, chartOf(course));
}

function drawValues(chosen, q, most = seriesAtOnce) {
  const more = at('#values > button');
  const cards = new Map();
  for (const one of chosen.slice(0, most)) {
    if (!cards.has(one.fault)) cards.set(one.fault, []);
    cards.get(one.fault).push(drawSeries(one, q));
  }
  at('#values').hidden = chosen.length === 0;
  at('.cards').replaceChildren(...Array.from(cards, ([fault, drawn]) => element('div', { class: drawn.length > 8 ? 'card long' : 'card' },
    element('h3', {}, ...marked(nameOf(fault), q)), ...drawn)));
  more.hidden = chosen.length <= most;
  more.textContent = `Show more: ${grouped(most)} of ${grouped(chosen.length)} are here`;
  more.onclick = () => drawValues(chosen, q, most + seriesAtOnce);
}
