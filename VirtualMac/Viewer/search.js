// The matches of the search among the entries that are shown, and going from one to the next.

import {finderOf, textOf} from 'viewer/filter';
import {lastUpTo} from 'viewer/history';

export class Search {
  constructor(store, list) {
    Object.assign(this, {store, list, matches: [], read: 0});
  }

  // The indices of the entries that match, kept while lines come in.
  update() {
    const words = this.store.get('search');
    const {selection} = this.list;
    if (words !== this.words || selection.indices !== this.indices) {
      Object.assign(this, {words, indices: selection.indices, matches: [], read: 0});
      this.finder = finderOf(words);
    }
    if (this.finder.empty) return;
    for (; this.read < this.indices.length; ++this.read) {
      const index = this.indices[this.read];
      const entry = selection.run.entries[index];
      if (this.finder.test(textOf(entry)) || this.finder.test(entry.category))
        this.matches.push(index);
    }
  }

  // The entry of the match behind (1) or before (-1) the cursor, round the ends; null: none.
  neighbour(way) {
    this.update();
    const {matches} = this;
    if (matches.length === 0) return null;
    const place = lastUpTo(matches, this.store.get('cursor'));
    const isOn = matches[place] === this.store.get('cursor');
    const wanted = way > 0 ? place + 1 : place - (isOn ? 1 : 0);
    return matches[(wanted + matches.length) % matches.length];
  }

  // `3 of 41`, `none`, and nothing when nothing is searched.
  text() {
    this.update();
    if (this.finder.empty || this.finder.error !== '') return '';
    if (this.matches.length === 0) return 'none';
    const place = lastUpTo(this.matches, this.store.get('cursor'));
    const isOn = this.matches[place] === this.store.get('cursor');
    return `${isOn ? place + 1 : '–'} of ${this.matches.length}`;
  }
}
