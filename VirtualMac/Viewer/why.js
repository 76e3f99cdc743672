// Why a field has its value: the line that set it, the line just before that led to it, and the
// request behind both.

import {lastUpTo} from 'viewer/history';

// The helper looks at the battery every so many seconds, so its reason is no older.
const tickSeconds = 5;
const ofHelper = ['smc', 'disk', 'log', 'reply', 'power'];
const mostLinesBack = 400;

// Lines that are reasons: decisions and requests that the core logs, deeds and levels of the
// machine, clients, processes, and sleep.
function isReason(entry) {
  if (entry.kind === 'log') return entry.category === 'HelperImpl';
  return ['mac', 'app', 'proc'].includes(entry.kind) ||
      ['sleepBegins', 'fellAsleep', 'woke'].includes(entry.effect);
}

function reasonBefore(run, cause) {
  const earliest = run.timeOf(cause) - tickSeconds - 0.5;
  for (let index = cause - 1; index >= Math.max(0, cause - mostLinesBack); --index) {
    const entry = run.entries[index];
    if (entry.time < earliest) return null;
    if (isReason(entry)) return entry;
  }
  return null;
}

// The latest request before an entry, of the same helper.
function requestBefore(run, cause) {
  for (let place = lastUpTo(run.marks, cause, (mark) => mark.index); place >= 0; --place) {
    const mark = run.marks[place];
    if (mark.kind === 'request' && mark.text !== 'shut down') return run.entries[mark.index];
    if (mark.text === 'helper started') return null;
  }
  return null;
}

// {cause, before, request}: entries, each null where there is none. `index` -1 is the start.
export function whyOf(run, index) {
  if (index < 0) return {cause: null, before: null, request: null};
  const cause = run.entries[index];
  // A person, the hardware or a client did this; nothing in the journal led to it.
  if (!ofHelper.includes(cause.kind)) return {cause, before: null, request: null};
  const before = reasonBefore(run, index);
  const request = requestBefore(run, index);
  const isNew = request !== null && request !== cause && request !== before;
  return {cause, before, request: isNew ? request : null};
}
