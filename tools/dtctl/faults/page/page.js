
// ======== the page: its filters stand in the address's fragment, so that a view can be passed on

const mostFaults = 60; // buttons; a search finds the others

function filters() {
  const hash = new URLSearchParams(location.hash.slice(1));
  const from = Math.max(Number(hash.get('from') ?? NaN), whole.from);
  const to = Math.min(Number(hash.get('to') ?? NaN), whole.to);
  return { q: (hash.get('q') ?? '').replaceAll('\n', ' '), show: hash.get('show') ?? 'all',
           faults: hash.getAll('fault'), span: from <= to ? { from, to } : null };
}

function setFilters({ q = '', show = 'all', faults = [], span = null }) {
  const hash = new URLSearchParams();
  if (q) hash.set('q', q);
  if (show !== 'all') hash.set('show', show);
  for (const fault of faults) hash.append('fault', fault);
  if (span) for (const end of ['from', 'to']) hash.set(end, span[end]);
  location.replace('#' + hash);
  follow();
}

function drawFilters({ q, show, faults, span }) {
  const search = at('#search');
  if (search.value !== q) search.value = q;
  for (const button of at('#show').children) button.setAttribute('aria-pressed', button.value === show);
  for (const button of at('#faults').children) button.setAttribute('aria-pressed', faults.includes(button.value));
  at('#clear').disabled = !q && show === 'all' && faults.length === 0 && !span;
  at('#span').hidden = !span;
  if (span) at('#span').replaceChildren(`${stampText(span.from)} to ${stampText(span.to)} `, element('b', {}, '×'));
}

function draw() {
  const chosen = filters();
  const holding = recordsWith(chosen.q);
  const ranks = matchingLines(chosen, holding);
  const shown = chosen.span ? within(ranks, chosen.span) : ranks;
  const someSeries = matchingSeries(chosen, holding);
  const values = someSeries.reduce((sum, one) => sum + one.values.length, 0);
  drawFilters(chosen);
  drawTimeline(ranks, chosen.span);
  drawLines(shown, chosen.q);
  drawValues(someSeries, chosen.q);
  at('#counts').textContent = `${grouped(shown.length)} of ${counted(room, 'line')} · ` +
    `${grouped(values)} of ${counted(valueCount, 'value')}`;
  at('#nothing').hidden = shown.length + someSeries.length > 0;
}

// Shows what the address asks for. A change of it is told late, when it may be shown already.
let shownHash = null;

function follow() {
  if (shownHash === location.hash) return;
  shownHash = location.hash;
  draw();
  goToFound();
}

function drawHeader() {
  const total = (name, number) => element('div', {}, element('dt', {}, name), element('dd', {}, grouped(number)));
  const timed = order.filter(hasTime);
  const time = timed.length ? `${timeOf(timed[0])} to ${timeOf(timed.at(-1))}` : '';
  document.title = `Fault log ${about.file}`;
  at('#subject').textContent = [about.file, time].filter(Boolean).join(' · ');
  at('#totals').append(total('faults', names.length), total('lines', room), total('values', valueCount));
  at('#damage').hidden = about.damage === null;
  at('#damage').textContent = `The file is damaged: ${about.damage}. What stands before that is shown.`;
}

function addFilters() {
  const button = (value, ...label) => element('button', { type: 'button', value }, ...label);
  const sizes = lineCounts.slice();
  for (const one of series) sizes[one.fault] += one.values.length;
  at('#show').append(button('all', 'All'), button('init', 'Init'), button('run', 'Run'), button('values', 'Values'));
  at('#faults').append(...names.slice(0, mostFaults).map((name, fault) =>
    button(name, nameOf(fault), element('small', {}, grouped(sizes[fault])))));
  if (names.length > mostFaults) at('#faults').append(`and ${grouped(names.length - mostFaults)} more`);
}

function pressFault({ target }) {
  const pressed = target.closest('button');
  if (!pressed) return;
  const others = filters().faults.filter((fault) => fault !== pressed.value);
  const faults = pressed.getAttribute('aria-pressed') === 'true' ? others : [...others, pressed.value];
  setFilters({ ...filters(), faults });
}

function clear() {
  endDrag();
  found = null;
  shownHash = null;
  setFilters({});
}

function listen() {
  at('#search').oninput = (event) => setFilters({ ...filters(), q: event.target.value });
  at('#show').onclick = ({ target }) => target.value && setFilters({ ...filters(), show: target.value });
  at('#faults').onclick = pressFault;
  at('#span').onclick = () => setFilters({ ...filters(), span: null });
  at('#clear').onclick = clear;
  at('#window').onscroll = scrollRows;
  addEventListener('keydown', (event) => {
    if (event.key === 'Escape') clear();
    if (event.key !== '/' || event.target === at('#search') || event.ctrlKey || event.metaKey) return;
    event.preventDefault();
    at('#search').select();
    at('#search').focus();
  });
  addEventListener('hashchange', follow);
  addEventListener('resize', draw);
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', draw);
  listenToPointer();
  listenToKeys();
}

addLanes();
drawHeader();
addFilters();
listen();
follow();
