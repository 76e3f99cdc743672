// Everything that a person, the hardware and the application can do to a live machine, made from
// the machine's own vocabulary.

import {clientControls} from 'viewer/clientControls';
import {faultControls} from 'viewer/faultControls';
import {element, section} from 'viewer/fields';
import {settingControls} from 'viewer/settingControls';

function build(place, live, vocabulary) {
  place.replaceChildren(
      section('Machine', element('p', {class: 'note'}, `Profile: ${vocabulary.profile}`)),
      ...clientControls(live, vocabulary), ...settingControls(live, vocabulary),
      ...faultControls(live, vocabulary));
}

// Fills the place with controls once the machine is there, and locks them while it is not.
export function mountControls(place, live) {
  const box = element('fieldset', {class: 'controls', disabled: true});
  box.append(element('legend', {}, 'Controls'));
  const inside = element('div', {class: 'controls-inside'});
  box.append(inside);
  place.replaceChildren(box);
  let profile = null;
  const follow = async () => {
    box.disabled = live.connection.state !== 'live';
    if (box.disabled) return;
    const vocabulary = await live.vocabulary();
    // The machine that is back after a restart can be another one.
    if (vocabulary.settings && vocabulary.profile !== profile) {
      profile = vocabulary.profile;
      build(inside, live, vocabulary);
    }
  };
  live.addEventListener('connection', follow);
  follow();
}
