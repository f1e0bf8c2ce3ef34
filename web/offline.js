// A whole piece at once: how loud it is before and after, and the result as a file.
//
// A piece is { rate, channels }: one or two Float32Arrays.
import { workerText } from "./embedded.js";
import { moduleBytes } from "./module_bytes.js";
import { interleave, wavOf } from "./samples.js";
import { valuesOf } from "./settings.js";

// Made once: every setting that changes asks for the same piece again.
const converted = new WeakMap();
function samplesOf(piece) {
  if (!converted.has(piece)) converted.set(piece, interleave(piece.channels));
  return converted.get(piece);
}

// Starts a worker; `end` stops it, and the promise then never settles.
function start(piece, settings, wanted, onProgress) {
  const worker = new Worker(`data:text/javascript,${encodeURIComponent(workerText)}`);
  const done = new Promise((resolve, reject) => {
    worker.onerror = ({ message }) => reject(new Error(message));
    worker.onmessage = ({ data }) => {
      if (data.type === "progress") return onProgress?.(data.loudness);
      worker.terminate();
      if (data.type === "done") resolve(data);
      else reject(new Error(data.message));
    };
  });
  worker.postMessage({ bytes: moduleBytes(), samples: samplesOf(piece), rate: piece.rate, wanted,
                       channels: piece.channels.length, values: valuesOf(settings) });
  return { done, end: () => worker.terminate() };
}

let measurement;

// Integrated loudness of the whole, { before, after } in LUFS; onProgress gets the same of what was
// heard so far. A newer call ends the one before, whose promise then never settles.
export async function measure(piece, settings, onProgress) {
  measurement?.end();
  measurement = start(piece, settings, "loudness", onProgress);
  return (await measurement.done).loudness;
}

// The renderer's samples, without the chain's delay, as a WAV file of 16 bits.
export async function renderWav(piece, settings) {
  const { samples } = await start(piece, settings, "samples").done;
  return new Blob([wavOf(samples, piece.rate, piece.channels.length)], { type: "audio/wav" });
}
