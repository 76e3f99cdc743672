// The lines that a journal can hold, as `VirtualMac/Schedule/Effects.def` has them, in its
// order: {} stands for a value, {*} for the others, with spaces between. Where two patterns fit a
// text, the first holds.

export const effectRows = [
  ['keyRefused', 'smc', '{} <- {} refused (result {})'],
  ['keyIgnored', 'smc', '{} <- {} ignored (value stays {})'],
  ['keyWritten', 'smc', '{} <- {}'],
  ['logged', 'log', '{} {} "{}"'],
  ['helperStarted', 'proc', 'helper {} started'],
  ['helperExited', 'proc', 'helper {} exited {}'],
  ['helperKilled', 'proc', 'helper {} killed by signal {}'],
  ['helperEnded', 'proc', 'helper {} ended'],
  ['helperCutOff', 'proc', 'helper {} cut off: {}'],
  ['signalSent', 'proc', 'signal {} to helper {}'],
  ['replySucceeded', 'reply', '{} ok'],
  ['replySucceededDespite', 'reply', '{} ok {} "{}"'],
  ['replyFailed', 'reply', '{} failed {} "{}"'],
  ['replyFailedSilently', 'reply', '{} failed without an error'],
  ['replyEmpty', 'reply', '{} empty'],
  ['replyNumber', 'reply', '{} {}'],
  ['assertionCreated', 'power', 'assertion {} created {} "{}" (pid {}, {})'],
  ['assertionReleased', 'power', 'assertion {} released'],
  ['assertionTimedOut', 'power', 'assertion {} timed out'],
  ['assertionDropped', 'power', 'assertion {} dropped with pid {}'],
  ['settingRefused', 'power', '{} = {} refused ({})'],
  ['settingByOther', 'power', '{} = {} (by another program)'],
  ['settingRemovedByOther', 'power', '{} removed (by another program)'],
  ['settingWritten', 'power', '{} = {}'],
  ['sleepBegins', 'power', 'sleep ({}) begins'],
  ['sleepHeldOff', 'power', 'sleep ({}) held off by {}'],
  ['sleepTakenBack', 'power', 'sleep ({}) taken back'],
  ['messageSent', 'power', 'message {} to pid {}'],
  ['messageAcknowledged', 'power', 'message acknowledged by pid {}'],
  ['messageNotAcknowledged', 'power', 'message not acknowledged by pid {}'],
  ['fellAsleep', 'power', 'asleep'],
  ['woke', 'power', 'awake ({})'],
  ['nativeLimitByUser', 'power', 'native limit {} (by the user)'],
  ['nativeLimitRefused', 'power', 'native limit {} refused (pid {})'],
  ['nativeLimitIgnored', 'power', 'native limit {} ignored (pid {})'],
  ['nativeLimitSet', 'power', 'native limit {} (pid {})'],
  ['batterySet', 'mac', 'battery set to {} %'],
  ['batteryLevel', 'mac', 'battery {} %'],
  ['adapterConnected', 'mac', 'adapter connected'],
  ['adapterDisconnected', 'mac', 'adapter disconnected'],
  ['inflowInhibitDropped', 'mac', 'adapter renegotiated (inflow inhibit dropped)'],
  ['lidClosed', 'mac', 'lid closed'],
  ['lidOpened', 'mac', 'lid opened'],
  ['clockSet', 'mac', 'clock set to {}'],
  ['poweredOn', 'mac', 'powered on'],
  ['powerLost', 'mac', 'power lost'],
  ['batteryRanOut', 'mac', 'battery empty, power lost'],
  ['rebooted', 'mac', 'reboot'],
  ['fileUnchanged', 'disk', '{} {}: no field differs'],
  ['fileOpaque', 'disk', '{} {}: {} bytes'],
  ['fileChanged', 'disk', '{} {}: {*}'],
  ['fileReplaced', 'disk', '{} replaced'],
  ['fileRemoved', 'disk', '{} removed'],
];

const place = '{}';
const otherPlaces = '{*}';

const rowsOfKind = new Map();
for (const [id, kind, pattern] of effectRows) {
  if (!rowsOfKind.has(kind)) rowsOfKind.set(kind, []);
  rowsOfKind.get(kind).push({id, pieces: piecesOf(pattern)});
}

// The texts before, between and behind a pattern's places.
function piecesOf(pattern) {
  const takesOthers = pattern.endsWith(otherPlaces);
  const fixed = takesOthers ? pattern.slice(0, -otherPlaces.length) : pattern;
  return {texts: fixed.split(place), takesOthers};
}

// Cuts a text at the spaces that are in no JSON string.
export function wordsIn(text) {
  return text.match(/(?:"(?:\\.|[^"\\])*"?|[^ "])+/g) ?? [];
}

// The values of a text that a pattern fits; null: it does not. The last value reaches as far as it
// can, the others as little.
function match({texts, takesOthers}, text) {
  if (!text.startsWith(texts[0])) return null;
  const values = [];
  let at = texts[0].length;
  for (let number = 1; number < texts.length; ++number) {
    const next = texts[number];
    const last = number === texts.length - 1 && !takesOthers;
    const end = !last       ? text.indexOf(next, at) :
        text.endsWith(next) ? text.length - next.length :
                              -1;
    if (end < at) return null;
    values.push(text.slice(at, end));
    at = end + next.length;
  }
  if (takesOthers) return values.concat(wordsIn(text.slice(at)));
  return at === text.length ? values : null;
}

const told = {
  id: 'told',
  values: []
};

// The effect that a line tells, and its values; `told` where no pattern fits.
export function effectOf(kind, text) {
  for (const {id, pieces} of rowsOfKind.get(kind) ?? []) {
    const values = match(pieces, text);
    if (values) return {id, values};
  }
  return told;
}
