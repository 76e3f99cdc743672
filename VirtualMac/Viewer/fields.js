// Labelled buttons and fields, each with a place beside it for what came of it.

import {button, element} from 'viewer/dom';

let made = 0;

export function freshId(word) {
  return `${word}-${++made}`;
}

// The words of a machine's answer, of one that did something.
export function wordsOf(answer, done) {
  return answer.ok === false ? `Error: ${answer.error}` : done;
}

// A line that says what came of something, also to those who do not see it.
export class Outcome {
  constructor() {
    this.node = element('p', {class: 'outcome', id: freshId('outcome'), role: 'status'});
    this.field = null;
  }

  // Ties the line to the field that it speaks of.
  of(field) {
    this.field = field;
    field.setAttribute('aria-describedby', this.node.id);
    return this;
  }

  show(answer, done) {
    const failed = answer.ok === false;
    this.node.classList.toggle('failed', failed);
    // A text that is the same as before would not be said again.
    this.node.replaceChildren(element('span', {}, wordsOf(answer, done)));
    if (!this.field) return;
    if (failed) {
      this.field.setAttribute('aria-invalid', 'true');
      this.field.focus();
    } else {
      this.field.removeAttribute('aria-invalid');
    }
  }
}

// A group of buttons, one a word, under one name. `act(word)` runs on a click.
export function choices(name, words, act) {
  return element(
      'div', {class: 'choices', role: 'group', 'aria-label': name},
      ...words.map((word) => button(String(word), () => act(String(word)), {'data-word': word})));
}

export function labelled(text, field) {
  field.id = field.id || freshId('field');
  return element('span', {class: 'labelled'}, element('label', {for: field.id
                 }, text), field);
}

// A form with a number and a button; Enter does the same as the button. The range is told, and the
// machine judges it: its words for a wrong number are better than a browser's.
export function numberForm({label, least, most, act, word = 'Set', outcome}) {
  const field =
      element('input', {type: 'number', min: least, max: most, step: 'any', inputmode: 'decimal'});
  const range = least === undefined ? '' : ` (${least} to ${most})`;
  outcome.of(field);
  return element(
      'form', {
        novalidate: true,
        submit: (event) => {
          event.preventDefault();
          act(field.value);
        },
      },
      labelled(label + range, field),
      element('button', {type: 'submit', 'aria-label': `${word} ${label}`}, word));
}

export function selectOf(words, attributes = {}) {
  return element(
      'select', attributes, ...words.map((word) => element('option', {value: word}, word)));
}

export function section(title, ...children) {
  const id = freshId('section');
  return element(
      'section', {class: 'control-section', 'aria-labelledby': id}, element('h3', {id}, title),
      ...children);
}
