// Plays the piece through the effect, and the piece as it was with the same delay. Only this module plays
// through Web Audio.
//
//   source - fade - OrvaneNode -+- result --- analyser - gain -+- speakers
//                               +- as it was - analyser - gain -+
//
// Both sides always run, so a switch is a cross-fade in step. Times are in seconds of the piece.
import { OrvaneNode } from "../orvane_node.js";

/** @import { NamedPiece, Sides } from "../types.d.ts" */
/** @import { State } from "./state.js" */
/** @typedef {{ analyser: AnalyserNode, gain: GainNode, bins: Float32Array<ArrayBuffer> }} Side */
/** @typedef {{ context: AudioContext, node: OrvaneNode, sides: Sides<Side> }} Graph */

const kFadeSeconds = 0.012;
const kBins = 8192;
const kPatienceMs = 3000;

// `onMeter` takes the levels that OrvaneNode tells. `onEnd` is called when a piece that does not loop
// is over.
/**
 * @param {State} state
 * @param {{ onMeter: NonNullable<OrvaneNode["onmeter"]>, onEnd: () => void }} listener
 */
export function createSound(state, { onMeter, onEnd }) {
  /** @type {NamedPiece} */
  let piece;
  /** @type {Graph | null} made for the rate of the piece */
  let graph = null;
  let isStarting = false;
  /** @type {{ source: AudioBufferSourceNode, gain: GainNode } | null} new at every start */
  let playing = null;
  let startedAt = 0; // the time of the context at which the time of the piece was 0
  let offset = 0; // the time of the piece while nothing plays
  let isLooping = true;
  /** @type {keyof Sides<any>} */
  let side = "after";
  let gains = { before: 1, after: 1 };

  state.listen((key) => {
    if (graph === null) return;
    // A value may turn on the switch that it needs.
    for (const one of [state.rowOf(key).needs, key])
      if (one !== null) graph.node.set(one, state.acting(one));
  });

  /** @param {number} rate @returns {Promise<Graph>} */
  async function makeGraph(rate) {
    const context = new AudioContext({ sampleRate: rate, latencyHint: "interactive" });
    // This runs within the click, which browsers require before sound may start.
    context.resume();
    const node = await OrvaneNode.create(context, { settings: state.all() });
    node.onmeter = onMeter;
    /** @type {(name: "before" | "after", output: number) => Side} */
    const makeSide = (name, output) => {
      const analyser = new AnalyserNode(context, {
        fftSize: 2 * kBins,
        smoothingTimeConstant: 0.75,
        minDecibels: -120,
        maxDecibels: 0,
      });
      const gain = new GainNode(context, { gain: name === side ? gains[name] : 0 });
      node.connect(analyser, output).connect(gain).connect(context.destination);
      return { analyser, gain, bins: new Float32Array(kBins) };
    };
    const sides = { after: makeSide("after", 0), before: makeSide("before", 1) };
    return { context, node, sides };
  }

  // Stops what plays. The next play() starts at the beginning of the new piece.
  /** @param {NamedPiece} wanted */
  function load(wanted) {
    pause();
    offset = 0;
    piece = wanted;
  }

  async function play() {
    if (playing !== null || isStarting) return;
    isStarting = true;
    try {
      // Again if another piece was loaded meanwhile.
      while (graph === null || graph.context.sampleRate !== piece.rate) {
        graph?.context.close();
        graph = null;
        graph = await makeGraph(piece.rate);
      }
      await resumed(graph.context);
    } finally {
      isStarting = false;
    }
    graph.node.apply(state.all());
    start(graph, offset);
  }

  /** @param {Graph} graph @param {number} at */
  function start({ context, node }, at) {
    const source = new AudioBufferSourceNode(context, { buffer: piece.buffer, loop: isLooping });
    const gain = new GainNode(context, { gain: 0 });
    source.connect(gain).connect(node);
    source.start(0, at);
    fade(context, gain.gain, 1);
    startedAt = context.currentTime - at;
    const mine = { source, gain };
    playing = mine;
    source.onended = () => {
      gain.disconnect();
      if (playing !== mine) return;
      playing = null;
      offset = 0;
      onEnd();
    };
  }

  function stop() {
    if (playing === null || graph === null) return;
    fade(graph.context, playing.gain.gain, 0);
    playing.source.stop(graph.context.currentTime + kFadeSeconds);
    playing = null;
  }

  function pause() {
    offset = position();
    stop();
  }

  /** @param {number} at */
  function seek(at) {
    offset = at;
    if (playing === null || graph === null) return;
    stop();
    start(graph, at);
  }

  // Returns the time in the piece that is heard now.
  function position() {
    if (playing === null || graph === null) return offset;
    const { context, node } = graph;
    const heard = context.currentTime - startedAt - node.latency - (context.outputLatency || 0);
    return Math.max(0, isLooping ? heard % duration() : Math.min(heard, duration()));
  }

  const duration = () => piece.channels[0].length / piece.rate;

  /** @param {boolean} wanted */
  function loop(wanted) {
    if (playing !== null && graph !== null) {
      startedAt += duration() * Math.floor((graph.context.currentTime - startedAt) / duration());
      playing.source.loop = wanted;
    }
    isLooping = wanted;
  }

  // Chooses the side that is heard, and the linear gain of each side.
  /** @param {keyof Sides<any>} wantedSide @param {Sides<number>} wantedGains */
  function compare(wantedSide, wantedGains) {
    side = wantedSide;
    gains = wantedGains;
    if (graph === null) return;
    const { context, sides } = graph;
    fade(context, sides.before.gain.gain, side === "before" ? gains.before : 0);
    fade(context, sides.after.gain.gain, side === "after" ? gains.after : 0);
  }

  // Fades on a straight line, so that the two sides of a cross-fade add up to one.
  /** @param {AudioContext} context @param {AudioParam} param @param {number} to */
  function fade({ currentTime: now }, param, to) {
    param.cancelScheduledValues(now);
    param.setValueAtTime(param.value, now);
    param.linearRampToValueAtTime(to, now + kFadeSeconds);
  }

  // Returns decibels for each bin, before and after, or null while nothing was played.
  function spectra() {
    if (graph?.context.sampleRate !== piece.rate) return null;
    const { before, after } = graph.sides;
    for (const { analyser, bins } of [before, after]) analyser.getFloatFrequencyData(bins);
    return { before: before.bins, after: after.bins };
  }

  const isPlaying = () => playing !== null;
  return { load, play, pause, seek, position, duration, loop, compare, spectra, isPlaying };
}

// Waits until the context runs. Without a sound device some browsers never answer.
/** @param {AudioContext} context */
function resumed(context) {
  const tooLate = new Error("the browser does not start to play. Is there a sound device?");
  return Promise.race([
    context.resume(),
    new Promise((_, reject) => {
      setTimeout(reject, kPatienceMs, tooLate);
    }),
  ]);
}
