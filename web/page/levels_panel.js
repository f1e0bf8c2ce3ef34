// The panel of levels: numbers, bars, and the gain over the last seconds.
import { byId, surfaceOf } from "./dom.js";
import { drawGain, drawMeters, kGainSeconds } from "./draw.js";

/** @import { Levels, Loudness } from "../package/index.d.ts" */
/** @import { Colours, Sides } from "../types.d.ts" */

// Below this level of one side, no gain is shown.
const kQuietDb = -60;
// The part of the power that each message keeps. It averages the gain over about 200 ms.
const kKeep = 0.75;
const kSilent = { shortTerm: -Infinity, truePeak: -Infinity };
/** @type {("before" | "after")[]} */
const kSides = ["before", "after"];

/** @type {(db: number) => string} */
const text = (db) => (Number.isFinite(db) ? db.toFixed(1).replace("-", "−") : "–");

export function makeLevelsPanel() {
  /** @type {Sides<Pick<Levels, "shortTerm" | "truePeak">>} */
  let now = { before: kSilent, after: kSilent };
  let peaks = { before: -Infinity, after: -Infinity };
  /** @type {{ time: number, db: number | null }[]} */
  let history = [];
  let power = { before: 0, after: 0 };

  // Takes the levels that OrvaneNode tells, and the time in seconds.
  /** @param {Sides<Levels>} meter @param {number} time */
  function take(meter, time) {
    now = meter;
    for (const side of kSides) {
      peaks[side] = Math.max(peaks[side], meter[side].truePeak);
      power[side] = kKeep * power[side] + (1 - kKeep) * 10 ** (meter[side].rms / 10);
    }
    const [before, after] = [power.before, power.after].map((mean) => 10 * Math.log10(mean));
    history = history.filter((point) => time - point.time <= kGainSeconds);
    history.push({ time, db: Math.min(before, after) > kQuietDb ? after - before : null });
  }

  // Forgets the peaks, because other settings have other peaks.
  function clearPeaks() {
    peaks = { before: -Infinity, after: -Infinity };
  }

  function clear() {
    now = { before: kSilent, after: kSilent };
    clearPeaks();
    history = [];
    power = { before: 0, after: 0 };
  }

  // Shows the loudness of the whole piece. It is null while it is not known.
  /** @param {Loudness | null} loudness */
  function showWhole(loudness) {
    for (const side of kSides)
      byId(`whole-${side}`).textContent = loudness === null ? "…" : text(loudness[side]);
  }

  /** @param {number} time @param {Colours} colours */
  function draw(time, colours) {
    for (const side of kSides) {
      byId(`short-${side}`).textContent = text(now[side].shortTerm);
      byId(`peak-${side}`).textContent = text(peaks[side]);
    }
    const meters = surfaceOf("meters");
    drawMeters(meters.context, meters.width, meters.height, now.before, now.after, colours);
    const gain = surfaceOf("gain");
    drawGain(gain.context, gain.width, gain.height, history, time, colours);
  }
  return { take, clear, clearPeaks, showWhole, draw };
}
