// Recorded runs: the trace that a page holds, and traces or journals that a person opens. Whatever
// is wrong with them is said in words, and what can be read is shown.

import {entryFrom, headFrom} from 'viewer/journal';
import {Run} from 'viewer/model';

const version = 1;

const isText = (value) => typeof value === 'string';
const isNumber = (value) => typeof value === 'number' && Number.isFinite(value);

function linesOf(text) {
  const lines = text.split('\n');
  if (lines[lines.length - 1] === '') lines.pop();
  return lines;
}

function runFrom(told, number, problems) {
  const name = isText(told?.title) && told.title !== '' ? told.title : `run ${number + 1}`;
  if (!isText(told?.lines)) problems.push(`${name}: the trace holds no lines`);
  const failures = Array.isArray(told?.failures) ? told.failures : [];
  const story = isText(told?.story?.text) ? told.story : null;
  const run = new Run({
    title: name,
    head: told?.head !== null && typeof told?.head === 'object' ? told.head : null,
    story,
    failures: failures.filter((each) => isNumber(each?.time) && isText(each?.text))
                  .map((each) => ({...each})),
    end: isNumber(told?.end) ? told.end : 0,
  });
  run.addLines(linesOf(isText(told?.lines) ? told.lines : ''));
  run.finish();
  tellDamage(run, problems);
  return run;
}

function tellDamage(run, problems) {
  const {count, lines} = run.damaged;
  if (count === 0) return;
  const [first] = lines;
  const rest = count === 1 ? '' : ` (the first of ${count})`;
  problems.push(
      `${run.title}: line ${first.number}${rest} is no line of a journal and is left out: ` +
      `"${first.text.slice(0, 80)}"`);
}

// {runs, problems}: the runs of a trace's text, and what is wrong with it, in words.
export function runsFromTrace(text) {
  const problems = [];
  let trace = null;
  try {
    trace = JSON.parse(text);
  } catch (error) {
    return {runs: [], problems: [`The trace is damaged and cannot be read: ${error.message}`]};
  }
  if (isNumber(trace?.version) && trace.version > version) {
    problems.push(
        `The trace has version ${trace.version}, and this page knows version ${version}: ` +
        'it may show only a part of it.');
  }
  if (!Array.isArray(trace?.runs) || trace.runs.length === 0) {
    return {runs: [], problems: [...problems, 'The trace holds no runs.']};
  }
  return {
    runs: trace.runs.slice(0, 2).map((told, number) => runFrom(told, number, problems)),
    problems
  };
}

// The same for a file that a person opens: a trace as a page or as JSON, or a journal.
export function runsFromFile(name, text) {
  if (/^\s*</.test(text)) {
    const data = new DOMParser().parseFromString(text, 'text/html').getElementById('trace');
    if (!data) return {runs: [], problems: [`${name} is a page without a trace.`]};
    return runsFromTrace(data.textContent);
  }
  if (/^\s*\{/.test(text)) return runsFromTrace(text);
  const problems = [];
  const lines = linesOf(text);
  if (!lines.some((line) => entryFrom(line) !== null)) {
    return {
      runs: [],
      problems: [`${name} is neither a trace nor a journal: no line of it is one of a journal.`]
    };
  }
  const run = new Run({title: name, head: headFrom(lines[0])});
  run.addLines(lines);
  run.finish();
  tellDamage(run, problems);
  return {runs: [run], problems};
}
