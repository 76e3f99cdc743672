// Groups of buttons that are one stop for Tab: the arrow keys go from one to the next.

const steps = {
  ArrowRight: 1,
  ArrowDown: 1,
  ArrowLeft: -1,
  ArrowUp: -1,
  Home: -Infinity,
  End: Infinity
};

function buttonsOf(place) {
  return [...place.querySelectorAll('button')].filter((each) => !each.hidden && !each.disabled);
}

// Leaves one stop: `wanted`, or the one that there was, or the first.
function settle(place, wanted) {
  const buttons = buttonsOf(place);
  const stop =
      buttons.includes(wanted) ? wanted : buttons.find((each) => each.tabIndex === 0) ?? buttons[0];
  for (const each of buttons) each.tabIndex = each === stop ? 0 : -1;
}

function pressed(place, event) {
  const buttons = buttonsOf(place);
  const at = buttons.indexOf(event.target);
  if (at < 0 || !(event.key in steps) || event.shiftKey) return;
  event.preventDefault();
  const next = Math.max(0, Math.min(buttons.length - 1, at + steps[event.key]));
  settle(place, buttons[next]);
  buttons[next].focus();
}

// Makes a place with buttons such a group, also with buttons that come later.
export function rove(place) {
  place.addEventListener('keydown', (event) => pressed(place, event));
  place.addEventListener('focusin', (event) => settle(place, event.target));
  new MutationObserver(() => settle(place))
      .observe(place, {childList: true, subtree: true, attributeFilter: ['hidden', 'disabled']});
  settle(place);
}
