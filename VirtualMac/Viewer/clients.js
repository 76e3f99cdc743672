// Connected clients, as the journal's lines of kind `app` tell them: in process `app 901 connects`
// with the name of the client's identity, among processes `client 4711 connected` without it.

const helperEnds = ['helperExited', 'helperKilled', 'helperEnded', 'helperCutOff'];
const begins = /^(\S+) (\d+) (?:connects|connected)$/;
const ends = /^(\S+) (\d+) (disconnects|disconnected|dies|refused|cut off: .*)$/;
const unnamed = 'client';

function publish(run) {
  run.set(
      'clients',
      Object.freeze(run.openClients.map(
          ({pid, identity, signingID, from, fromIndex}) =>
              Object.freeze({pid, identity, signingID, since: from, cause: fromIndex}))));
}

function end(run, stretch, entry, how) {
  stretch.to = entry.time;
  stretch.toIndex = entry.index;
  stretch.how = how;
  run.openClients = run.openClients.filter((each) => each !== stretch);
}

const openOf = (run, pid) => run.openClients.findLast((each) => each.pid === pid);

function nameClient(run, message) {
  const found = /\bpid=(\d+) signingID=(\S+)/.exec(message);
  const stretch = found && openOf(run, Number(found[1]));
  if (!stretch || stretch.signingID === found[2]) return;
  stretch.signingID = found[2];
  publish(run);
}

// A stretch is {pid, identity, signingID, from, fromIndex, to, toIndex, how}; `to` is null while
// the client is connected. A helper's end is the end of every connection to it.
export function clientsHeard(run, entry) {
  if (entry.kind === 'log' && entry.category === 'HelperImpl') {
    nameClient(run, entry.message);
    return;
  }
  if (helperEnds.includes(entry.effect)) {
    if (run.openClients.length === 0) return;
    for (const stretch of run.openClients) end(run, stretch, entry, 'the helper ended');
    publish(run);
    return;
  }
  if (entry.kind !== 'app') return;
  const begun = begins.exec(entry.text);
  const ended = ends.exec(entry.text);
  const stretch = ended && openOf(run, Number(ended[2]));
  if (begun) {
    const identity = begun[1] === unnamed ? '' : begun[1];
    const times = {from: entry.time, fromIndex: entry.index, to: null, toIndex: null};
    const made = {pid: Number(begun[2]), identity, signingID: '', ...times, how: ''};
    run.clients.push(made);
    run.openClients.push(made);
    publish(run);
  } else if (stretch) {
    end(run, stretch, entry, ended[3]);
    publish(run);
  }
}
