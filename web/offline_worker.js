// A whole piece in a thread of its own.
//
// In:   { bytes, samples, rate, channels, values, wanted: "loudness" | "samples" }
// Out:  { type: "progress", loudness }  now and then
//       { type: "done", loudness, samples }  samples: if they are wanted
//       { type: "failed", message }
import { instantiate, Piece } from "./module.js";

const kCallsPerMessage = 200;

function run({ bytes, samples, rate, channels, values, wanted }) {
  const piece = new Piece(instantiate(bytes), rate, channels, values);
  const out = wanted === "samples" ? new Int16Array(samples.length) : null;
  let written = 0;
  const take = (part) => {
    out?.set(part, written);
    written += part.length;
  };
  for (let at = 0, calls = 1; at < samples.length; at += Piece.samples, ++calls) {
    take(piece.process(samples.subarray(at, at + Piece.samples)));
    if (calls % kCallsPerMessage === 0) postMessage({ type: "progress", loudness: piece.loudness() });
  }
  take(piece.finish());
  postMessage({ type: "done", loudness: piece.loudness(), samples: out });
}

onmessage = ({ data }) => {
  try {
    run(data);
  } catch (error) {
    postMessage({ type: "failed", message: error.message });
  }
};
