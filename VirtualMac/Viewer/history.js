// The changes of one field of a run's state, in the order of the run's entries.

// The entry that a start state comes from: none.
export const atStart = -1;

// The position of the last number in a sorted list that is not above `limit`; -1: all are.
export function lastUpTo(list, limit, numberOf = (each) => each) {
  let low = 0;
  let high = list.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (numberOf(list[middle]) <= limit) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low - 1;
}

// The changes of one field: which entry set it, and to what.
export class History {
  constructor() {
    this.causes = [];
    this.values = [];
    this.assumed = false;  // The first value is the usual one; nobody has told it.
  }

  get last() {
    return this.values[this.values.length - 1];
  }

  set(cause, value) {
    if (this.causes[this.causes.length - 1] === cause) {
      this.causes.pop();
      this.values.pop();
    }
    // The first line that tells what was only assumed counts, even when it changes nothing.
    const isNews = this.assumed && this.values.length === 1;
    if (this.values.length > 0 && this.last === value && !isNews) return;
    this.causes.push(cause);
    this.values.push(value);
  }
}
