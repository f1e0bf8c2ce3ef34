// The module's parts as objects. For pages, workers, the audio thread and node alike, which is why
// it decodes no text and reads no clock.

// The exports of the module in `bytes`. It imports nothing.
export function instantiate(bytes) {
  const { exports } = new WebAssembly.Instance(new WebAssembly.Module(bytes), {});
  exports._initialize();
  return exports;
}

export function allocate(exports, bytes) {
  const address = exports.malloc(bytes);
  if (address === 0) throw new Error("out of memory");
  return address;
}
// What a create function answered.
function made(address) {
  if (address === 0) throw new Error("out of memory");
  return address;
}

// LiveStream (live/live_stream.h). Controls are places in the list `parameters` of table.js.
export class Stream {
  static frames = 128;  // a call, at most

  // values: of every control, NaN where nothing is to be set. Throws what the library refuses.
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
  set(control, value) {
    this.exports.orvane_stream_set(this.stream, control, value);
  }
  bypass(wanted) {
    this.exports.orvane_stream_bypass(this.stream, wanted);
  }
  // Two channels each: what goes in; after process(), the result, and the source as late as it.
  channels() {
    const { buffer } = this.exports.memory;
    if (this.views?.[0].buffer !== buffer) {  // the memory may have grown
      this.views = Array.from({ length: 6 }, (_, n) => new Float32Array(
        buffer, this.samplesAt + 4 * n * Stream.frames, Stream.frames));
    }
    const [inLeft, inRight, left, right, sourceLeft, sourceRight] = this.views;
    return { in: [inLeft, inRight], result: [left, right], source: [sourceLeft, sourceRight] };
  }
  process(frames) {
    this.exports.orvane_stream_process(this.stream, frames);
  }
  latencyFrames() {
    return this.exports.orvane_stream_latency(this.stream);
  }
  // Since they were last asked, dB over full scale; of the last 3 s, LUFS.
  levels() {
    const of = (isSource) => {
      this.exports.orvane_stream_levels(this.stream, isSource, this.levelsAt);
      const [rms, truePeak, shortTerm] = new Float64Array(this.exports.memory.buffer, this.levelsAt, 3);
      return { rms, truePeak, shortTerm };
    };
    return { before: of(true), after: of(false) };
  }
  release() {
    this.exports.orvane_stream_release(this.stream);
    this.exports.free(this.levelsAt);
  }
}

// A whole piece, as the renderer plays it, and how loud it is before and after.
export class Piece {
  static samples = 16384;  // a call, at most

  // values as for Stream.
  constructor(exports, rate, channels, values) {
    this.exports = exports;
    this.channels = channels;
    this.piece = made(exports.orvane_piece_create());
    this.room = allocate(exports, 2 * Piece.samples);
    this.meters = { before: made(exports.orvane_meter_create(rate, channels)),
                    after: made(exports.orvane_meter_create(rate, channels)) };
    values.forEach((value, control) => {
      if (!Number.isNaN(value)) exports.orvane_piece_set(this.piece, control, value);
    });
    if (!exports.orvane_piece_start(this.piece, rate, channels))
      throw new Error(`the effect takes no piece of ${rate} Hz and ${channels} channels`);
  }
  // Interleaved 16-bit samples, whole frames; answers those that came out, valid until the next
  // call.
  process(samples) {
    new Int16Array(this.exports.memory.buffer, this.room, samples.length).set(samples);
    this.#meter("before", this.room, samples.length);
    return this.#out(this.exports.orvane_piece_process(this.piece, this.room, samples.length));
  }
  // What is left; all is then as long as the piece.
  finish() {
    return this.#out(this.exports.orvane_piece_finish(this.piece));
  }
  // Integrated, LUFS, of what went in and came out so far.
  loudness() {
    const of = (name) => this.exports.orvane_meter_integrated(this.meters[name]);
    return { before: of("before"), after: of("after") };
  }
  release() {
    this.exports.orvane_piece_release(this.piece);
    for (const meter of Object.values(this.meters)) this.exports.orvane_meter_release(meter);
    this.exports.free(this.room);
  }
  #meter(name, address, samples) {
    this.exports.orvane_meter_add(this.meters[name], address, samples, this.channels);
  }
  #out(samples) {
    const address = this.exports.orvane_piece_out(this.piece);
    this.#meter("after", address, samples);
    return new Int16Array(this.exports.memory.buffer, address, samples);
  }
}

// The equalizer's tone, as client/tone.h tells it; frequencies and rates in hertz.
export class Tone {
  constructor(exports) {
    this.exports = exports;
  }
  bandHz(band, rate) {
    return this.exports.orvane_tone_band_hz(band, rate);
  }
  // Decibels at each of the frequencies, of ten levels.
  toneDb(levels, hertz, rate) {
    return this.#with([...levels, ...hertz], (at) => {
      this.exports.orvane_tone_db(at, at + 8 * levels.length, hertz.length, rate);
      return this.#read(at + 8 * levels.length, hertz.length);
    });
  }
  // points: [{hz, db}], ascending. The ten levels that come nearest, and how near that is.
  fitTone(points, rate) {
    const room = new Array(14).fill(0);
    return this.#with([...room, ...points.flatMap(({ hz, db }) => [hz, db])], (at) => {
      this.exports.orvane_tone_fit(at + 8 * room.length, points.length, rate, at);
      const fit = [...this.#read(at, room.length)];
      const [rmsDb, worstDb, worstHz, peakDb] = fit.slice(10);
      return { levels: fit.slice(0, 10), rmsDb, worstDb, worstHz, peakDb };
    });
  }
  #with(numbers, use) {
    const at = allocate(this.exports, 8 * numbers.length);
    new Float64Array(this.exports.memory.buffer, at, numbers.length).set(numbers);
    try {
      return use(at);
    } finally {
      this.exports.free(at);
    }
  }
  #read(at, count) {
    return new Float64Array(this.exports.memory.buffer, at, count).slice();
  }
}
