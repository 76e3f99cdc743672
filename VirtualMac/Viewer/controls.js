// Everything that a person, the hardware and the application can do to a live machine, made from
// the machine's own vocabulary.

import {clientControls} from 'viewer/clientControls';
import {element} from 'viewer/dom';
import {faultControls} from 'viewer/faultControls';
import {settingControls} from 'viewer/settingControls';

// The controls listen to the machine until `signal` says that others take their place.
function build(place, live, vocabulary, signal) {
  place.replaceChildren(
      ...clientControls(live, vocabulary, signal), ...settingControls(live, vocabulary, signal),
      ...faultControls(live, vocabulary, signal));
}

// Fills the place with controls once the machine is there, and locks them while it is not.
export function mountControls(place, live) {
  const box = element('fieldset', {class: 'controls', 'aria-label': 'Controls', disabled: true});
  const inside = element('div', {class: 'controls-inside'});
  box.append(inside);
  place.replaceChildren(box);
  let shown = null;
  let built = new AbortController();
  const follow = async () => {
    box.disabled = live.connection.state !== 'live';
    if (box.disabled) return;
    const vocabulary = await live.vocabulary();
    // The machine that is back after a restart can be another one.
    const told = JSON.stringify(vocabulary);
    if (vocabulary.ok === false || told === shown) return;
    shown = told;
    built.abort();
    built = new AbortController();
    build(inside, live, vocabulary, built.signal);
  };
  live.addEventListener('connection', follow);
  follow();
}
