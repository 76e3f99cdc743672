// Controls of a person's own deeds: settings, signals to the helper, and the speed.

import {button, element} from 'viewer/dom';
import {choices, numberForm, Outcome, section} from 'viewer/fields';

const speeds = [1, 60, 600];
// Some deeds do more than their name says.
const notes = {
  'reboot': 'Reboot ends the helper and every client, and starts the machine again.',
  'power-loss': 'Power-loss ends everything without a word, and starts the machine again.',
};

function settingRow(live, {name, values, least, most}) {
  const outcome = new Outcome();
  const set = async (value) =>
      outcome.show(await live.command(['set', name, value]), `${name} is set to ${value}`);
  const parts = [];
  if (least !== undefined) parts.push(numberForm({label: name, least, most, act: set, outcome}));
  if (values.length > 0) {
    if (least === undefined) parts.push(element('span', {class: 'row-name'}, name));
    parts.push(choices(name, values, set));
  }
  return element('div', {class: 'control-row', 'data-setting': name}, ...parts, outcome.node);
}

function deedsSection(live, deeds) {
  const outcome = new Outcome();
  const act = async (deed) => outcome.show(await live.command([deed]), `${deed}: done`);
  return section(
      'Deeds', choices('Deeds', deeds, act),
      ...deeds.filter((deed) => notes[deed])
          .map((deed) => element('p', {class: 'note'}, notes[deed])),
      outcome.node);
}

function signalsSection(live, signals) {
  const outcome = new Outcome();
  const act = async (signal) => {
    const answer = await live.command(['kill', signal]);
    outcome.show(answer, `sent ${answer.text ?? signal}`);
  };
  return section('Signal to the helper', choices('Signal', signals, act), outcome.node);
}

function speedSection(live, signal) {
  const outcome = new Outcome();
  const act = async (speed) => outcome.show(
      await live.command(['speed', speed]), `a real second is ${speed} of the machine's`);
  const presets = choices('Speed', speeds, act);
  live.addEventListener('status', ({detail}) => {
    for (const each of presets.children) {
      each.setAttribute('aria-pressed', String(Number(each.dataset.word) === detail.speed));
    }
  }, {signal});
  return section('Speed', presets, numberForm({label: 'speed', act, outcome}), outcome.node);
}

export function settingControls(live, vocabulary, signal) {
  return [
    speedSection(live, signal),
    section('Settings', ...vocabulary.settings.map((setting) => settingRow(live, setting))),
    deedsSection(live, vocabulary.deeds),
    signalsSection(live, vocabulary.signals),
  ];
}
