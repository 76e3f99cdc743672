// Two runs side by side: their lines in rows, the first difference and the way to the others.

import {alignedRows, isDifference, tickSeconds} from 'viewer/align';
import {button, element, setText} from 'viewer/dom';
import {entryTest, finderOf} from 'viewer/filter';
import {lastUpTo} from 'viewer/history';
import {cellsOf, classOf} from 'viewer/list';
import {Rows} from 'viewer/rows';
import {durationText} from 'viewer/time';

const pauseMilliseconds = 2000;

const words = {
  same: ['=', 'the same'],
  near: ['≈', `the same, within ${tickSeconds} s or but for a number of the system`],
  late: ['↔', 'the same, at another time'],
  changed: ['≠', 'differs'],
  left: ['−', 'only in the first run'],
  right: ['+', 'only in the second run'],
};

export class Comparison {
  constructor(listPlace, panePlace, store) {
    Object.assign(this, {store, panePlace, rows: [], shown: []});
    this.frame = element('div', {class: 'compare-frame', hidden: true});
    this.names = element('div', {class: 'compare-names', 'aria-hidden': 'true'});
    this.frame.append(this.names);
    listPlace.append(this.frame);
    this.list = new Rows(this.frame, {
      id: 'pairs',
      label: 'Both runs, line by line',
      rowOf: (place) => this.row(this.shown[place]),
      keyOf: (place) => this.shown[place],
      clicked: (place) => this.choose(this.shown[place]),
    });
    this.finder = finderOf('');
    this.makePane();
    store.on(['run', 'other', 'ignoresNumbers'], () => this.begin());
    store.on(['data'], () => this.extend());
    store.on(['kinds', 'categories', 'level', 'filter', 'onlyDifferences'], () => this.filter());
    store.on(['search'], () => this.search());
    store.on(['cursor', 'row'], () => this.follow());
  }

  get isOn() {
    return this.store.get('other') !== null && this.store.get('run') !== null;
  }

  begin() {
    this.frame.hidden = !this.isOn;
    this.rows = [];
    this.shown = [];
    this.list.forget();
    if (!this.isOn) return;
    const [one, other] = [this.store.get('run'), this.store.get('other')];
    this.rows = alignedRows(one, other, this.store.get('ignoresNumbers'));
    this.differences = [];
    this.places = {left: new Map(), right: new Map()};
    let [left, right] = [-1, -1];
    this.rows.forEach((row, place) => {
      left = row.left?.index ?? left;
      right = row.right?.index ?? right;
      Object.assign(row, {place, leftUpTo: left, rightUpTo: right});
      if (row.left) this.places.left.set(left, place);
      if (row.right) this.places.right.set(right, place);
      if (isDifference(row)) this.differences.push(place);
    });
    this.names.replaceChildren(
        element('span', {}, `A  ${one.title}`), element('span', {}, `B  ${other.title}`));
    this.filter();
    this.drawPane();
  }

  filter() {
    if (!this.isOn) return;
    const passes = entryTest(this.store.values);
    const only = this.store.get('onlyDifferences');
    this.shown = this.rows
                     .filter(
                         (row) => (!only || isDifference(row)) &&
                             [row.left, row.right].some((entry) => entry !== null && passes(entry)))
                     .map((row) => row.place);
    this.list.layOut(
        this.shown.length,
        only ? 'No difference passes the filter.' : 'Nothing passes the filter.');
    this.follow();
  }

  search() {
    this.finder = finderOf(this.store.get('search'));
    this.list.forget();
    this.list.draw();
  }

  row(place) {
    const row = this.rows[place];
    const [sign, meaning] = words[row.kind];
    const side = (entry, name) => element(
        'span', {class: `side ${entry ? classOf(entry) : 'side-empty'}`, 'data-side': name},
        ...(entry ? cellsOf(entry, this.finder) : ['–']));
    const late = row.kind === 'near' || row.kind === 'late' || row.kind === 'changed';
    const shift = late && Math.abs(row.shift) > 0.0005 ?
        `${row.shift > 0 ? '+' : '−'}${durationText(row.shift)}` :
        '';
    return element(
        'div', {
          class: `row pair pair-${row.kind}`,
          id: `pair-${place}`,
          'data-pair': place,
          'data-kind': row.kind,
          title: `${meaning}\nA  ${row.left?.text ?? '–'}\nB  ${row.right?.text ?? '–'}`
        },
        element('span', {class: 'pair-sign', 'aria-label': meaning}, sign), side(row.left, 'left'),
        side(row.right, 'right'), element('span', {class: 'pair-shift'}, shift));
  }

  choose(place) {
    this.store.set({row: place, cursor: this.rows[place].leftUpTo, follow: false});
  }

  // The row of an entry of the second run was chosen.
  chooseRight(index) {
    const place = this.places.right.get(index);
    if (place !== undefined) this.choose(place);
  }

  // The row goes with the cursor, unless it is one that the cursor stands for already.
  follow() {
    if (!this.isOn) return;
    const cursor = this.store.get('cursor');
    let place = this.store.get('row');
    if (this.rows[place]?.leftUpTo !== cursor) {
      place = this.places.left.get(cursor) ?? -1;
      this.store.set({row: place});
    }
    const at = lastUpTo(this.shown, place);
    this.list.select(this.shown[at] === place ? at : -1, at);
  }

  // The entry of the second run at the cursor.
  get rightIndex() {
    if (!this.isOn) return -1;
    const row = this.rows[this.store.get('row')];
    return row ? row.rightUpTo : -1;
  }

  neighbour(steps) {
    const at = lastUpTo(this.shown, this.store.get('row'));
    return this.shown[Math.max(0, Math.min(this.shown.length - 1, at + steps))] ?? null;
  }

  // The difference behind (1) or before (-1) the row at the cursor; null: there is none.
  difference(way) {
    if (!this.isOn || this.differences.length === 0) return null;
    const row = this.store.get('row');
    const at = lastUpTo(this.differences, row);
    const isOn = this.differences[at] === row;
    return this.differences[way > 0 ? at + 1 : at - (isOn ? 1 : 0)] ?? null;
  }

  goToDifference(way) {
    const place = this.difference(way);
    if (place !== null) this.choose(place);
    return place !== null;
  }

  goToFirst() {
    if (this.isOn && this.differences.length > 0) this.choose(this.differences[0]);
  }

  makePane() {
    const {store} = this;
    this.boxes = ['onlyDifferences', 'ignoresNumbers'].map(
        (name) => element('input', {
          type: 'checkbox',
          'data-option': name,
          change: (event) => store.set({[name]: event.target.checked}),
        }));
    this.total = element('p', {id: 'difference-count'});
    const step = (label, act, name) => button(label, act, {'data-act': name});
    this.ways = [
      step('First', () => this.goToFirst(), 'firstDifference'),
      step('Previous (D)', () => this.goToDifference(-1), 'previousDifference'),
      step('Next (d)', () => this.goToDifference(1), 'nextDifference'),
    ];
    this.counts = Object.keys(words).map((kind) => element('td', {'data-count': kind}));
    const kinds = Object.values(words).map(
        ([sign, meaning], place) => element(
            'tr', {}, element('td', {}, sign), element('td', {}, meaning), this.counts[place]));
    const check = (place, label) =>
        element('label', {class: 'check'}, this.boxes[place], ` ${label}`);
    this.panePlace.append(
        this.total, element('div', {class: 'buttons'}, ...this.ways), check(0, 'only differences'),
        check(1, 'numbers that the system hands out (processes, assertions) are no difference'),
        element('table', {class: 'plain-table'}, element('tbody', {}, ...kinds)),
        element(
            'p', {class: 'nothing'},
            'The charts leave out the lanes that are the same in both runs.'),
        button('End the comparison', () => store.set({other: null, row: -1})));
  }

  drawPane() {
    const total = this.differences.length;
    setText(
        this.total,
        total === 0 ? 'No difference.' : `${total} difference${total === 1 ? '' : 's'}.`);
    this.total.dataset.differences = total;
    for (const way of this.ways) way.disabled = total === 0;
    for (const box of this.boxes) box.checked = this.store.get(box.dataset.option);
    const numbers = new Map();
    for (const {kind} of this.rows) numbers.set(kind, (numbers.get(kind) ?? 0) + 1);
    for (const count of this.counts) setText(count, String(numbers.get(count.dataset.count) ?? 0));
  }

  // A run that goes on is compared anew now and then.
  extend() {
    if (!this.isOn || this.due) return;
    this.due = setTimeout(() => {
      this.due = null;
      this.begin();
    }, pauseMilliseconds);
  }
}
