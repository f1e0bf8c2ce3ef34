// Plays the piece through the effect, and the piece as it was with the same delay. Only this module plays
// through Web Audio.
//
//   sections - fade - OrvaneNode -+- result --- analyser - gain -+- speakers
//                                 +- as it was - analyser - gain -+
//
// Both sides always run, so a switch is a cross-fade in step. Times are in seconds of the piece. Web
// Audio plays floats, and the piece has 16 bits. So a few seconds of it are converted ahead, in sections.
// Each of them starts at the very frame at which the one before ends.
import { OrvaneNode } from "../orvane_node.js";

/** @import { NamedPiece, Sides } from "../types.d.ts" */
/** @import { State } from "./state.js" */
/** @typedef {{ analyser: AnalyserNode, gain: GainNode, bins: Float32Array<ArrayBuffer> }} Side */
/** @typedef {{ context: AudioContext, node: OrvaneNode, sides: Sides<Side> }} Graph */
/**
 * What plays. Frame 0 of the piece was at frame `zero` of the context, and the next section begins at
 * frame `next` of the piece, which grows on in a loop.
 * @typedef {{ gain: GainNode, sections: AudioBufferSourceNode[], zero: number, next: number }} Playing
 */

const kFadeSeconds = 0.012;
const kSectionSeconds = 5;
// Sections that wait or play. So the page may be busy for the length of one.
const kSections = 2;
// A sound starts so late that nothing delays its first section only.
const kAheadSeconds = 0.05;
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
  /** @type {Playing | null} new at every start */
  let playing = null;
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
  function start(graph, at) {
    const { context, node } = graph;
    const gain = new GainNode(context, { gain: 0 });
    gain.connect(node);
    const next = Math.round(at * piece.rate);
    const begin = soon(context);
    playing = { gain, sections: [], zero: begin - next, next };
    fade(gain.gain, 1, begin / piece.rate);
    for (let n = 0; n < kSections; ++n) addSection(context, playing);
  }

  // The next frame of the context at which something can start.
  /** @param {AudioContext} context */
  const soon = ({ currentTime }) => Math.ceil((currentTime + kAheadSeconds) * piece.rate);

  // Lets the next section start where the last one ends. A piece that does not loop has a last one.
  /** @param {AudioContext} context @param {Playing} mine */
  function addSection(context, mine) {
    const whole = piece.channels[0].length;
    const most = kSectionSeconds * piece.rate;
    const length = isLooping ? most : Math.min(most, whole - mine.next);
    if (length <= 0) return;
    const { rate: sampleRate, channels } = piece;
    const buffer = new AudioBuffer({ numberOfChannels: channels.length, length, sampleRate });
    channels.forEach((from, side) => {
      const to = buffer.getChannelData(side);
      for (let n = 0, at = mine.next % whole; n < length; ++n) {
        to[n] = from[at] / 32768;
        if (++at === whole) at = 0;
      }
    });
    // After a standstill of the page, the sound goes on where it stopped.
    if (mine.zero + mine.next < context.currentTime * sampleRate)
      mine.zero = soon(context) - mine.next;
    const source = new AudioBufferSourceNode(context, { buffer });
    source.connect(mine.gain);
    source.start((mine.zero + mine.next) / sampleRate);
    mine.next += length;
    mine.sections.push(source);
    source.onended = () => {
      // Sections that were stopped are not in the list any more.
      if (mine.sections[0] !== source) return;
      mine.sections.shift();
      if (playing === mine) addSection(context, mine);
      if (mine.sections.length > 0) return;
      mine.gain.disconnect();
      if (playing !== mine) return;
      playing = null;
      offset = 0;
      onEnd();
    };
  }

  function stop() {
    if (playing === null || graph === null) return;
    const { context } = graph;
    const { gain, sections } = playing;
    fade(gain.gain, 0, context.currentTime);
    sections[0].onended = () => gain.disconnect();
    for (const source of sections) source.stop(context.currentTime + kFadeSeconds);
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
    const startedAt = playing.zero / piece.rate;
    const heard = context.currentTime - startedAt - node.latency - (context.outputLatency || 0);
    return Math.max(0, isLooping ? heard % duration() : Math.min(heard, duration()));
  }

  const duration = () => piece.channels[0].length / piece.rate;

  /** @param {boolean} wanted */
  function loop(wanted) {
    isLooping = wanted;
    if (playing === null || graph === null) return;
    // The sections that were made for the other case end soon, and new ones go on at that frame.
    const { context } = graph;
    const end = soon(context);
    const whole = piece.channels[0].length;
    for (const source of playing.sections.splice(0)) source.stop(end / piece.rate);
    playing.next = (end - playing.zero) % whole;
    playing.zero = end - playing.next;
    for (let n = 0; n < kSections; ++n) addSection(context, playing);
  }

  // Chooses the side that is heard, and the linear gain of each side.
  /** @param {keyof Sides<any>} wantedSide @param {Sides<number>} wantedGains */
  function compare(wantedSide, wantedGains) {
    side = wantedSide;
    gains = wantedGains;
    if (graph === null) return;
    const { currentTime } = graph.context;
    const { sides } = graph;
    fade(sides.before.gain.gain, side === "before" ? gains.before : 0, currentTime);
    fade(sides.after.gain.gain, side === "after" ? gains.after : 0, currentTime);
  }

  // Fades on a straight line, so that the two sides of a cross-fade add up to one.
  /** @param {AudioParam} param @param {number} to @param {number} start */
  function fade(param, to, start) {
    param.cancelScheduledValues(start);
    param.setValueAtTime(param.value, start);
    param.linearRampToValueAtTime(to, start + kFadeSeconds);
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
