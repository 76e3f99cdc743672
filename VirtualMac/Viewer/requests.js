// Requests of the application, as the helper's core logs them with who asked.

import {numberAfter} from 'viewer/journal';

const requests = [
  ['setChargeLimit(', 'limit '],
  ['clearChargeLimit ', 'clear'],
  ['forceDischarge(1)', 'discharge'],
  ['forceDischarge(0)', 'stop discharge'],
  ['setClamshellKeepAwake(1)', 'keep awake'],
  ['setClamshellKeepAwake(0)', 'let sleep'],
  ['releaseLimitUntilFullThenRestore ', 'top off'],
  ['cancelTopUp ', 'cancel top-off'],
  ['resetAllSMCKeys ', 'reset'],
  ['quit() received', 'quit'],
  ['shutdownGracefully', 'shut down'],
];

// The request in short, from a line of the core; null: another line.
export function requestIn(text) {
  const found = requests.find(([start]) => text.startsWith(start));
  if (!found) return null;
  const label = found[1];
  return label.endsWith(' ') ? `${label}${numberAfter(text, '(') ?? 0} %` : label;
}
