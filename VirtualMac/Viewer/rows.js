// A long list of rows as a list box. Only the rows in sight are in the page, so that a hundred
// thousand of them scroll like ten. The list box has the focus; its selected row is the cursor.

import {element, token} from 'viewer/dom';

const spareRows = 8;
// Browsers cannot lay out more than some millions of pixels; a longer list scrolls in larger steps.
const tallest = 8_000_000;

export class Rows {
  // `rowOf(place)` makes the row at a place; `clicked(place)` is told which one was clicked.
  constructor(place, {id, label, rowOf, clicked}) {
    this.rowOf = rowOf;
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
    const made = [];
    for (let place = first; place < last; ++place) made.push(this.made(place));
    this.rows.replaceChildren(...made);
    this.tellSelected();
  }

  made(place) {
    const row = this.rowOf(place);
    const facts = {
      role: 'option',
      'data-place': place,
      'aria-selected': String(place === this.selected),
      'aria-setsize': this.length,
      'aria-posinset': place + 1,
    };
    for (const [name, value] of Object.entries(facts)) row.setAttribute(name, value);
    row.prepend(element(
        'span', {class: 'row-mark', 'aria-hidden': 'true'}, place === this.selected ? '▶' : ''));
    return row;
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
