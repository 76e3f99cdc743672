// The pointer over a chart: hovering tells the moment, a click moves the cursor there, dragging
// chooses a stretch to zoom to, the wheel zooms, two fingers zoom and one finger moves.

const smallestDrag = 6;
const nearMark = 9;

export class Pointer {
  // `acts`: {hover(time, event), leave(), choose(index)}.
  constructor(chart, view, acts) {
    Object.assign(this, {chart, view, acts, fingers: new Map(), from: null});
    const {area} = chart;
    area.addEventListener('pointerdown', (event) => this.down(event));
    area.addEventListener('pointermove', (event) => this.moved(event));
    area.addEventListener('pointerup', (event) => this.up(event));
    area.addEventListener('pointercancel', (event) => this.forget(event));
    area.addEventListener('pointerleave', () => acts.leave());
    area.addEventListener('dblclick', () => view.all());
    area.addEventListener('wheel', (event) => this.wheeled(event), {passive: false});
  }

  x(event) {
    return event.clientX - this.chart.area.getBoundingClientRect().left;
  }

  time(event) {
    return this.chart.scale.time(this.x(event));
  }

  down(event) {
    if (event.button !== 0) return;
    this.chart.area.setPointerCapture?.(event.pointerId);
    this.fingers.set(event.pointerId, this.x(event));
    this.from = this.fingers.size === 1 ? this.x(event) : null;
    this.moving = false;
  }

  moved(event) {
    this.acts.hover(this.time(event), event);
    if (!this.fingers.has(event.pointerId)) return;
    if (this.fingers.size === 2) {
      this.pinch(event);
    } else if (event.pointerType === 'touch') {
      this.drag(event);
    } else if (this.from !== null) {
      this.showBand(this.from, this.x(event));
    }
  }

  // Two fingers: what is between them stays between them.
  pinch(event) {
    const before = [...this.fingers.values()];
    this.fingers.set(event.pointerId, this.x(event));
    const after = [...this.fingers.values()];
    const width = ([one, other]) => Math.max(10, Math.abs(one - other));
    const middle = this.chart.scale.time((after[0] + after[1]) / 2);
    this.view.zoom(width(before) / width(after), middle);
    this.moving = true;
  }

  drag(event) {
    const x = this.x(event);
    const before = this.fingers.get(event.pointerId);
    if (!this.moving && Math.abs(x - before) < smallestDrag) return;
    this.moving = true;
    this.fingers.set(event.pointerId, x);
    this.view.move((before - x) / this.chart.width);
  }

  showBand(one, other) {
    const {band, width} = this.chart;
    const left = Math.max(0, Math.min(one, other));
    const right = Math.min(width, Math.max(one, other));
    band.hidden = right - left < smallestDrag;
    band.style.left = `${left}px`;
    band.style.width = `${right - left}px`;
  }

  up(event) {
    if (!this.fingers.has(event.pointerId)) return;
    const x = this.x(event);
    const {band, scale} = this.chart;
    const dragged = !band.hidden;
    const from = this.from;
    this.forget(event);
    if (dragged && from !== null) {
      this.view.set(scale.time(Math.min(from, x)), scale.time(Math.max(from, x)));
    } else if (!this.moving && this.fingers.size === 0) {
      this.acts.choose(this.entryAt(x));
    }
  }

  forget(event) {
    this.fingers.delete(event.pointerId);
    this.chart.band.hidden = true;
    this.from = null;
  }

  // The entry that a click means: that of the nearest mark, or the last one before the place.
  entryAt(x) {
    const {run, scale} = this.chart;
    const near = marksNear(run, scale, x);
    return near.length > 0 ? near[0].index : run.indexAt(scale.time(x));
  }

  wheeled(event) {
    event.preventDefault();
    if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
      this.view.move((event.deltaX || event.deltaY) / 1000);
    } else {
      this.view.zoom(Math.exp(event.deltaY * 0.002), this.time(event));
    }
  }
}

// The marks near a place of a chart, the nearest first.
export function marksNear(run, scale, x) {
  const from = scale.time(x - nearMark);
  const to = scale.time(x + nearMark);
  const distance = (mark) => Math.abs(scale.x(run.timeOf(mark.index)) - x);
  return run.marksBetween(from, to).sort((one, other) => distance(one) - distance(other));
}
