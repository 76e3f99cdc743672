// The page's only door to a machine: nothing else in the viewer uses the network. One stream brings
// the journal; it is taken up again where it ended when the connection is lost, and from the start
// when the machine has begun another run meanwhile. Commands and questions are single requests.

import {headFrom} from 'viewer/journal';

const silenceLimit = 15_000;  // Milliseconds. The machine gives a sign of life every 5 seconds.
const firstPause = 250;
const longestPause = 4000;
const statusInterval = 300;
const newline = 10;

// Cuts whole lines out of a stream of bytes.
export class LineCutter {
  constructor() {
    this.rest = new Uint8Array(0);
    this.decoder = new TextDecoder();
  }

  // The lines that are complete with this chunk, and how many bytes of the journal they take.
  // Empty lines are signs of life, which the journal itself does not have.
  take(chunk) {
    const bytes = new Uint8Array(this.rest.length + chunk.length);
    bytes.set(this.rest);
    bytes.set(chunk, this.rest.length);
    const end = bytes.lastIndexOf(newline) + 1;
    this.rest = bytes.slice(end);
    const all = this.decoder.decode(bytes.subarray(0, end)).split('\n').slice(0, -1);
    const lines = all.filter((line) => line !== '');
    return {lines, bytes: end - (all.length - lines.length)};
  }
}

// Events: "connection" when its state changes, "status" when the machine was asked for it.
class Live extends EventTarget {
  constructor({token, onRun, onLines, onConnection, silence = silenceLimit}) {
    super();
    Object.assign(this, {token, onRun, onLines, onConnection, silence});
    this.connection = {state: '', text: ''};
    this.stopped = false;
    this.stream = null;
    this.questions = 0;
    this.answered = 0;
    this.hurry = () => {};
    this.whenSeen = () => document.visibilityState === 'visible' && this.hurry();
    document.addEventListener('visibilitychange', this.whenSeen);
    this.forgetRun();
  }

  forgetRun() {
    this.run = null;
    this.offset = 0;
    this.headTold = false;
  }

  tell(state, text) {
    if (this.connection.state === state && this.connection.text === text) return;
    this.connection = {state, text};
    this.onConnection(this.connection);
    this.dispatchEvent(new CustomEvent('connection', {detail: this.connection}));
  }

  request(path, body, signal) {
    const headers = {'X-Virtual-Mac-Token': this.token};
    if (body !== undefined) headers['Content-Type'] = 'application/json';
    return fetch(path, {
      method: body === undefined ? 'GET' : 'POST',
      body: body === undefined ? undefined : JSON.stringify(body),
      headers,
      signal,
      cache: 'no-store',
    });
  }

  // The machine's answer as an object; a machine that is not there answers like one that fails.
  async ask(path, body) {
    try {
      const response = await this.request(path, body, AbortSignal.timeout(silenceLimit));
      return await response.json();
    } catch {
      return {ok: false, error: 'the machine does not answer'};
    }
  }

  async follow() {
    let pause = firstPause;
    while (!this.stopped) {
      const outcome = await this.followOnce();
      if (outcome === 'refused') return;
      if (outcome === 'anew') continue;
      if (outcome === 'ended') pause = firstPause;
      await this.wait(pause);
      pause = Math.min(pause * 2, longestPause);
    }
  }

  // Reads the journal until it ends: "anew" of another run, "ended" after some of it was read,
  // "unreachable", or "refused" for good.
  async followOnce() {
    this.stream = new AbortController();
    const silence = this.abortAfterSilence(this.stream);
    let heard = false;
    try {
      const run = this.run === null ? '' : `&run=${encodeURIComponent(this.run)}`;
      const response = await this.request(
          `/api/journal?from=${this.offset}${run}`, undefined, this.stream.signal);
      if (response.status === 409) {
        this.forgetRun();
        return 'anew';
      }
      if (!response.ok) return await this.turnedAway(response);
      this.run = response.headers.get('X-Virtual-Mac-Run');
      this.tell('live', 'connected to the machine');
      const cutter = new LineCutter();
      const reader = response.body.getReader();
      for (let part = await reader.read(); !part.done; part = await reader.read()) {
        heard = true;
        silence.heard();
        this.deliver(cutter.take(part.value));
      }
      this.lose('the machine went down');
    } catch {
      this.lose('the machine does not answer');
    } finally {
      silence.end();
    }
    return heard ? 'ended' : 'unreachable';
  }

  async turnedAway(response) {
    const {error} = await response.json();
    if (response.status === 401 || response.status === 403) {
      this.tell('refused', error);
      return 'refused';
    }
    this.lose(error);
    return 'unreachable';
  }

  lose(reason) {
    if (!this.stopped) this.tell('lost', `${reason}; it is asked again until it does`);
  }

  deliver({lines, bytes}) {
    this.offset += bytes;
    if (lines.length === 0) return;
    if (!this.headTold) {
      this.headTold = true;
      this.onRun(headFrom(lines[0]));
    }
    const entries = lines.filter((line) => !line.startsWith('# '));
    if (entries.length > 0) this.onLines(entries);
  }

  abortAfterSilence(controller) {
    let timer = 0;
    const heard = () => {
      clearTimeout(timer);
      timer = setTimeout(() => controller.abort(), this.silence);
    };
    heard();
    return {heard, end: () => clearTimeout(timer)};
  }

  // Waits so many milliseconds, or until somebody looks at the page again.
  wait(milliseconds) {
    return new Promise((resolve) => {
      const timer = setTimeout(resolve, milliseconds);
      this.hurry = () => {
        clearTimeout(timer);
        resolve();
      };
    });
  }

  async pollStatus() {
    while (!this.stopped) {
      if (this.connection.state === 'live' && document.visibilityState === 'visible') {
        await this.refreshStatus();
      }
      await new Promise((resolve) => setTimeout(resolve, statusInterval));
    }
  }

  async refreshStatus() {
    const question = ++this.questions;
    const status = await this.status();
    // A slow answer must not take the place of a newer one.
    if (question < this.answered || status.ok === false || this.stopped) return;
    this.answered = question;
    this.dispatchEvent(new CustomEvent('status', {detail: status}));
  }

  status() {
    return this.ask('/api/status');
  }

  vocabulary() {
    return this.ask('/api/vocabulary');
  }

  clients() {
    return this.ask('/api/clients');
  }

  // Does what the words say, like `virtual-mac` with them: ["set", "battery", "80"].
  async command(words) {
    const answer = await this.ask('/api/machine', {command: words[0], arguments: words.slice(1)});
    this.refreshStatus();
    return answer;
  }

  async client(request) {
    const answer = await this.ask('/api/clients', request);
    this.refreshStatus();
    return answer;
  }

  stop() {
    this.stopped = true;
    document.removeEventListener('visibilitychange', this.whenSeen);
    this.stream?.abort();
    this.hurry();
  }
}

// Follows the machine that serves this page. `onRun(head)` comes before the first lines of a run,
// `onLines(lines)` with each that follow, `onConnection({state, text})` when the state changes:
// "connecting", "live", "lost" or "refused".
export function startLive(options) {
  const live = new Live(options);
  if (!options.token) {
    live.tell(
        'refused', 'this address has no token; open the link that "virtual-mac up --web" printed');
    return live;
  }
  live.tell('connecting', 'connecting to the machine');
  live.follow();
  live.pollStatus();
  return live;
}
