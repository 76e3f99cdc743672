// The banner of a run that went wrong: each failure with its text and its line of the story.

import {button, element} from 'viewer/dom';
import {clockText} from 'viewer/time';

const mostShown = 3;

export function drawFailures(place, run, {choose, showStory}) {
  place.hidden = run.failures.length === 0;
  const rows = run.failures.slice(0, mostShown)
                   .map(
                       (failure, number) => element(
                           'div', {class: 'failure', 'data-failure': number},
                           element('strong', {}, number === 0 ? '✕ Failed' : '✕ and'),
                           element('span', {class: 'failure-text'}, failure.text),
                           element(
                               'span', {class: 'failure-place'},
                               `${clockText(failure.time)}${
                                   failure.line > 0 ? `, line ${failure.line} of the story` : ''}`),
                           button(
                               number === 0 ? 'Show it (f)' : 'Show it',
                               () => choose(failure.index), {'data-act': 'failure'}),
                           run.story ? button('Story', showStory) : null));
  const rest = run.failures.length - rows.length;
  if (rest > 0) rows.push(element('p', {}, `and ${rest} more, which F (shift) steps through`));
  place.replaceChildren(...rows);
}

// The first failure behind an entry, and else the first of all; null: there is none.
export function failureAfter(run, index) {
  const next = run.failures.find((failure) => failure.index > index);
  return next ?? run.failures[0] ?? null;
}
