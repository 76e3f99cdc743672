// The lines of the chart, as columns for the drawing library: seconds, charge, limit, the band's
// lower end, temperature. Each value holds until the next second of its column.

import {atStart} from 'viewer/history';

const justBefore = 0.0004;
const smallestBand = 1;
const largestBand = 20;

class Reader {
  constructor(run, field) {
    this.run = run;
    this.history = run.history(field);
    this.next = 0;
    this.value = undefined;
  }

  // The value at a moment, when asked for moments in order.
  at(index) {
    const {causes, values} = this.history;
    while (this.next < causes.length && causes[this.next] <= index)
      this.value = values[this.next++];
    return this.value;
  }
}

function indicesOf(run, fields) {
  const all = new Set([atStart]);
  for (const field of fields)
    for (const cause of run.history(field).causes) all.add(cause);
  return [...all].sort((one, other) => one - other);
}

const lineFields = ['charge', 'enforcing', 'limit', 'band', 'heldTemperature'];

// Where a value ends, it still holds until just before.
function endStretches(columns, time, values) {
  const last = columns[0].length - 1;
  const ends = last >= 0 &&
      values.some((value, place) => value === null && columns[place + 1][last] !== null);
  const before = Math.max((columns[0][last] + time) / 2, time - justBefore);
  if (ends) columns.forEach((column, place) => column.push(place === 0 ? before : column[last]));
}

// [seconds, charge, limit, low, temperature], with null where there is no value.
export function curvesOf(run) {
  const columns = [[], [], [], [], []];
  const readers = lineFields.map((field) => new Reader(run, field));
  const add = (time, values) => {
    const last = columns[0].length - 1;
    if (columns[0][last] === time) columns.forEach((column) => column.pop());
    endStretches(columns, time, values);
    [time, ...values].forEach((value, place) => columns[place].push(value));
  };
  let values = [null, null, null, null];
  for (const index of indicesOf(run, lineFields)) {
    const [charge, enforcing, limit, band, warmth] = readers.map((reader) => reader.at(index));
    const held = enforcing && limit !== undefined ? limit : null;
    const width = Math.min(largestBand, Math.max(smallestBand, band));
    values =
        [charge ?? null, held, held !== null && held < 100 ? held - width : null, warmth ?? null];
    add(run.timeOf(index), values);
  }
  add(run.end, values);
  return run.readings.times.length > 0 ? withReadings(columns, run.readings) : columns;
}

// The temperatures that a live machine gave take the place of those that the journal tells.
function withReadings(columns, readings) {
  const told = columns.slice(0, 4);
  const times = [...new Set([...columns[0], ...readings.times])].sort((one, other) => one - other);
  const result = [times, [], [], [], []];
  let place = 0;
  let reading = -1;
  for (const time of times) {
    while (place + 1 < columns[0].length && columns[0][place + 1] <= time) ++place;
    while (reading + 1 < readings.times.length && readings.times[reading + 1] <= time) ++reading;
    for (let column = 1; column < 4; ++column) result[column].push(told[column][place]);
    result[4].push(reading < 0 ? null : readings.celsius[reading]);
  }
  return result;
}

// The percents that the chart has to show: all that is told, with some room.
export function percentRange(columns) {
  const told = [...columns[1], ...columns[2], ...columns[3]].filter((value) => value !== null);
  if (told.length === 0) return [0, 100];
  const least = told.reduce((one, other) => Math.min(one, other));
  const most = told.reduce((one, other) => Math.max(one, other));
  const room = Math.max(2, (most - least) * 0.08);
  const bottom = Math.max(0, Math.floor((least - room) / 5) * 5);
  return [bottom, Math.min(100, Math.max(bottom + 10, Math.ceil((most + room) / 5) * 5))];
}
