// The effect library as a WebAssembly module, for scripts that run outside a page.
import { readFile } from "node:fs/promises";

// One instance of the effect, with room for calls of up to maxFrames stereo frames.
export class Instance {
  constructor(exports, maxFrames) {
    this.exports = exports;
    this.effect = exports.orvane_create();
    this.room = exports.malloc(4 * maxFrames + 16);
    if (this.effect === 0 || this.room === 0) throw new Error("out of memory");
  }

  configure(rateHz, channels) {
    return this.exports.orvane_configure(this.effect, rateHz, channels);
  }
  command(code) {
    return this.exports.orvane_command(this.effect, code);
  }
  set(id, ...values) {
    new Int32Array(this.exports.memory.buffer, this.room, values.length).set(values);
    return this.exports.orvane_set(this.effect, id, this.room, values.length);
  }
  get(id) {
    return this.exports.orvane_get(this.effect, id);
  }
  // Interleaved samples in place (an Int16Array), through the module's memory.
  process(samples, channels) {
    const memory = new Int16Array(this.exports.memory.buffer, this.room, samples.length);
    memory.set(samples);
    const status = this.exports.orvane_process(this.effect, this.room, this.room,
                                               samples.length / channels);
    // The memory may have grown.
    samples.set(new Int16Array(this.exports.memory.buffer, this.room, samples.length));
    return status;
  }
  release() {
    this.exports.orvane_release(this.effect);
    this.exports.free(this.room);
  }
}

// The exports of the module in a file. It imports nothing.
export async function load(path) {
  const { instance } = await WebAssembly.instantiate(await readFile(path), {});
  instance.exports._initialize();
  return instance.exports;
}
