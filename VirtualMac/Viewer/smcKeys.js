// The hardware's keys that matter: which of them close the charging gate, and which stop the
// adapter's inflow.

export const gateKeys = ['CHTE', 'CH0B', 'CH0C'];
export const inflowKeys = ['CHIE', 'CH0I', 'CH0J'];

// Whether the bytes of such a key, `01 00 00 00`, inhibit something: the helper writes zeros to
// allow it again.
export function isSet(bytes) {
  return bytes !== '' && !bytes.startsWith('00');
}
