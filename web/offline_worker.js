// Processes a whole piece in a thread of its own. The samples come in parts, so that a long piece
// is never copied as a whole.
//
// In:   { type: "start", bytes, rate, channels, dithers, values, wanted: "loudness" | "wav" }
//       { type: "samples", channels }  one Float32Array or Int16Array for each channel
//       { type: "end" }
// Out:  { type: "progress", loudness }  after each part
//       { type: "done", loudness, wav }  wav: a Blob if it is wanted, otherwise null
//       { type: "failed", message }
import { instantiate, Piece } from "./module.js";
import { Quantizer, wavHeader } from "./samples.js";

/** @typedef {(pcm: Int16Array<ArrayBuffer>) => void} Take */

/** @type {{ piece: Piece, quantizer: Quantizer, take: Take, wav: () => Blob | null } | null} */
let run = null;

/** @param {any} data the message of type "start" */
function start({ bytes, rate, channels, dithers, values, wanted }) {
  /** @type {Blob[]} */
  const parts = [];
  run = {
    piece: new Piece(instantiate(bytes), rate, channels, values),
    quantizer: new Quantizer(dithers),
    // A Blob lies outside the memory of scripts.
    take: (pcm) => wanted === "wav" && parts.push(new Blob([pcm])),
    wav: () => {
      if (wanted !== "wav") return null;
      const size = parts.reduce((sum, part) => sum + part.size, 0);
      return new Blob([wavHeader(size, rate, channels), ...parts], { type: "audio/wav" });
    },
  };
}

/** @param {NonNullable<typeof run>} run @param {(Float32Array | Int16Array)[]} channels */
function process({ piece, quantizer, take }, channels) {
  const samples = quantizer.interleave(channels);
  const out = new Int16Array(samples.length);
  let written = 0;
  for (let at = 0; at < samples.length; at += Piece.samples) {
    const part = piece.process(samples.subarray(at, at + Piece.samples));
    out.set(part, written);
    written += part.length;
  }
  take(out.slice(0, written));
  postMessage({ type: "progress", loudness: piece.loudness() });
}

/** @param {NonNullable<typeof run>} run */
function end({ piece, take, wav }) {
  take(piece.finish().slice());
  postMessage({ type: "done", loudness: piece.loudness(), wav: wav() });
}

onmessage = ({ data }) => {
  try {
    if (data.type === "start") start(data);
    else if (run === null) throw new Error("nothing was started");
    else if (data.type === "samples") process(run, data.channels);
    else end(run);
  } catch (error) {
    postMessage({ type: "failed", message: /** @type {Error} */ (error).message });
  }
};
