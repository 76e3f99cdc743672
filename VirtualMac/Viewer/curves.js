// The lines of the chart, as columns for the drawing library: seconds, charge, limit, the band's
// lower end, temperature. Each value holds until the next second of its column. The columns grow
// with the run, so that a long run that goes on costs no more than a short one.

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
    this.histories = lineFields.map((field) => this.run.history(field));
    this.places = lineFields.map(() => 0);
    this.now = lineFields.map(() => undefined);
    this.measured = null;
    this.readings = 0;
    this.hasTail = false;
    this.least = highestShown;
    this.most = lowestShown;
    this.warm = false;
    this.starts = this.startValues();
  }

  startValues() {
    return this.histories.map((history) => history.values[0]);
  }

  // Takes in what the run has got since.
  update() {
    // The first level that is told counts for the time before it too.
    if (this.startValues().some((value, place) => value !== this.starts[place])) this.begin();
    if (this.hasTail) this.columns.forEach((column) => column.pop());
    while (this.takeNext());
    this.hasTail = true;
    const last = this.columns[0].length - 1;
    this.columns.forEach((column, place) => column.push(place === 0 ? this.run.end : column[last]));
  }

  // Takes in the next entry with a change, or the next reading; false: there is none.
  takeNext() {
    const {run, histories, places, now} = this;
    let index = Infinity;
    for (let field = 0; field < histories.length; ++field) {
      index = Math.min(index, histories[field].causes[places[field]] ?? Infinity);
    }
    const readAt = run.readings.times[this.readings];
    if (index === Infinity && readAt === undefined) return false;
    const time = index === Infinity ? Infinity : run.timeOf(index);
    if (readAt !== undefined && readAt < time) {
      this.measured = run.readings.celsius[this.readings++];
      this.add(readAt, this.values());
      return true;
    }
    for (let field = 0; field < histories.length; ++field) {
      const {causes, values} = histories[field];
      if (causes[places[field]] === index) now[field] = values[places[field]++];
    }
    this.add(time, this.values());
    return true;
  }

  // The values of the columns behind the first.
  values() {
    const [charge, enforcing, limit, band, held] = this.now;
    const shown = enforcing && limit !== undefined ? limit : null;
    const width = Math.min(largestBand, Math.max(smallestBand, band));
    const low = shown !== null && shown < highestShown ? shown - width : null;
    return [charge ?? null, shown, low, this.measured ?? held ?? null];
  }

  add(time, values) {
    const {columns} = this;
    const last = columns[0].length - 1;
    // A reading may be ahead of lines that are still on their way.
    const moment = last < 0 ? time : Math.max(time, columns[0][last]);
    if (columns[0][last] === moment) columns.forEach((column) => column.pop());
    this.endStretches(moment, values);
    columns[0].push(moment);
    for (let place = 1; place < columnCount; ++place) columns[place].push(values[place - 1]);
    for (let place = 0; place < 3; ++place) {
      if (values[place] === null) continue;
      this.least = Math.min(this.least, values[place]);
      this.most = Math.max(this.most, values[place]);
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
