// The page begins here: it shows the trace that it holds, and else the machine that serves it.

import {byId, setText} from 'viewer/dom';
import {atStart} from 'viewer/history';
import {holdsToken, takeToken, valuesFrom} from 'viewer/link';
import {Run} from 'viewer/model';
import {Page} from 'viewer/page';
import {runsFromTrace} from 'viewer/trace';

// The run of the machine that serves the page. Lines come in pieces; the page takes them in once a
// frame.
class LiveRun {
  constructor(page, values) {
    Object.assign(this, {page, values, waiting: []});
  }

  begin(head) {
    this.waiting = [];
    const {cursor, ...kept} = this.values;
    this.wanted = cursor ?? null;
    this.page.show(new Run({title: 'Virtual Mac', head}), {...kept, cursor: atStart});
    this.page.store.set({follow: this.wanted === null});
    // The next run is another machine's: the moment in the address is none of it.
    this.values = {};
  }

  take(lines) {
    for (const line of lines) this.waiting.push(line);
    this.due ??= requestAnimationFrame(() => this.flush());
  }

  flush() {
    this.due = undefined;
    const lines = this.waiting;
    this.waiting = [];
    const {store} = this.page;
    const run = store.get('run');
    run.addLines(lines);
    if (store.get('follow')) this.follow(run);
    if (this.wanted !== null && this.wanted < run.entries.length) {
      store.set({cursor: this.wanted});
      this.wanted = null;
    }
    store.touch('data');
  }

  // The cursor goes with the end, and so does what the chart shows when it shows a part.
  follow(run) {
    const {store, view} = this.page;
    store.set({cursor: run.entries.length - 1});
    const range = store.get('range');
    if (range !== null) view.set(run.end - (range.to - range.from), run.end);
  }

  // Temperatures are told by nobody but the machine itself.
  takeStatus({seconds, temperatureCelsius}) {
    const run = this.page.store.get('run');
    if (typeof seconds !== 'number' || typeof temperatureCelsius !== 'number') return;
    run.addReading(seconds, temperatureCelsius);
    this.page.store.touch('data');
  }
}

function showConnection({state, text}) {
  const place = byId('connection');
  place.hidden = false;
  place.dataset.state = state;
  setText(place, text);
}

async function goLive(page, token, values) {
  const [{startLive}, {mountControls}] =
      await Promise.all([import('viewer/live'), import('viewer/controls')]);
  // A link with a token that is opened in this tab changes nothing but the fragment.
  addEventListener('hashchange', () => {
    if (holdsToken(location.hash)) location.reload();
  });
  const run = new LiveRun(page, values);
  page.show(new Run({title: 'Virtual Mac'}));
  byId('follow').hidden = false;
  page.tabs.offer('controls', true);
  const live = startLive({
    token,
    onRun: (head) => run.begin(head),
    onLines: (lines) => run.take(lines),
    onConnection: showConnection,
  });
  page.acts.live = live;
  live.addEventListener('status', (event) => run.takeStatus(event.detail));
  mountControls(byId('panel-controls'), live);
}

function showTrace(page, text, values) {
  const {runs, problems} = runsFromTrace(text);
  page.tell(problems);
  if (runs.length === 2) {
    page.compare(...runs, values);
  } else if (runs.length === 1) {
    page.show(runs[0], values);
  } else {
    page.show(new Run({title: 'Virtual Mac'}));
  }
}

function boot() {
  const values = valuesFrom(location.hash);
  const trace = byId('trace');
  const isLive = trace === null && location.protocol !== 'file:';
  // The page writes the address anew, and nothing may be lost then.
  const token = isLive ? takeToken() : '';
  const page = new Page();
  if (isLive) {
    goLive(page, token, values);
  } else if (trace) {
    showTrace(page, trace.textContent, values);
  } else {
    page.show(new Run({title: 'Virtual Mac'}));
    page.tell(
        ['This page holds no trace. Open one, or a journal, with "Compare…", or drop it here.']);
  }
}

boot();
