// The bar above the chart: the moment of the cursor in every form, steps from line to line and
// from event to event, zooming, and going to a time.

import {button, byId, element, setText} from 'viewer/dom';
import {rove} from 'viewer/roving';
import {clockText, durationText, secondsFrom, secondsText, wallText} from 'viewer/time';

export class MomentBar {
  // `acts` are the page's, by the names that `keys.js` has for them.
  constructor(place, store, view, acts) {
    Object.assign(this, {store, view, acts});
    this.clock = element('span', {class: 'moment-clock', id: 'moment-clock'});
    this.seconds = element('span', {class: 'moment-rest', id: 'moment-seconds'});
    this.wall = element('span', {class: 'moment-rest', id: 'moment-wall'});
    this.shown = element('span', {class: 'moment-rest', id: 'shown-range'});
    this.follow = button('Follow the end', () => acts.follow(), {id: 'follow', hidden: true});
    this.goTo = element('input', {
      type: 'text',
      id: 'go-to',
      placeholder: 'go to time',
      'aria-label': 'Go to a time',
      autocomplete: 'off',
      spellcheck: 'false',
      keydown: (event) => this.typed(event),
    });
    const group = (label, ...buttons) =>
        element('div', {class: 'group', role: 'group', 'aria-label': label}, ...buttons);
    place.append(
        element(
            'div', {class: 'moment'},
            element('div', {class: 'moment-line'}, this.clock, this.shown),
            element('div', {class: 'moment-line'}, this.seconds, this.wall)),
        this.goTo,
        group(
            'Line', this.make('‹', 'Previous line (←)', 'previous'),
            this.make('›', 'Next line (→)', 'next')),
        group(
            'Event', this.make('« event', 'Previous event ([)', 'previousMark'),
            this.make('event »', 'Next event (])', 'nextMark')),
        group(
            'Zoom', this.make('−', 'Show more time (−)', 'zoomOut'),
            this.make('+', 'Show less time (+)', 'zoomIn'),
            this.make('whole', 'Show the whole run (0)', 'zoomAll')));
    byId('actions').prepend(this.follow);
    rove(place);
    store.on(['cursor', 'run', 'data', 'range', 'follow'], () => this.draw());
  }

  make(words, label, act) {
    return button(
        words, () => this.acts[act](), {'aria-label': label, title: label, 'data-act': act});
  }

  draw() {
    const run = this.store.get('run');
    if (!run) return;
    const time = run.timeOf(this.store.get('cursor'));
    setText(this.clock, clockText(time));
    setText(this.seconds, secondsText(time));
    const clock = run.clockAt(time);
    setText(this.wall, clock === null ? '' : wallText(clock, time));
    const {from, to} = this.view.range;
    setText(
        this.shown,
        this.view.isWhole ? `of ${durationText(run.end)}` :
                            `${durationText(to - from)} of ${durationText(run.end)} shown`);
    this.follow.setAttribute('aria-pressed', String(this.store.get('follow')));
  }

  typed(event) {
    if (event.key !== 'Enter') return;
    const seconds = secondsFrom(this.goTo.value);
    this.goTo.setAttribute('aria-invalid', String(seconds === null));
    this.acts.say(
        seconds === null ? `"${this.goTo.value}" is no time; write 00:27:30, 1d 02:00 or 1650.5` :
                           '');
    if (seconds !== null) this.acts.goTo(seconds);
  }
}
