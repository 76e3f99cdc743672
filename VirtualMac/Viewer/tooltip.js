// The words beside the pointer: the moment in every form, the machine then, and the events there.

import {element} from 'viewer/dom';
import {drawMark, Palette, preparedContext} from 'viewer/lanes';
import {marksNear} from 'viewer/pointer';
import {clockText, secondsText, wallText} from 'viewer/time';

const mostMarks = 6;

// The machine in one line, without the things that are as usual.
export function stateLine(state) {
  const get = (field) => state.get(field);
  const words = [];
  if (get('charge') !== undefined) words.push(`${get('charge')} %`);
  words.push(
      get('toppingOff')                                  ? 'topping off' :
          get('enforcing') && get('limit') !== undefined ? `limit ${get('limit')} %` :
                                                           'no limit held');
  words.push(`charging ${get('gate')}`);
  if (get('adapter') !== 'connected') words.push('on battery');
  if (get('inflow') !== 'flows') words.push('inflow inhibited');
  if (get('lid') === 'closed') words.push('lid closed');
  if (get('power') === 'off') words.push('off');
  if (get('sleep') !== 'awake') words.push(get('sleep'));
  if (get('helper') !== 'running') words.push(`helper ${get('helper')}`);
  if (get('clients').length > 0) words.push(`${get('clients').length} connected`);
  if (get('faults').length > 0)
    words.push(`faults: ${get('faults').map((each) => each.text).join(', ')}`);
  return words.join(' · ');
}

// The sign of a kind of mark, as the chart draws it.
export function signOf(kind) {
  const canvas = element('canvas', {class: 'sign', 'aria-hidden': 'true'});
  drawMark(preparedContext(canvas, 16, 16), new Palette(), kind, 8, 8);
  return canvas;
}

export class Tooltip {
  constructor() {
    this.node = element('div', {id: 'tip', hidden: true, 'aria-hidden': 'true'});
    document.body.append(this.node);
  }

  hide() {
    this.node.hidden = true;
  }

  show(chart, time, event) {
    const {run, scale} = chart;
    if (!run || time < 0) {
      this.hide();
      return;
    }
    const clock = run.clockAt(time);
    const wall = clock === null ? '' : `  ${wallText(clock, time)}`;
    const marks = marksNear(run, scale, scale.x(time));
    const items = marks.slice(0, mostMarks)
                      .map(
                          ({kind, text, index}) => element(
                              'li', {}, signOf(kind),
                              element('span', {}, `${clockText(run.timeOf(index))} ${text}`)));
    if (marks.length > mostMarks) {
      items.push(element('li', {}, element('span', {}, `and ${marks.length - mostMarks} more`)));
    }
    this.node.replaceChildren(
        element('div', {class: 'tip-time'}, clockText(time)),
        element('div', {class: 'tip-rest'}, secondsText(time) + wall),
        element('div', {class: 'tip-state'}, stateLine(run.stateAt(run.indexAt(time)))),
        ...(items.length > 0 ? [element('ul', {}, ...items)] : []));
    this.place(event);
  }

  place({clientX, clientY}) {
    this.node.hidden = false;
    const {width, height} = this.node.getBoundingClientRect();
    const room = 14;
    const left = clientX + room + width < innerWidth ? clientX + room : clientX - room - width;
    const top = clientY + room + height < innerHeight ? clientY + room : clientY - room - height;
    this.node.style.left = `${Math.max(4, left)}px`;
    this.node.style.top = `${Math.max(4, top)}px`;
  }
}
