// The story that was played: its text with the failing lines marked, and its steps as places to go.

import {button, element} from 'viewer/dom';
import {lastUpTo} from 'viewer/history';
import {clockText, secondsFrom} from 'viewer/time';

const units = {
  s: 1,
  m: 60,
  h: 3600,
  d: 86400
};

// The seconds of `42m`, `1h 30m`, `00:00:10`; null: it is no length of time.
function lengthFrom(words) {
  const parts = words.match(/\d+(?:\.\d+)?[smhd]/g);
  if (parts && parts.join(' ') === words.replace(/\s+/g, ' ')) {
    return parts.reduce((sum, part) => sum + parseFloat(part) * units[part.at(-1)], 0);
  }
  return secondsFrom(words);
}

// When the steps begin that a story's own list has: [{line, time}], lines counted from 1. A step
// that is repeated begins more than once, so only the outermost are told.
export function stepsOf(text) {
  const steps = [];
  let indent = null;
  text.split('\n').forEach((line, place) => {
    const found = /^(\s*)- (at|after): *['"]?([^'"#{}]+?)['"]? *(?:#.*)?$/.exec(line);
    if (!found) return;
    indent ??= found[1].length;
    if (found[1].length !== indent) return;
    const before = found[2] === 'after' ? steps.at(-1)?.time ?? 0 : 0;
    const length = lengthFrom(found[3]);
    if (length !== null) steps.push({line: place + 1, time: before + length});
  });
  return steps;
}

export class StoryPane {
  constructor(place, store, goTo) {
    Object.assign(this, {place, store, goTo});
    store.on(['run'], () => this.begin());
    store.on(['cursor', 'run'], () => this.mark());
  }

  begin() {
    const run = this.store.get('run');
    if (!run) return;
    this.steps = run.story ? stepsOf(run.story.text) : [];
    if (!run.story) {
      this.place.replaceChildren(
          element('p', {class: 'nothing'}, 'This run was not played from a story.'));
      this.lines = [];
      return;
    }
    this.lines = run.story.text.replace(/\n$/, '').split('\n').map(
        (words, place) => this.line(words, place + 1, run));
    this.place.replaceChildren(
        element('div', {class: 'story-head'}, element('strong', {}, run.story.file ?? 'the story')),
        element('div', {class: 'story', 'data-story': ''}, ...this.lines));
  }

  line(words, number, run) {
    const step = this.steps.find((each) => each.line === number);
    const failures = run.failures.filter((each) => each.line === number);
    return element(
        'div', {
          class: `story-line${failures.length > 0 ? ' failed' : ''}`,
          'data-line': number,
          'data-failed': failures.length > 0
        },
        element('span', {class: 'number'}, String(number)),
        step ? button(
                   clockText(step.time).slice(0, -4), () => this.goTo(step.time),
                   {class: 'step-time', 'aria-label': `Go to ${clockText(step.time)}`}) :
               element('span'),
        element('span', {class: 'words'}, words),
        ...failures.map((each) => element('span', {class: 'verdict'}, `✕ ${each.text}`)));
  }

  // Marks the step that the cursor is in.
  mark() {
    const run = this.store.get('run');
    if (!run) return;
    const time = run.timeOf(this.store.get('cursor'));
    const place = lastUpTo(this.steps, time, (step) => step.time);
    const line = place < 0 ? null : this.steps[place].line;
    this.lines.forEach((node, number) => {
      const isNow = number + 1 === line;
      node.classList.toggle('now', isNow);
      if (isNow) {
        node.setAttribute('aria-current', 'step');
      } else {
        node.removeAttribute('aria-current');
      }
    });
  }

  // Brings the failing line, or the step at the cursor, into sight.
  reveal() {
    const line = this.lines.find((node) => node.classList.contains('failed')) ??
        this.lines.find((node) => node.classList.contains('now'));
    line?.scrollIntoView({block: 'center'});
  }
}
