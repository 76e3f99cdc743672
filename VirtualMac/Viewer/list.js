// The journal and the log of one run as a list, as far as they pass the filter.

import {element, markedText} from 'viewer/dom';
import {Counts, finderOf, Selection, textOf} from 'viewer/filter';
import {lastUpTo} from 'viewer/history';
import {Rows} from 'viewer/rows';
import {clockText, secondsText} from 'viewer/time';

// The cells of an entry, with what a search finds marked.
export function cellsOf(entry, finder) {
  const isBad = entry.level === 'error' || entry.level === 'fault';
  const about = [entry.category, isBad ? entry.level : ''].filter((word) => word !== '').join(' ');
  return [
    element('span', {class: 'row-time'}, clockText(entry.time)),
    element('span', {class: 'row-kind'}, entry.kind),
    element(
        'span', {class: 'row-text'},
        about === '' ? null : element('span', {class: 'row-about'}, about + ' '),
        markedText(textOf(entry), finder.find(textOf(entry)))),
  ];
}

export function classOf(entry) {
  return `row kind-${entry.kind}${
      entry.level === 'error' || entry.level === 'fault' ? ' bad' : ''}`;
}

export class EntryList {
  // `choose(index)` is called when a person chooses an entry.
  constructor(place, store, choose) {
    this.store = store;
    this.selection = new Selection();
    this.counts = new Counts();
    this.finder = finderOf('');
    this.rows = new Rows(place, {
      id: 'entries',
      label: 'Journal and log',
      rowOf: (number) => this.row(number),
      keyOf: (number) => this.selection.indices[number],
      clicked: (number) => choose(this.selection.indices[number]),
    });
    store.on(['run', 'kinds', 'categories', 'level', 'filter'], () => this.begin());
    store.on(['data'], () => this.extend());
    store.on(['search'], () => this.search());
    store.on(['cursor'], () => this.showCursor());
  }

  begin() {
    const run = this.store.get('run');
    if (!run) return;
    if (this.counts.run !== run) this.counts.begin(run);
    this.counts.extend();
    this.selection.begin(run, this.store.values);
    this.rows.forget();
    this.layOut();
    this.showCursor();
  }

  extend() {
    if (!this.selection.run) return;
    this.counts.extend();
    this.selection.extend();
    this.layOut();
  }

  layOut() {
    const isEmpty = this.selection.run.entries.length === 0;
    this.rows.layOut(
        this.length, isEmpty ? 'Nothing has happened yet.' : 'Nothing passes the filter.');
  }

  search() {
    this.finder = finderOf(this.store.get('search'));
    this.rows.forget();
    this.rows.draw();
  }

  get length() {
    return this.selection.indices.length;
  }

  row(number) {
    const index = this.selection.indices[number];
    const entry = this.selection.run.entries[index];
    return element(
        'div', {
          class: classOf(entry),
          id: `entry-${index}`,
          'data-index': index,
          'data-kind': entry.kind,
          title: `${secondsText(entry.time)}  ${entry.kind}  ${entry.text}`,
        },
        ...cellsOf(entry, this.finder));
  }

  // The place in the list of an entry, or of the last one before it that is shown.
  placeOf(index) {
    return lastUpTo(this.selection.indices, index);
  }

  showCursor() {
    if (!this.selection.run) return;
    const cursor = this.store.get('cursor');
    const place = this.placeOf(cursor);
    this.rows.select(this.selection.indices[place] === cursor ? place : -1, place);
  }

  // The entry that is `steps` shown rows away from the cursor; null: there is none.
  neighbour(steps) {
    const {indices} = this.selection;
    if (indices.length === 0) return null;
    const cursor = this.store.get('cursor');
    const place = this.placeOf(cursor);
    const isBetween = place < 0 || indices[place] !== cursor;
    const wanted = place + steps + (isBetween && steps < 0 ? 1 : 0);
    return indices[Math.max(0, Math.min(indices.length - 1, wanted))];
  }
}
