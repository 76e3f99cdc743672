// A run: the entries of a journal, and the machine's state after each of them. A state is a set of
// named fields. Each field keeps only its changes, so that the state at any entry, and the entry
// that caused a field's value, are found by halving.

import {clientsHeard} from 'viewer/clients';
import {EnforcementTrail} from 'viewer/enforcement';
import {hear} from 'viewer/fold';
import {atStart, History, lastUpTo} from 'viewer/history';
import {entryFrom} from 'viewer/journal';
import {setStart} from 'viewer/start';

const mostDamagedKept = 20;
const smallestWarming = 0.05;

// The machine after one entry.
class State {
  constructor(run, index) {
    this.run = run;
    this.index = index;
  }

  // The change of a field that is in force; undefined: nothing has told the field yet.
  change(field) {
    const history = this.run.histories.get(field);
    const position = history ? lastUpTo(history.causes, this.index) : -1;
    if (position < 0) return undefined;
    const cause = history.causes[position];
    return {cause, value: history.values[position], assumed: history.assumed && position === 0};
  }

  get(field) {
    return this.change(field)?.value;
  }

  // The names of the fields that begin with `prefix` and have a value, sorted.
  names(prefix) {
    const all = [...this.run.histories.keys()].filter((name) => name.startsWith(prefix));
    return all.filter((name) => this.get(name) !== undefined).sort();
  }

  // {field: index of the entry that caused its value}
  get causes() {
    const told = {};
    for (const field of this.run.histories.keys()) {
      const change = this.change(field);
      if (change && change.value !== undefined) told[field] = change.cause;
    }
    return told;
  }

  // {field: value}
  get values() {
    return Object.fromEntries(Object.keys(this.causes).map((field) => [field, this.get(field)]));
  }
}

export class Run {
  // `failures`: [{time, line, text}], each of which becomes an entry of kind `fail` at its time.
  constructor({title = '', head = null, story = null, failures = [], end = 0} = {}) {
    Object.assign(this, {title, head, story, givenEnd: end});
    this.failures = [...failures].sort((one, other) => one.time - other.time);
    this.entries = [];
    this.histories = new Map();
    this.marks = [];    // {index, kind, text}, in the order of the entries.
    this.clients = [];  // Stretches of connected clients, in the order of their begin.
    this.openClients = [];
    this.readings = {times: [], celsius: []};
    this.clocks = [];  // {time, start}: a wall clock that was set.
    this.damaged = {count: 0, lines: []};
    this.linesRead = 0;
    this.failuresTold = 0;
    this.trail = new EnforcementTrail();
    setStart(this);
  }

  addLines(lines) {
    for (const line of lines) this.addLine(line);
  }

  addLine(line) {
    ++this.linesRead;
    if (line === '' || line.startsWith('#')) return;
    const read = entryFrom(line);
    if (read) {
      this.tellFailuresBefore(read.entry.time);
      this.addEntry(read.entry, read.values);
      return;
    }
    ++this.damaged.count;
    if (this.damaged.lines.length < mostDamagedKept) {
      this.damaged.lines.push({number: this.linesRead, text: line});
    }
  }

  // No further line will come: the failures behind the last one are told.
  finish() {
    this.tellFailuresBefore(Infinity);
  }

  tellFailuresBefore(time) {
    while (this.failuresTold < this.failures.length) {
      const failure = this.failures[this.failuresTold];
      if (failure.time >= time) return;
      ++this.failuresTold;
      const texts = {kind: 'fail', text: failure.text, category: '', level: '', message: ''};
      this.addEntry({index: 0, time: failure.time, ...texts, effect: 'failed', failure}, []);
      failure.index = this.entries.length - 1;
    }
  }

  addEntry(entry, values) {
    entry.index = this.entries.length;
    this.entries.push(entry);
    hear(this, entry, values);
    clientsHeard(this, entry);
    const enforcement = this.trail.hear(entry);
    if (enforcement !== null) this.set('enforcement', enforcement);
  }

  history(field) {
    let history = this.histories.get(field);
    if (!history) this.histories.set(field, (history = new History()));
    return history;
  }

  // The value of a field after the latest entry.
  latest(field) {
    return this.histories.get(field)?.last;
  }

  // The latest entry gives a field its value; undefined takes it away.
  set(field, value) {
    this.history(field).set(this.entries.length - 1, value);
  }

  // The same, for a thing that is only told when it changes: before, it was `before`.
  change(field, value, before) {
    const history = this.history(field);
    if (history.values.length === 0) history.set(atStart, before);
    if (history.assumed && history.values.length === 1 && history.last === value) {
      history.values[0] = before;
    }
    this.set(field, value);
  }

  mark(kind, text) {
    this.marks.push({index: this.entries.length - 1, kind, text});
  }

  // The marks from one moment to another.
  marksBetween(from, to) {
    const timeOf = (mark) => this.timeOf(mark.index);
    return this.marks.slice(
        lastUpTo(this.marks, from, timeOf) + 1, lastUpTo(this.marks, to, timeOf) + 1);
  }

  // The moment, and the temperature then, that the machine gave when it was asked.
  addReading(time, celsius) {
    const {times, celsius: before} = this.readings;
    this.givenEnd = Math.max(this.givenEnd, time);
    const last = times.length - 1;
    if (last >= 0 && (times[last] >= time || Math.abs(before[last] - celsius) < smallestWarming))
      return;
    times.push(time);
    before.push(celsius);
  }

  // The state after entry number `index`; -1: the start.
  stateAt(index) {
    return new State(this, Math.min(index, this.entries.length - 1));
  }

  // The last entry at `time` or before; -1: the run begins later.
  indexAt(time) {
    return lastUpTo(this.entries, time, (entry) => entry.time);
  }

  timeOf(index) {
    return index < 0 ? 0 : this.entries[index].time;
  }

  get end() {
    return Math.max(this.givenEnd, this.timeOf(this.entries.length - 1));
  }

  // The wall clock at second 0, as it is at a moment: a person can set it. Null: nobody told it.
  clockAt(time) {
    const position = lastUpTo(this.clocks, time, (clock) => clock.time);
    return position < 0 ? this.head?.clock ?? null : this.clocks[position].start;
  }
}
