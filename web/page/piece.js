// The built-in piece: plucked chords over a bass, a soft half and a loud one, 19 seconds that loop.
// It is made from sines, noise and delayed feedback, and has the same samples every time.

/** @typedef {() => number} Noise the next number of a noise, -1 to 1 */
/** @typedef {Float32Array<ArrayBuffer>} Samples */

const kBeatsPerMinute = 100;
const kBeats = 32;
// The bass note and the chord of each bar of four beats, as semitones from A3 (220 Hz).
/** @type {[root: number, chord: number[]][]} */
const kBars = [
  [-24, [0, 3, 7, 10, 14]],
  [-28, [-4, 0, 3, 7, 12]],
  [-21, [3, 7, 10, 14, 15]],
  [-26, [-2, 2, 5, 10, 12]],
];

// Returns the two channels of the piece at a rate in hertz. Samples are within -1 to 1.
/** @type {(rate: number) => Samples[]} */
export function makePiece(rate) {
  const beat = (60 / kBeatsPerMinute) * rate;
  const frames = Math.round(kBeats * beat);
  const mix = [new Float32Array(frames), new Float32Array(frames)];
  // A sound that rings on past the end continues at the start, so that the loop has no seam.
  /** @type {(sound: Samples, start: number, gain: number, pan: number) => void} */
  const add = (sound, start, gain, pan) => {
    const sides = [gain * Math.cos((pan * Math.PI) / 2), gain * Math.sin((pan * Math.PI) / 2)];
    mix.forEach((out, side) => {
      for (let n = 0, to = Math.round(start) % frames; n < sound.length; ++n) {
        out[to] += sides[side] * sound[n];
        if (++to === frames) to = 0;
      }
    });
  };
  const noise = makeNoise();
  const kick = makeKick(rate);
  const hat = makeHat(rate, noise);
  const snare = makeSnare(rate, noise);
  for (let bar = 0; bar < kBeats / 4; ++bar) {
    const [root, chord] = kBars[bar % kBars.length];
    const isLoud = bar >= kBars.length;
    const at = bar * 4 * beat;
    for (let eighth = 0; eighth < 8; ++eighth) {
      const note = chord[[0, 2, 1, 3, 2, 4, 3, 1][eighth]];
      add(
        makePluck(rate, hz(note), 1.6, noise),
        at + (eighth * beat) / 2,
        0.2,
        0.3 + 0.1 * (eighth % 5),
      );
    }
    if (!isLoud) continue;
    for (const [when, length] of [
      [0, 1.4],
      [1.5, 0.9],
      [2.5, 1.3],
    ])
      add(makeBass(rate, hz(root), (length * 60) / kBeatsPerMinute), at + when * beat, 0.3, 0.5);
    for (const when of [0, 2, 2.5]) add(kick, at + when * beat, 0.55, 0.5);
    for (const when of [1, 3]) add(snare, at + when * beat, 0.22, 0.45);
    for (let eighth = 0; eighth < 8; ++eighth)
      add(hat, at + (eighth * beat) / 2, eighth % 2 ? 0.12 : 0.06, 0.65);
  }
  return mix;
}

/** @param {number} semitones */
const hz = (semitones) => 220 * 2 ** (semitones / 12);

// Returns a noise, uniform in -1 to 1 and from a fixed seed: a linear congruence modulo 2^32.
/** @returns {Noise} */
function makeNoise() {
  let seed = 1;
  return () => {
    seed = (Math.imul(seed, 1664525) + 1013904223) >>> 0;
    return seed / 2 ** 31 - 1;
  };
}

// A plucked string: one period of noise is fed back through an average of neighbours.
// K. Karplus, A. Strong, Digital Synthesis of Plucked-String and Drum Timbres, 1983.
/** @type {(rate: number, pitchHz: number, seconds: number, noise: Noise) => Samples} */
function makePluck(rate, pitchHz, seconds, noise) {
  const period = Math.round(rate / pitchHz);
  const sound = new Float32Array(Math.round(seconds * rate));
  for (let n = 0; n < period; ++n) sound[n] = noise();
  for (let n = period; n < sound.length; ++n)
    sound[n] = 0.498 * (sound[n - period] + sound[n - period + 1]);
  fadeOut(sound, 0.1 * rate);
  return sound;
}

// A sine with a second and a third partial, which decay faster.
/** @type {(rate: number, pitchHz: number, seconds: number) => Samples} */
function makeBass(rate, pitchHz, seconds) {
  return make(rate, seconds, (t) => {
    const phase = 2 * Math.PI * pitchHz * t;
    return (
      Math.min(1, t * 200) *
      Math.exp(-1.2 * t) *
      (Math.sin(phase) +
        0.5 * Math.exp(-3 * t) * Math.sin(2 * phase) +
        0.3 * Math.exp(-6 * t) * Math.sin(3 * phase))
    );
  });
}

// A sine that falls from 170 to 48 Hz.
/** @type {(rate: number) => Samples} */
function makeKick(rate) {
  return make(
    rate,
    0.35,
    (t) =>
      Math.exp(-9 * t) * Math.sin(2 * Math.PI * (48 * t + (122 / 30) * (1 - Math.exp(-30 * t)))),
  );
}

/** @type {(rate: number, noise: Noise) => Samples} */
function makeSnare(rate, noise) {
  return make(
    rate,
    0.25,
    (t) => Math.exp(-16 * t) * noise() + 0.5 * Math.exp(-22 * t) * Math.sin(2 * Math.PI * 185 * t),
  );
}

// The difference of neighbours in a noise, in which the high frequencies remain.
/** @type {(rate: number, noise: Noise) => Samples} */
function makeHat(rate, noise) {
  let last = 0;
  return make(rate, 0.09, (t) => {
    const now = noise();
    const high = (now - last) / 2;
    last = now;
    return Math.exp(-45 * t) * high;
  });
}

// Returns the samples of a function of the time in seconds.
/** @type {(rate: number, seconds: number, at: (t: number) => number) => Samples} */
function make(rate, seconds, at) {
  const sound = Float32Array.from({ length: Math.round(seconds * rate) }, (_, n) => at(n / rate));
  fadeOut(sound, 0.01 * rate);
  return sound;
}

/** @param {Samples} sound @param {number} frames */
function fadeOut(sound, frames) {
  for (let n = 0; n < frames && n < sound.length; ++n) sound[sound.length - 1 - n] *= n / frames;
}
