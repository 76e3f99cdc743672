// The keyboard: one table of keys, what each is for, and the help that lists them.

import {button, element} from 'viewer/dom';

// [keys, the page's act, words]. A key is `Shift+` or nothing, and the event's name for it.
export const shortcuts = [
  [['ArrowRight', 'ArrowDown', 'j'], 'next', 'next line'],
  [['ArrowLeft', 'ArrowUp', 'k'], 'previous', 'previous line'],
  [['PageDown'], 'pageForward', 'a page of lines on'],
  [['PageUp'], 'pageBack', 'a page of lines back'],
  [['Home'], 'first', 'first line'],
  [['End'], 'last', 'last line'],
  [[']'], 'nextMark', 'next event: a request, refusal, deed, start, end, kill, error, failure'],
  [['['], 'previousMark', 'previous event'],
  [['f'], 'failure', 'first failure'],
  [['Shift+F'], 'nextFailure', 'next failure'],
  [['+', 'Shift++', '='], 'zoomIn', 'less time in the chart'],
  [['-'], 'zoomOut', 'more time in the chart'],
  [['0'], 'zoomAll', 'the whole run'],
  [['Shift+ArrowLeft'], 'panLeft', 'move the chart back'],
  [['Shift+ArrowRight'], 'panRight', 'move the chart on'],
  [['g'], 'focusTime', 'go to a time'],
  [['/'], 'focusSearch', 'search'],
  [['n'], 'nextMatch', 'next match of the search'],
  [['Shift+N'], 'previousMatch', 'previous match'],
  [['e'], 'focusFilter', 'filter the lines'],
  [['x'], 'clearFilter', 'show all lines again'],
  [['w'], 'focusWhy', 'to the first "why" of the state'],
  [['b', 'Backspace'], 'goBack', 'back to where the cursor was'],
  [['d'], 'nextDifference', 'next difference of two runs'],
  [['Shift+D'], 'previousDifference', 'previous difference'],
  [['l'], 'follow', 'follow the end of a running machine'],
  [['1', '2', '3', '4', '5'], 'tab', 'panes'],
  [['t'], 'theme', 'dark or light'],
  [['c'], 'copyLink', 'copy the link to this view'],
  [['o'], 'open', 'open a second run beside this one'],
  [['?', 'Shift+?'], 'help', 'this help'],
];

const names = {
  ArrowRight: '→',
  ArrowLeft: '←',
  ArrowUp: '↑',
  ArrowDown: '↓',
  PageDown: 'Page ↓',
  PageUp: 'Page ↑',
};
const hidden = ['Shift++', '=', 'Shift+?'];
const memory = 'letterKeys';

// A person can switch off the keys that are letters and signs, which speech input may strike.
function remembered() {
  try {
    return localStorage.getItem(memory) !== 'off';
  } catch {
    return true;
  }
}

function isTyping(target) {
  return target instanceof Element &&
      target.matches('input:not([type="checkbox"]), select, textarea, [contenteditable]');
}

export class Keys {
  constructor(acts) {
    this.acts = acts;
    this.letters = remembered();
    this.acting = new Map(shortcuts.flatMap(([keys, act]) => keys.map((key) => [key, act])));
    document.addEventListener('keydown', (event) => this.pressed(event));
  }

  pressed(event) {
    if (event.ctrlKey || event.altKey || event.metaKey || event.defaultPrevented) return;
    if (document.querySelector('dialog[open]') || isTyping(event.target)) {
      if (event.key === 'Escape' && isTyping(event.target)) event.target.blur();
      return;
    }
    const key = (event.shiftKey ? 'Shift+' : '') + event.key;
    const act = this.acting.get(key);
    if (!act || (!this.letters && event.key.length === 1)) return;
    // The panes scroll by these keys when they have the focus, and controls use them.
    const moves = /^(?:Arrow(?:Up|Down)|Page|Home|End)/.test(event.key);
    if (moves && event.target.closest?.('#side, #help')) return;
    event.preventDefault();
    this.acts[act](event.key);
  }

  fillHelp(dialog) {
    const items = shortcuts.flatMap(
        ([keys, , words]) =>
            [element(
                 'dt', {},
                 ...keys.filter((key) => !hidden.includes(key))
                     .flatMap(
                         (key, place) =>
                             [place > 0 ? ' ' : '',
                              element(
                                  'kbd', {},
                                  key.split('+')
                                          .filter((part) => part !== '')
                                          .map((part) => names[part] ?? part)
                                          .join(' ') ||
                                      key),
    ])),
             element('dd', {}, words),
    ]);
    const letters =
        element('input', {type: 'checkbox', change: () => this.remember(letters.checked)});
    letters.checked = this.letters;
    dialog.replaceChildren(
        button('Close', () => dialog.close(), {class: 'close', autofocus: true}),
        element('h2', {id: 'help-heading'}, 'Keys'), element('dl', {class: 'shortcuts'}, ...items),
        element(
            'p', {},
            'Chart: a click moves the cursor, dragging zooms, the wheel zooms, Shift and the wheel move, ' +
                'a double click shows the whole run; with fingers, one moves and two zoom.'),
        element('p', {}, element('label', {}, letters, ' keys that are single letters and signs')));
  }

  remember(isOn) {
    this.letters = isOn;
    try {
      localStorage.setItem(memory, isOn ? 'on' : 'off');
    } catch {
      // A page from a file may have no memory; then the choice holds until it is closed.
    }
  }
}
