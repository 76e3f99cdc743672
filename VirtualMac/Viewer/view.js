// The stretch of time that the chart shows: zooming and moving it. All in seconds of the journal.

const shortest = 0.05;
// A run of a moment still needs a width.
const narrowestRun = 1;

export class View {
  constructor(store) {
    this.store = store;
  }

  // The seconds that both runs together last.
  get whole() {
    const runs = [this.store.get('run'), this.store.get('other')].filter((run) => run);
    const end = Math.max(narrowestRun, ...runs.map((run) => run.end));
    return {from: 0, to: end + end * 0.01};
  }

  get range() {
    return this.store.get('range') ?? this.whole;
  }

  get isWhole() {
    return this.store.get('range') === null;
  }

  set(from, to) {
    const {whole} = this;
    const length = Math.max(shortest, to - from);
    if (length >= whole.to - whole.from) {
      this.store.set({range: null});
      return;
    }
    const start = Math.min(Math.max(from, whole.from), whole.to - length);
    this.store.set({range: {from: start, to: start + length}});
  }

  // Shows `factor` as much time as now; the moment `at` keeps its place.
  zoom(factor, at) {
    const {from, to} = this.range;
    this.set(at - (at - from) * factor, at + (to - at) * factor);
  }

  // Moves by a share of what is shown.
  move(share) {
    const {from, to} = this.range;
    const step = (to - from) * share;
    this.set(from + step, to + step);
  }

  all() {
    this.store.set({range: null});
  }

  // Moves as little as is needed to show a moment.
  include(time) {
    const {from, to} = this.range;
    if (this.isWhole || (time >= from && time <= to)) return;
    const length = to - from;
    this.set(time - length / 2, time + length / 2);
  }
}

// Time to pixels and back, for a plot `width` pixels wide.
export function scaleOf({from, to}, width) {
  const perSecond = width / (to - from);
  return {
    x: (time) => (time - from) * perSecond,
    time: (x) => from + x / perSecond,
    from,
    to,
    width,
  };
}
