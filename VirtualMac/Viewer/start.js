// The machine before its first line: what the journal's head tells, and else the usual. What is
// only assumed gives way when the journal tells that it was otherwise.

import {atStart} from 'viewer/history';
import {gateKeys, inflowKeys, isSet} from 'viewer/smcKeys';

const usual = {
  adapter: 'connected',
  gate: 'allowed',
  inflow: 'flows',
  lid: 'open',
  display: 'disconnected',
  sleep: 'awake',
  sleepDisabled: false,
  helper: 'not running',
  helperStarts: 0,
  enforcing: false,
  toppingOff: false,
  band: 5,
  clientCount: 0,
};

const hexText = (bytes) => bytes.map((byte) => byte.toString(16).padStart(2, '0')).join(' ');
const nothing = Object.freeze([]);

function give(run, field, value, assumed = false) {
  if (value === undefined || value === null) return;
  const history = run.history(field);
  history.set(atStart, value);
  history.assumed = assumed;
}

function giveKeys(run, keys) {
  for (const [name, bytes] of Object.entries(keys)) give(run, `key.${name}`, hexText(bytes));
  const anySet = (names) => names.some((name) => isSet(run.latest(`key.${name}`) ?? ''));
  const isHeld = run.latest('nativeLimit') > 0 && run.latest('nativeLimit') < 100;
  give(run, 'gate', isHeld || anySet(gateKeys) ? 'paused' : 'allowed');
  give(run, 'inflow', anySet(inflowKeys) ? 'inhibited' : 'flows');
}

function giveRecord(run, text) {
  try {
    const record = JSON.parse(text);
    for (const [name, value] of Object.entries(record)) {
      give(run, `record.${name}`, typeof value === 'string' ? value : JSON.stringify(value));
    }
    give(run, 'limit', record.chargeLimit);
    give(run, 'band', record.sailingBand);
    give(run, 'savedState', 'readable');
  } catch {
    give(run, 'savedState', 'unreadable');
  }
}

function giveTold(run, start) {
  if (start.batteryPercent !== undefined)
    give(run, 'charge', Math.floor(start.batteryPercent + 0.5));
  give(run, 'battery', start.batteryPercent === undefined ? 'none' : 'present');
  give(run, 'temperature', start.temperatureCelsius);
  give(run, 'ambient', start.ambientCelsius);
  give(run, 'adapter', start.adapterConnected ? 'connected' : 'disconnected');
  give(run, 'lid', start.lid);
  give(run, 'display', start.displayConnected ? 'connected' : 'disconnected');
  give(run, 'sleepDisabled', start.sleepDisabled === true);
  give(run, 'idleSleep', start.idleSleepMinutes);
  give(run, 'nativeLimit', start.nativeLimit);
  give(run, 'sleep', 'awake');
  giveKeys(run, start.smcKeys ?? {});
  const faults = (start.faults ?? []).map((text) => ({text, cause: atStart}));
  give(run, 'faults', Object.freeze(faults));
  if (typeof start.savedState === 'string') giveRecord(run, start.savedState);
}

export function setStart(run) {
  for (const [field, value] of Object.entries(usual)) give(run, field, value, true);
  for (const list of ['assertions', 'clients', 'faults']) give(run, list, nothing, true);
  give(run, 'speed', run.head?.speed);
  if (run.head?.start) giveTold(run, run.head.start);
}

// The first level that a journal tells is taken for the one before it, when no head tells any.
export function assumeCharge(run, percent) {
  if (run.history('charge').values.length === 0) give(run, 'charge', percent, true);
}
