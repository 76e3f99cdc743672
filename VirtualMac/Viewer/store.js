// The one place where the page keeps what it shows: the run, the cursor, zoom, filter, search,
// theme and pane. Changes are made here, and those who show something hear of all changes of a
// frame at once.

export class Store {
  constructor(values) {
    this.values = values;
    this.listeners = [];
    this.changed = new Set();
    this.due = false;
  }

  get(name) {
    return this.values[name];
  }

  set(changes) {
    for (const [name, value] of Object.entries(changes)) {
      if (this.values[name] === value) continue;
      this.values[name] = value;
      this.changed.add(name);
    }
    this.schedule();
  }

  // Something inside the value has changed: a run has new lines.
  touch(name) {
    this.changed.add(name);
    this.schedule();
  }

  // `act` is called when one of the named values has changed.
  on(names, act) {
    this.listeners.push({names, act});
  }

  schedule() {
    if (this.due || this.changed.size === 0) return;
    this.due = true;
    requestAnimationFrame(() => this.flush());
  }

  flush() {
    this.due = false;
    const changed = this.changed;
    this.changed = new Set();
    for (const {names, act} of this.listeners) {
      if (names.some((name) => changed.has(name))) act(changed);
    }
  }
}

export function initialValues() {
  return {
    run: null,      // The run that is shown.
    other: null,    // The run beside it.
    data: 0,        // Touched whenever a run has new lines.
    cursor: -1,     // The entry at the cursor; -1: the start.
    follow: false,  // The cursor goes with the end of a live run.
    range: null,    // {from, to}: the seconds that the chart shows; null: all.
    kinds: null,    // The kinds that are shown, as a sorted list; null: all.
    categories: null,
    level: 'all',  // `all`, `error` or `fault`: the least that is shown of the log.
    filter: '',
    search: '',
    theme: 'auto',
    tab: 'state',
    row: -1,  // The row at the cursor where two runs stand side by side.
    onlyDifferences: false,
    ignoresNumbers: true,  // Numbers that the system hands out are no difference.
  };
}
