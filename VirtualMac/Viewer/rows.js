// A long list of rows as a list box. Only the rows in sight are in the page, so that a hundred
// thousand of them scroll like ten. The list box has the focus; its selected row is the cursor.

import {element, setText, token} from 'viewer/dom';

const spareRows = 8;
// Browsers cannot lay out more than some millions of pixels; a longer list scrolls in larger steps.
const tallest = 8_000_000;

export class Rows {
  // `rowOf(place)` makes the row at a place, which `keyOf(place)` names; `clicked(place)` is told
  // which one was clicked.
  constructor(place, {id, label, rowOf, keyOf, clicked}) {
    Object.assign(this, {rowOf, keyOf, made: new Map()});
    this.length = 0;
    this.selected = -1;
    this.rows = element('div', {class: 'rows', role: 'presentation'});
    this.space = element('div', {class: 'rows-space', role: 'presentation'}, this.rows);
    this.box = element(
        'div', {
          class: 'list-box',
          role: 'listbox',
          tabindex: 0,
          id,
          'aria-label': label,
          scroll: () => this.draw(),
          click: (event) => {
            const row = event.target.closest('[data-place]');
            if (row) clicked(Number(row.dataset.place));
          },
        },
        this.space);
    this.empty = element('p', {class: 'list-empty', hidden: true});
    this.node = element('div', {class: 'list-frame'}, this.box, this.empty);
    place.append(this.node);
    new ResizeObserver(() => this.resized()).observe(this.box);
  }

  resized() {
    this.layOut(this.length);
    if (this.place !== undefined) this.select(this.selected, this.place);
  }

  // There are so many rows now; `nothing` says why there are none.
  layOut(length, nothing = this.empty.textContent) {
    this.length = length;
    this.rowHeight = parseFloat(token('row-height')) || 24;
    this.height = Math.min(length * this.rowHeight, tallest);
    this.space.style.height = `${this.height}px`;
    this.empty.hidden = length > 0;
    this.empty.textContent = nothing;
    this.draw();
  }

  // How many pixels of the list one pixel of scrolling stands for.
  get stretch() {
    const room = this.height - this.box.clientHeight;
    const wanted = this.length * this.rowHeight - this.box.clientHeight;
    return room > 0 && wanted > room ? wanted / room : 1;
  }

  draw() {
    const {clientHeight, scrollTop} = this.box;
    if (!this.rowHeight || clientHeight === 0) return;
    const {stretch} = this;
    const first = Math.max(0, Math.floor(scrollTop * stretch / this.rowHeight) - spareRows);
    const last =
        Math.min(this.length, first + Math.ceil(clientHeight / this.rowHeight) + 2 * spareRows);
    const shift = first * this.rowHeight - scrollTop * stretch + scrollTop;
    this.rows.style.transform = `translateY(${shift}px)`;
    const shown = new Map();
    for (let place = first; place < last; ++place) {
      const key = this.keyOf(place);
      shown.set(key, this.told(this.made.get(key) ?? this.newRow(place), place));
    }
    this.put(shown);
    this.tellSelected();
  }

  // Rows that stay are left in the page, so that a click on one counts while others come.
  put(shown) {
    for (const [key, row] of this.made) {
      if (shown.get(key) !== row) row.remove();
    }
    this.made = shown;
    let next = this.rows.firstChild;
    for (const row of shown.values()) {
      if (row === next) {
        next = next.nextSibling;
      } else {
        this.rows.insertBefore(row, next);
      }
    }
  }

  newRow(place) {
    const row = this.rowOf(place);
    row.setAttribute('role', 'option');
    row.prepend(element('span', {class: 'row-mark', 'aria-hidden': 'true'}));
    return row;
  }

  // Says where a row stands and whether it is the selected one.
  told(row, place) {
    const isSelected = place === this.selected;
    const facts = {
      'data-place': place,
      'aria-selected': isSelected,
      'aria-setsize': this.length,
      'aria-posinset': place + 1,
    };
    for (const [name, value] of Object.entries(facts)) {
      if (row.getAttribute(name) !== String(value)) row.setAttribute(name, value);
    }
    setText(row.firstChild, isSelected ? '▶' : '');
    return row;
  }

  // The rows are others now, or look otherwise.
  forget() {
    this.put(new Map());
  }

  tellSelected() {
    const chosen = this.rows.querySelector('[aria-selected="true"]');
    if (chosen) {
      this.box.setAttribute('aria-activedescendant', chosen.id);
    } else {
      this.box.removeAttribute('aria-activedescendant');
    }
  }

  // Makes a row the selected one, -1: none, and brings `place` into sight.
  select(selected, place = selected) {
    this.selected = selected;
    this.place = place;
    if (this.rowHeight && this.box.clientHeight > 0) this.reveal(Math.max(0, place));
    this.draw();
  }

  reveal(place) {
    const view = this.box.clientHeight;
    const at = place * this.rowHeight;
    const top = this.box.scrollTop * this.stretch;
    const margin = Math.min(2 * this.rowHeight, view / 4);
    const above = at < top + margin;
    const below = at > top + view - this.rowHeight - margin;
    if (!above && !below) return;
    const isNear = Math.abs(at - top) < 2 * view;
    const wanted = !isNear ? at - view / 2 :
        above              ? at - margin :
                             at - view + this.rowHeight + margin;
    this.box.scrollTop = Math.max(0, wanted) / this.stretch;
  }

  get rowsInSight() {
    return Math.max(1, Math.floor(this.box.clientHeight / (this.rowHeight || 24)) - 1);
  }
}
