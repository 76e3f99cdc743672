// The words for the signs and lines of the chart.

import {element} from 'viewer/dom';
import {Palette, preparedContext} from 'viewer/lanes';
import {signOf} from 'viewer/tooltip';

const lines = [
  ['charge', 'charge', [], 2.5], ['limit', 'limit', [6, 4], 2],
  ['temperature', 'warmth', [2, 3], 1.5]
];
const signs = [
  ['request', 'request'],
  ['refusal', 'refused'],
  ['deed', 'done to it'],
  ['event', 'helper starts, ends'],
  ['loss', 'killed, power lost'],
  ['log', 'log'],
  ['error', 'error, fault'],
  ['failure', 'failure'],
];

function lineSign(colour, dash, width) {
  const canvas = element('canvas', {'aria-hidden': 'true'});
  const context = preparedContext(canvas, 22, 12);
  context.strokeStyle = new Palette().words[colour];
  context.lineWidth = width;
  context.setLineDash(dash);
  context.beginPath();
  context.moveTo(0, 6);
  context.lineTo(22, 6);
  context.stroke();
  return canvas;
}

function bandSign() {
  const canvas = element('canvas', {'aria-hidden': 'true'});
  const context = preparedContext(canvas, 22, 12);
  context.fillStyle = new Palette().words.band;
  context.fillRect(0, 1, 22, 10);
  return canvas;
}

export function drawLegend(place) {
  const item = (sign, words) => element('span', {class: 'legend-item'}, sign, words);
  const isOpen = place.querySelector('details')?.open ?? false;
  const items = element(
      'div', {class: 'legend-items'},
      ...lines.map(([words, colour, dash, width]) => item(lineSign(colour, dash, width), words)),
      item(bandSign(), 'band: no decision'),
      ...signs.map(([kind, words]) => item(signOf(kind), words)));
  place.replaceChildren(
      element('details', {open: isOpen}, element('summary', {}, 'Signs and lines'), items));
}
