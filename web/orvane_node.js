// The effect as a node of the Web Audio API. package/index.d.ts describes the class.
import { processorText } from "./embedded.js";
import { moduleBytes, presetValues, ready, valuesOf, withSwitches } from "./rules.js";
import { parameters } from "./table.js";

/** @import { Options, SettingKey, Settings } from "./package/index.d.ts" */
/** @typedef {typeof import("./package/index.d.ts").OrvaneNode.prototype} Declared */

const kLowestRate = 32000;
const kHighestRate = 48000;

// The contexts that know the processor.
/** @type {WeakMap<BaseAudioContext, Promise<void>>} */
const prepared = new WeakMap();

/** @type {(context: BaseAudioContext, url?: string | URL) => Promise<void>} */
function prepare(context, url) {
  // A page that was opened as a file may load scripts from nowhere but itself.
  const address = url ?? `data:text/javascript,${encodeURIComponent(processorText)}`;
  const loading = prepared.get(context) ?? context.audioWorklet.addModule(address);
  prepared.set(context, loading);
  // A script that could not be loaded may be asked for again, from another place.
  loading.catch(() => prepared.delete(context));
  return loading;
}

// Without Web Audio, as in node, this module can still be imported.
const AudioNodeClass =
  globalThis.AudioWorkletNode ??
  /** @type {typeof AudioWorkletNode} */ (/** @type {unknown} */ (class {}));

export class OrvaneNode extends AudioNodeClass {
  /** @type {Declared["onmeter"]} */
  onmeter = null;
  /** @type {Declared["onlatency"]} */
  onlatency = null;
  #latency = 0;

  /** @param {BaseAudioContext} context @param {Options} [options] */
  static async create(context, { preset, settings = {}, processorUrl } = {}) {
    if (!(context.sampleRate >= kLowestRate && context.sampleRate <= kHighestRate))
      throw new RangeError(
        `the effect takes ${kLowestRate} to ${kHighestRate} Hz, but the context has ` +
          `${context.sampleRate}: make it with new AudioContext({ sampleRate: 48000 })`,
      );
    await ready();
    const wanted = withSwitches({
      ...(preset === undefined ? {} : presetValues(preset)),
      ...settings,
    });
    const values = valuesOf(wanted);
    await prepare(context, processorUrl);
    const node = new OrvaneNode(context, "orvane", {
      numberOfInputs: 1,
      numberOfOutputs: 2,
      outputChannelCount: [2, 2],
      channelCount: 2,
      parameterData: /** @type {Record<string, number>} */ (wanted),
      processorOptions: { bytes: moduleBytes(), values },
    });
    await node.#ready();
    return node;
  }

  #ready() {
    return /** @type {Promise<void>} */ (
      new Promise((resolve, reject) => {
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
      })
    );
  }

  get latency() {
    return this.#latency;
  }

  get enabled() {
    return this.#param("enabled").value >= 0.5;
  }
  set enabled(wanted) {
    this.set("enabled", wanted ? 1 : 0);
  }

  /** @param {SettingKey | "enabled"} key @param {number} value */
  set(key, value) {
    const param = this.#param(key);
    param.cancelScheduledValues(this.context.currentTime);
    param.setValueAtTime(value, this.context.currentTime);
  }

  /** @param {Settings} settings */
  apply(settings) {
    const wanted = withSwitches(settings);
    for (const row of parameters) this.set(row.key, wanted[row.key] ?? row.default);
  }

  close() {
    this.port.postMessage({ type: "close" });
    this.disconnect();
  }

  /** @param {string} key */
  #param(key) {
    const param = this.parameters.get(key);
    if (param === undefined) throw new RangeError(`no setting is called ${key}`);
    return param;
  }
}
