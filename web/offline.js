// Processes a whole piece at once: its loudness before and after, and the result as a file.
import { workerText } from "./embedded.js";
import { moduleBytes, valuesOf } from "./rules.js";

/** @import { Loudness, Piece, Settings } from "./package/index.d.ts" */

// Frames of a part. Two parts are on their way, so that the worker never waits.
const kPartFrames = 1 << 17;
const kPartsAhead = 2;

// Starts a worker. `end` stops it, and the promise then never settles. `onProgress` gets the
// loudness so far in LUFS, and how much of the piece is done, from 0 to 1.
/**
 * @param {Piece} piece
 * @param {Settings} settings
 * @param {"loudness" | "wav"} wanted
 * @param {(loudness: Loudness, part: number) => void} onProgress
 */
function start({ rate, channels, dithers = false }, settings, wanted, onProgress) {
  const values = valuesOf(settings);
  const worker = new Worker(`data:text/javascript,${encodeURIComponent(workerText)}`);
  const frames = channels[0].length;
  let sent = 0;
  let finished = 0;
  const send = () => {
    const part = channels.map((samples) => samples.slice(sent, sent + kPartFrames));
    if (sent < frames)
      worker.postMessage(
        { type: "samples", channels: part },
        part.map(({ buffer }) => /** @type {ArrayBuffer} */ (buffer)),
      );
    sent += kPartFrames;
    if (sent >= frames && sent < frames + kPartFrames) worker.postMessage({ type: "end" });
  };
  /** @type {Promise<{ loudness: Loudness, wav: Blob }>} */
  const done = new Promise((resolve, reject) => {
    worker.onerror = ({ message }) => reject(new Error(message));
    worker.onmessage = ({ data }) => {
      if (data.type === "progress") {
        finished = Math.min(frames, finished + kPartFrames);
        send();
        return onProgress(data.loudness, finished / frames);
      }
      worker.terminate();
      if (data.type === "done") resolve(data);
      else reject(new Error(data.message));
    };
  });
  worker.postMessage({
    type: "start",
    bytes: moduleBytes(),
    rate,
    dithers,
    channels: channels.length,
    values,
    wanted,
  });
  for (let n = 0; n < kPartsAhead; ++n) send();
  return { done, end: () => worker.terminate() };
}

/** @type {ReturnType<typeof start> | undefined} */
let measurement;

/** @type {typeof import("./package/index.d.ts").measure} */
export async function measure(piece, settings, onProgress) {
  measurement?.end();
  measurement = start(piece, settings, "loudness", (loudness) => onProgress?.(loudness));
  return (await measurement.done).loudness;
}

/** @type {typeof import("./package/index.d.ts").renderWav} */
export async function renderWav(piece, settings, onProgress) {
  const run = start(piece, settings, "wav", (_, part) => onProgress?.(part));
  return (await run.done).wav;
}
