// Two runs line by line: which lines belong together, and where the first difference is.

// The helper decides once a tick, so a line may come that much earlier or later.
export const tickSeconds = 5;

const mostExact = 400_000;  // Pairs of lines that are compared exactly; beyond it anchors help.
const lookAhead = 300;
const datePattern = /\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ/g;

// Numbers that the system hands out, which another run has otherwise: processes, assertions, ports.
const handedOut = [
  [/\bpid[= ]\d+/g, 'pid #'],
  [/\bhelper \d+/g, 'helper #'],
  [/\b(app|client) \d+ /g, '$1 # '],
  [/\bassertion \d+/g, 'assertion #'],
  [/\b(id|paired|rootPort)=\d+/g, '$1=#'],
];

function keyOf(entry, ignoresNumbers) {
  let text = entry.text.replace(datePattern, '#date');
  if (ignoresNumbers)
    for (const [form, word] of handedOut) text = text.replace(form, word);
  return `${entry.kind} ${text}`;
}

// Pairs [left, right] of equal keys between two ranges, in order.
function matched(left, right, range) {
  const pairs = [];
  const open = [range];
  while (open.length > 0) {
    let {from, to, start, end} = open.pop();
    while (from < to && start < end && left[from] === right[start]) pairs.push([from++, start++]);
    while (from < to && start < end && left[to - 1] === right[end - 1]) pairs.push([--to, --end]);
    if (from === to || start === end) continue;
    if ((to - from) * (end - start) <= mostExact) {
      for (const pair of exact(left, right, {from, to, start, end})) pairs.push(pair);
      continue;
    }
    const anchors = anchorsOf(left, right, {from, to, start, end});
    if (anchors.length === 0) {
      for (const pair of nearest(left, right, {from, to, start, end})) pairs.push(pair);
      continue;
    }
    for (const [one, other] of [...anchors, [to, end]]) {
      open.push({from, to: one, start, end: other});
      if (one < to) pairs.push([one, other]);
      from = one + 1;
      start = other + 1;
    }
  }
  return pairs.sort((one, other) => one[0] - other[0]);
}

// The longest common sequence, by the usual table.
function exact(left, right, {from, to, start, end}) {
  const width = end - start + 1;
  const table = new Uint32Array((to - from + 1) * width);
  for (let one = to - from - 1; one >= 0; --one) {
    for (let other = end - start - 1; other >= 0; --other) {
      const at = one * width + other;
      table[at] = left[from + one] === right[start + other] ?
          table[at + width + 1] + 1 :
          Math.max(table[at + width], table[at + 1]);
    }
  }
  const pairs = [];
  for (let one = 0, other = 0; one < to - from && other < end - start;) {
    const at = one * width + other;
    if (left[from + one] === right[start + other]) {
      pairs.push([from + one++, start + other++]);
    } else if (table[at + width] >= table[at + 1]) {
      ++one;
    } else {
      ++other;
    }
  }
  return pairs;
}

// Lines that both ranges have once, in one order: the longest rising sequence of them.
function anchorsOf(left, right, {from, to, start, end}) {
  const seen = new Map();
  const note = (key, side, place) => {
    const facts = seen.get(key) ?? {counts: [0, 0], places: [0, 0]};
    ++facts.counts[side];
    facts.places[side] = place;
    seen.set(key, facts);
  };
  for (let place = from; place < to; ++place) note(left[place], 0, place);
  for (let place = start; place < end; ++place) note(right[place], 1, place);
  const single = [...seen.values()].filter(({counts}) => counts[0] === 1 && counts[1] === 1);
  return rising(single.map(({places}) => places).sort((one, other) => one[0] - other[0]));
}

function rising(pairs) {
  const tails = [];
  const before = new Array(pairs.length).fill(-1);
  pairs.forEach(([, other], place) => {
    let low = 0;
    let high = tails.length;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (pairs[tails[middle]][1] < other) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    if (low > 0) before[place] = tails[low - 1];
    tails[low] = place;
  });
  const chain = [];
  for (let place = tails.at(-1) ?? -1; place >= 0; place = before[place]) chain.push(pairs[place]);
  return chain.reverse();
}

// Without anchors each line takes the next equal one that is not far.
function nearest(left, right, {from, to, start, end}) {
  const pairs = [];
  for (let one = from; one < to && start < end; ++one) {
    const far = Math.min(end, start + lookAhead);
    let other = start;
    while (other < far && right[other] !== left[one]) ++other;
    if (other === far) continue;
    pairs.push([one, other]);
    start = other + 1;
  }
  return pairs;
}

function datesAreNear(one, other) {
  const dates =
      [one, other].map(({text}) => (text.match(datePattern) ?? []).map((date) => Date.parse(date)));
  return dates[0].every((date, place) => Math.abs(date - dates[1][place]) <= tickSeconds * 1000);
}

function rowOf(one, other) {
  const shift = other.time - one.time;
  if (!datesAreNear(one, other)) return {left: one, right: other, kind: 'changed', shift};
  const kind = Math.abs(shift) > tickSeconds + 0.0005     ? 'late' :
      Math.abs(shift) > 0.0005 || one.text !== other.text ? 'near' :
                                                            'same';
  return {left: one, right: other, kind, shift};
}

// Lines of one side only; two of one kind that stand at the same place are a line that changed.
function lonelyRows(lefts, rights) {
  const rows = [];
  const rest = [...rights];
  for (const left of lefts) {
    const place =
        rest.findIndex((right) => right.kind === left.kind && right.category === left.category);
    if (place < 0) {
      rows.push({left, right: null, kind: 'left', shift: 0});
      continue;
    }
    for (const right of rest.splice(0, place))
      rows.push({left: null, right, kind: 'right', shift: 0});
    const right = rest.shift();
    rows.push({left, right, kind: 'changed', shift: right.time - left.time});
  }
  return [...rows, ...rest.map((right) => ({left: null, right, kind: 'right', shift: 0}))];
}

export const isDifference = (row) => row.kind !== 'same' && row.kind !== 'near';

// The rows of two runs side by side: {left, right, kind, shift}, entries or null. The kinds are
// `same`; `near`: the same but for a time within a tick or a number that is ignored; `late`: the
// same at another time; `changed`; `left` and `right`: on one side only.
export function alignedRows(one, other, ignoresNumbers) {
  const keys = [one, other].map((run) => run.entries.map((entry) => keyOf(entry, ignoresNumbers)));
  const [left, right] = [one.entries, other.entries];
  const whole = {from: 0, to: left.length, start: 0, end: right.length};
  const rows = [];
  let from = 0;
  let start = 0;
  for (const [at, beside] of [...matched(keys[0], keys[1], whole), [left.length, right.length]]) {
    for (const row of lonelyRows(left.slice(from, at), right.slice(start, beside))) rows.push(row);
    if (at < left.length) rows.push(rowOf(left[at], right[beside]));
    from = at + 1;
    start = beside + 1;
  }
  return rows;
}
