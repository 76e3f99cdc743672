// Moments of a run as text. A moment is virtual seconds since the machine's start, as the journal
// has it; the wall clock is the one that the machine shows at that moment.

const daySeconds = 86400;
const roundSteps = [
  0.001, 0.002, 0.005, 0.01,  0.02,  0.05,   0.1,    0.2,     0.5,     1,    2,
  5,     10,    15,    30,    60,    120,    300,    600,     900,     1800, 3600,
  7200,  10800, 21600, 43200, 86400, 172800, 604800, 1209600, 2592000,
];

const padded = (number, digits) => String(number).padStart(digits, '0');

// `01:02:05.250`, with `1d ` before it from a day on.
export function clockText(seconds) {
  const all = Math.round(Math.abs(seconds) * 1000);
  const whole = Math.floor(all / 1000);
  const inDay = whole % daySeconds;
  const parts = [Math.floor(inDay / 3600), Math.floor(inDay / 60) % 60, inDay % 60];
  const clock = parts.map((part) => padded(part, 2)).join(':') + '.' + padded(all % 1000, 3);
  const days = whole >= daySeconds ? `${Math.floor(whole / daySeconds)}d ` : '';
  return (seconds < 0 && all > 0 ? '−' : '') + days + clock;
}

// `110.000 s`
export function secondsText(seconds) {
  return `${seconds.toFixed(3)} s`;
}

// `2026-01-01 00:01:50.000 UTC`; `clock` is an ISO date, the wall clock at second 0. Empty: the
// date is none.
export function wallText(clock, seconds) {
  const start = Date.parse(clock);
  const date = new Date(start + Math.round(seconds * 1000));
  if (Number.isNaN(date.getTime())) return '';
  return date.toISOString().replace('T', ' ').replace('Z', ' UTC');
}

// `2 h 05 min`, `4.2 s`, `310 ms`
export function durationText(seconds) {
  const length = Math.abs(seconds);
  if (length < 1) return `${Math.round(length * 1000)} ms`;
  if (length < 60) return `${Number(length.toFixed(1))} s`;
  const whole = Math.round(length);
  if (length < 3600) return `${Math.floor(whole / 60)} min ${padded(whole % 60, 2)} s`;
  const hours = Math.floor(whole / 3600);
  if (length < daySeconds) return `${hours} h ${padded(Math.floor(whole / 60) % 60, 2)} min`;
  return `${Math.floor(whole / daySeconds)} d ${hours % 24} h`;
}

// The seconds of a time that a person writes: `1d 02:00`, `00:01:50.5`, `110.5`. Null: it is none.
export function secondsFrom(text) {
  const words = text.trim();
  if (/^\d+(\.\d+)?( ?s)?$/.test(words)) return parseFloat(words);
  const found = /^(?:(\d+)d ?)?(\d+):(\d{1,2})(?::(\d{1,2}(?:\.\d+)?))?$/.exec(words);
  if (!found) {
    const days = /^(\d+)d$/.exec(words);
    return days ? Number(days[1]) * daySeconds : null;
  }
  const [, days, hours, minutes, seconds] = found.map((part) => Number(part ?? 0));
  return days * daySeconds + hours * 3600 + minutes * 60 + seconds;
}

// The step between two time labels: the smallest round one that leaves room for `most` of them.
export function tickSeconds(duration, most) {
  return roundSteps.find((step) => duration / step <= most) ??
      Math.ceil(duration / most / 2592000) * 2592000;
}

// A time as exact as the step needs: in days, in hours and minutes, with seconds, with a fraction.
export function tickLabel(seconds, step) {
  if (step >= daySeconds) return `${Math.floor(seconds / daySeconds)}d`;
  const clock = clockText(seconds);
  if (step >= 60) return clock.slice(0, -7);
  return step >= 1 ? clock.slice(0, -4) : clock;
}
