// The panes beside the journal as tabs: one Tab stop, the arrow keys go from one to the next.

import {element} from 'viewer/dom';

const titles = {
  state: 'State',
  table: 'Table',
  story: 'Story',
  compare: 'Compare',
  controls: 'Controls'
};

export class Tabs {
  constructor(place, store) {
    this.store = store;
    this.panels = [...document.querySelectorAll('[role="tabpanel"]')];
    this.tabs = this.panels.map((panel) => {
      const name = panel.dataset.tab;
      const tab = element(
          'button', {
            type: 'button',
            role: 'tab',
            id: `tab-${name}`,
            'data-tab': name,
            'aria-controls': panel.id,
            click: () => store.set({tab: name}),
            keydown: (event) => this.pressed(event),
          },
          titles[name]);
      panel.setAttribute('aria-labelledby', tab.id);
      return tab;
    });
    place.append(...this.tabs);
    this.offered = new Set(['state', 'table']);
    store.on(['tab', 'run'], () => this.draw());
  }

  // Shows or hides a pane's tab.
  offer(name, isOffered) {
    if (isOffered) {
      this.offered.add(name);
    } else {
      this.offered.delete(name);
    }
    if (!this.offered.has(this.store.get('tab'))) this.store.set({tab: 'state'});
    this.draw();
  }

  get names() {
    return this.tabs.map((tab) => tab.dataset.tab).filter((name) => this.offered.has(name));
  }

  draw() {
    const chosen = this.offered.has(this.store.get('tab')) ? this.store.get('tab') : 'state';
    this.tabs.forEach((tab, place) => {
      const isChosen = tab.dataset.tab === chosen;
      tab.hidden = !this.offered.has(tab.dataset.tab);
      tab.setAttribute('aria-selected', String(isChosen));
      tab.tabIndex = isChosen ? 0 : -1;
      this.panels[place].hidden = !isChosen;
    });
  }

  pressed(event) {
    const steps = {ArrowLeft: -1, ArrowRight: 1, Home: -Infinity, End: Infinity};
    if (!(event.key in steps)) return;
    event.preventDefault();
    event.stopPropagation();
    const {names} = this;
    const place = names.indexOf(this.store.get('tab')) + steps[event.key];
    const wanted = names[Math.abs(steps[event.key]) === 1 ? (place + names.length) % names.length :
        place < 0 ? 0 : names.length - 1];
    this.store.set({tab: wanted});
    this.tabs.find((tab) => tab.dataset.tab === wanted).focus();
  }
}
