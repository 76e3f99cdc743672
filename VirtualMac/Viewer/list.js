// The journal and the log as one list. Only the rows in sight are in the page, so that a hundred
// thousand entries scroll like ten. It is a list box: the cursor is its selected option.

import {element, markedText, token} from 'viewer/dom';
import {Counts, finderOf, Selection, textOf} from 'viewer/filter';
import {lastUpTo} from 'viewer/history';
import {clockText, secondsText} from 'viewer/time';

const spareRows = 8;
// Browsers cannot lay out more than some millions of pixels; a longer list scrolls in larger steps.
const tallest = 8_000_000;

export class EntryList {
  // `select(index)` is called when a person chooses an entry.
  constructor(place, store, select) {
    this.store = store;
    this.select = select;
    this.selection = new Selection();
    this.counts = new Counts();
    this.finder = finderOf('');
    this.rows = element('div', {class: 'rows'});
    this.space = element('div', {class: 'rows-space', role: 'presentation'}, this.rows);
    this.box = element('div', {
      class: 'list-box', role: 'listbox', tabindex: 0, id: 'entries', 'aria-label': 'Journal and log',
      scroll: () => this.draw(), click: (event) => this.clicked(event),
    }, this.space);
    this.empty = element('p', {class: 'list-empty', hidden: true});
    place.append(this.box, this.empty);
    new ResizeObserver(() => this.draw()).observe(this.box);
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
    this.layOut();
    this.showCursor();
  }

  extend() {
    if (!this.selection.run) return;
    this.counts.extend();
    this.selection.extend();
    this.layOut();
  }

  search() {
    this.finder = finderOf(this.store.get('search'));
    this.draw();
  }

  get length() {
    return this.selection.indices.length;
  }

  layOut() {
    this.rowHeight = parseFloat(token('row-height')) || 24;
    this.height = Math.min(this.length * this.rowHeight, tallest);
    this.space.style.height = `${this.height}px`;
    const none = this.length === 0;
    this.empty.hidden = !none;
    this.empty.textContent = this.selection.run.entries.length === 0 ?
        'Nothing has happened yet.' : 'Nothing passes the filter.';
    this.draw();
  }

  // How many rows one pixel of scrolling stands for, as a share of a row.
  get stretch() {
    const room = this.height - this.box.clientHeight;
    const wanted = this.length * this.rowHeight - this.box.clientHeight;
    return room > 0 && wanted > room ? wanted / room : 1;
  }

  draw() {
    if (!this.selection.run || !this.rowHeight) return;
    const top = this.box.scrollTop;
    const first = Math.max(0, Math.floor(top * this.stretch / this.rowHeight) - spareRows);
    const count = Math.ceil(this.box.clientHeight / this.rowHeight) + 2 * spareRows;
    const shown = this.selection.indices.slice(first, first + count);
    const shift = first * this.rowHeight - top * this.stretch + top;
    this.rows.style.transform = `translateY(${shift}px)`;
    const cursor = this.store.get('cursor');
    this.rows.replaceChildren(...shown.map((index, place) => this.row(index, first + place, cursor)));
    const chosen = this.rows.querySelector('[aria-selected="true"]');
    if (chosen) {
      this.box.setAttribute('aria-activedescendant', chosen.id);
    } else {
      this.box.removeAttribute('aria-activedescendant');
    }
  }

  row(index, place, cursor) {
    const entry = this.selection.run.entries[index];
    const isBad = entry.level === 'error' || entry.level === 'fault';
    const about = [entry.category, isBad ? entry.level : ''].filter((word) => word !== '').join(' ');
    return element(
        'div', {
          class: `row kind-${entry.kind}${isBad ? ' bad' : ''}`, role: 'option', id: `entry-${index}`,
          'data-index': index, 'data-kind': entry.kind, 'aria-selected': String(index === cursor),
          'aria-setsize': this.length, 'aria-posinset': place + 1,
          title: `${secondsText(entry.time)}  ${entry.kind}  ${entry.text}`,
        },
        element('span', {class: 'row-mark', 'aria-hidden': 'true'}, index === cursor ? '▶' : ''),
        element('span', {class: 'row-time'}, clockText(entry.time)),
        element('span', {class: 'row-kind'}, entry.kind),
        element('span', {class: 'row-text'},
                about === '' ? null : element('span', {class: 'row-about'}, about + ' '),
                markedText(textOf(entry), this.finder.find(textOf(entry)))));
  }

  clicked(event) {
    const row = event.target.closest('[data-index]');
    if (row) this.select(Number(row.dataset.index));
  }

  // The place in the list of an entry, or of the last one before it that is shown.
  placeOf(index) {
    return lastUpTo(this.selection.indices, index);
  }

  showCursor() {
    if (!this.selection.run) return;
    const place = Math.max(0, this.placeOf(this.store.get('cursor')));
    const view = this.box.clientHeight;
    const at = place * this.rowHeight;
    const top = this.box.scrollTop * this.stretch;
    const margin = Math.min(2 * this.rowHeight, view / 4);
    if (at < top + margin || at > top + view - this.rowHeight - margin) {
      const near = Math.abs(at - top) < 2 * view;
      const wanted = near && at < top + margin ? at - margin :
          near ? at - view + this.rowHeight + margin : at - view / 2;
      this.box.scrollTop = Math.max(0, wanted) / this.stretch;
    }
    this.draw();
  }

  // The entry that is `steps` shown rows away from the cursor; null: there is none.
  neighbour(steps) {
    const {indices} = this.selection;
    if (indices.length === 0) return null;
    const cursor = this.store.get('cursor');
    const place = this.placeOf(cursor);
    const between = place < 0 || indices[place] !== cursor;
    const wanted = place + steps + (between && steps < 0 ? 1 : 0);
    return indices[Math.max(0, Math.min(indices.length - 1, wanted))];
  }

  rowsInSight() {
    return Math.max(1, Math.floor(this.box.clientHeight / this.rowHeight) - 1);
  }
}
