// The chart of one run: charge, limit, band and temperature as curves, the lanes and marks under
// them, and one cursor through all of it. uPlot draws the curves.

import {Curves} from 'viewer/curves';
import {element, token} from 'viewer/dom';
import {lastUpTo} from 'viewer/history';
import {drawLane, drawMark, drawMarks, laneHeight, laneStep, markRows, markStep, overhang, Palette, preparedContext} from 'viewer/lanes';
import {thinned} from 'viewer/thinning';
import {tickLabel, tickSeconds} from 'viewer/time';
import {Tracks} from 'viewer/tracks';
import {scaleOf} from 'viewer/view';

const {uPlot} = window;
const axisHeight = 26;
const topRoom = 14;

// A line that leads through all that is drawn.
function pole(name) {
  return element('div', {class: `pole ${name}`, 'aria-hidden': 'true', hidden: true});
}

export class Chart {
  // `view` says what is shown; `label` names the run where there are two.
  constructor(place, view, label = '') {
    this.view = view;
    this.curves = element('div', {class: 'curves'});
    this.names = element('div', {class: 'lane-names', 'aria-hidden': 'true'});
    this.canvas = element('canvas', {'aria-hidden': 'true'});
    this.cursor = pole('pole-cursor');
    this.hover = pole('pole-hover');
    this.band = element('div', {class: 'zoom-band', hidden: true});
    this.area = element('div', {class: 'plot-area'}, this.cursor, this.hover, this.band);
    this.lanes = element('div', {class: 'lanes'}, this.names, this.canvas);
    const heading = label === '' ? null : element('h3', {class: 'run-name'}, label);
    this.node = element('div', {class: 'chart'}, heading, this.curves, this.lanes, this.area);
    place.append(this.node);
    this.palette = new Palette();
    this.leftOut = [];
    this.besideWarm = false;  // The chart beside it has an axis of temperatures.
  }

  // Takes a place under another chart: without the lanes of these names, and as wide as that one.
  standWith(leftOut, besideWarm) {
    Object.assign(this, {leftOut, besideWarm});
    this.draw();
  }

  setRun(run) {
    this.run = run;
    this.tracks = new Tracks(run);
    this.lines = new Curves(run);
    this.dropPlot();
    this.refresh();
  }

  // The colours have changed.
  recolour() {
    this.palette = new Palette();
    this.dropPlot();
    if (this.run) this.draw();
  }

  // The run has new lines.
  refresh() {
    this.tracks.update();
    this.lines.update();
    this.draw();
  }

  get columns() {
    return this.lines.columns;
  }

  get warm() {
    return this.lines.warm;
  }

  get gutters() {
    const isWide = this.warm || this.besideWarm;
    return {left: parseFloat(token('gutter')) || 84, right: isWide ? 46 : 14};
  }

  get width() {
    return Math.max(40, this.node.clientWidth - this.gutters.left - this.gutters.right);
  }

  get scale() {
    return scaleOf(this.view.range, this.width);
  }

  draw() {
    if (!this.run || this.node.clientWidth === 0) return;
    this.drawCurves();
    this.drawLanes();
    const {left} = this.gutters;
    Object.assign(this.area.style, {
      left: `${left}px`,
      width: `${this.width}px`,
    });
    this.placeCursor();
  }

  get curvesHeight() {
    return parseFloat(token('curves-height')) || 170;
  }

  get gutterText() {
    return [...Object.values(this.gutters), this.warm].join();
  }

  dropPlot() {
    this.plot?.destroy();
    this.plot = null;
  }

  drawCurves() {
    const {from, to} = this.view.range;
    const size = {width: this.node.clientWidth, height: this.curvesHeight};
    // The library keeps the gutters that it was made with.
    if (this.plot && this.plot.gutterText !== this.gutterText) this.dropPlot();
    const shown = thinned(this.columns, from, to, this.width);
    if (!this.plot) {
      this.plot = new uPlot(this.options(size), shown, this.curves);
      this.plot.gutterText = this.gutterText;
    } else if (this.plot.width !== size.width || this.plot.height !== size.height) {
      this.plot.setSize(size);
    }
    this.plot.batch(() => {
      this.plot.setData(shown, false);
      this.plot.setScale('x', {min: from, max: to});
      const [min, max] = this.lines.range;
      this.plot.setScale('percent', {min, max});
    });
  }

  options({width, height}) {
    const {words} = this.palette;
    const {left, right} = this.gutters;
    const stepped = uPlot.paths.stepped({align: 1});
    const line = (colour, extra) =>
        ({stroke: colour, width: 2, paths: stepped, points: {show: false}, ...extra});
    const axis = {
      stroke: words.faint,
      grid: {stroke: words.line, width: 1},
      ticks: {show: false},
      font: `11px ${token('face')}`
    };
    return {
      width,
      height,
      legend: {show: false},
      cursor: {show: false},
      padding: [topRoom, this.warm ? 0 : right, 0, 0],
      scales:
          {x: {time: false, auto: false}, percent: {auto: false}, celsius: {range: warmthRange}},
      series: [
        {},
        line(words.charge, {scale: 'percent', width: 2.5}),
        line(words.limit, {scale: 'percent', dash: [6, 4]}),
        line('transparent', {scale: 'percent', width: 0}),
        line(words.warmth, {scale: 'celsius', width: 1.5, dash: [2, 3]}),
      ],
      bands: [{series: [2, 3], fill: token('band')}],
      axes: [
        {
          ...axis,
          size: axisHeight,
          splits: (u, i, min, max) => ticks(min, max, this.width),
          values: (u, splits) => splits.map((each) => tickLabel(each, splits[1] - splits[0] || 1))
        },
        {
          ...axis,
          scale: 'percent',
          size: left,
          space: 26,
          values: (u, splits) => splits.map((each) => `${each} %`)
        },
        {
          ...axis,
          scale: 'celsius',
          side: 1,
          size: right,
          space: 30,
          show: this.warm,
          grid: {show: false},
          values: (u, splits) => splits.map((each) => `${each}°`)
        },
      ],
      hooks: {drawClear: [(plot) => this.shadeSleep(plot)]},
    };
  }

  // Shades the time that the machine sleeps, behind the curves.
  shadeSleep(plot) {
    const track = this.tracks.tracks.find((each) => each.name === 'sleep');
    const {left, top, width, height} = plot.bbox;
    const {min, max} = plot.scales.x;
    const {segments} = track;
    plot.ctx.save();
    plot.ctx.fillStyle = token('shade');
    for (let place = Math.max(0, lastUpTo(segments, min, (each) => each.time));
         place < segments.length && segments[place].time <= max; ++place) {
      if (segments[place].text === '') continue;
      const until = segments[place + 1]?.time ?? this.run.end;
      const x = (time) => left + Math.min(1, Math.max(0, (time - min) / (max - min))) * width;
      plot.ctx.fillRect(x(segments[place].time), top, x(until) - x(segments[place].time), height);
    }
    plot.ctx.restore();
  }

  drawLanes() {
    const tracks = this.tracks.all.filter((track) => !this.leftOut.includes(track.name));
    const marksTop = tracks.length * laneStep + 2;
    const height = marksTop + markRows.length * markStep;
    const {left} = this.gutters;
    const context = preparedContext(this.canvas, this.width + 2 * overhang, height);
    context.translate(overhang, 0);
    this.canvas.style.marginLeft = `${left - overhang}px`;
    const {scale, palette} = this;
    tracks.forEach(
        (track, place) => drawLane(context, palette, track, scale, place * laneStep, this.run.end));
    markRows.forEach(
        (row, place) => drawMarks(
            context, palette,
            {marks: this.run.marks, run: this.run, row, scale, top: marksTop + place * markStep}));
    this.drawFailures(context, height);
    this.nameRows(tracks, marksTop, left);
  }

  drawFailures(context, height) {
    for (const failure of this.run.failures) {
      const x = this.scale.x(failure.time);
      if (x < 0 || x > this.width) continue;
      context.fillStyle = this.palette.words.bad;
      context.fillRect(x - 1, 0, 2, height);
      drawMark(context, this.palette, 'failure', x, height - 8);
    }
  }

  nameRows(tracks, marksTop, left) {
    const names = [
      ...tracks.map((track, place) => [track.name, place * laneStep, laneHeight]),
      ...markRows.map((row, place) => [row.name, marksTop + place * markStep, markStep]),
    ];
    this.names.style.width = `${left}px`;
    const shown = JSON.stringify(names);
    if (shown === this.shownNames) return;
    this.shownNames = shown;
    this.names.replaceChildren(...names.map(([name, top, height]) => {
      const node = element('div', {class: 'lane-name'}, name);
      Object.assign(node.style, {top: `${top}px`, lineHeight: `${height}px`});
      return node;
    }));
  }

  // Moves the cursor's line; a moment out of sight has none.
  placeCursor(time = this.cursorTime) {
    this.cursorTime = time;
    this.placePole(this.cursor, time);
  }

  placePole(node, time) {
    const x = time === undefined || time === null ? -1 : this.scale.x(time);
    node.hidden = x < 0 || x > this.width;
    node.style.transform = `translateX(${x}px)`;
  }

  destroy() {
    this.plot?.destroy();
    this.node.remove();
  }
}

function ticks(min, max, width) {
  const step = tickSeconds(max - min, Math.max(2, width / 78));
  const splits = [];
  for (let place = Math.ceil(min / step); place * step <= max; ++place) splits.push(place * step);
  return splits;
}

function warmthRange(plot, least, most) {
  if (least === null) return [15, 50];
  return [Math.floor((least - 2) / 5) * 5, Math.ceil((most + 2) / 5) * 5];
}
