// The audio thread's side of OrvaneNode: one stream, a parameter's value per quantum.
//
// To the node:  { type: "ready", latency }   seconds
//               { type: "failed", message }
//               { type: "latency", latency } it has changed
//               { type: "meter", before, after } every 50 ms, as Stream.levels() gives them
// From it:      { type: "close" }            the processor ends
import { instantiate, Stream } from "./module.js";
import { parameters } from "./table.js";

const kMeterSeconds = 0.05;

class OrvaneProcessor extends AudioWorkletProcessor {
  static parameterDescriptors = [
    ...parameters.map((one) => ({ name: one.key, minValue: one.min, maxValue: one.max,
                                  defaultValue: one.default, automationRate: "k-rate" })),
    { name: "enabled", minValue: 0, maxValue: 1, defaultValue: 1, automationRate: "k-rate" },
  ];

  // processorOptions: { bytes, values }: the module, and what it starts with (Stream).
  constructor({ processorOptions: { bytes, values } }) {
    super();
    this.values = Float32Array.from(parameters, (one, n) =>
      Number.isNaN(values[n]) ? one.default : values[n]);
    this.framesToMeter = 0;
    this.port.onmessage = ({ data }) => {
      if (data.type === "close") this.isClosed = true;
    };
    try {
      this.stream = new Stream(instantiate(bytes), sampleRate, values);
      this.latencyFrames = this.stream.latencyFrames();
      this.post("ready", { latency: this.latencyFrames / sampleRate });
    } catch (error) {
      this.isClosed = true;
      this.post("failed", { message: error.message });
    }
  }

  post(type, content) {
    this.port.postMessage({ type, ...content });
  }

  process([input], [result, source], automation) {
    if (this.isClosed) return false;
    this.take(automation);
    const { length } = result[0];
    for (let at = 0; at < length; at += Stream.frames)
      this.run(input, result, source, at, Math.min(Stream.frames, length - at));
    this.tell(length);
    return true;
  }

  take(automation) {
    for (let n = 0; n < parameters.length; ++n) {
      const [value] = automation[parameters[n].key];
      if (value === this.values[n]) continue;
      this.values[n] = value;
      this.stream.set(n, value);
    }
    this.stream.bypass(automation.enabled[0] < 0.5);
  }

  // No channels are silence, one is both.
  run(input, result, source, at, count) {
    const views = this.stream.channels();
    for (let side = 0; side < 2; ++side) {
      const from = input[Math.min(side, input.length - 1)];
      if (from === undefined) views.in[side].fill(0);
      else views.in[side].set(from.subarray(at, at + count));
    }
    this.stream.process(count);
    for (let side = 0; side < 2; ++side) {
      result[side].set(views.result[side].subarray(0, count), at);
      source[side].set(views.source[side].subarray(0, count), at);
    }
  }

  tell(frames) {
    const latencyFrames = this.stream.latencyFrames();
    if (latencyFrames !== this.latencyFrames) {
      this.latencyFrames = latencyFrames;
      this.post("latency", { latency: latencyFrames / sampleRate });
    }
    this.framesToMeter -= frames;
    if (this.framesToMeter > 0) return;
    this.framesToMeter += kMeterSeconds * sampleRate;
    this.post("meter", this.stream.levels());
  }
}

registerProcessor("orvane", OrvaneProcessor);
