// Making elements. Texts become text nodes only, so nothing that a journal says can be markup.

// An element with attributes and children. An attribute that is a function listens to the event of
// that name; true, false and undefined stand for an attribute that is there or not.
export function element(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (typeof value === 'function') {
      node.addEventListener(name, value);
    } else if (value === true) {
      node.setAttribute(name, '');
    } else if (value !== false && value !== undefined && value !== null) {
      node.setAttribute(name, value);
    }
  }
  node.append(...children.filter((child) => child !== null && child !== undefined));
  return node;
}

export function byId(id) {
  return document.getElementById(id);
}

// Sets an element's text only when it differs, so that a selection in it survives.
export function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

// A colour or length of the style sheet: `token('ink')` is the value of `--ink`.
export function token(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}

export function button(label, act, attributes = {}) {
  return element('button', {type: 'button', click: act, ...attributes}, label);
}

// A text in which the stretches that a search finds are marked.
export function markedText(text, stretches) {
  const parts = document.createDocumentFragment();
  let at = 0;
  for (const [from, to] of stretches) {
    parts.append(text.slice(at, from), element('mark', {}, text.slice(from, to)));
    at = to;
  }
  parts.append(text.slice(at));
  return parts;
}
