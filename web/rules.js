// Asks the module for the equalizer's tone, for the rules of settings and for the grammar of settings
// files. The page's thread uses this. Settings are objects, {key: value}, with the keys that are set.
import { plainModule, vectorModule } from "./embedded.js";
import { allocate, Tone } from "./module.js";
import { parameters, presets } from "./table.js";

/** @import { PresetName, SettingKey, Settings } from "./package/index.d.ts" */
/** @import { Bytes, Exports, TonePoint } from "./types.d.ts" */

/** @type {(base64: string) => Bytes} */
export const bytesOf = (base64) => Uint8Array.from(atob(base64), (letter) => letter.charCodeAt(0));

/** @type {Bytes | undefined} */
let chosen;
// Returns the module that this browser can run: with 128-bit vectors, or without.
export function moduleBytes() {
  if (chosen === undefined) {
    const vectors = bytesOf(vectorModule);
    chosen = WebAssembly.validate(vectors) ? vectors : bytesOf(plainModule);
  }
  return chosen;
}

/** @type {Promise<void> | undefined} */
let loading;
/** @type {Exports} */
let exports;
/** @type {Tone} */
let tone;
// Loads the module. The promise must settle before the functions below are called.
export function ready() {
  loading ??= WebAssembly.instantiate(moduleBytes(), {}).then(({ instance }) => {
    exports = /** @type {Exports} */ (/** @type {unknown} */ (instance.exports));
    exports._initialize();
    tone = new Tone(exports);
  });
  return loading;
}

// The three questions of module.js's Tone.
/** @type {(band: number, rate: number) => number} */
export const bandHz = (band, rate) => tone.bandHz(band, rate);
/** @type {(levels: number[], hertz: number[], rate: number) => Float64Array} */
export const toneDb = (levels, hertz, rate) => tone.toneDb(levels, hertz, rate);
/** @type {(points: readonly TonePoint[], rate: number) => import("./types.d.ts").ToneFit} */
export const fitTone = (points, rate) => tone.fitTone(points, rate);

// Returns the values of a preset. Throws a RangeError for a name that does not exist.
/** @type {(name: PresetName) => Settings} */
export function presetValues(name) {
  const preset = presets.find((one) => one.name === name);
  if (preset === undefined)
    throw new RangeError(
      `no preset is called ${name}; there are ` + presets.map((one) => one.name).join(", "),
    );
  return preset.values;
}

// Returns one number for every parameter, NaN for what is not set. Throws a RangeError for an
// unknown key.
/** @type {(settings: Settings) => number[]} */
export function valuesOf(settings) {
  for (const key of Object.keys(settings))
    if (!parameters.some((one) => one.key === key))
      throw new RangeError(`no setting is called ${key}`);
  return parameters.map(({ key }) => settings[key] ?? NaN);
}

// Returns the settings with those switches on that nobody set and that follow their values.
/** @type {(settings: Settings) => Settings} */
export function withSwitches(settings) {
  return withValues(settings, (at) => {
    exports.orvane_settings_follow(at);
    return settingsAt(at);
  });
}

// Returns what the lines of a settings file say. Throws an Error about the first wrong line.
/** @type {(text: string) => Settings} */
export function readSettings(text) {
  return withValues({}, (at) => {
    const bytes = new TextEncoder().encode(text);
    const room = allocate(exports, bytes.length + 1);
    new Uint8Array(exports.memory.buffer, room, bytes.length).set(bytes);
    const fault = textAt(exports.orvane_settings_read(room, bytes.length, at));
    exports.free(room);
    if (fault !== "") throw new Error(`line ${fault}`);
    return settingsAt(at);
  });
}

// Returns the lines of the settings file for these settings.
/** @type {(settings: Settings) => string} */
export function settingsText(settings) {
  return withValues(settings, (at) => textAt(exports.orvane_settings_text(at)));
}

// Calls `use` with the address of one number for every parameter, NaN for what is not set.
/**
 * @template Result
 * @param {Settings} settings
 * @param {(address: number) => Result} use
 */
function withValues(settings, use) {
  const values = valuesOf(settings);
  const at = allocate(exports, 8 * values.length);
  new Float64Array(exports.memory.buffer, at, values.length).set(values);
  try {
    return use(at);
  } finally {
    exports.free(at);
  }
}

/** @type {(address: number) => Settings} */
function settingsAt(address) {
  const values = new Float64Array(exports.memory.buffer, address, parameters.length);
  return Object.fromEntries(
    parameters.map(({ key }, n) => [key, values[n]]).filter(([, value]) => !Number.isNaN(value)),
  );
}

// Reads UTF-8 that ends with a zero byte.
/** @type {(address: number) => string} */
function textAt(address) {
  const bytes = new Uint8Array(exports.memory.buffer, address);
  return new TextDecoder().decode(bytes.subarray(0, bytes.indexOf(0)));
}
