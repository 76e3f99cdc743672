// The machine at the cursor, field by field; each says which line caused it.

import {button, element} from 'viewer/dom';
import {lineOf} from 'viewer/journal';

export class Panes {
  constructor(place, store, choose) {
    Object.assign(this, {place, store, choose});
    store.on(['cursor', 'run', 'data'], () => this.draw());
  }

  draw() {
    const run = this.store.get('run');
    const state = run.stateAt(this.store.get('cursor'));
    const rows = Object.entries(state.causes).map(([field, cause]) => element(
        'tr', {}, element('th', {scope: 'row'}, field),
        element('td', {'data-field': field}, JSON.stringify(state.get(field))),
        element('td', {}, cause < 0 ? 'at the start' :
            button('why', () => this.choose(cause), {title: lineOf(run.entries[cause])}))));
    this.place.replaceChildren(element('table', {}, ...rows));
  }
}
