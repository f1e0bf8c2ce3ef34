// The effect library as a WebAssembly module, for scripts that run outside a page.
import { readFile } from "node:fs/promises";
import { instantiate } from "./module.js";

// One instance of the effect, with room for calls of up to maxFrames stereo frames. Calls return the
// status of the library.
export class Instance {
  /** @param {import("./types.d.ts").Exports} exports @param {number} maxFrames */
  constructor(exports, maxFrames) {
    this.exports = exports;
    this.effect = exports.orvane_create();
    this.room = exports.malloc(4 * maxFrames + 16);
    if (this.effect === 0 || this.room === 0) throw new Error("out of memory");
  }

  /** @param {number} rateHz @param {number} channels */
  configure(rateHz, channels) {
    return this.exports.orvane_configure(this.effect, rateHz, channels);
  }
  /** @param {number} code */
  command(code) {
    return this.exports.orvane_command(this.effect, code);
  }
  /** @param {number} id @param {...number} values one to four */
  set(id, ...values) {
    new Int32Array(this.exports.memory.buffer, this.room, values.length).set(values);
    return this.exports.orvane_set(this.effect, id, this.room, values.length);
  }
  /** @param {number} id */
  get(id) {
    return this.exports.orvane_get(this.effect, id);
  }
  // Processes interleaved samples in place.
  /** @param {Int16Array} samples @param {number} channels */
  process(samples, channels) {
    const memory = new Int16Array(this.exports.memory.buffer, this.room, samples.length);
    memory.set(samples);
    const status = this.exports.orvane_process(
      this.effect,
      this.room,
      this.room,
      samples.length / channels,
    );
    // The memory may have grown.
    samples.set(new Int16Array(this.exports.memory.buffer, this.room, samples.length));
    return status;
  }
  release() {
    this.exports.orvane_release(this.effect);
    this.exports.free(this.room);
  }
}

// Returns the exports of the module in a file.
/** @param {string} path */
export const load = async (path) => instantiate(await readFile(path));
