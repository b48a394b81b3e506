// Which of the two views is shown, and when they ask again.
import { Refused, at, linkTo, place } from './common.js';
import * as fleet from './fleet.js';
import * as device from './device.js';

const pause = 2000; // between two looks at what has changed
const longestPause = 30_000; // while the server does not answer

let failures = 0;
let timer = 0;

const isDevice = () => place().get('device') !== null;

function tell(text) {
  at('#trouble').hidden = !text;
  at('#trouble').textContent = text;
}

function troubleText(reason) {
  if (!(reason instanceof Refused)) return 'The server does not answer; what is shown may be old.';
  return reason.status === 404 ? 'This device is not known.' : `The server answers: ${reason.message}.`;
}

async function attempt(work) {
  try {
    await work();
    if (failures) tell('');
    failures = 0;
  } catch (reason) {
    failures += 1;
    tell(troubleText(reason));
    if (!(reason instanceof Refused) && !(reason instanceof TypeError && /fetch|network/i.test(reason.message))) throw reason;
  }
}

async function follow() {
  clearTimeout(timer);
  if (!document.hidden) await attempt(isDevice() ? device.refresh : fleet.refresh);
  clearTimeout(timer);
  timer = setTimeout(follow, Math.min(longestPause, pause * 2 ** Math.min(failures, 8)));
}

async function show() {
  const wasDevice = !at('#device').hidden;
  at('#device').hidden = !isDevice();
  at('#fleet').hidden = isDevice();
  if (isDevice()) {
    await attempt(device.show);
    return;
  }
  if (wasDevice) device.close();
  fleet.show();
  follow();
}

// The fleet as it was filtered before the device was opened.
let lastFleet = '#';

function key(event) {
  const typing = /^(INPUT|SELECT)$/.test(document.activeElement?.tagName);
  if (event.key === '/' && !typing && !isDevice()) {
    event.preventDefault();
    at('#search').focus();
  } else if (event.key === 'Escape') {
    if (!isDevice()) fleet.clear();
    else location.hash = place().get('series') ? linkTo({ device: place().get('device') }) : lastFleet;
  }
}

addEventListener('hashchange', (event) => {
  const { hash } = new URL(event.oldURL);
  if (!new URLSearchParams(hash.slice(1)).has('device')) lastFleet = hash || '#';
  at('#back').href = lastFleet;
  show();
});
addEventListener('keydown', key);
document.addEventListener('visibilitychange', () => { if (!document.hidden) follow(); });
fleet.setUp();
device.setUp();
await show();
follow();
