// What the listener has set, by the keys of the table, in its units. Changes run one way: an event
// calls set(), set() calls the listeners.
//
// A value that was never set is the default, and isn't written: the gate's default can't be sent.
import { withSwitches } from "../rules.js";

export function createState(table) {
  const rows = new Map(table.map((row) => [row.key, row]));
  const values = new Map();
  const listeners = [];

  const rowOf = (key) => rows.get(key);
  const isSet = (key) => values.has(key);
  const get = (key) => values.get(key) ?? rowOf(key).default;

  // Rounded to what can be sent, put into the row's range; not a number, or nothing new: nobody is
  // called.
  function set(key, wanted) {
    const row = rowOf(key);
    const value = Math.min(row.max, Math.max(row.min, roundTo(wanted, row.step)));
    if (Number.isNaN(value) || (isSet(key) && value === values.get(key))) return;
    values.set(key, value);
    tell(key);
  }

  function unset(key) {
    if (values.delete(key)) tell(key);
  }

  // Takes `wanted`, values by key, in place of everything.
  function replace(wanted) {
    for (const key of [...values.keys()]) if (!(key in wanted)) unset(key);
    for (const [key, value] of Object.entries(wanted)) set(key, value);
  }

  // Of a switch, also of one that nobody set and that follows its values.
  const isOn = (key) => (withSwitches(all())[key] ?? rowOf(key).default) !== 0;

  // What acts: of a switch 0 or 1.
  const acting = (key) => rowOf(key).kind === "switch" ? Number(isOn(key)) : get(key);

  // The ten of the equalizer.
  const levels = () => table.filter((row) => row.band !== undefined).map((row) => get(row.key));

  // Values by key of what was set.
  const all = () => Object.fromEntries(values);

  function tell(key) {
    for (const listener of listeners) listener(key);
  }

  return {
    table, rowOf, get, set, isSet, unset, replace, isOn, acting, levels, all,
    listen: (listener) => listeners.push(listener),
  };
}

// The multiple of a step of 1, 0.1, 0.01 ... without the binary fraction's tail.
function roundTo(value, step) {
  const perUnit = Math.round(1 / step);
  return Math.round(value * perUnit) / perUnit;
}
