// The address that restores what is shown: cursor, zoom, filter, search, theme and pane. It stands
// in the fragment, so that it works from a file. A token never gets into it.

const panes = ['state', 'table', 'story', 'compare', 'controls'];
const tokenName = 'token';

const listText = (list) => list.join(' ');
const listFrom = (text) => text.split(' ').filter((word) => word !== '');

// For each part of the fragment: the value's text, or null when it is the usual one, and back.
const parts = {
  e: {
    name: 'cursor',
    write: (cursor) => cursor === null ? null : String(cursor),
    read: (text) => /^-?\d+$/.test(text) ? Number(text) : undefined
  },
  zoom: {
    name: 'range',
    write: (range) => range && `${range.from.toFixed(3)}-${range.to.toFixed(3)}`,
    read: rangeFrom
  },
  kinds: {name: 'kinds', write: (kinds) => kinds && listText(kinds), read: listFrom},
  category: {name: 'categories', write: (names) => names && listText(names), read: listFrom},
  level: {
    name: 'level',
    write: (level) => level === 'all' ? null : level,
    read: (text) => ['error', 'fault'].includes(text) ? text : 'all'
  },
  filter: {name: 'filter', write: (text) => text || null, read: (text) => text},
  search: {name: 'search', write: (text) => text || null, read: (text) => text},
  theme: {
    name: 'theme',
    write: (theme) => theme === 'auto' ? null : theme,
    read: (text) => ['dark', 'light'].includes(text) ? text : 'auto'
  },
  pane: {
    name: 'tab',
    write: (tab) => tab === 'state' ? null : tab,
    read: (text) => panes.includes(text) ? text : undefined
  },
};

function rangeFrom(text) {
  const found = /^(\d+(?:\.\d+)?)-(\d+(?:\.\d+)?)$/.exec(text);
  if (!found || Number(found[2]) <= Number(found[1])) return null;
  return {from: Number(found[1]), to: Number(found[2])};
}

// The fragment, without its sign, for a page's values.
export function fragmentOf(values) {
  const words = new URLSearchParams();
  for (const [key, {name, write}] of Object.entries(parts)) {
    const text = write(values[name]);
    if (text !== null && text !== undefined && text !== false) words.set(key, text);
  }
  return words.toString();
}

// The values that a fragment tells.
export function valuesFrom(fragment) {
  const values = {};
  for (const [key, text] of new URLSearchParams(fragment.replace(/^#/, ''))) {
    const value = parts[key]?.read(text);
    if (value !== undefined) values[parts[key].name] = value;
  }
  return values;
}

export function holdsToken(fragment) {
  return new URLSearchParams(fragment.replace(/^#/, '')).has(tokenName);
}

// Takes the token out of the address, into this tab's own memory. Empty: there is none.
export function takeToken() {
  const words = new URLSearchParams(location.hash.replace(/^#/, ''));
  const given = words.get(tokenName);
  if (given === null) return sessionStorage.getItem(tokenName) ?? '';
  sessionStorage.setItem(tokenName, given);
  words.delete(tokenName);
  const rest = words.toString();
  history.replaceState(
      null, '', location.pathname + location.search + (rest === '' ? '' : `#${rest}`));
  return given;
}

// Keeps the address as the page is. Browsers allow only so many changes of it a second.
export class Address {
  constructor(store) {
    this.store = store;
    this.due = 0;
    store.on(Object.values(parts).map((part) => part.name), () => this.schedule());
  }

  schedule() {
    if (this.due !== 0) return;
    this.due = setTimeout(() => {
      this.due = 0;
      this.write();
    }, 400);
  }

  get fragment() {
    const {values} = this.store;
    return fragmentOf(values.follow ? {...values, cursor: null} : values);
  }

  write() {
    history.replaceState(
        null, '',
        location.pathname + location.search + (this.fragment === '' ? '' : `#${this.fragment}`));
  }

  // The whole address, for somebody else.
  get link() {
    return `${location.href.split('#')[0]}#${this.fragment}`;
  }
}
