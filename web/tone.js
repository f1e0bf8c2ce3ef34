// The equalizer's tone for a page: what ten levels give, and which levels give a curve.
import { Tone } from "./module.js";
import { moduleBytes } from "./module_bytes.js";

let tone;
// Before the first call.
export const ready = WebAssembly.instantiate(moduleBytes(), {}).then(({ instance: { exports } }) => {
  exports._initialize();
  tone = new Tone(exports);
});

export const bandHz = (band, rate) => tone.bandHz(band, rate);
export const toneDb = (levels, hertz, rate) => tone.toneDb(levels, hertz, rate);
export const fitTone = (points, rate) => tone.fitTone(points, rate);
