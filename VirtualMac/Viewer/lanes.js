// Draws the lanes, and the marks under them, on one canvas. Every tone has a pattern of its own
// and its words where there is room, so that nothing depends on colour.

import {token} from 'viewer/dom';
import {lastUpTo} from 'viewer/history';

export const laneHeight = 16;
export const laneStep = 19;
export const markStep = 17;
// Marks at the edges stick out so far.
export const overhang = 10;

// The rows of marks: their name, and the kinds of marks that stand in them.
export const markRows = [
  {name: 'asked', kinds: ['request', 'refusal']},
  {name: 'done to it', kinds: ['deed', 'loss', 'event']},
  {name: 'log', kinds: ['error', 'log']},
];

const hatches = {
  paused: 'diagonal',
  inflow: 'cross',
  sleep: 'dots',
  off: 'cross',
  topoff: 'upright',
  fault: 'back',
  lid: 'level',
};

function patternPath(context, kind) {
  const lines = {
    diagonal: [[0, 8, 8, 0], [-2, 2, 2, -2], [6, 10, 10, 6]],
    back: [[0, 0, 8, 8], [-2, 6, 2, 10], [6, -2, 10, 2]],
    cross: [[0, 8, 8, 0], [0, 0, 8, 8]],
    upright: [[2, 0, 2, 8]],
    level: [[0, 2, 8, 2], [0, 6, 8, 6]],
    dots: [[2, 2, 3, 2], [6, 6, 7, 6]],
  };
  context.beginPath();
  for (const [left, top, right, bottom] of lines[kind]) {
    context.moveTo(left, top);
    context.lineTo(right, bottom);
  }
  context.stroke();
}

// The colours of the current theme, made once a theme.
export class Palette {
  constructor() {
    this.tones = new Map();
    this.words = {};
    for (const name
             of ['ink', 'faint', 'line', 'lane', 'panel', 'charge', 'limit', 'warmth', 'bad',
                 'deed', 'event', 'request', 'band']) {
      this.words[name] = token(name);
    }
  }

  tone(name) {
    if (!this.tones.has(name)) {
      const fill = token(`tone-${name}`) || this.words.lane;
      this.tones.set(name, {fill, hatch: this.hatch(name)});
    }
    return this.tones.get(name);
  }

  hatch(name) {
    if (!hatches[name]) return null;
    const tile = document.createElement('canvas');
    tile.width = tile.height = 8;
    const context = tile.getContext('2d');
    context.strokeStyle = this.words.ink;
    context.globalAlpha = 0.28;
    patternPath(context, hatches[name]);
    return tile;
  }
}

// Sizes a canvas for the screen's pixels and clears it.
export function preparedContext(canvas, width, height) {
  const ratio = window.devicePixelRatio || 1;
  canvas.width = Math.round(width * ratio);
  canvas.height = Math.round(height * ratio);
  canvas.style.width = `${width}px`;
  canvas.style.height = `${height}px`;
  const context = canvas.getContext('2d');
  context.scale(ratio, ratio);
  context.textBaseline = 'middle';
  context.font = `11px ${token('face')}`;
  return context;
}

function drawSegment(context, palette, segment, left, right, top) {
  const width = Math.max(right - left, 1.5);
  const {fill, hatch} = palette.tone(segment.tone);
  context.fillStyle = fill;
  context.fillRect(left, top, width, laneHeight);
  if (hatch && width > 3) {
    context.fillStyle = context.createPattern(hatch, 'repeat');
    context.fillRect(left, top, width, laneHeight);
  }
  const room = width - 10;
  if (room < 14) return;
  const words = fitted(context, segment.text, room);
  if (words === '') return;
  const long = context.measureText(words).width;
  if (hatch) {
    context.fillStyle = fill;
    context.fillRect(left + 3, top + 2, long + 6, laneHeight - 4);
  }
  context.fillStyle = palette.words.ink;
  context.fillText(words, left + 6, top + laneHeight / 2 + 0.5);
}

// As much of a text as has room; empty: next to nothing has.
function fitted(context, text, room) {
  if (context.measureText(text).width <= room) return text;
  for (let length = Math.min(text.length - 1, Math.floor(room / 5)); length >= 3; --length) {
    const cut = text.slice(0, length) + '…';
    if (context.measureText(cut).width <= room) return cut;
  }
  return '';
}

// Draws the stretches of a lane that are in sight.
export function drawLane(context, palette, track, scale, top, end) {
  context.fillStyle = palette.words.lane;
  context.fillRect(0, top, scale.width, laneHeight);
  const {segments} = track;
  let place = Math.max(0, lastUpTo(segments, scale.from, (segment) => segment.time));
  // Stretches of clients that share a lane may begin in any order.
  if (segments.length > 0 && segments[0].to !== undefined) place = 0;
  let drawnTo = -1;
  for (; place < segments.length && segments[place].time <= scale.to; ++place) {
    const segment = segments[place];
    const until = segment.to !== undefined ? segment.to ?? end : segments[place + 1]?.time ?? end;
    const left = Math.max(0, scale.x(segment.time));
    const right = Math.min(scale.width, scale.x(until));
    if (segment.text === '' || right < 0 || (right <= drawnTo && right - left < 1)) continue;
    drawSegment(context, palette, segment, left, right, top);
    drawnTo = right;
  }
}

const markColours = {
  request: 'request',
  refusal: 'bad',
  event: 'event',
  loss: 'bad',
  deed: 'deed',
  error: 'bad',
  log: 'faint',
  failure: 'bad',
};

// Each kind of mark has its own shape.
export function drawMark(context, palette, kind, x, y) {
  context.fillStyle = context.strokeStyle = palette.words[markColours[kind]];
  context.lineWidth = 2;
  const path = (points, close) => {
    context.beginPath();
    points.forEach(
        ([dx, dy], place) =>
            place === 0 ? context.moveTo(x + dx, y + dy) : context.lineTo(x + dx, y + dy));
    if (close) {
      context.closePath();
      context.fill();
    } else {
      context.stroke();
    }
  };
  if (kind === 'request') path([[-4, -5], [5, 0], [-4, 5]], true);
  if (kind === 'deed') path([[0, -6], [5, 0], [0, 6], [-5, 0]], true);
  if (kind === 'error') path([[0, -6], [6, 5], [-6, 5]], true);
  if (kind === 'log') path([[0, -4], [0, 4]], false);
  if (kind === 'refusal' || kind === 'loss') {
    path([[-4, -4], [4, 4]], false);
    path([[-4, 4], [4, -4]], false);
  }
  if (kind === 'event' || kind === 'loss') {
    context.beginPath();
    context.arc(x, y, kind === 'loss' ? 7 : 4.5, 0, 2 * Math.PI);
    context.stroke();
  }
  if (kind === 'failure') path([[-5, -6], [6, -3], [-5, 1], [-5, 8], [-5, -6]], true);
}

// Draws a row of marks; where several have one place, the gravest is drawn and they are counted.
export function drawMarks(context, palette, {marks, run, row, scale, top}) {
  const spacing = 11;
  const first = lastUpTo(marks, scale.from - 0.0005, (mark) => run.timeOf(mark.index)) + 1;
  let crowd = null;
  const middle = top + markStep / 2;
  const flush = () => {
    if (!crowd) return;
    drawMark(context, palette, crowd.kind, crowd.x, middle);
    if (crowd.count > 1) {
      context.fillStyle = palette.words.faint;
      context.fillText(String(crowd.count), crowd.x + 8, middle);
    }
  };
  for (let place = first; place < marks.length; ++place) {
    const mark = marks[place];
    const time = run.timeOf(mark.index);
    if (time > scale.to) break;
    if (time < scale.from || !row.kinds.includes(mark.kind)) continue;
    const x = scale.x(time);
    const gap = crowd && crowd.count > 1 ? spacing + 8 + String(crowd.count).length * 6 : spacing;
    if (crowd && x - crowd.x < gap) {
      ++crowd.count;
      const graver = row.kinds.indexOf(mark.kind) < row.kinds.indexOf(crowd.kind);
      if (graver || mark.kind === 'refusal' || mark.kind === 'loss') crowd.kind = mark.kind;
      continue;
    }
    flush();
    crowd = {x, kind: mark.kind, count: 1};
  }
  flush();
}
