// The state file's fields as the journal tells their changes.

import {wordsIn} from 'viewer/effects';

// `a=1 b="x y" c gone`: pairs of a name and a text, or null where the field is gone.
export function changesIn(words) {
  const fields = [];
  for (const word of words) {
    const equals = word.indexOf('=');
    if (equals > 0) {
      fields.push([word.slice(0, equals), plain(word.slice(equals + 1))]);
    } else if (word !== 'gone') {
      fields.push([word, null]);
    }
  }
  return fields;
}

function plain(text) {
  if (!text.startsWith('"')) return text;
  try {
    return JSON.parse(text);
  } catch {
    return wordsIn(text).join(' ');
  }
}
