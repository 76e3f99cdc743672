// Applications: clients that connect as one identity or another, and send the helper its commands.

import {button, element} from 'viewer/dom';
import {choices, labelled, numberForm, Outcome, section, selectOf} from 'viewer/fields';

const listedEvery = 1000;  // Milliseconds.
const usualIdentity = 'app';
const answersKept = 20;

// A session's answer in words.
export function answerText(answer) {
  if (answer.ok) return answer.pid === undefined ? 'done' : `process ${answer.pid}`;
  if (answer.code !== undefined) return `refused with code ${answer.code}: ${answer.error}`;
  return answer.error ?? 'refused without an error';
}

class ClientControls {
  constructor(live, vocabulary, signal) {
    this.live = live;
    this.signal = signal;
    this.vocabulary = vocabulary;
    this.connectOutcome = new Outcome();
    this.shown = '';
    this.list = element('ul', {class: 'clients'});
    this.none = element('p', {class: 'note'}, 'No application is connected from this page.');
    this.sender = selectOf([], {});
    this.answers = element('ol', {class: 'answers', 'aria-label': 'Answers'});
  }

  sections() {
    this.keepListed();
    return [
      section(
          'Application clients', this.none, this.list, this.connectForm(),
          this.connectOutcome.node),
      section(
          'Commands of the application', labelled('Sent by', this.sender),
          ...this.vocabulary.operations.map((operation) => this.operationRow(operation)),
          this.answers),
    ];
  }

  async keepListed() {
    while (!this.live.stopped && !this.signal.aborted) {
      if (this.live.connection.state === 'live' && document.visibilityState === 'visible') {
        await this.refresh();
      }
      await new Promise((resolve) => setTimeout(resolve, listedEvery));
    }
  }

  async refresh() {
    const {clients} = await this.live.clients();
    if (!clients) return;
    const told = JSON.stringify(clients);
    if (told === this.shown) return;
    this.shown = told;
    this.none.hidden = clients.length > 0;
    this.list.replaceChildren(...clients.map((client) => this.clientRow(client)));
    const chosen = this.sender.value;
    this.sender.replaceChildren(...clients.map(({name}) => element('option', {value: name}, name)));
    this.sender.value = clients.some(({name}) => name === chosen) ? chosen : clients[0]?.name ?? '';
  }

  clientRow({name, identity, connected}) {
    const act = (what) => async () => {
      this.connectOutcome.show(
          await this.live.client({do: what, client: name}), `${name}: ${what} done`);
      this.refresh();
    };
    return element(
        'li', {'data-client': name},
        `${name} as ${identity}, ${connected ? 'connected' : 'not connected'} `,
        button('Disconnect', act('disconnect'), {'aria-label': `Disconnect ${name}`}), ' ',
        button('Kill', act('kill'), {'aria-label': `Kill ${name}`}));
  }

  connectForm() {
    const name =
        element('input', {type: 'text', value: 'app', autocomplete: 'off', spellcheck: 'false'});
    const {identities} = this.vocabulary;
    const identity = selectOf(identities);
    if (identities.includes(usualIdentity)) identity.value = usualIdentity;
    this.connectOutcome.of(name);
    const connect = async (event) => {
      event.preventDefault();
      const answer =
          await this.live.client({do: 'connect', client: name.value, identity: identity.value});
      const failed = answer.ok === false || answer.connected === false;
      this.connectOutcome.show({...answer, ok: !failed}, `${name.value} is connected`);
      this.refresh();
    };
    return element(
        'form', {class: 'connect', submit: connect}, labelled('Name', name),
        labelled('Identity', identity), element('button', {type: 'submit'}, 'Connect'));
  }

  operationRow({word, argument}) {
    const outcome = new Outcome();
    const send = async (value) => {
      const request = value === undefined ? word : `${word} ${value}`;
      const client = this.sender.value;
      const answer = client ? await this.live.client({do: 'send', client, request}) :
                              {ok: false, error: 'connect an application first'};
      outcome.show({...answer, error: answerText(answer)}, answerText(answer));
      this.note(`${client || 'nobody'}: ${request}: ${answerText(answer)}`, answer[word]);
    };
    const parts = {
      percent: () => [numberForm({label: word, word: 'Send', act: send, outcome})],
      boolean:
          () => [element('span', {class: 'row-name'}, word), choices(word, ['on', 'off'], send)],
      none: () => [button(word, () => send())],
    };
    return element(
        'div', {class: 'control-row', 'data-operation': word}, ...parts[argument](), outcome.node);
  }

  note(text, fields) {
    const item = element('li', {}, text);
    if (fields) item.append(element('pre', {tabindex: 0}, JSON.stringify(fields, null, 2)));
    this.answers.prepend(item);
    while (this.answers.children.length > answersKept) this.answers.lastChild.remove();
  }
}

export function clientControls(live, vocabulary, signal) {
  return new ClientControls(live, vocabulary, signal).sections();
}
