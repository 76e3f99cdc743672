// The machine at the cursor, field by field, each with the line that caused it. The rows stay in
// the page and only their texts change, so that they can be clicked while a machine runs. With a
// second run beside the first, each row has the values of both.

import {button, element, setText} from 'viewer/dom';
import {lineOf} from 'viewer/journal';
import {rove} from 'viewer/roving';
import {groupsOf} from 'viewer/stateRows';
import {clockText} from 'viewer/time';
import {whyOf} from 'viewer/why';

class Row {
  constructor(field, ask) {
    this.label = element('th', {scope: 'row'});
    this.value = element('span', {'data-field': field});
    this.note = element('span', {class: 'note', 'data-note': field});
    this.beside = element('span', {'data-field': field, 'data-run': 'second'});
    this.besideCell = element('td', {class: 'value'}, this.beside);
    this.why = button('', () => ask(field), {class: 'why', 'data-why': field});
    this.start = element('span', {class: 'at-start'}, 'at the start');
    this.node = element(
        'tr', {'data-row': field}, this.label,
        element('td', {class: 'value'}, this.value, this.note), this.besideCell,
        element('td', {class: 'cause'}, this.why, this.start));
  }

  show({label, value, text, note, cause, origin}, {run, cursor, beside, isBeside}) {
    setText(this.label, label);
    setText(this.value, text);
    this.value.dataset.value = value;
    setText(this.note, note);
    this.note.hidden = note === '';
    this.besideCell.hidden = !isBeside;
    setText(this.beside, beside?.text ?? '–');
    this.beside.dataset.value = beside?.value ?? '';
    this.node.classList.toggle('differs', isBeside && beside?.text !== text);
    this.node.classList.toggle('changed', cause >= 0 && cause === cursor);
    this.why.hidden = cause < 0;
    this.start.hidden = cause >= 0;
    setText(this.start, origin ?? 'at the start');
    if (cause >= 0 && this.cause !== cause) {
      const line = lineOf(run.entries[cause]);
      setText(this.why, clockText(run.entries[cause].time));
      this.why.setAttribute('aria-label', `Why ${label} is ${text}: ${line}`);
      this.why.title = `why? ${line}`;
    }
    this.cause = cause;
  }
}

class Group {
  constructor(group, ask) {
    this.ask = ask;
    this.rows = new Map();
    this.body = element('tbody');
    this.nothing = element('p', {class: 'nothing'}, group.nothing);
    this.node = element(
        'section', {class: 'pane', 'data-pane': group.id}, element('h3', {}, group.title),
        element('table', {}, this.body), this.nothing);
  }

  show(group, beside, context) {
    const rows = [...group.rows];
    for (const other of beside?.rows ?? []) {
      if (!rows.some((each) => each.field === other.field)) {
        rows.push({...other, text: '–', value: '', note: '', cause: -1});
      }
    }
    const fields = rows.map((each) => each.field);
    for (const [field, row] of this.rows) {
      if (fields.includes(field)) continue;
      row.node.remove();
      this.rows.delete(field);
    }
    rows.forEach((each, place) => {
      if (!this.rows.has(each.field)) this.rows.set(each.field, new Row(each.field, this.ask));
      const row = this.rows.get(each.field);
      if (this.body.children[place] !== row.node) {
        this.body.insertBefore(row.node, this.body.children[place] ?? null);
      }
      const other = beside?.rows.find((candidate) => candidate.field === each.field);
      row.show(each, {...context, beside: other, isBeside: beside !== undefined});
    });
    this.nothing.hidden = rows.length > 0 || group.nothing === '';
  }
}

export class Panes {
  // `choose(index)` moves the cursor; `goBack()` returns it to where it was.
  constructor(place, store, {choose, goBack, besideState}) {
    Object.assign(this, {store, choose, goBack, besideState});
    this.groups = new Map();
    this.reason = element('section', {id: 'why', hidden: true, 'aria-live': 'polite'});
    this.place = element('div', {});
    place.append(this.reason, this.place);
    rove(this.place);
    store.on(['cursor', 'run', 'data', 'other'], () => this.draw());
    store.on(['run'], () => this.closeReason());
  }

  draw() {
    const run = this.store.get('run');
    if (!run || this.place.offsetParent === null) return;
    const cursor = this.store.get('cursor');
    const other = this.besideState();
    const beside = other ? groupsOf(other) : null;
    groupsOf(run.stateAt(cursor)).forEach((group, place) => {
      if (!this.groups.has(group.id)) {
        const made = new Group(group, (field) => this.ask(field));
        this.groups.set(group.id, made);
        this.place.append(made.node);
      }
      this.groups.get(group.id).show(group, beside?.[place], {run, cursor});
    });
  }

  // Moves the cursor to the line that caused a field, and says what led to it.
  ask(field) {
    const run = this.store.get('run');
    const groups = groupsOf(run.stateAt(this.store.get('cursor')));
    const row = groups.flatMap((group) => group.rows).find((each) => each.field === field);
    if (!row || row.cause < 0) return;
    const {cause, before, request} = whyOf(run, row.cause);
    const line = (words, entry) => entry === null ?
        null :
        element(
            'li', {}, element('span', {}, words),
            button(
                `${clockText(entry.time)} ${lineOf(entry).replace(/^\S+ /, '')}`,
                () => this.choose(entry.index), {class: 'jump', 'data-jump': entry.index}));
    this.reason.replaceChildren(
        element('h3', {}, `${row.label}: ${row.text}`),
        element(
            'ol', {}, line('set by', cause), line('before it', before), line('asked for', request)),
        element(
            'div', {class: 'buttons'}, button('Back', () => this.goBack()),
            button('Close', () => this.closeReason(field))));
    this.reason.hidden = false;
    this.choose(row.cause);
  }

  closeReason(field) {
    this.reason.hidden = true;
    if (field !== undefined) this.place.querySelector(`[data-why="${CSS.escape(field)}"]`)?.focus();
  }
}
