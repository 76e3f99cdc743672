// Everything that a person can do to the page, by name: the keys, the buttons and the chart use
// the same acts.

import {byId} from 'viewer/dom';
import {failureAfter} from 'viewer/failures';
import {lastUpTo} from 'viewer/history';
import {shownTheme} from 'viewer/theme';

const eventKinds = ['request', 'refusal', 'deed', 'event', 'loss', 'error', 'failure'];
const zoomStep = 0.6;
const panShare = 0.25;
const mostRemembered = 100;

export class Acts {
  // `page` has the parts: store, view, list, comparison, search, tabs, story, address, opening.
  constructor(page) {
    Object.assign(this, page);
    this.said = page.say;
    this.before = [];
  }

  get run() {
    return this.store.get('run');
  }

  // Moves the cursor. A jump is remembered, so that a person can go back.
  choose(index) {
    if (index === null || index === undefined) return;
    this.remember();
    this.place(index);
  }

  // The same from the chart, which stays as it is.
  point(index) {
    this.remember();
    this.store.set({cursor: index, follow: false});
  }

  place(index) {
    this.store.set({cursor: index, follow: false});
    this.view.include(this.run.timeOf(index));
  }

  remember() {
    this.before.push(this.store.get('cursor'));
    if (this.before.length > mostRemembered) this.before.shift();
  }

  goBack() {
    if (this.before.length > 0) this.place(this.before.pop());
  }

  step(steps) {
    if (!this.run) return;
    if (this.comparison.isOn) {
      const row = this.comparison.neighbour(steps);
      if (row !== null) this.comparison.choose(row);
      this.view.include(this.run.timeOf(this.store.get('cursor')));
      return;
    }
    const index = this.list.neighbour(steps);
    if (index !== null) this.place(index);
  }

  next() {
    this.step(1);
  }
  previous() {
    this.step(-1);
  }
  pageForward() {
    this.step(this.list.rows.rowsInSight);
  }
  pageBack() {
    this.step(-this.list.rows.rowsInSight);
  }
  first() {
    this.step(-Infinity);
  }
  last() {
    this.step(Infinity);
  }

  goTo(seconds) {
    this.choose(this.run.indexAt(seconds));
    this.view.include(seconds);
  }

  nextMark() {
    this.toMark(1);
  }
  previousMark() {
    this.toMark(-1);
  }

  toMark(way) {
    const {marks} = this.run;
    const cursor = this.store.get('cursor');
    let place =
        lastUpTo(marks, way > 0 ? cursor : cursor - 1, (mark) => mark.index) + (way > 0 ? 1 : 0);
    while (marks[place] && !eventKinds.includes(marks[place].kind)) place += way;
    if (marks[place]) {
      this.place(marks[place].index);
    } else {
      this.said(way > 0 ? 'There is no later event.' : 'There is no earlier event.');
    }
  }

  failure() {
    this.toFailure(-2);
  }
  nextFailure() {
    this.toFailure(this.store.get('cursor'));
  }

  toFailure(index) {
    const failure = failureAfter(this.run, index);
    if (failure) {
      this.choose(failure.index);
    } else {
      this.said('Nothing failed in this run.');
    }
  }

  get cursorTime() {
    return this.run.timeOf(this.store.get('cursor'));
  }

  // Zooms about the cursor where it is in sight, and else about the middle.
  zoom(factor) {
    const {from, to} = this.view.range;
    const time = this.cursorTime;
    this.view.zoom(factor, time >= from && time <= to ? time : (from + to) / 2);
  }

  zoomIn() {
    this.zoom(zoomStep);
  }
  zoomOut() {
    this.zoom(1 / zoomStep);
  }
  zoomAll() {
    this.view.all();
  }
  panLeft() {
    this.view.move(-panShare);
  }
  panRight() {
    this.view.move(panShare);
  }

  focusTime() {
    byId('go-to').select();
    byId('go-to').focus();
  }
  focusSearch() {
    byId('search-text').select();
    byId('search-text').focus();
  }
  focusFilter() {
    byId('filter-text').select();
    byId('filter-text').focus();
  }
  clearFilter() {
    this.store.set({kinds: null, categories: null, level: 'all', filter: ''});
  }

  focusWhy() {
    this.store.set({tab: 'state'});
    this.store.flush();
    const buttons = [...document.querySelectorAll('#panel-state .why')];
    (buttons.find((each) => !each.hidden) ?? byId('panel-state')).focus();
  }

  nextMatch() {
    this.toMatch(1);
  }
  previousMatch() {
    this.toMatch(-1);
  }

  toMatch(way) {
    const index = this.search.neighbour(way);
    if (index !== null) {
      this.choose(index);
    } else {
      this.said('Nothing matches the search.');
    }
  }

  nextDifference() {
    this.toDifference(1);
  }
  previousDifference() {
    this.toDifference(-1);
  }

  toDifference(way) {
    if (!this.comparison.isOn) {
      this.said('There is one run only; open a second one to compare.');
    } else if (!this.comparison.goToDifference(way)) {
      this.said(way > 0 ? 'There is no later difference.' : 'There is no earlier difference.');
    }
  }

  follow() {
    if (!this.live) return;
    const isOn = !this.store.get('follow');
    this.store.set({follow: isOn});
    if (isOn) this.store.set({cursor: this.run.entries.length - 1});
  }

  tab(key) {
    const name = this.tabs.names[Number(key) - 1];
    if (name) this.store.set({tab: name});
  }

  showStory() {
    this.store.set({tab: 'story'});
    this.store.flush();
    this.story.reveal();
  }

  theme() {
    this.store.set({theme: shownTheme(this.store.get('theme')) === 'dark' ? 'light' : 'dark'});
  }

  async copyLink() {
    this.address.write();
    const {link} = this.address;
    try {
      await navigator.clipboard.writeText(link);
      this.said('The link is copied.');
    } catch {
      // A page from a file may not use the clipboard; the address bar has the link already.
      this.said(`The address of this page is the link: ${link}`);
    }
  }

  open() {
    this.opening.ask();
  }

  help() {
    byId('help').showModal();
  }
}
