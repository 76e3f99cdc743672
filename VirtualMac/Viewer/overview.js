// The whole run at a glance: its charge, failures and cursor, and the stretch that the chart shows
// as a window, which can be dragged.

import {element} from 'viewer/dom';
import {Palette, preparedContext} from 'viewer/lanes';
import {thinned} from 'viewer/thinning';
import {scaleOf} from 'viewer/view';

const height = 34;

export class Overview {
  constructor(place, view) {
    this.view = view;
    this.canvas = element('canvas', {
      role: 'img',
      'aria-label': 'The charge over the whole run; a window shows what the chart shows',
    });
    this.node = element('div', {class: 'overview'}, this.canvas);
    place.append(this.node);
    this.palette = new Palette();
    this.node.addEventListener('pointerdown', (event) => this.drag(event));
    this.node.addEventListener('pointermove', (event) => event.buttons === 1 && this.drag(event));
  }

  recolour() {
    this.palette = new Palette();
    this.image = null;
  }

  drag(event) {
    this.node.setPointerCapture?.(event.pointerId);
    const x = event.clientX - this.node.getBoundingClientRect().left;
    const {from, to} = this.view.range;
    const middle = scaleOf(this.view.whole, this.node.clientWidth).time(x);
    if (!this.view.isWhole) this.view.set(middle - (to - from) / 2, middle + (to - from) / 2);
  }

  draw(run, columns, cursorTime) {
    const width = this.node.clientWidth;
    if (width === 0) return;
    const {words} = this.palette;
    const context = preparedContext(this.canvas, width, height);
    const scale = scaleOf(this.view.whole, width);
    context.drawImage(this.chargeImage(columns, scale), 0, 0, width, height);
    const {from, to} = this.view.range;
    if (!this.view.isWhole) {
      context.fillStyle = words.panel;
      context.globalAlpha = 0.7;
      context.fillRect(0, 0, scale.x(from), height);
      context.fillRect(scale.x(to), 0, width - scale.x(to), height);
      context.globalAlpha = 1;
      context.strokeStyle = words.ink;
      context.strokeRect(
          scale.x(from) + 0.5, 0.5, Math.max(2, scale.x(to) - scale.x(from) - 1), height - 1);
    }
    for (const failure of run.failures) {
      context.fillStyle = words.bad;
      context.fillRect(scale.x(failure.time) - 1, 0, 2, height);
    }
    context.fillStyle = words.ink;
    context.fillRect(scale.x(cursorTime) - 0.5, 0, 1, height);
  }

  // The charge of a long run takes long to draw, so it is kept until it changes.
  chargeImage(columns, scale) {
    const {image} = this;
    if (image && image.columns === columns && image.length === columns[0].length &&
        image.width === scale.width && image.to === scale.to) {
      return image.canvas;
    }
    const canvas = document.createElement('canvas');
    const shown = thinned(columns, scale.from, scale.to, scale.width);
    this.drawCharge(preparedContext(canvas, scale.width, height), shown, scale);
    this.image = {canvas, columns, length: columns[0].length, width: scale.width, to: scale.to};
    return canvas;
  }

  drawCharge(context, [times, charges], scale) {
    const y = (percent) => height - 3 - percent / 100 * (height - 6);
    context.beginPath();
    times.forEach((time, place) => {
      if (charges[place] === null) return;
      const act = place === 0 ? 'moveTo' : 'lineTo';
      context[act](scale.x(time), y(charges[place]));
      context.lineTo(scale.x(times[place + 1] ?? time), y(charges[place]));
    });
    context.strokeStyle = this.palette.words.charge;
    context.lineWidth = 1.5;
    context.stroke();
  }
}
