// The page: its parts, and who hears of which change.

import {Acts} from 'viewer/acts';
import {tickSeconds} from 'viewer/align';
import {Chart} from 'viewer/chart';
import {Comparison} from 'viewer/compare';
import {button, byId, element, setText} from 'viewer/dom';
import {drawFailures} from 'viewer/failures';
import {FilterBar} from 'viewer/filterBar';
import {atStart} from 'viewer/history';
import {lineOf} from 'viewer/journal';
import {Keys} from 'viewer/keys';
import {drawLegend} from 'viewer/legend';
import {Address, valuesFrom} from 'viewer/link';
import {EntryList} from 'viewer/list';
import {MomentBar} from 'viewer/momentBar';
import {Opening} from 'viewer/opening';
import {Overview} from 'viewer/overview';
import {Panes} from 'viewer/panes';
import {Pointer} from 'viewer/pointer';
import {rove} from 'viewer/roving';
import {Search} from 'viewer/search';
import {initialValues, Store} from 'viewer/store';
import {StoryPane} from 'viewer/story';
import {TablePane} from 'viewer/tablePane';
import {Tabs} from 'viewer/tabs';
import {followTheme} from 'viewer/theme';
import {clockText} from 'viewer/time';
import {stateLine, Tooltip} from 'viewer/tooltip';
import {alikeLanes} from 'viewer/tracks';
import {View} from 'viewer/view';

const restShare = 4;

export class Page {
  constructor() {
    const store = this.store = new Store(initialValues());
    store.set(valuesFrom(location.hash));
    this.say = (text) => this.announce(text);
    this.view = new View(store);
    this.opening = new Opening((opened) => this.opened(opened));
    this.makeParts(store);
    this.acts = new Acts(this);
    this.makeBars(store);
    this.keys = new Keys(this.acts);
    this.keys.fillHelp(byId('help'));
    this.listen();
    followTheme(store, () => this.recolour());
  }

  makeParts(store) {
    const choose = (index) => this.acts.choose(index);
    this.overview = new Overview(byId('overview'), this.view);
    this.charts = [];
    this.tooltip = new Tooltip();
    this.list = new EntryList(byId('list'), store, choose);
    this.comparison = new Comparison(byId('list'), byId('panel-compare'), store);
    this.search = new Search(store, this.list);
    this.tabs = new Tabs(byId('tabs'), store);
    this.panes = new Panes(byId('panel-state'), store, {
      choose,
      goBack: () => this.acts.goBack(),
      besideState: () => this.besideState(),
    });
    this.table = new TablePane(byId('panel-table'), store, choose);
    this.story = new StoryPane(byId('panel-story'), store, (time) => this.acts.goTo(time));
    this.address = new Address(store);
    this.line = element('p', {id: 'line-text'});
    byId('list-section')
        .append(element(
            'div', {id: 'line', 'aria-label': 'The line at the cursor', role: 'group'}, this.line));
  }

  makeBars(store) {
    const {acts} = this;
    new MomentBar(byId('chart-bar'), store, this.view, acts);
    new FilterBar(
        byId('filters'), store, this.list,
        {next: () => acts.nextMatch(), previous: () => acts.previousMatch()});
    const action = (words, act, title) =>
        button(words, () => acts[act](), {'data-act': act, title});
    byId('actions').append(
        action('Compare…', 'open', 'Open a second run beside this one (o)'),
        action('Copy link', 'copyLink', 'Copy the link to this view (c)'),
        action('Dark / light', 'theme', 'Dark or light (t)'),
        action('Keys ?', 'help', 'All keys (?)'));
    rove(byId('actions'));
  }

  listen() {
    const {store} = this;
    store.on(['run', 'other'], () => this.layCharts());
    store.on(['run'], () => this.describe());
    store.on(['data'], () => this.refreshCharts());
    store.on(['range'], () => this.charts.forEach((chart) => chart.draw()));
    store.on(['range', 'cursor', 'row', 'run', 'other'], () => this.drawCursor());
    store.on(['tab'], () => this.panes.draw());
    store.on(
        ['cursor', 'data', 'run', 'search', 'filter', 'kinds', 'categories', 'level'],
        () => setText(byId('matches'), this.search.text()));
    new ResizeObserver(() => this.resized()).observe(byId('plot'));
    document.addEventListener('keydown', () => this.hover(null));
    addEventListener('hashchange', () => this.restore(valuesFrom(location.hash)));
    document.querySelector('.skip').addEventListener('click', (event) => {
      event.preventDefault();
      byId(this.comparison.isOn ? 'pairs' : 'entries').focus();
    });
  }

  // Shows what an address says; a part that it does not name is as usual.
  restore(values) {
    const run = this.store.get('run');
    if (!run) return;
    if (values.cursor !== undefined) {
      values.cursor = Math.max(atStart, Math.min(values.cursor, run.entries.length - 1));
      values.follow = false;
    }
    const {range, kinds, categories, level, filter, search, theme, tab} = initialValues();
    this.store.set({range, kinds, categories, level, filter, search, theme, tab, ...values});
  }

  // Long runs take long to draw, so that a chart with new lines rests longer than it works.
  refreshCharts() {
    const now = performance.now();
    if (now < (this.restUntil ?? 0)) {
      this.later ??= setTimeout(() => this.refreshCharts(), this.restUntil - now);
      return;
    }
    clearTimeout(this.later);
    this.later = undefined;
    for (const chart of this.charts) chart.refresh();
    this.drawCursor();
    this.restUntil = now + (performance.now() - now) * restShare;
  }

  // The charts of the run, and of the one beside it.
  layCharts() {
    for (const chart of this.charts) chart.destroy();
    const runs = [this.store.get('run'), this.store.get('other')].filter((run) => run);
    const isPair = runs.length === 2;
    document.documentElement.classList.toggle('comparing', isPair);
    this.list.rows.node.hidden = isPair;
    this.tabs.offer('compare', isPair);
    this.charts = runs.map((run, place) => {
      const chart =
          new Chart(byId('plot'), this.view, isPair ? `${'AB'[place]}  ${run.title}` : '');
      chart.setRun(run);
      this.pointTo(chart, place);
      return chart;
    });
    if (isPair) this.standTogether();
  }

  // Two charts have one axis of time, and no room for the lanes that are the same in both; limit
  // and charging stay.
  standTogether() {
    const [one, other] = this.charts.map((chart) => chart.tracks);
    const alike = alikeLanes(one, other, tickSeconds);
    const left = alike.filter((name) => name !== 'limit' && name !== 'charging');
    const isWarm = this.charts.some((chart) => chart.warm);
    for (const chart of this.charts) chart.standWith(left, isWarm);
  }

  pointTo(chart, place) {
    new Pointer(chart, this.view, {
      hover: (time, event) => this.hover(chart, time, event),
      leave: () => this.hover(null),
      choose: (index) => place === 0 ? this.acts.point(index) : this.comparison.chooseRight(index),
    });
    Object.entries({role: 'slider', tabindex: 0, 'aria-label': 'Moment', 'aria-valuemin': 0})
        .forEach(([name, value]) => chart.area.setAttribute(name, value));
  }

  hover(chart, time, event) {
    for (const each of this.charts) each.placePole(each.hover, chart ? time : null);
    if (chart) {
      this.tooltip.show(chart, time, event);
    } else {
      this.tooltip.hide();
    }
  }

  besideState() {
    return this.comparison.isOn ? this.store.get('other').stateAt(this.comparison.rightIndex) :
                                  null;
  }

  drawCursor() {
    const {run, other, cursor} = this.store.values;
    if (!run || this.charts.length === 0) return;
    const indices = [cursor, this.comparison.rightIndex];
    this.charts.forEach(
        (chart, place) => this.tellMoment(chart, place === 0 ? run : other, indices[place]));
    const [chart] = this.charts;
    this.overview.draw(run, chart.columns, run.timeOf(cursor));
    const entry = run.entries[cursor];
    setText(this.line, entry ? lineOf(entry) : 'the start, before the first line');
  }

  tellMoment(chart, run, index) {
    const time = run.timeOf(index);
    chart.placeCursor(time);
    const words = `${clockText(time)}, ${stateLine(run.stateAt(index))}`;
    Object.entries({'aria-valuemax': run.end, 'aria-valuenow': time, 'aria-valuetext': words})
        .forEach(([name, value]) => chart.area.setAttribute(name, value));
  }

  resized() {
    const width = byId('plot').clientWidth;
    if (width === this.drawnWidth) return;
    this.drawnWidth = width;
    for (const chart of this.charts) chart.draw();
    this.drawCursor();
  }

  recolour() {
    for (const chart of this.charts) chart.recolour();
    this.overview.recolour();
    drawLegend(byId('legend'));
    this.drawCursor();
  }

  describe() {
    const run = this.store.get('run');
    setText(byId('title'), run.title || 'Virtual Mac');
    document.title = run.title ? `${run.title} – Virtual Mac` : 'Virtual Mac';
    const {head} = run;
    setText(
        byId('subtitle'),
        head ?
            [head.profile, head.run ? `run ${head.run}` : ''].filter((word) => word).join(' · ') :
            '');
    this.tabs.offer('story', run.story !== null);
    drawFailures(byId('failures'), run, {
      choose: (index) => this.acts.choose(index),
      showStory: () => this.acts.showStory(),
    });
  }

  // Shows a run, at the end, at its first failure, or where the address says.
  show(run, values = {}) {
    const cursor = values.cursor ?? run.failures[0]?.index ?? run.entries.length - 1;
    this.store.set({
      other: null,
      row: -1,
      range: null,
      ...values,
      run,
      cursor: Math.max(atStart, Math.min(cursor, run.entries.length - 1)),
    });
  }

  // Shows two runs, at their first difference where the address names no place.
  compare(one, other, values = {}) {
    this.show(one, values);
    this.store.set({other});
    this.store.flush();
    if (values.cursor === undefined) this.comparison.goToFirst();
    if (values.tab === undefined && values.cursor === undefined) this.store.set({tab: 'compare'});
  }

  opened({runs, problems}) {
    this.tell(problems);
    if (runs.length === 0) return;
    const run = this.store.get('run');
    if (runs.length === 2 || !run || run.entries.length === 0) {
      runs.length === 2 ? this.compare(...runs) : this.show(runs[0]);
    } else {
      this.compare(run, runs[0]);
    }
  }

  // Messages stay until a person closes them.
  tell(texts) {
    for (const text of texts) {
      const message = element(
          'div', {class: 'message'}, element('span', {}, text),
          button('Close', () => message.remove()));
      byId('messages').append(message);
    }
  }

  // A short answer to a key, for eyes and ears.
  announce(text) {
    const place = byId('announcer');
    setText(place, text);
    place.classList.toggle('unseen', text === '');
    clearTimeout(this.silence);
    if (text !== '') this.silence = setTimeout(() => this.announce(''), 4000);
  }
}
