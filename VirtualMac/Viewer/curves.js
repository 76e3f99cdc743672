// The lines of the chart, as columns for the drawing library: seconds, charge, limit, the band's
// lower end, temperature. Each value holds until the next second of its column. The columns grow
// with the run, so that a long run that goes on costs no more than a short one.

import {atStart} from 'viewer/history';

const smallestBand = 1;
const largestBand = 20;
const justBefore = 0.0004;
const lineFields = ['charge', 'enforcing', 'limit', 'band', 'heldTemperature'];
const columnCount = 5;
const lowestShown = 0;
const highestShown = 100;

export class Curves {
  constructor(run) {
    this.run = run;
    this.begin();
  }

  begin() {
    this.columns = Array.from({length: columnCount}, () => []);
    this.places = lineFields.map(() => 0);
    this.read = atStart - 1;
    this.readings = 0;
    this.hasTail = false;
    this.least = highestShown;
    this.most = lowestShown;
    this.warm = false;
    this.starts = this.startValues();
  }

  startValues() {
    return lineFields.map((field) => this.run.history(field).values[0]);
  }

  // Takes in what the run has got since.
  update() {
    // The first level that is told counts for the time before it too.
    if (this.startValues().some((value, place) => value !== this.starts[place])) this.begin();
    if (this.hasTail) this.columns.forEach((column) => column.pop());
    for (const event of this.events()) this.add(event.time, this.valuesAt(event));
    this.read = this.run.entries.length - 1;
    this.hasTail = true;
    const last = this.columns[0].length - 1;
    this.columns.forEach((column, place) => column.push(place === 0 ? this.run.end : column[last]));
  }

  // The changes since the last time, in order: {time, index} of an entry, {time, celsius} of a
  // reading.
  events() {
    const indices = new Set(this.read < atStart ? [atStart] : []);
    for (const field of lineFields) {
      const {causes} = this.run.history(field);
      for (let place = causes.length - 1; place >= 0 && causes[place] > this.read; --place) {
        indices.add(causes[place]);
      }
    }
    const events = [...indices]
                       .sort((one, other) => one - other)
                       .map((index) => ({time: this.run.timeOf(index), index}));
    const {times, celsius} = this.run.readings;
    if (this.readings === times.length) return events;
    for (; this.readings < times.length; ++this.readings) {
      events.push({time: times[this.readings], celsius: celsius[this.readings]});
    }
    return events.sort((one, other) => one.time - other.time);
  }

  // The values of the columns behind the first from an event on.
  valuesAt({index, celsius}) {
    if (celsius !== undefined) {
      const last = this.columns[0].length - 1;
      return [1, 2, 3].map((column) => this.columns[column][last] ?? null).concat(celsius);
    }
    const [charge, enforcing, limit, band, held] =
        lineFields.map((field, place) => this.valueOf(field, place, index));
    const shown = enforcing && limit !== undefined ? limit : null;
    const width = Math.min(largestBand, Math.max(smallestBand, band));
    const low = shown !== null && shown < highestShown ? shown - width : null;
    const measured = this.readings > 0 ? this.columns[columnCount - 1].at(-1) : null;
    return [charge ?? null, shown, low, held ?? measured ?? null];
  }

  // The value of a field, when asked for entries in order.
  valueOf(field, place, index) {
    const {causes, values} = this.run.history(field);
    while (this.places[place] < causes.length && causes[this.places[place]] <= index) {
      ++this.places[place];
    }
    return values[this.places[place] - 1];
  }

  add(time, values) {
    const {columns} = this;
    const last = columns[0].length - 1;
    // A reading may be ahead of lines that are still on their way.
    const moment = last < 0 ? time : Math.max(time, columns[0][last]);
    if (columns[0][last] === moment) columns.forEach((column) => column.pop());
    this.endStretches(moment, values);
    [moment, ...values].forEach((value, place) => columns[place].push(value));
    for (const percent of values.slice(0, 3)) {
      if (percent === null) continue;
      this.least = Math.min(this.least, percent);
      this.most = Math.max(this.most, percent);
    }
    this.warm ||= values[3] !== null;
  }

  // Where a value ends, it still holds until just before.
  endStretches(time, values) {
    const {columns} = this;
    const last = columns[0].length - 1;
    const ends = last >= 0 &&
        values.some((value, place) => value === null && columns[place + 1][last] !== null);
    if (!ends) return;
    const before = Math.max((columns[0][last] + time) / 2, time - justBefore);
    columns.forEach((column, place) => column.push(place === 0 ? before : column[last]));
  }

  // The percents that the chart has to show: all that is told, with some room.
  get range() {
    if (this.least > this.most) return [lowestShown, highestShown];
    const room = Math.max(2, (this.most - this.least) * 0.08);
    const bottom = Math.max(lowestShown, Math.floor((this.least - room) / 5) * 5);
    const top = Math.ceil((this.most + room) / 5) * 5;
    return [bottom, Math.min(highestShown, Math.max(bottom + 10, top))];
  }
}
