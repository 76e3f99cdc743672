// Reading the lines of a journal: `12.345 smc   CHTE <- 01 00 00 00`.

import {effectOf} from 'viewer/effects';

const notLogged = ['', '', ''];
const lineForm = /^(\d+)\.(\d{3}) ([^ ]+) +(.*)$/;

// An entry of a run, without its index, and the values of its effect. `category`, `level` and
// `message` are those of a line of the helper's log, and empty for every other. Null: the text is
// no line of a journal.
export function entryFrom(line) {
  const found = lineForm.exec(line);
  if (!found) return null;
  const time = (Number(found[1]) * 1000 + Number(found[2])) / 1000;
  const kind = found[3];
  const text = found[4];
  const {id, values} = effectOf(kind, text);
  const [category, level, message] = id === 'logged' ? values : notLogged;
  return {entry: {index: 0, time, kind, text, category, level, message, effect: id}, values};
}

// The object in a journal's first line, `# {"journal":1, …}`. Null: the line is no head.
export function headFrom(line) {
  if (!line.startsWith('# ')) return null;
  try {
    const head = JSON.parse(line.slice(2));
    return head !== null && typeof head === 'object' ? head : null;
  } catch {
    return null;
  }
}

// The line as the journal's file has it.
export function lineOf(entry) {
  return `${entry.time.toFixed(3)} ${entry.kind.padEnd(5)} ${entry.text}`;
}

// The number that stands in `text` right after `word`; null: there is none.
export function numberAfter(text, word) {
  const found = text.indexOf(word);
  if (found < 0) return null;
  const digits = /^-?\d+/.exec(text.slice(found + word.length));
  return digits ? Number(digits[0]) : null;
}
