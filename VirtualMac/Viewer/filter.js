// Which entries are shown: by kind, category, level and text. And finding a text in them.

const levels = {
  all: 0,
  default: 1,
  error: 2,
  fault: 3
};

// A person's words as a test: plain words without regard to case, or `/pattern/flags`.
// {error}: it is no pattern. {find(text)} gives the stretches [from, to] that it finds.
export function finderOf(words) {
  if (words === '') return {empty: true, error: '', test: () => true, find: () => []};
  const form = /^\/(.*)\/([a-z]*)$/s.exec(words);
  try {
    const source = form ? form[1] : words.replace(/[.*+?^${}()|[\]\\]/g, '\\$&');
    const flags = form ? form[2].replace(/[gy]/g, '') : 'i';
    const pattern = new RegExp(source, flags + 'g');
    const one = new RegExp(source, flags);
    return {
      empty: false,
      error: '',
      test: (text) => one.test(text),
      find: (text) => stretchesOf(pattern, text)
    };
  } catch (error) {
    return {empty: false, error: error.message, test: () => false, find: () => []};
  }
}

function stretchesOf(pattern, text) {
  const found = [];
  for (const match of text.matchAll(pattern)) {
    if (match[0].length > 0) found.push([match.index, match.index + match[0].length]);
  }
  return found;
}

// The text of an entry that is searched, which is also the text that its row shows.
export function textOf(entry) {
  return entry.kind === 'log' && entry.category !== '' ? entry.message : entry.text;
}

// Whether an entry is shown under {kinds, categories, level, filter}.
export function entryTest({kinds, categories, level, filter}) {
  const finder = finderOf(filter);
  const least = levels[level] ?? 0;
  return (entry) => {
    if (kinds !== null && !kinds.includes(entry.kind)) return false;
    if (entry.kind === 'log') {
      if (categories !== null && !categories.includes(entry.category)) return false;
      if (least > 0 && (levels[entry.level] ?? 0) < least) return false;
    }
    return finder.empty || searched(entry).some((text) => finder.test(text));
  };
}

// The texts of an entry of which one has to fit the filter.
function searched(entry) {
  if (entry.kind !== 'log') return [entry.text, entry.kind];
  return [entry.message, `${entry.category} ${entry.level} ${entry.message}`, entry.kind];
}

// The indices of a run's entries that pass a filter, kept while lines come in.
export class Selection {
  constructor() {
    this.indices = [];
    this.read = 0;
  }

  // Takes another run or filter.
  begin(run, criteria) {
    this.run = run;
    this.test = entryTest(criteria);
    this.indices = [];
    this.read = 0;
    this.extend();
  }

  extend() {
    const {entries} = this.run;
    for (; this.read < entries.length; ++this.read) {
      if (this.test(entries[this.read])) this.indices.push(this.read);
    }
  }
}

// How many entries each kind, and each category of the log, has: [[name, count], …], sorted.
export class Counts {
  constructor() {
    this.begin(null);
  }

  begin(run) {
    Object.assign(this, {run, read: 0, kinds: new Map(), categories: new Map()});
  }

  extend() {
    const add = (map, name) => map.set(name, (map.get(name) ?? 0) + 1);
    for (; this.read < this.run.entries.length; ++this.read) {
      const entry = this.run.entries[this.read];
      add(this.kinds, entry.kind);
      if (entry.category !== '') add(this.categories, entry.category);
    }
  }
}
