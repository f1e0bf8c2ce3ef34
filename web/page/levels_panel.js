// The levels' panel: numbers, bars, and the gain over the last seconds.
import { surfaceOf } from "./canvas.js";
import { drawGain, kGainSeconds } from "./draw_gain.js";
import { drawMeters } from "./draw_meters.js";

// Below this there is nothing whose gain could be told.
const kQuietDb = -60;
// Of the power, per message: a gain is told over about 200 ms, not from one drum's edge to the next.
const kKeep = 0.75;
const kSilent = { shortTerm: -Infinity, truePeak: -Infinity };

const byId = (id) => document.getElementById(id);
// A number that is read, not one that flickers.
const text = (db) => (Number.isFinite(db) ? db.toFixed(1).replace("-", "−") : "–");

export function makeLevelsPanel() {
  let now = { before: kSilent, after: kSilent };
  let peaks = { before: -Infinity, after: -Infinity };
  let history = [];
  let power = { before: 0, after: 0 };

  // meter: as OrvaneNode tells it; time in seconds.
  function take(meter, time) {
    now = meter;
    for (const side of ["before", "after"]) {
      peaks[side] = Math.max(peaks[side], meter[side].truePeak);
      power[side] = kKeep * power[side] + (1 - kKeep) * 10 ** (meter[side].rms / 10);
    }
    const [before, after] = [power.before, power.after].map((mean) => 10 * Math.log10(mean));
    history = history.filter((point) => time - point.time <= kGainSeconds);
    history.push({ time, db: Math.min(before, after) > kQuietDb ? after - before : null });
  }

  // Peaks of other settings say nothing of these.
  function clearPeaks() {
    peaks = { before: -Infinity, after: -Infinity };
  }

  function clear() {
    now = { before: kSilent, after: kSilent };
    clearPeaks();
    history = [];
    power = { before: 0, after: 0 };
  }

  // loudness: of the whole piece, or null while it isn't known.
  function showWhole(loudness) {
    for (const side of ["before", "after"])
      byId(`whole-${side}`).textContent = loudness === null ? "…" : text(loudness[side]);
  }

  function draw(time, colours) {
    for (const side of ["before", "after"]) {
      byId(`short-${side}`).textContent = text(now[side].shortTerm);
      byId(`peak-${side}`).textContent = text(peaks[side]);
    }
    const meters = surfaceOf(byId("meters"));
    drawMeters(meters.context, meters.width, meters.height, now.before, now.after, colours);
    const gain = surfaceOf(byId("gain"));
    drawGain(gain.context, gain.width, gain.height, history, time, colours);
  }
  return { take, clear, clearPeaks, showWhole, draw };
}
