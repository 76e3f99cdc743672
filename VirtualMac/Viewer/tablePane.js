// The chart in words: a summary of the run, and the states around the cursor as a table.

import {button, element} from 'viewer/dom';
import {lastUpTo} from 'viewer/history';
import {clockText, durationText} from 'viewer/time';
import {clientName} from 'viewer/tracks';

const fields = [
  'charge', 'enforcing', 'limit', 'toppingOff', 'gate', 'adapter', 'inflow', 'lid', 'sleep',
  'power', 'helper', 'clients'
];
const columns = [
  ['charge', (get) => get('charge') === undefined ? '' : `${get('charge')} %`],
  [
    'limit',
    (get) => get('toppingOff') ? 'topping off' :
        get('enforcing')       ? `${get('limit') ?? '?'      } %` :
                                 'none'
  ],
  ['charging', (get) => get('gate')],
  ['adapter', (get) => get('adapter')],
  ['inflow', (get) => get('inflow')],
  ['lid', (get) => get('lid')],
  ['sleep', (get) => get('power') === 'off' ? 'off' : get('sleep')],
  ['helper', (get) => get('helper')],
  ['clients', (get) => get('clients').map(clientName).join(', ') || 'none'],
];
const rowsBefore = 12;
const rowsAfter = 8;

function changesAround(run, index) {
  const near = new Set([-1]);
  for (const field of fields) {
    const {causes} = run.history(field);
    const place = lastUpTo(causes, index);
    for (const cause of causes.slice(Math.max(0, place - rowsBefore), place + rowsAfter + 1))
      near.add(cause);
  }
  const sorted = [...near].sort((one, other) => one - other);
  const place = lastUpTo(sorted, index);
  return sorted.slice(Math.max(0, place - rowsBefore), place + rowsAfter + 1);
}

// The run in a few words: [[what, text], …].
function summaryOf(run) {
  const levels = run.history('charge').values;
  const count = (kind) => String(run.marks.filter((mark) => mark.kind === kind).length);
  const least = levels.reduce((one, other) => Math.min(one, other), Infinity);
  const most = levels.reduce((one, other) => Math.max(one, other), -Infinity);
  return [
    ['lasts', durationText(run.end)],
    ['lines', String(run.entries.length)],
    [
      'charge',
      levels.length === 0 ?
          'not told' :
          `${levels[0]} % at first, ${least} to ${most} %, ${levels.at(-1)} % at the end`
    ],
    ['requests', count('request')],
    ['refusals', count('refusal')],
    ['errors in the log', count('error')],
    ['helper starts', String(run.latest('helperStarts'))],
    ['failures', String(run.failures.length)],
  ];
}

export class TablePane {
  constructor(place, store, choose) {
    Object.assign(this, {place, store, choose});
    store.on(['cursor', 'run', 'data', 'tab'], () => this.draw());
  }

  draw() {
    const run = this.store.get('run');
    if (!run || this.store.get('tab') !== 'table') return;
    const cursor = this.store.get('cursor');
    const facts = element(
        'section', {class: 'pane'}, element('h3', {}, 'The run in short'),
        element(
            'table', {},
            element(
                'tbody', {},
                ...summaryOf(run).map(
                    ([name, text]) => element(
                        'tr', {}, element('th', {scope: 'row'}, name),
                        element('td', {class: 'value', 'data-summary': name}, text))))));
    const head = ['time', ...columns.map(([name]) => name)].map(
        (name) => element('th', {scope: 'col'}, name));
    const changes = changesAround(run, cursor);
    const now = changes[lastUpTo(changes, cursor)];
    const rows = changes.map((index) => this.row(run, index, index === now));
    this.place.replaceChildren(
        facts,
        element(
            'div', {
              class: 'table-wrap',
              tabindex: 0,
              role: 'region',
              'aria-label': 'States around the cursor'
            },
            element(
                'table', {class: 'plain-table'},
                element('caption', {}, 'The states around the cursor'),
                element('thead', {}, element('tr', {}, ...head)), element('tbody', {}, ...rows))));
  }

  row(run, index, isNow) {
    const state = run.stateAt(index);
    const time = clockText(run.timeOf(index));
    const cells =
        columns.map(([, textOf]) => element('td', {}, textOf((field) => state.get(field)) ?? ''));
    return element(
        'tr', {class: isNow ? 'now' : '', 'aria-current': isNow ? 'true' : undefined},
        element('th', {scope: 'row'}, button(time, () => this.choose(index), {class: 'step-time'})),
        ...cells);
  }
}
