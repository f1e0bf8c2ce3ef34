// Samples as files hold them. Full scale of floats is 1.0.
//
// For pages, workers and node.

// Undoes, in place, how Chromium decodes 16-bit samples s: s / 32767 above 0 and s / 32768 below.
// Afterwards every sample is s / 32768. Browsers that divide by 32768 everywhere, such as Firefox,
// need no change: their samples stay. Only for sources of 16 bits decoded at their own rate.
/** @type {(samples: Float32Array) => Float32Array} */
export function fromDecoded(samples) {
  if (samples.every((sample) => Number.isInteger(32768 * sample) && sample < 1)) return samples;
  for (let n = 0; n < samples.length; ++n)
    if (samples[n] > 0) samples[n] = Math.round(samples[n] * 32767) / 32768;
  return samples;
}

// Converts floats to 16 bits: floor(32768 x + noise + 0.5), held within 16 bits. A sample that is
// no finite number is silence. Samples of 16 bits stay as they are without dither. With dither, the
// noise is triangular over ±1 and the same in every run, as in `orvane render`. One object converts
// one piece, in order.
export class Quantizer {
  #seed = 1;

  /** @param {boolean} dithers */
  constructor(dithers) {
    this.dithers = dithers;
  }

  // Returns the samples of one or two channels, interleaved.
  /** @type {(channels: readonly (Float32Array | Int16Array)[]) => Int16Array<ArrayBuffer>} */
  interleave(channels) {
    const count = channels.length;
    const scale = channels[0] instanceof Int16Array ? 1 : 32768;
    const samples = new Int16Array(count * channels[0].length);
    for (let n = 0, frame = 0; n < samples.length; ++frame)
      for (let side = 0; side < count; ++side, ++n) {
        const noise = this.dithers ? this.#noise() : 0;
        const sample = channels[side][frame];
        const level = Number.isFinite(sample) ? sample : 0;
        samples[n] = Math.min(32767, Math.max(-32768, Math.floor(scale * level + noise + 0.5)));
      }
    return samples;
  }

  // The difference of two numbers of the "minimal standard" generator: a linear congruence
  // modulo 2^31 - 1 (S. K. Park, K. W. Miller, CACM 31, 1988; the factor is of 1993).
  #noise() {
    const first = this.#random();
    return (first - this.#random()) / (2 ** 31 - 3);
  }
  // The products stay below 2^53, so that they are exact. The operator % takes three times as long.
  #random() {
    const product = this.#seed * 48271;
    this.#seed = product - Math.floor(product / (2 ** 31 - 1)) * (2 ** 31 - 1);
    return this.#seed;
  }
}

const kHeaderBytes = 44;

// Returns the header of a WAV file with `bytes` bytes of 16-bit samples behind it.
/** @type {(bytes: number, rate: number, channels: number) => Uint8Array<ArrayBuffer>} */
export function wavHeader(bytes, rate, channels) {
  const header = new Uint8Array(kHeaderBytes);
  const view = new DataView(header.buffer);
  /** @type {(at: number, text: string) => void} */
  const name = (at, text) =>
    header.set(
      [...text].map((letter) => letter.charCodeAt(0)),
      at,
    );
  name(0, "RIFF");
  view.setUint32(4, kHeaderBytes - 8 + bytes, true);
  name(8, "WAVEfmt ");
  view.setUint32(16, 16, true);
  view.setUint16(20, 1, true);
  view.setUint16(22, channels, true);
  view.setUint32(24, rate, true);
  view.setUint32(28, 2 * channels * rate, true);
  view.setUint16(32, 2 * channels, true);
  view.setUint16(34, 16, true);
  name(36, "data");
  view.setUint32(40, bytes, true);
  return header;
}
