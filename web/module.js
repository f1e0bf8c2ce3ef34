// The module's parts as objects, for pages, workers, the audio thread and node. The audio thread has
// neither TextDecoder nor a clock, so nothing here uses them.

/** @import { Levels } from "./package/index.d.ts" */
/** @import { Exports, Sides, ToneFit, TonePoint } from "./types.d.ts" */

// Returns the exports of the module in `bytes`, which imports nothing.
/** @type {(bytes: BufferSource) => Exports} */
export const instantiate = (bytes) => {
  const { exports } = /** @type {{ exports: any }} */ (
    new WebAssembly.Instance(new WebAssembly.Module(bytes), {})
  );
  exports._initialize();
  return exports;
};

// Returns the address of that many bytes. Throws if memory is refused.
/** @type {(exports: Exports, bytes: number) => number} */
export const allocate = (exports, bytes) => made(exports.malloc(bytes));

// Returns an address, or throws if it says that memory was refused.
/** @type {(address: number) => number} */
function made(address) {
  if (address === 0) throw new Error("out of memory");
  return address;
}

// A running stream (live/live_stream.h). A control is a place in the list `parameters` of table.js.
export class Stream {
  static frames = 128; // the most that one call takes

  /** @type {Float32Array[]} */
  #views = [];

  // `values` holds one number for every control, NaN where nothing is to be set. Throws an Error for
  // a rate that the library refuses.
  /** @param {Exports} exports @param {number} rate @param {readonly number[]} values */
  constructor(exports, rate, values) {
    this.exports = exports;
    this.stream = made(exports.orvane_stream_create(rate));
    if (!exports.orvane_stream_runs(this.stream))
      throw new Error(`the effect takes no stream of ${rate} Hz`);
    values.forEach((value, control) => {
      if (!Number.isNaN(value)) this.set(control, value);
    });
    this.levelsAt = allocate(exports, 3 * 8);
    this.samplesAt = exports.orvane_stream_samples(this.stream);
  }
  /** @param {number} control @param {number} value */
  set(control, value) {
    this.exports.orvane_stream_set(this.stream, control, value);
  }
  /** @param {boolean} wanted */
  bypass(wanted) {
    this.exports.orvane_stream_bypass(this.stream, wanted);
  }
  // Returns two channels of 128 frames each: the input; after process(), the result, and the input
  // delayed as much as the result.
  channels() {
    const { buffer } = this.exports.memory;
    // The views end when the memory grows.
    if (this.#views[0]?.buffer !== buffer) {
      this.#views = Array.from(
        { length: 6 },
        (_, n) => new Float32Array(buffer, this.samplesAt + 4 * n * Stream.frames, Stream.frames),
      );
    }
    const [inLeft, inRight, left, right, sourceLeft, sourceRight] = this.#views;
    return { in: [inLeft, inRight], result: [left, right], source: [sourceLeft, sourceRight] };
  }
  /** @param {number} frames at most Stream.frames */
  process(frames) {
    this.exports.orvane_stream_process(this.stream, frames);
  }
  latencyFrames() {
    return this.exports.orvane_stream_latency(this.stream);
  }
  // Returns RMS level and true peak since the last call, in dB over full scale, and the loudness of
  // the last 3 s in LUFS.
  /** @returns {Sides<Levels>} */
  levels() {
    /** @param {boolean} isSource */
    const of = (isSource) => {
      this.exports.orvane_stream_levels(this.stream, isSource, this.levelsAt);
      const [rms, truePeak, shortTerm] = new Float64Array(
        this.exports.memory.buffer,
        this.levelsAt,
        3,
      );
      return { rms, truePeak, shortTerm };
    };
    return { before: of(true), after: of(false) };
  }
  release() {
    this.exports.orvane_stream_release(this.stream);
    this.exports.free(this.levelsAt);
  }
}

// A whole piece with the renderer's samples, and its loudness before and after.
export class Piece {
  static samples = 16384; // the most that one call takes

  /**
   * @param {Exports} exports
   * @param {number} rate
   * @param {number} channels
   * @param {readonly number[]} values as for Stream
   */
  constructor(exports, rate, channels, values) {
    this.exports = exports;
    this.channels = channels;
    this.piece = made(exports.orvane_piece_create());
    this.room = allocate(exports, 2 * Piece.samples);
    /** @type {Sides<number>} */
    this.meters = {
      before: made(exports.orvane_meter_create(rate, channels)),
      after: made(exports.orvane_meter_create(rate, channels)),
    };
    values.forEach((value, control) => {
      if (!Number.isNaN(value)) exports.orvane_piece_set(this.piece, control, value);
    });
    if (!exports.orvane_piece_start(this.piece, rate, channels))
      throw new Error(`the effect takes no piece of ${rate} Hz and ${channels} channels`);
  }
  // Takes whole frames of interleaved samples. Returns the samples that come out, which are valid
  // until the next call.
  /** @param {Int16Array} samples */
  process(samples) {
    new Int16Array(this.exports.memory.buffer, this.room, samples.length).set(samples);
    this.#meter("before", this.room, samples.length);
    return this.#out(this.exports.orvane_piece_process(this.piece, this.room, samples.length));
  }
  // Returns what is left. Everything together is then as long as the piece.
  finish() {
    return this.#out(this.exports.orvane_piece_finish(this.piece));
  }
  // Returns the integrated loudness in LUFS of what went in and came out so far.
  /** @returns {Sides<number>} */
  loudness() {
    /** @param {"before" | "after"} name */
    const of = (name) => this.exports.orvane_meter_integrated(this.meters[name]);
    return { before: of("before"), after: of("after") };
  }
  release() {
    this.exports.orvane_piece_release(this.piece);
    for (const meter of Object.values(this.meters)) this.exports.orvane_meter_release(meter);
    this.exports.free(this.room);
  }
  /** @param {"before" | "after"} name @param {number} address @param {number} samples */
  #meter(name, address, samples) {
    this.exports.orvane_meter_add(this.meters[name], address, samples, this.channels);
  }
  /** @param {number} samples */
  #out(samples) {
    const address = this.exports.orvane_piece_out(this.piece);
    this.#meter("after", address, samples);
    return new Int16Array(this.exports.memory.buffer, address, samples);
  }
}

// The equalizer's tone (client/tone.h). Frequencies and rates are in hertz.
export class Tone {
  /** @param {Exports} exports */
  constructor(exports) {
    this.exports = exports;
  }
  // Returns where a band of the equalizer has most effect.
  /** @param {number} band @param {number} rate */
  bandHz(band, rate) {
    return this.exports.orvane_tone_band_hz(band, rate);
  }
  // Returns the gain in decibels that ten levels give at each of the frequencies.
  /** @param {readonly number[]} levels @param {readonly number[]} hertz @param {number} rate */
  toneDb(levels, hertz, rate) {
    return this.#with([...levels, ...hertz], (at) => {
      this.exports.orvane_tone_db(at, at + 8 * levels.length, hertz.length, rate);
      return this.#read(at + 8 * levels.length, hertz.length);
    });
  }
  // Returns the ten levels that come nearest to the points, and how near they come. The frequencies
  // of the points ascend.
  /** @type {(points: readonly TonePoint[], rate: number) => ToneFit} */
  fitTone(points, rate) {
    const room = new Array(14).fill(0);
    return this.#with([...room, ...points.flatMap(({ hz, db }) => [hz, db])], (at) => {
      this.exports.orvane_tone_fit(at + 8 * room.length, points.length, rate, at);
      const fit = [...this.#read(at, room.length)];
      const [rmsDb, worstDb, worstHz, peakDb] = fit.slice(10);
      return { levels: fit.slice(0, 10), rmsDb, worstDb, worstHz, peakDb };
    });
  }
  // Calls `use` with the address of a copy of the numbers.
  /**
   * @template Result
   * @param {readonly number[]} numbers
   * @param {(address: number) => Result} use
   */
  #with(numbers, use) {
    const at = allocate(this.exports, 8 * numbers.length);
    new Float64Array(this.exports.memory.buffer, at, numbers.length).set(numbers);
    try {
      return use(at);
    } finally {
      this.exports.free(at);
    }
  }
  /** @param {number} at @param {number} count */
  #read(at, count) {
    return new Float64Array(this.exports.memory.buffer, at, count).slice();
  }
}
