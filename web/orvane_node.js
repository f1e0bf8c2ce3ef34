// The effect as a node of the Web Audio API.
import { processorText } from "./embedded.js";
import { moduleBytes } from "./module_bytes.js";
import { ready, withSwitches } from "./rules.js";
import { presetValues, valuesOf } from "./settings.js";
import { parameters } from "./table.js";

const kLowestRate = 32000, kHighestRate = 48000;

// Contexts that know the processor.
const prepared = new WeakMap();

function prepare(context) {
  // A page that was opened as a file may load scripts from nowhere but itself.
  if (!prepared.has(context))
    prepared.set(context, context.audioWorklet.addModule(
      `data:text/javascript,${encodeURIComponent(processorText)}`));
  return prepared.get(context);
}

// Where there is no Web Audio, importing this does no harm.
const AudioNodeClass = globalThis.AudioWorkletNode ?? class {};

export class OrvaneNode extends AudioNodeClass {
  onmeter = null;
  onlatency = null;
  #latency = 0;

  // A node that runs. Throws a RangeError for a rate that the effect doesn't take, a preset or a
  // setting that isn't there.
  static async create(context, { preset, settings = {} } = {}) {
    if (!(context.sampleRate >= kLowestRate && context.sampleRate <= kHighestRate))
      throw new RangeError(`the effect takes ${kLowestRate} to ${kHighestRate} Hz, ` +
                           `the context has ${context.sampleRate}`);
    await ready();
    const wanted = withSwitches({ ...(preset === undefined ? {} : presetValues(preset)), ...settings });
    const values = valuesOf(wanted);
    await prepare(context);
    const node = new OrvaneNode(context, "orvane", {
      numberOfInputs: 1, numberOfOutputs: 2, outputChannelCount: [2, 2], channelCount: 2,
      parameterData: wanted, processorOptions: { bytes: moduleBytes(), values },
    });
    await node.#ready();
    return node;
  }

  #ready() {
    return new Promise((resolve, reject) => {
      this.onprocessorerror = () => reject(new Error("the effect could not be started"));
      this.port.onmessage = ({ data }) => {
        if (data.type === "ready") {
          this.#latency = data.latency;
          resolve();
        } else if (data.type === "failed") {
          reject(new Error(data.message));
        } else if (data.type === "latency") {
          this.#latency = data.latency;
          this.onlatency?.(data.latency);
        } else if (data.type === "meter") {
          this.onmeter?.(data);
        }
      };
    });
  }

  // Seconds by which both outputs lie behind the input.
  get latency() {
    return this.#latency;
  }

  // Off: the first output is the second, in step.
  get enabled() {
    return this.parameters.get("enabled").value >= 0.5;
  }
  set enabled(wanted) {
    this.parameters.get("enabled").setValueAtTime(wanted ? 1 : 0, this.context.currentTime);
  }

  // Now: from the next block on, without a click.
  set(key, value) {
    const param = this.parameters.get(key);
    if (param === undefined) throw new RangeError(`no setting is called ${key}`);
    param.cancelScheduledValues(this.context.currentTime);
    param.setValueAtTime(value, this.context.currentTime);
  }

  // All of them: what isn't given goes back to its default.
  apply(settings) {
    const wanted = withSwitches(settings);
    valuesOf(wanted);
    for (const row of parameters) this.set(row.key, wanted[row.key] ?? row.default);
  }

  // The processor ends, and the outputs are silent.
  close() {
    this.port.postMessage({ type: "close" });
    this.disconnect();
  }
}
