// What is heard: the piece through the effect, and beside it as it was, delayed by as much. The only
// module that knows Web Audio.
//
//   source - fade - OrvaneNode -+- result --- analyser - gain -+- speakers
//                               +- as it was - analyser - gain -+
//
// Both sides always run, so a switch is a cross-fade in step. Times in seconds of the piece.
import { OrvaneNode } from "../orvane_node.js";

const kFadeSeconds = 0.012;
const kBins = 8192;
const kPatienceMs = 3000;

// onMeter({before, after}) as OrvaneNode tells it; onEnd() when a piece that doesn't loop is over.
export function createSound(state, { onMeter, onEnd }) {
  let piece = null;
  let buffer = null;  // the piece as Web Audio has it
  let graph = null;  // of the piece's rate: {context, node, sides}
  let isStarting = false;
  let playing = null;  // {source, gain}, a new one at every start
  let startedAt = 0;  // of the context, where the piece's time was 0
  let offset = 0;     // of the piece, while nothing plays
  let isLooping = true;
  let side = "after";
  let gains = { before: 1, after: 1 };

  state.listen((key) => {
    if (graph === null) return;
    // A value may turn the switch that it needs.
    for (const one of [state.rowOf(key).needs, key])
      if (one !== null) graph.node.set(one, state.acting(one));
  });

  async function makeGraph(rate) {
    const context = new AudioContext({ sampleRate: rate, latencyHint: "interactive" });
    // Within the click: a browser that waits for one lets it run now.
    context.resume();
    const node = await OrvaneNode.create(context, { settings: state.all() });
    node.onmeter = onMeter;
    const sides = {};
    ["after", "before"].forEach((name, output) => {
      const analyser = new AnalyserNode(context, {
        fftSize: 2 * kBins, smoothingTimeConstant: 0.75, minDecibels: -120, maxDecibels: 0 });
      const gain = new GainNode(context, { gain: name === side ? gains[name] : 0 });
      node.connect(analyser, output).connect(gain).connect(context.destination);
      sides[name] = { analyser, gain, bins: new Float32Array(kBins) };
    });
    return { context, node, sides };
  }

  // {name, rate, channels}: stops what plays. The next play() starts at its beginning.
  function load(wanted) {
    pause();
    offset = 0;
    piece = wanted;
    buffer = new AudioBuffer({ numberOfChannels: piece.channels.length,
      length: piece.channels[0].length, sampleRate: piece.rate });
    piece.channels.forEach((samples, n) => buffer.copyToChannel(samples, n));
  }

  async function play() {
    if (playing !== null || isStarting) return;
    isStarting = true;
    try {
      // Again if another piece was loaded meanwhile.
      while (graph?.context.sampleRate !== piece.rate) {
        graph?.context.close();
        graph = await makeGraph(piece.rate);
      }
      await resumed(graph.context);
    } finally {
      isStarting = false;
    }
    graph.node.apply(state.all());
    start(offset);
  }

  function start(at) {
    const { context, node } = graph;
    const source = new AudioBufferSourceNode(context, { buffer, loop: isLooping });
    const gain = new GainNode(context, { gain: 0 });
    source.connect(gain).connect(node);
    source.start(0, at);
    fade(gain.gain, 1);
    startedAt = context.currentTime - at;
    const mine = playing = { source, gain };
    source.onended = () => {
      gain.disconnect();
      if (playing !== mine) return;
      playing = null;
      offset = 0;
      onEnd();
    };
  }

  function stop() {
    fade(playing.gain.gain, 0);
    playing.source.stop(graph.context.currentTime + kFadeSeconds);
    playing = null;
  }

  function pause() {
    if (playing === null) return;
    offset = position();
    stop();
  }

  function seek(at) {
    offset = at;
    if (playing === null) return;
    stop();
    start(at);
  }

  // Of what is heard now.
  function position() {
    if (playing === null) return offset;
    const { context, node } = graph;
    const heard = context.currentTime - startedAt - node.latency - (context.outputLatency || 0);
    return Math.max(0, isLooping ? heard % duration() : Math.min(heard, duration()));
  }

  const duration = () => piece.channels[0].length / piece.rate;

  function loop(wanted) {
    if (playing !== null) {
      startedAt += duration() * Math.floor((graph.context.currentTime - startedAt) / duration());
      playing.source.loop = wanted;
    }
    isLooping = wanted;
  }

  // Which side is heard, and how loud each is: linear gains.
  function compare(wantedSide, wantedGains) {
    side = wantedSide;
    gains = wantedGains;
    if (graph === null) return;
    for (const [name, { gain }] of Object.entries(graph.sides))
      fade(gain.gain, name === side ? gains[name] : 0);
  }

  // Linear from where it is now, so that the two sides of a cross-fade add up to one.
  function fade(param, to) {
    const now = graph.context.currentTime;
    param.cancelScheduledValues(now);
    param.setValueAtTime(param.value, now);
    param.linearRampToValueAtTime(to, now + kFadeSeconds);
  }

  // Decibels per bin, before and after, or null while there is nothing.
  function spectra() {
    if (graph?.context.sampleRate !== piece.rate) return null;
    for (const { analyser, bins } of Object.values(graph.sides)) analyser.getFloatFrequencyData(bins);
    return { before: graph.sides.before.bins, after: graph.sides.after.bins };
  }

  return { load, play, pause, seek, position, duration, loop, compare, spectra,
           isPlaying: () => playing !== null };
}

// Without a sound device some browsers never answer.
function resumed(context) {
  const tooLate = new Error("the browser does not start to play. Is there a sound device?");
  return Promise.race([context.resume(), new Promise((_, reject) => {
    setTimeout(reject, kPatienceMs, tooLate);
  })]);
}
