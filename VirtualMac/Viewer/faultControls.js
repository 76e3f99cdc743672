// Faults: those that are on, and the catalogue of all, searched by name and by what goes wrong.

import {button, element} from 'viewer/dom';
import {freshId, labelled, Outcome, section} from 'viewer/fields';

// The arguments of a fault as its use tells them: "KEY CODE", "[CODE]" for one that may be left
// out, "TEXT..." for any number of words.
export function argumentsOf(use) {
  return use.split(' ').filter(Boolean).map((word) => ({
                                              name: word.replace(/[[\].]/g, ''),
                                              optional: word.startsWith('['),
                                              many: word.includes('...'),
                                            }));
}

export function matches(fault, text) {
  const words = text.toLowerCase().split(/\s+/).filter(Boolean);
  const said = `${fault.name} ${fault.arguments} ${fault.text}`.toLowerCase();
  return words.every((word) => said.includes(word));
}

class FaultChooser {
  constructor(live, faults) {
    this.live = live;
    this.faults = faults;
    this.outcome = new Outcome();
    this.search = element('input', {type: 'search', input: () => this.list()});
    this.select = element('select', {size: 8, change: () => this.describe()});
    this.count = element('p', {class: 'note', role: 'status'});
    this.form = element('form', {
      class: 'fault-form',
      submit: (event) => {
        event.preventDefault();
        this.switch('on');
      },
    });
    this.list();
  }

  nodes() {
    return [
      labelled('Search faults', this.search), this.count, labelled('Fault', this.select), this.form,
      this.outcome.node
    ];
  }

  list() {
    const found = this.faults.filter((fault) => matches(fault, this.search.value));
    const chosen = this.select.value;
    this.select.replaceChildren(
        ...found.map((fault) => element('option', {value: fault.name}, fault.name)));
    this.select.value = found.some((fault) => fault.name === chosen) ? chosen : found[0]?.name;
    this.count.textContent = `${found.length} of ${this.faults.length} faults`;
    this.describe();
  }

  describe() {
    const fault = this.faults.find((each) => each.name === this.select.value);
    this.fields = [];
    this.form.replaceChildren();
    if (!fault) return;
    const inputs = argumentsOf(fault.arguments).map((argument) => {
      const field = element('input', {type: 'text', autocomplete: 'off', spellcheck: 'false'});
      this.fields.push(field);
      const note = argument.optional ? ' (may be left out)' : argument.many ? ' (words)' : '';
      return labelled(argument.name + note, field);
    });
    this.outcome.of(this.fields[0] ?? this.select);
    this.form.append(
        element('p', {}, fault.text), ...inputs, element('button', {type: 'submit'}, 'Switch on'),
        button('Switch off', () => this.switch('off')));
  }

  async switch(state) {
    if (!this.select.value) return;
    const words = this.fields.flatMap((field) => field.value.split(/\s+/)).filter(Boolean);
    const line = [this.select.value, ...words];
    this.outcome.show(
        await this.live.command(['fault', ...line, state]), `${line.join(' ')} is ${state}`);
  }
}

function activeFaults(live, signal) {
  const outcome = new Outcome();
  const list = element('ul', {class: 'active-faults'});
  const none = element('p', {class: 'note', id: freshId('none')}, 'No fault is on.');
  let shown = '';
  const off = async (line) => {
    const answer = await live.command(['fault', ...line.split(' '), 'off']);
    outcome.show(answer, `${line} is off`);
  };
  live.addEventListener('status', ({detail}) => {
    // Buttons that are replaced would lose the focus, so the list is made anew only when it
    // changes.
    const told = detail.faults.join('\n');
    none.hidden = detail.faults.length > 0;
    if (told === shown) return;
    shown = told;
    list.replaceChildren(...detail.faults.map(
        (line) => element(
            'li', {}, element('code', {}, line), ' ',
            button('Switch off', () => off(line), {'aria-label': `Switch off ${line}`}))));
  }, {signal});
  return section('Faults that are on', none, list, outcome.node);
}

export function faultControls(live, vocabulary, signal) {
  const chooser = new FaultChooser(live, vocabulary.faults);
  return [activeFaults(live, signal), section('Switch a fault', ...chooser.nodes())];
}
