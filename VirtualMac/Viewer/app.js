// The page begins here: it shows the trace that it holds, and else the machine that serves it.

import {Chart} from 'viewer/chart';
import {byId, setText} from 'viewer/dom';
import {EntryList} from 'viewer/list';
import {Run} from 'viewer/model';
import {Overview} from 'viewer/overview';
import {Panes} from 'viewer/panes';
import {Pointer} from 'viewer/pointer';
import {initialValues, Store} from 'viewer/store';
import {runsFromTrace} from 'viewer/trace';
import {View} from 'viewer/view';

class Page {
  constructor() {
    this.store = new Store(initialValues());
    this.view = new View(this.store);
    this.overview = new Overview(byId('overview'), this.view);
    this.chart = new Chart(byId('plot'), this.view);
    this.list = new EntryList(byId('list'), this.store, (index) => this.choose(index));
    this.panes = new Panes(byId('panel-state'), this.store, (index) => this.choose(index));
    this.pointer = new Pointer(this.chart, this.view, {
      hover: () => {}, leave: () => {}, choose: (index) => this.choose(index),
    });
    this.listen();
  }

  listen() {
    this.store.on(['run'], () => this.chart.setRun(this.store.get('run')));
    this.store.on(['data'], () => this.chart.refresh());
    this.store.on(['range'], () => this.chart.draw());
    this.store.on(['cursor', 'run'], () => this.chart.placeCursor(this.cursorTime));
    this.store.on(['data', 'range', 'cursor', 'run'], () => {
      this.overview.draw(this.store.get('run'), this.chart.columns, this.cursorTime);
    });
    new ResizeObserver(() => this.chart.draw()).observe(byId('plot'));
  }

  get cursorTime() {
    return this.store.get('run').timeOf(this.store.get('cursor'));
  }

  choose(index) {
    this.store.set({cursor: index, follow: false});
  }

  show(run) {
    setText(byId('title'), run.title || 'Virtual Mac');
    this.store.set({run, cursor: run.entries.length - 1, range: null});
  }

  linesCame(lines) {
    const run = this.store.get('run');
    run.addLines(lines);
    if (this.store.get('follow')) this.store.set({cursor: run.entries.length - 1});
    this.store.touch('data');
  }
}

function tokenOfAddress() {
  const found = /[#&]token=([^&]*)/.exec(location.hash);
  if (found) {
    sessionStorage.setItem('token', decodeURIComponent(found[1]));
    history.replaceState(null, '', location.pathname + location.search);
  }
  return sessionStorage.getItem('token') ?? '';
}

async function goLive(page) {
  const {startLive} = await import('viewer/live');
  page.store.set({follow: true});
  page.show(new Run({title: 'Virtual Mac'}));
  const live = startLive({
    token: tokenOfAddress(),
    onRun: (head) => page.show(new Run({title: 'Virtual Mac', head})),
    onLines: (lines) => page.linesCame(lines),
    onConnection: ({state, text}) => {
      const place = byId('connection');
      place.hidden = false;
      place.dataset.state = state;
      setText(place, text);
    },
  });
  const {mountControls} = await import('viewer/controls');
  mountControls(byId('panel-controls'), live);
}

function boot() {
  const page = new Page();
  const trace = document.getElementById('trace');
  if (trace) {
    const {runs, problems} = runsFromTrace(trace.textContent);
    setText(byId('messages'), problems.join('\n'));
    if (runs.length > 0) page.show(runs[0]);
  } else if (location.protocol !== 'file:') {
    goLive(page);
  }
}

boot();
