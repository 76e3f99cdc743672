// Columns of a long run, thinned to what a screen can show: in each pixel's stretch of time the
// first, the last, the lowest and the highest value of the charge.

import {lastUpTo} from 'viewer/history';

const perPixel = 4;

// The part of the columns between two moments, with a point more at both ends. The columns are
// seconds, the values that decide, and others that go with them.
export function thinned(columns, from, to, width) {
  const [times, values] = columns;
  const first = Math.max(0, lastUpTo(times, from));
  const last = Math.min(times.length - 1, lastUpTo(times, to) + 1);
  if (last - first < width * perPixel)
    return columns.map((column) => column.slice(first, last + 1));
  const kept = [];
  const pixelOf = (place) => Math.floor((times[place] - from) / (to - from) * width);
  for (let start = first; start <= last;) {
    const pixel = pixelOf(start);
    let [end, least, most] = [start, start, start];
    for (; end <= last && pixelOf(end) === pixel; ++end) {
      if (values[end] < values[least]) least = end;
      if (values[end] > values[most]) most = end;
    }
    const places = new Set([start, Math.min(least, most), Math.max(least, most), end - 1]);
    kept.push(...places);
    start = end;
  }
  return columns.map((column) => kept.map((place) => column[place]));
}
