// The machine's state as rows for people: groups of fields, each with its label, its value as text
// and as a plain value, and the entry that caused it.

import {lastUpTo} from 'viewer/history';
import {gateKeys, inflowKeys} from 'viewer/smcKeys';
import {clockText, secondsText} from 'viewer/time';
import {clientName} from 'viewer/tracks';

const percent = (value) => `${value} %`;
const degrees = (value) => `${Number(value.toFixed(2))} °C`;
const yesNo = (value) => (value ? 'yes' : 'no');
const plain = (value) => String(value);

// A row of one field; null: nothing has told it.
function row(state, field, label, textOf = plain, note = '') {
  const change = state.change(field);
  if (change === undefined || change.value === undefined || change.value === null) return null;
  const assumed = change.assumed ? 'assumed' : '';
  return {
    field,
    label,
    value: String(change.value),
    text: textOf(change.value),
    note: [note, assumed].filter((words) => words !== '').join('; '),
    cause: change.cause
  };
}

function keysNote(state, names) {
  const shown = names.filter((name) => state.get(`key.${name}`) !== undefined);
  return shown.map((name) => `${name} ${state.get(`key.${name}`)}`).join(', ');
}

// The battery follows from several fields; the latest of them caused what it does.
function chargingRow(state) {
  const fields = ['battery', 'adapter', 'inflow', 'gate', 'charge'];
  const get = (field) => state.get(field);
  const draining = get('adapter') === 'disconnected' || get('inflow') === 'inhibited';
  const text = get('battery') === 'none' ? 'no battery' :
      draining                           ? 'draining' :
      get('gate') === 'paused'           ? 'holding' :
      get('charge') === 100              ? 'full' :
                                           'charging';
  const decisive = text === 'full' ? fields : fields.slice(0, text === 'draining' ? 3 : 4);
  const cause = Math.max(...decisive.map((field) => state.change(field)?.cause ?? -1));
  return {field: 'charging', label: 'battery is', value: text, text, note: '', cause};
}

function machineRows(state) {
  return [
    row(state, 'charge', 'charge', percent),
    chargingRow(state),
    row(state, 'gate', 'charging gate', plain, keysNote(state, gateKeys)),
    row(state, 'inflow', 'inflow', plain, keysNote(state, inflowKeys)),
    row(state, 'adapter', 'adapter'),
    row(state, 'lid', 'lid'),
    row(state, 'display', 'display'),
    row(state, 'power', 'power'),
    row(state, 'sleep', 'sleep'),
    row(state, 'heldOff', 'sleep held off'),
    temperatureRow(state),
    row(state, 'ambient', 'ambient', degrees),
    row(state, 'nativeLimit', 'native limit', (value) => value === 0 ? 'none' : percent(value)),
    row(state, 'speed', 'speed', (value) => `${value}×`),
  ];
}

// A live machine was asked for its temperature; a journal tells it now and then.
function temperatureRow(state) {
  const {run, index} = state;
  const {times, celsius} = run.readings;
  const isLast = index === run.entries.length - 1;
  const place = lastUpTo(times, isLast ? Infinity : run.timeOf(index));
  const isHeld = state.get('heldTemperature') !== undefined;
  if (place >= 0 && !isHeld) {
    const value = celsius[place];
    return {
      field: 'temperature',
      label: 'temperature',
      value: String(value),
      text: degrees(value),
      note: '',
      cause: -1,
      origin: 'measured'
    };
  }
  const note = isHeld ? 'held there' : 'when it was last told; it moves by itself';
  return row(state, 'temperature', 'temperature', degrees, note);
}

function limitRows(state) {
  return [
    row(state, 'enforcement', 'enforced'),
    row(state, 'enforcing', 'enforcing', yesNo),
    row(state, 'limit', 'limit', percent),
    row(state, 'band', 'band', (value) => `${value} %`),
    row(state, 'toppingOff', 'topping off', yesNo),
  ];
}

function recordRows(state) {
  const fields = state.names('record.');
  const rows = fields.map((field) => row(state, field, field.slice('record.'.length)));
  const saved = row(state, 'savedState', 'the file');
  return saved && saved.value !== 'readable' ? [saved, ...rows] : rows;
}

function keyRows(state) {
  return state.names('key.').map((field) => {
    const name = field.slice('key.'.length);
    const attempt = state.change(`try.${name}`);
    const made = row(state, field, name);
    if (attempt && attempt.value !== 'written') made.note = `last write: ${attempt.value}`;
    return made;
  });
}

function settingRows(state) {
  return [
    row(state, 'sleepDisabled', 'SleepDisabled', (value) => value ? '1' : '0'),
    row(state, 'idleSleep', 'idle sleep', (value) => value === 0 ? 'off' : `after ${value} min`),
  ];
}

// A row a thing in a list; the field's name ends with the thing's own.
function listRows(state, field, rowOf) {
  return (state.get(field) ?? []).map((each) => ({note: '', cause: each.cause, ...rowOf(each)}));
}

function assertionRows(state) {
  return listRows(state, 'assertions', ({id, type, reason, pid, timeout}) => ({
                                         field: `assertion.${id}`,
                                         label: id,
                                         value: type,
                                         text: type,
                                         note: `"${reason}", pid ${pid}, ${timeout}`
                                       }));
}

function helperRows(state) {
  return [
    row(state, 'helper', 'helper'),
    row(state, 'helperPid', 'pid'),
    row(state, 'helperSince', 'since', clockText, sinceNote(state)),
    row(state, 'helperStarts', 'starts'),
    row(state, 'helperVersion', 'installed version'),
    row(state, 'clientCount', 'clients it counts'),
    ...listRows(state, 'clients', (client) => ({
                                    field: `client.${client.pid}`,
                                    label: clientName(client),
                                    value: 'connected',
                                    text: 'connected',
                                    note: client.identity ? client.signingID : ''
                                  })),
  ];
}

function sinceNote(state) {
  const since = state.get('helperSince');
  return since === undefined ? '' : secondsText(since);
}

function faultRows(state) {
  return listRows(
      state, 'faults',
      ({text}) => ({field: `fault.${text}`, label: text, value: 'on', text: 'on'}));
}

const groups = [
  {id: 'machine', title: 'Machine', rows: machineRows},
  {id: 'limit', title: 'Limit', rows: limitRows},
  {id: 'helper', title: 'Helper and clients', rows: helperRows},
  {id: 'faults', title: 'Faults', rows: faultRows, nothing: 'No fault is on.'},
  {id: 'record', title: 'State record', rows: recordRows, nothing: 'Nothing is saved yet.'},
  {id: 'keys', title: 'Keys', rows: keyRows, nothing: 'No key was written yet.'},
  {id: 'assertions', title: 'Assertions', rows: assertionRows, nothing: 'None is held.'},
  {id: 'settings', title: 'Settings', rows: settingRows},
];

// [{id, title, nothing, rows: [{field, label, value, text, note, cause, origin}]}]; `origin` says
// where a value is from that no entry caused, unless it is from the start.
export function groupsOf(state) {
  return groups.map(
      ({id, title, nothing, rows}) =>
          ({id, title, nothing: nothing ?? '', rows: rows(state).filter((each) => each !== null)}));
}
