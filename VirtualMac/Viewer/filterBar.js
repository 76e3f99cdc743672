// The filters and the search above the journal.

import {button, element, setText} from 'viewer/dom';
import {finderOf} from 'viewer/filter';
import {rove} from 'viewer/roving';

const kindTitles = {
  smc: 'writes that reached the hardware',
  disk: 'the state file',
  log: 'the log of the helper',
  reply: 'answers to clients',
  power: 'assertions, settings, sleep',
  app: 'clients',
  mac: 'done to the machine, or by it',
  proc: 'the process of the helper',
  fail: 'failures of the story',
};

export class FilterBar {
  // `steps`: {next(), previous()} of the search. `list` knows what is there to filter.
  constructor(place, store, list, steps) {
    Object.assign(this, {store, list});
    this.chips = element('div', {class: 'chips', role: 'toolbar', 'aria-label': 'Kinds'});
    this.all = button(
        'All', () => store.set({kinds: null, categories: null, level: 'all', filter: ''}),
        {class: 'chip', id: 'filter-all'});
    this.onlyLog =
        button('Only log', () => store.set({kinds: ['log']}), {class: 'chip', id: 'filter-log'});
    this.kinds = element('span', {class: 'chips'});
    this.chips.append(this.all, this.onlyLog, this.kinds);
    rove(this.chips);
    this.category = element(
        'select',
        {id: 'filter-category', 'aria-label': 'Category of the log', change: () => this.chose()});
    this.level = element(
        'select', {
          id: 'filter-level',
          'aria-label': 'Level of the log',
          change: () => store.set({level: this.level.value})
        },
        element('option', {value: 'all'}, 'every level'),
        element('option', {value: 'error'}, 'error, fault'),
        element('option', {value: 'fault'}, 'fault'));
    this.filter = this.input('filter-text', 'filter', 'text or /regex/');
    this.search = this.input('search-text', 'search', 'text or /regex/');
    this.search.addEventListener('keydown', (event) => {
      if (event.key === 'Enter') (event.shiftKey ? steps.previous : steps.next)();
    });
    this.matches = element('span', {id: 'matches', role: 'status'});
    this.error = element('p', {class: 'field-error', id: 'filter-error', role: 'alert'});
    place.append(
        this.chips, this.category, this.level,
        element('label', {class: 'field'}, 'Filter', this.filter),
        element(
            'div', {class: 'search-group'},
            element('label', {class: 'field'}, 'Search', this.search), button('↑', steps.previous, {
              'aria-label': 'Previous match (N)',
              title: 'Previous match (N)',
              id: 'search-previous'
            }),
            button(
                '↓', steps.next,
                {'aria-label': 'Next match (n)', title: 'Next match (n)', id: 'search-next'}),
            this.matches),
        this.error);
    store.on(
        ['run', 'data', 'kinds', 'categories', 'level', 'filter', 'search'], () => this.draw());
  }

  input(id, name, placeholder) {
    const field = element(
        'input', {type: 'search', id, placeholder, autocomplete: 'off', spellcheck: 'false'});
    field.addEventListener('input', () => this.store.set({[name]: field.value}));
    return field;
  }

  chose() {
    const {value} = this.category;
    this.store.set({categories: value === '' ? null : value.split(' ')});
  }

  draw() {
    if (!this.store.get('run')) return;
    this.drawKinds();
    this.drawCategories();
    this.level.value = this.store.get('level');
    for (const name of ['filter', 'search']) {
      if (this[name].value !== this.store.get(name)) this[name].value = this.store.get(name);
    }
    const errors = ['filter', 'search'].map((name) => [name, finderOf(this.store.get(name)).error]);
    for (const [name, error] of errors)
      this[name].setAttribute('aria-invalid', String(error !== ''));
    const [wrong] = errors.filter(([, error]) => error !== '');
    setText(this.error, wrong ? `The ${wrong[0]} is no regular expression: ${wrong[1]}` : '');
  }

  drawKinds() {
    const counts = [...this.list.counts.kinds].sort(([one], [other]) => (one < other ? -1 : 1));
    const names = counts.map(([kind]) => kind);
    if (names.join() !== this.shownKinds) {
      this.shownKinds = names.join();
      this.kinds.replaceChildren(...names.map((kind) => button('', () => this.toggle(kind), {
                                                class: 'chip',
                                                'data-kind': kind,
                                                title: kindTitles[kind] ?? 'other lines',
                                              })));
    }
    const shown = this.store.get('kinds');
    counts.forEach(([kind, count], place) => {
      const chip = this.kinds.children[place];
      if (chip.dataset.count !== String(count)) {
        chip.dataset.count = count;
        chip.replaceChildren(kind, element('span', {class: 'count'}, String(count)));
      }
      chip.setAttribute('aria-pressed', String(shown === null || shown.includes(kind)));
    });
    const isAll = shown === null && this.store.get('categories') === null &&
        this.store.get('level') === 'all' && this.store.get('filter') === '';
    this.all.setAttribute('aria-pressed', String(isAll));
    this.onlyLog.setAttribute('aria-pressed', String(shown?.join() === 'log'));
  }

  // From "all", one kind leaves; the last one that leaves brings all back.
  toggle(kind) {
    const all = [...this.list.counts.kinds.keys()];
    const shown = this.store.get('kinds') ?? all;
    const now = shown.includes(kind) ? shown.filter((each) => each !== kind) : [...shown, kind];
    this.store.set(
        {kinds: now.length === 0 || all.every((each) => now.includes(each)) ? null : now.sort()});
  }

  drawCategories() {
    const names = [...this.list.counts.categories.keys()].sort();
    const chosen = (this.store.get('categories') ?? []).join(' ');
    const wanted = chosen === '' || names.includes(chosen) ? names : [...names, chosen];
    if (wanted.join() !== this.shownCategories) {
      this.shownCategories = wanted.join();
      this.category.replaceChildren(
          element('option', {value: ''}, 'every category'),
          ...wanted.map((name) => element('option', {value: name}, name)));
    }
    this.category.value = chosen;
  }
}
