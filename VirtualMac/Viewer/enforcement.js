// Whether the limit is enforced, by the helper's log and replies: in its record a limit that was
// cleared, suspended or handed back looks like one that is held. The words are those of
// `virtual-mac status`.

import {numberAfter} from 'viewer/journal';

const lowestLimit = 20;
const noLimit = 100;

const reasons = {
  noHelper: 'no helper',
  notArmed: 'not armed since the helper started',
  toppingOff: 'a top-off is under way',
  topOffFailed: 'a top-off was asked for',
  cleared: 'the limit was cleared',
  reset: 'everything was reset',
  suspended: 'nobody connected for 30 s',
  handedBack: 'the limit is 100 %',
  outOfRange: 'the limit is out of range',
};

const helperEnds = ['helperExited', 'helperKilled', 'helperEnded'];

export class EnforcementTrail {
  constructor() {
    this.begin('noHelper');
  }

  begin(loop) {
    Object.assign(this, {loop, limit: null, outcome: null, topOff: false, limits: [], orders: []});
  }

  // The text after an entry; null: the entry changes nothing.
  hear(entry) {
    const matters =
        entry.kind === 'proc' || entry.kind === 'reply' || entry.category === 'HelperImpl';
    if (!matters) return null;
    const before = this.text();
    const id = entry.effect;
    if (id === 'helperStarted') this.begin('notArmed');
    if (helperEnds.includes(id)) this.begin('noHelper');
    if (entry.kind === 'reply') this.hearReply(id, [entry.text.split(' ', 1)[0]]);
    if (entry.category === 'HelperImpl') this.hearCore(entry.message);
    const now = this.text();
    return now === before ? null : now;
  }

  text() {
    if (this.loop !== 'running') return `nothing: ${reasons[this.loop]}`;
    const held = this.limit === null ? 'as saved' : `at ${this.limit} %`;
    return `${held}, last outcome ${this.outcome ?? 'none'}`;
  }

  run(limit) {
    this.loop = 'running';
    this.limit = limit;
  }

  stop(loop) {
    this.loop = loop;
    if (loop === 'toppingOff') this.topOff = true;
    if (['cleared', 'reset', 'suspended'].includes(loop)) this.topOff = false;
  }

  // Replies come from the helper's one queue, in the order in which things were done.
  hearReply(id, [operation]) {
    const succeeded = id === 'replySucceeded' || id === 'replySucceededDespite';
    if (operation === 'setChargeLimit' && succeeded) {
      this.topOff = false;
      this.run(this.limits.shift() ?? null);
    } else if (operation === 'clearChargeLimit') {
      this.stop('cleared');
    } else if (operation === 'resetAllSMCKeys') {
      this.stop('reset');
    } else if (operation === 'releaseLimitUntilFullThenRestore') {
      this.stop(succeeded ? 'toppingOff' : 'topOffFailed');
    } else if (operation === 'cancelTopUp' && this.topOff) {
      this.topOff = false;
      this.run(null);
    } else if (operation === 'forceDischarge' && this.orders.shift() === true && succeeded) {
      this.topOff = false;
    }
  }

  hearCore(text) {
    const begins = (words) => text.startsWith(words);
    if (begins('charge enforcement ')) {
      this.outcome =
          text.slice('charge enforcement '.length).replace(/ — limit is NOT being applied$/, '');
    } else if (begins('setChargeLimit(')) {
      // Other limits are refused without being queued.
      const limit = numberAfter(text, '(');
      if (limit !== null && limit >= lowestLimit && limit <= noLimit) this.limits.push(limit);
    } else if (begins('forceDischarge(')) {
      this.orders.push(begins('forceDischarge(1)'));
    } else if (begins('client connect — arming') || begins('forceDischarge: arming')) {
      this.run(numberAfter(text, 'limit='));
    } else if (begins('top-off complete') || begins('top-off restore loop timed out')) {
      this.topOff = false;
      this.run(numberAfter(text, 'restored limit '));
    } else if (begins('all clients gone — suspending')) {
      this.stop('suspended');
    } else if (begins('100% target')) {
      this.stop('handedBack');
    } else if (begins('pollOnce: target ')) {
      this.stop('outOfRange');
    }
  }
}
