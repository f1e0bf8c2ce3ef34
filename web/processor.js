// The part of OrvaneNode that runs in the audio thread: one stream, and one value of each
// parameter per quantum of 128 frames.
//
// To the node:  { type: "ready", latency }   in seconds
//               { type: "failed", message }
//               { type: "latency", latency } when it has changed
//               { type: "meter", before, after } every 50 ms, from Stream.levels()
// From it:      { type: "close" }            the processor ends
import { instantiate, Stream } from "./module.js";
import { parameters } from "./table.js";

const kMeterSeconds = 0.05;

class OrvaneProcessor extends AudioWorkletProcessor {
  static parameterDescriptors = [
    ...parameters.map((one) => ({
      name: one.key,
      minValue: one.min,
      maxValue: one.max,
      defaultValue: one.default,
      automationRate: "k-rate",
    })),
    { name: "enabled", minValue: 0, maxValue: 1, defaultValue: 1, automationRate: "k-rate" },
  ];

  /** @type {Stream | undefined} undefined if the stream could not be started */
  stream;
  isClosed = false;
  framesToMeter = 0;
  latencyFrames = 0;

  // `bytes` is the module and `values` are the settings to start with (see Stream).
  /**
   * @param {{ processorOptions: { bytes: import("./types.d.ts").Bytes, values: number[] } }} options
   */
  constructor({ processorOptions: { bytes, values } }) {
    super();
    this.values = Float32Array.from(parameters, (one, n) =>
      Number.isNaN(values[n]) ? one.default : values[n],
    );
    this.port.onmessage = ({ data }) => {
      if (data.type === "close") this.isClosed = true;
    };
    try {
      this.stream = new Stream(instantiate(bytes), sampleRate, values);
      this.latencyFrames = this.stream.latencyFrames();
      this.post("ready", { latency: this.latencyFrames / sampleRate });
    } catch (error) {
      this.post("failed", { message: /** @type {Error} */ (error).message });
    }
  }

  /** @param {string} type @param {object} content */
  post(type, content) {
    this.port.postMessage({ type, ...content });
  }

  // Web Audio calls this for every quantum. Returns false when the processor ends.
  /**
   * @param {Float32Array[][]} inputs
   * @param {Float32Array[][]} outputs
   * @param {Record<string, Float32Array>} automation
   */
  process([input], [result, source], automation) {
    const { stream } = this;
    if (this.isClosed || stream === undefined) return false;
    this.take(stream, automation);
    const { length } = result[0];
    for (let at = 0; at < length; at += Stream.frames)
      this.run(stream, input, result, source, at, Math.min(Stream.frames, length - at));
    this.tell(stream, length);
    return true;
  }

  // Hands on the values that changed.
  /** @param {Stream} stream @param {Record<string, Float32Array>} automation */
  take(stream, automation) {
    for (let n = 0; n < parameters.length; ++n) {
      const [value] = automation[parameters[n].key];
      if (value === this.values[n]) continue;
      this.values[n] = value;
      stream.set(n, value);
    }
    stream.bypass(automation.enabled[0] < 0.5);
  }

  // Processes `count` frames from frame `at` on. An input without channels is silence; one channel
  // feeds both sides.
  /**
   * @param {Stream} stream
   * @param {Float32Array[]} input
   * @param {Float32Array[]} result
   * @param {Float32Array[]} source
   * @param {number} at
   * @param {number} count
   */
  run(stream, input, result, source, at, count) {
    const views = stream.channels();
    for (let side = 0; side < 2; ++side) {
      const from = input[Math.min(side, input.length - 1)];
      if (from === undefined) views.in[side].fill(0);
      else views.in[side].set(from.subarray(at, at + count));
    }
    stream.process(count);
    for (let side = 0; side < 2; ++side) {
      result[side].set(views.result[side].subarray(0, count), at);
      source[side].set(views.source[side].subarray(0, count), at);
    }
  }

  // Sends the latency when it has changed, and levels every 50 ms.
  /** @param {Stream} stream @param {number} frames */
  tell(stream, frames) {
    const latencyFrames = stream.latencyFrames();
    if (latencyFrames !== this.latencyFrames) {
      this.latencyFrames = latencyFrames;
      this.post("latency", { latency: latencyFrames / sampleRate });
    }
    this.framesToMeter -= frames;
    if (this.framesToMeter > 0) return;
    this.framesToMeter += kMeterSeconds * sampleRate;
    this.post("meter", stream.levels());
  }
}

registerProcessor("orvane", OrvaneProcessor);
