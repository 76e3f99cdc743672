// The lanes below the chart: for each, the words that it shows and since when.

import {atStart} from 'viewer/history';

// The words and the tone of a lane at a state; `get(field)` is the state's value. Empty words: the
// lane shows nothing. A tone stands for a colour and a pattern.
const lanes = [
  {
    name: 'limit',
    fields: ['toppingOff', 'enforcing', 'limit'],
    show: (get) => get('toppingOff') ? ['topping off', 'topoff'] :
        get('enforcing') ? [get('limit') === undefined ? '?' : `${get('limit')} %`, 'limit'] :
                           ['', ''],
  },
  {
    name: 'charging',
    fields: ['gate'],
    show: (get) => [get('gate'), get('gate') === 'paused' ? 'paused' : 'allowed'],
  },
  {
    name: 'adapter',
    fields: ['adapter'],
    show: (get) => get('adapter') === 'connected' ? ['connected', 'adapter'] : ['', ''],
  },
  {
    name: 'inflow',
    fields: ['inflow'],
    show: (get) => get('inflow') === 'inhibited' ? ['inhibited', 'inflow'] : ['', ''],
  },
  {
    name: 'lid, display',
    fields: ['lid', 'display'],
    show: (get) => {
      const words = [];
      if (get('lid') === 'closed') words.push('lid closed');
      if (get('display') === 'connected') words.push('display');
      return [words.join(', '), get('lid') === 'closed' ? 'lid' : 'display'];
    },
  },
  {
    name: 'sleep',
    fields: ['sleep', 'power'],
    show: (get) => get('power') === 'off' ? ['off', 'off'] :
        get('sleep') === 'awake'          ? ['', ''] :
                                            [get('sleep'), 'sleep'],
  },
  {
    name: 'faults',
    fields: ['faults'],
    show: (get) => [get('faults').map((fault) => fault.text).join(', '), 'fault'],
  },
  {
    name: 'helper',
    fields: ['helper', 'helperPid'],
    show: (get) => get('helper') === 'running' ? [`pid ${get('helperPid')}`, 'helper'] : ['', ''],
  },
];

// One lane of one run: segments {time, text, tone}, each in force until the next.
class Track {
  constructor(run, lane) {
    this.run = run;
    this.lane = lane;
    this.name = lane.name;
    this.begin();
  }

  begin() {
    this.segments = [];
    this.read = atStart - 1;
    this.startValues = this.valuesAtStart();
  }

  valuesAtStart() {
    return this.lane.fields.map((field) => this.run.history(field).values[0]);
  }

  // Takes in the entries that have come since.
  update() {
    const start = this.valuesAtStart();
    if (start.some((value, place) => value !== this.startValues[place])) this.begin();
    const causes = new Set();
    for (const field of this.lane.fields) {
      const history = this.run.history(field);
      for (let place = history.causes.length - 1; place >= 0; --place) {
        if (history.causes[place] <= this.read) break;
        causes.add(history.causes[place]);
      }
    }
    for (const cause of [...causes].sort((one, other) => one - other)) this.push(cause);
    this.read = this.run.entries.length - 1;
  }

  push(cause) {
    const state = this.run.stateAt(cause);
    const [text, tone] = this.lane.show((field) => state.get(field));
    const last = this.segments[this.segments.length - 1];
    if (last && last.text === text && last.tone === tone) return;
    const time = this.run.timeOf(cause);
    if (last && last.time === time) this.segments.pop();
    this.segments.push({time, text, tone});
  }
}

const mostClientRows = 4;

// The name of a client: its identity or signature as far as it is known, and its process.
export function clientName({identity, signingID, pid}) {
  const who = identity || signingID || 'client';
  return `${who} ${pid}`;
}

// A client's stretch in a lane; it ends at `to`, and goes on while that is null.
class ClientSegment {
  constructor(stretch) {
    this.stretch = stretch;
    this.time = stretch.from;
    this.tone = 'client';
  }

  get to() {
    return this.stretch.to;
  }

  get text() {
    return clientName(this.stretch);
  }
}

// The clients in as few lanes as they fit in, one of them a stretch; those that do not fit share
// the last.
class ClientTracks {
  constructor(run) {
    this.run = run;
    this.rows = [];
    this.read = 0;
  }

  update() {
    for (; this.read < this.run.clients.length; ++this.read) {
      const stretch = this.run.clients[this.read];
      const isFree = (row) => {
        const last = row.segments[row.segments.length - 1];
        return last.to !== null && last.to <= stretch.from;
      };
      let row = this.rows.find(isFree);
      if (!row && this.rows.length < mostClientRows) {
        row = {name: this.rows.length === 0 ? 'clients' : '', segments: []};
        this.rows.push(row);
      }
      (row ?? this.rows[mostClientRows - 1]).segments.push(new ClientSegment(stretch));
    }
  }
}

export class Tracks {
  constructor(run) {
    this.run = run;
    this.tracks = lanes.map((lane) => new Track(run, lane));
    this.clients = new ClientTracks(run);
  }

  update() {
    for (const track of this.tracks) track.update();
    this.clients.update();
  }

  // The lanes that have anything to show: [{name, segments}]. A client's segment has an end of its
  // own, `to`; any other is in force until the next.
  get all() {
    const shows = (track) => track.segments.some((segment) => segment.text !== '');
    return [...this.tracks.filter(shows), ...this.clients.rows];
  }
}

// Whether a lane shows the same in two runs, but for times that are `tolerance` seconds apart.
function isAlike(one, other, tolerance) {
  return one.segments.length === other.segments.length && one.segments.every((segment, place) => {
    const beside = other.segments[place];
    return segment.tone === beside.tone && Math.abs(segment.time - beside.time) <= tolerance &&
        (segment.tone === 'helper' || segment.tone === 'client' || segment.text === beside.text);
  });
}

// The names of the lanes that two runs have alike.
export function alikeLanes(one, other, tolerance) {
  return one.tracks.filter((track, place) => isAlike(track, other.tracks[place], tolerance))
      .map((track) => track.name);
}
