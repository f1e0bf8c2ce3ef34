// Samples as files hold them. Full scale of floats is 1.0.

// Undoes, in place, how browsers decode 16-bit samples, s / 32767 above 0 and s / 32768 below: so
// that sixteen-bit sources are s / 32768 again, to the bit.
export function fromDecoded(samples) {
  for (let n = 0; n < samples.length; ++n)
    if (samples[n] > 0) {
      const exact = samples[n] * 32767;
      const whole = Math.round(exact);
      // A float keeps 24 bits, so a 16-bit sample comes back within 1/256.
      samples[n] = (Math.abs(exact - whole) < 1 / 256 ? whole : exact) / 32768;
    }
  return samples;
}

// Rounded half up, held within 16 bits; no number is silence.
export function toSixteenBits(samples) {
  const halves = new Int16Array(samples.length);
  // Not Int16Array.from(), which takes fifty times as long: a piece has millions.
  for (let n = 0; n < samples.length; ++n)
    if (Number.isFinite(samples[n]))
      halves[n] = Math.min(32767, Math.max(-32768, Math.floor(32768 * samples[n] + 0.5)));
  return halves;
}

// One or two channels, interleaved in 16 bits.
export function interleave(channels) {
  const pcm = channels.map(toSixteenBits);
  if (pcm.length === 1) return pcm[0];
  const samples = new Int16Array(2 * pcm[0].length);
  for (let n = 0; n < pcm[0].length; ++n) {
    samples[2 * n] = pcm[0][n];
    samples[2 * n + 1] = pcm[1][n];
  }
  return samples;
}

// A WAV file of interleaved samples, as bytes.
export function wavOf(samples, rate, channels) {
  const kHeaderBytes = 44;
  const bytes = new Uint8Array(kHeaderBytes + samples.byteLength);
  const view = new DataView(bytes.buffer);
  const name = (at, text) => bytes.set([...text].map((letter) => letter.charCodeAt(0)), at);
  const numbers = [[4, 36 + samples.byteLength, 4], [16, 16, 4], [20, 1, 2], [22, channels, 2],
    [24, rate, 4], [28, 2 * channels * rate, 4], [32, 2 * channels, 2], [34, 16, 2],
    [40, samples.byteLength, 4]];
  for (const [at, value, size] of numbers)
    size === 4 ? view.setUint32(at, value, true) : view.setUint16(at, value, true);
  name(0, "RIFF");
  name(8, "WAVEfmt ");
  name(36, "data");
  samples.forEach((sample, n) => view.setInt16(kHeaderBytes + 2 * n, sample, true));
  return bytes;
}
