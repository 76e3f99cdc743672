// How each entry of a journal changes the machine's state, and which marks it leaves on the chart.
// The chart's fields and marks are read as `VirtualMac/Timeline` reads them.

import {numberAfter} from 'viewer/journal';
import {changesIn} from 'viewer/record';
import {requestIn} from 'viewer/requests';
import {gateKeys, inflowKeys, isSet} from 'viewer/smcKeys';
import {assumeCharge} from 'viewer/start';

const stateFile = 'state.json';

const zeros = (bytes) => bytes.replace(/[0-9a-f]{2}/g, '00');

function setNativeLimit(run, text) {
  const limit = numberAfter(text, '');
  run.set('nativeLimit', limit ?? 0);
  run.set('gate', (limit ?? 100) < 100 ? 'paused' : 'allowed');
}

function setCharge(run, percent) {
  assumeCharge(run, percent);
  run.set('charge', percent);
}

function setPower(run, power) {
  run.set('power', power);
  run.set('sleep', 'awake');
  run.set('heldOff', undefined);
  run.set('sleepDisabled', false);
}

function endHelper(run, how) {
  run.set('helper', how);
  for (const field of ['helperPid', 'helperSince']) run.set(field, undefined);
  for (const field of ['enforcing', 'toppingOff']) run.set(field, false);
  run.set('clientCount', 0);
}

function without(list, isGone) {
  return Object.freeze(list.filter((each) => !isGone(each)));
}

function dropAssertion(run, id) {
  run.set('assertions', without(run.latest('assertions'), (each) => each.id === id));
}

function setSetting(run, key, value) {
  if (key === 'SleepDisabled') run.set('sleepDisabled', value === '1');
}

function dropRecord(run) {
  for (const name of run.histories.keys()) {
    if (name.startsWith('record.')) run.set(name, undefined);
  }
}

function setRecord(run, file, words) {
  if (file !== stateFile) return;
  run.set('savedState', 'readable');
  for (const [name, value] of changesIn(words)) {
    run.set(`record.${name}`, value ?? undefined);
    const number = numberAfter(value ?? '', '');
    if (name === 'chargeLimit' && number !== null) run.set('limit', number);
    if (name === 'sailingBand' && number !== null) run.set('band', number);
    if (name === 'topUpActive' && value !== null) run.set('toppingOff', value === 'true');
  }
}

// The change that an effect makes, by its name; the values are those of its pattern.
const effects = {
  keyWritten(run, [key, bytes]) {
    run.set(`key.${key}`, bytes);
    run.set(`try.${key}`, 'written');
    if (gateKeys.includes(key)) run.set('gate', isSet(bytes) ? 'paused' : 'allowed');
    if (inflowKeys.includes(key)) run.set('inflow', isSet(bytes) ? 'inhibited' : 'flows');
  },
  keyIgnored(run, [key, bytes, value]) {
    run.set(`key.${key}`, value);
    run.set(`try.${key}`, `${bytes} ignored`);
  },
  keyRefused(run, [key, bytes, result]) {
    run.set(`try.${key}`, `${bytes} refused (${result})`);
  },
  helperStarted(run, [pid], entry) {
    run.set('helper', 'running');
    run.set('helperPid', Number(pid));
    run.set('helperSince', entry.time);
    run.set('helperStarts', run.latest('helperStarts') + 1);
    run.mark('event', 'helper started');
  },
  helperExited(run, [, status]) {
    endHelper(run, `exited ${status}`);
    run.mark('event', `helper exited ${status}`);
  },
  helperKilled(run, [, signal]) {
    endHelper(run, `killed by signal ${signal}`);
    run.mark('loss', `helper killed by signal ${signal}`);
  },
  helperEnded(run) {
    endHelper(run, 'ended');
    run.mark('event', 'helper ended');
  },
  helperCutOff(run, [, reason]) {
    endHelper(run, `cut off: ${reason}`);
    run.mark('event', `helper cut off: ${reason}`);
  },
  signalSent(run, [signal]) {
    run.mark('deed', `signal ${signal} to helper`);
  },
  replyFailed(run, [operation, , text]) {
    run.mark('refusal', `${operation} refused: "${text}"`);
  },
  replyFailedSilently(run, [operation]) {
    run.mark('refusal', `${operation} refused`);
  },
  assertionCreated(run, [id, type, reason, pid, timeout], entry) {
    const made = Object.freeze({id, type, reason, pid, timeout, cause: entry.index});
    run.set('assertions', Object.freeze([...run.latest('assertions'), made]));
  },
  assertionReleased(run, [id]) {
    dropAssertion(run, id);
  },
  assertionTimedOut(run, [id]) {
    dropAssertion(run, id);
  },
  assertionDropped(run, [id]) {
    dropAssertion(run, id);
  },
  settingByOther(run, [key, value], entry) {
    setSetting(run, key, value);
    run.mark('deed', entry.text);
  },
  settingRemovedByOther(run, [key], entry) {
    setSetting(run, key, '0');
    run.mark('deed', entry.text);
  },
  settingWritten(run, [key, value]) {
    setSetting(run, key, value);
  },
  sleepBegins(run, [why]) {
    run.set('sleep', `falling asleep (${why})`);
    run.set('heldOff', undefined);
  },
  sleepHeldOff(run, [why, holder]) {
    run.set('heldOff', `${why}, by ${holder}`);
  },
  sleepTakenBack(run) {
    run.set('sleep', 'awake');
  },
  fellAsleep(run) {
    run.set('sleep', 'asleep');
  },
  woke(run) {
    run.set('sleep', 'awake');
  },
  nativeLimitByUser(run, [limit], entry) {
    setNativeLimit(run, limit);
    run.mark('deed', entry.text);
  },
  nativeLimitSet(run, [limit]) {
    setNativeLimit(run, limit);
  },
  batterySet(run, [level]) {
    setCharge(run, Math.floor(parseFloat(level) + 0.5));
  },
  batteryLevel(run, [level]) {
    setCharge(run, Number(level));
  },
  adapterConnected(run) {
    run.change('adapter', 'connected', 'disconnected');
  },
  adapterDisconnected(run) {
    run.change('adapter', 'disconnected', 'connected');
  },
  inflowInhibitDropped(run) {
    run.set('inflow', 'flows');
    for (const key of inflowKeys) {
      const bytes = run.latest(`key.${key}`);
      if (bytes !== undefined) run.set(`key.${key}`, zeros(bytes));
    }
  },
  lidClosed(run) {
    run.change('lid', 'closed', 'open');
  },
  lidOpened(run) {
    run.change('lid', 'open', 'closed');
    run.set('heldOff', undefined);
  },
  clockSet(run, [date], entry) {
    const start = new Date(Date.parse(date) - Math.round(entry.time * 1000));
    if (!Number.isNaN(start.getTime())) {
      run.clocks.push({time: entry.time, start: start.toISOString()});
    }
  },
  poweredOn(run) {
    setPower(run, 'on');
  },
  powerLost(run) {
    setPower(run, 'on');
  },
  batteryRanOut(run) {
    setPower(run, 'off');
  },
  rebooted(run) {
    setPower(run, 'on');
  },
  fileChanged(run, [file, , ...words]) {
    setRecord(run, file, words);
  },
  fileOpaque(run, [file, , size]) {
    if (file !== stateFile) return;
    dropRecord(run);
    run.set('savedState', `not readable, ${size} bytes`);
  },
  fileRemoved(run, [file]) {
    if (file !== stateFile) return;
    dropRecord(run);
    run.set('savedState', 'removed');
  },
  failed(run, values, entry) {
    run.mark('failure', entry.text);
  },
  logged: hearLog,
  told: hearTold,
};

// Deeds that a lane or the charge shows already.
const shown = ['adapterConnected', 'adapterDisconnected', 'lidClosed', 'lidOpened', 'batteryLevel'];

function markDeed(run, entry) {
  if (entry.kind !== 'mac' || shown.includes(entry.effect)) return;
  const lost = entry.effect === 'powerLost' || entry.effect === 'batteryRanOut';
  run.mark(lost ? 'loss' : 'deed', entry.text);
}

// A temperature that a person or a fault holds stays; one that is only told moves on by itself.
function holdTemperature(run, degrees) {
  run.set('temperature', degrees);
  run.set('heldTemperature', degrees);
}

function hearFault(run, text) {
  const found = /^fault (.+) (on|off)((?: \(in place of [^)]*\))*)$/.exec(text);
  if (!found) return;
  const [, line, way, replaced] = found;
  const gone = [...replaced.matchAll(/\(in place of ([^)]*)\)/g)].map((match) => match[1]);
  if (way === 'off') gone.push(line);
  const isGone = (each) => each.text === line ||
      gone.some((which) => each.text === which || each.text.startsWith(`${which} `));
  const left = run.latest('faults').filter((each) => !isGone(each));
  if (way === 'on') left.push(Object.freeze({text: line, cause: run.entries.length - 1}));
  run.set('faults', Object.freeze(left));
  const degrees = numberAfter(line, 'temperature-override ');
  if (degrees !== null && way === 'on') holdTemperature(run, degrees);
  if (degrees !== null && way === 'off') run.set('heldTemperature', undefined);
}

const toldOfMac = [
  [
    /^display (connected|disconnected)$/,
    (run, [, value]) =>
        run.change('display', value, value === 'connected' ? 'disconnected' : 'connected')
  ],
  [/^ambient set to (\S+) C$/, (run, [, degrees]) => run.set('ambient', parseFloat(degrees))],
  [/^temperature set to (\S+) C$/, (run, [, degrees]) => holdTemperature(run, parseFloat(degrees))],
  [/^temperature free$/, (run) => run.set('heldTemperature', undefined)],
  [/^idle sleep off$/, (run) => run.set('idleSleep', 0)],
  [/^idle sleep after (\d+) min$/, (run, [, minutes]) => run.set('idleSleep', Number(minutes))],
  [/^speed (\S+)$/, (run, [, factor]) => run.set('speed', parseFloat(factor))],
  [/^helper version (\S+) installed$/, (run, [, version]) => run.set('helperVersion', version)],
];

function hearTold(run, values, entry) {
  if (entry.kind !== 'mac') return;
  hearFault(run, entry.text);
  for (const [form, act] of toldOfMac) {
    const found = form.exec(entry.text);
    if (found) act(run, found);
  }
}

// Words of the core's log with which it begins, and ends, to hold a limit.
const beginsToHold = [
  'setChargeLimit(',
  'arming polling loop',
  'arming watchdog',
  'restored limit',
  'restoring limit',
];
const endsToHold = [
  /^clearChargeLimit /,
  /^resetAllSMCKeys /,
  /suspending enforcement/,
  /stopped enforcement/,
  /^releaseLimitUntilFullThenRestore /,
];

function hearCore(run, text) {
  const degrees = /\bbattery (\d+)°C/.exec(text);
  if (degrees) run.set('temperature', Number(degrees[1]));
  if (beginsToHold.some((words) => text.includes(words))) run.set('enforcing', true);
  const limit = numberAfter(text, 'loop at limit=');
  if (limit !== null) run.set('limit', limit);
  if (endsToHold.some((form) => form.test(text))) run.set('enforcing', false);
  if (text.startsWith('cancelTopUp ') && run.latest('toppingOff')) run.set('enforcing', true);
  if (!/^client (?:dis)?connected/.test(text)) return false;
  run.set('clientCount', numberAfter(text, 'count=') ?? 0);
  return true;
}

function hearLog(run, values, entry) {
  const text = entry.message;
  const ofCore = entry.category === 'HelperImpl';
  if (ofCore) {
    if (hearCore(run, text)) return;
    const request = requestIn(text);
    if (request !== null) {
      // "quit" says it already: to quit is to shut down.
      const latest = run.marks[run.marks.length - 1];
      if (request !== 'shut down' || latest?.text !== 'quit') run.mark('request', request);
      return;
    }
  }
  const bad = entry.level !== 'default';
  if (bad || ofCore) run.mark(bad ? 'error' : 'log', text);
}

// Takes the latest entry of a run, with its effect's values, into the run's state.
export function hear(run, entry, values) {
  markDeed(run, entry);
  effects[entry.effect]?.(run, values, entry);
}
