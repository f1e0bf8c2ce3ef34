// Holds what the listener has set, by the keys of the table, in its units. Changes run one way. An event
// calls set(), and set() calls the listeners.
//
// A value that was never set is the default and is not written, because the gate's default cannot be sent.
import { withSwitches } from "../rules.js";

/** @import { Parameter, SettingKey, Settings } from "../package/index.d.ts" */
/** @typedef {(key: SettingKey) => void} Listener called with the key that changed */
/** @typedef {ReturnType<typeof createState>} State */

/** @param {readonly Parameter[]} table */
export function createState(table) {
  const rows = new Map(table.map((row) => [row.key, row]));
  /** @type {Map<SettingKey, number>} */
  const values = new Map();
  /** @type {Listener[]} */
  const listeners = [];

  /** @param {SettingKey} key */
  function rowOf(key) {
    const row = rows.get(key);
    if (row === undefined) throw new RangeError(`no setting is called ${key}`);
    return row;
  }
  /** @param {SettingKey} key */
  const get = (key) => values.get(key) ?? rowOf(key).default;

  // Sets a value, rounded to what can be sent and held in its range. If it is NaN or not new, no
  // listener is called.
  /** @param {SettingKey} key @param {number} wanted */
  function set(key, wanted) {
    const row = rowOf(key);
    const value = Math.min(row.max, Math.max(row.min, roundTo(wanted, row.step)));
    if (Number.isNaN(value) || value === values.get(key)) return;
    values.set(key, value);
    tell(key);
  }

  /** @param {SettingKey} key */
  function unset(key) {
    if (values.delete(key)) tell(key);
  }

  // Replaces everything by `wanted`.
  /** @param {Settings} wanted */
  function replace(wanted) {
    for (const key of [...values.keys()]) if (!(key in wanted)) unset(key);
    for (const { key } of table) set(key, wanted[key] ?? NaN);
  }

  // Returns whether a switch is on. One that nobody set follows its values.
  /** @param {SettingKey} key */
  const isOn = (key) => (withSwitches(all())[key] ?? rowOf(key).default) !== 0;

  // Returns the value that acts: 0 or 1 for a switch.
  /** @param {SettingKey} key */
  const acting = (key) => (rowOf(key).kind === "switch" ? Number(isOn(key)) : get(key));

  // The equalizer's rows, lowest band first, and their levels.
  const bands = table.filter((row) => row.band !== undefined);
  const levels = () => bands.map((row) => get(row.key));
  /** @param {readonly number[]} wanted ten levels */
  const setLevels = (wanted) => bands.forEach((row, band) => set(row.key, wanted[band]));

  // Returns the values that were set, by key.
  /** @returns {Settings} */
  const all = () => Object.fromEntries(values);

  /** @param {SettingKey} key */
  function tell(key) {
    for (const listener of listeners) listener(key);
  }

  return {
    table,
    rowOf,
    get,
    set,
    unset,
    replace,
    isOn,
    acting,
    levels,
    setLevels,
    all,
    /** @param {Listener} listener */
    listen: (listener) => void listeners.push(listener),
  };
}

// Returns the nearest multiple of a step of 1, 0.1, 0.01 and so on, without the error of a binary
// fraction.
/** @type {(value: number, step: number) => number} */
function roundTo(value, step) {
  const perUnit = Math.round(1 / step);
  return Math.round(value * perUnit) / perUnit;
}
