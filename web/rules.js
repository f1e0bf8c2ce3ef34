// What the page's own thread asks of the module: the equalizer's tone, the rules of settings, and the
// grammar of settings files. Values are objects, {key: value}, with the keys that are set.
import { allocate, Tone } from "./module.js";
import { moduleBytes } from "./module_bytes.js";
import { valuesOf } from "./settings.js";
import { parameters } from "./table.js";

let loading, exports, tone;
// To be awaited before the first call of the others.
export function ready() {
  loading ??= WebAssembly.instantiate(moduleBytes(), {}).then(({ instance }) => {
    exports = instance.exports;
    exports._initialize();
    tone = new Tone(exports);
  });
  return loading;
}

export const bandHz = (band, rate) => tone.bandHz(band, rate);
export const toneDb = (levels, hertz, rate) => tone.toneDb(levels, hertz, rate);
export const fitTone = (points, rate) => tone.fitTone(points, rate);

// With the switches that nobody set and that follow their values: on if one isn't the default.
export function withSwitches(settings) {
  return withValues(settings, (at) => {
    exports.orvane_settings_follow(at);
    return settingsAt(at);
  });
}

// What the lines of a settings file say. Throws an Error that tells the first wrong line.
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

// The lines of the settings file that says it.
export function settingsText(settings) {
  return withValues(settings, (at) => textAt(exports.orvane_settings_text(at)));
}

// use(address of a number for every parameter, NaN for what isn't set).
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

function settingsAt(address) {
  const values = new Float64Array(exports.memory.buffer, address, parameters.length);
  return Object.fromEntries(parameters.map(({ key }, n) => [key, values[n]])
    .filter(([, value]) => !Number.isNaN(value)));
}

function textAt(address) {
  const bytes = new Uint8Array(exports.memory.buffer, address);
  return new TextDecoder().decode(bytes.subarray(0, bytes.indexOf(0)));
}
