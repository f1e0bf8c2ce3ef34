// Draws what the canvases show: the tone over the spectra, level bars, the gain, and the piece's outline.
// Sizes are in CSS pixels.
import { dbText, hzOf, kHighDb, kLowDb, kLowHz, line, xOf, yOf } from "./axes.js";

/** @import { Levels } from "../package/index.d.ts" */
/** @import { Area, Colours } from "../types.d.ts" */
/** @typedef {CanvasRenderingContext2D} Context */
/** @typedef {readonly [hz: number, db: number][]} Curve frequencies ascend */

// Decibels of the spectrum at the plot's lower and upper edge.
const kLow = -80;
const kHigh = 15;
const kHalfBand = 2 ** (1 / 12);

// Draws the spectra behind the tone: before as an area, after as a line. Each shows the power in
// bands of a sixth of an octave, in which music is about level. `before` and `after` hold decibels
// for each bin of an analyser: bin 0 is at 0 Hz, the last just below half the rate.
/**
 * @param {Context} context
 * @param {Area} area
 * @param {Float32Array} before
 * @param {Float32Array} after
 * @param {number} rateHz
 * @param {Colours} colours
 */
export function drawSpectrum(context, area, before, after, rateHz, colours) {
  context.lineJoin = "round";
  trace(context, area, before, rateHz);
  context.lineTo(area.left + area.width, area.top + area.height);
  context.lineTo(area.left, area.top + area.height);
  context.fillStyle = colours.beforeFill;
  context.fill();
  trace(context, area, after, rateHz);
  context.strokeStyle = colours.after;
  context.lineWidth = 1.25;
  context.stroke();
}

// Makes the path of one spectrum.
/** @type {(context: Context, area: Area, bins: Float32Array, rateHz: number) => void} */
function trace(context, area, bins, rateHz) {
  const below = powerBelow(bins);
  const perHz = (2 * bins.length) / rateHz;
  /** @param {number} x */
  const bandPower = (x) => {
    const hz = hzOf(area.left + x, area);
    return at(below, hz * kHalfBand * perHz) - at(below, (hz / kHalfBand) * perHz);
  };
  const halfBand = xOf(kHalfBand * kLowHz, area) - area.left;
  context.beginPath();
  for (let x = 0; x <= area.width; x += 2) {
    // The mean over the width of a band makes the edges of a band slope.
    let power = 0;
    for (let n = -2; n <= 2; ++n) power += bandPower(x + (n * halfBand) / 2) / 5;
    const level = Math.min(kHigh, Math.max(kLow, 10 * Math.log10(Math.max(0, power))));
    const y = yOf(level, area, kLow, kHigh);
    if (x === 0) context.moveTo(area.left, y);
    else context.lineTo(area.left + x, y);
  }
}

// Returns the sum of the power of all bins below each edge between bins. There is one edge more
// than there are bins.
/** @type {(bins: Float32Array) => Float64Array} */
function powerBelow(bins) {
  const below = new Float64Array(bins.length + 1);
  bins.forEach((db, bin) => {
    below[bin + 1] = below[bin] + 10 ** (db / 10);
  });
  return below;
}

// Returns the sum at a fraction of a bin, on a straight line between edges. A bin reaches half a bin
// to both sides of its frequency.
/** @type {(below: Float64Array, bin: number) => number} */
function at(below, bin) {
  const edge = Math.min(below.length - 1.001, Math.max(0, bin + 0.5));
  const low = Math.floor(edge);
  return below[low] + (edge - low) * (below[low + 1] - below[low]);
}

// Draws the equalizer's response, and the curve that was asked for where they differ. `wanted` may
// be null. Curves are cut at the plot's edges.
/**
 * @param {Context} context
 * @param {Area} area
 * @param {Curve} response
 * @param {Curve | null} wanted
 * @param {boolean} isOn
 * @param {Colours} colours
 */
export function drawTone(context, area, response, wanted, isOn, colours) {
  context.save();
  context.beginPath();
  context.rect(area.left, area.top, area.width, area.height);
  context.clip();
  context.lineJoin = "round";
  if (wanted !== null) {
    context.setLineDash([4, 5]);
    context.lineWidth = 1.5;
    stroke(context, area, wanted, colours.label);
    context.setLineDash([]);
  }
  context.lineWidth = 3;
  stroke(context, area, response, isOn ? colours.curve : colours.label);
  context.restore();
}

/** @type {(context: Context, area: Area, curve: Curve, colour: string) => void} */
function stroke(context, area, curve, colour) {
  context.strokeStyle = colour;
  context.beginPath();
  curve.forEach(([hz, db], n) => {
    // The line stays near the plot, so that its slope can still be drawn.
    const y = yOf(Math.max(db, 2 * kLowDb), area, kLowDb, kHighDb);
    if (n === 0) context.moveTo(xOf(hz, area), y);
    else context.lineTo(xOf(hz, area), y);
  });
  context.stroke();
}

// Returns the largest magnitude of all channels in each of `columns` equal parts of the piece.
/** @type {(channels: readonly Float32Array[], columns: number) => Float32Array} */
export const outlineOf = (channels, columns) =>
  Float32Array.from({ length: columns }, (_, column) => peakOf(channels, column, columns));

/** @type {(channels: readonly (Float32Array | Int16Array)[], column: number, columns: number) => number} */
export function peakOf(channels, column, columns) {
  const frames = channels[0].length;
  const end = Math.floor(((column + 1) * frames) / columns);
  let peak = 0;
  for (const samples of channels)
    for (let n = Math.floor((column * frames) / columns); n < end; ++n) {
      const size = Math.abs(samples[n]);
      if (size > peak) peak = size;
    }
  return peak;
}

// Below this peak a piece is silence, and its outline stays flat.
const kSilence = 0.0001;

// Draws the piece's outline over its time, scaled to its loudest part. The part that was played, 0
// to 1, has the given colour.
/**
 * @param {Context} context
 * @param {number} width
 * @param {number} height
 * @param {Float32Array} outline
 * @param {number} played
 * @param {string} colour
 * @param {Colours} colours
 */
export function drawWave(context, width, height, outline, played, colour, colours) {
  context.clearRect(0, 0, width, height);
  const step = width / outline.length;
  const loudest = Math.max(kSilence, ...outline);
  outline.forEach((peak, column) => {
    const tall = Math.max(1.5, (peak / loudest) * (height - 2));
    context.fillStyle = (column + 0.5) / outline.length < played ? colour : colours.rest;
    context.fillRect(column * step, (height - tall) / 2, Math.max(1, step - 1), tall);
  });
}

export const kGainSeconds = 10;

// Draws the gain from before to after over the last seconds, in decibels: the present is at the
// right. Times are in seconds and ascend. `db` is null while there is nothing to compare.
/**
 * @param {Context} context
 * @param {number} width
 * @param {number} height
 * @param {readonly { time: number, db: number | null }[]} history
 * @param {number} now
 * @param {Colours} colours
 */
export function drawGain(context, width, height, history, now, colours) {
  const area = { left: 34, top: 8, width: width - 34 - 4, height: height - 16 };
  const reach = reachOf(history);
  context.clearRect(0, 0, width, height);
  context.font = "12px system-ui, sans-serif";
  context.textAlign = "right";
  context.textBaseline = "middle";
  context.lineWidth = 1;
  for (const db of [-reach, 0, reach]) {
    const y = Math.round(yOf(db, area, -reach, reach)) + 0.5;
    line(context, area.left, y, area.left + area.width, y, db === 0 ? colours.zero : colours.grid);
    context.fillStyle = colours.label;
    context.fillText(dbText(db).replace(".0", ""), area.left - 6, y);
  }
  context.strokeStyle = colours.after;
  context.lineWidth = 2;
  context.lineJoin = "round";
  context.beginPath();
  let isDown = false;
  for (const { time, db } of history) {
    const x = area.left + area.width * (1 - (now - time) / kGainSeconds);
    if (db === null || x < area.left) {
      isDown = false;
      continue;
    }
    const y = yOf(Math.min(reach, Math.max(-reach, db)), area, -reach, reach);
    if (isDown) context.lineTo(x, y);
    else context.moveTo(x, y);
    isDown = true;
  }
  context.stroke();
}

// Returns the least of 6, 12, 24 and 48 dB that holds every gain.
/** @type {(history: readonly { db: number | null }[]) => number} */
function reachOf(history) {
  const most = Math.max(0, ...history.map(({ db }) => Math.abs(db ?? 0)));
  return [6, 12, 24].find((reach) => most <= reach) ?? 48;
}

// Decibels at the ends of the level bars.
const kBarLow = -60;
const kBarHigh = 3;

// Draws level bars before and after: short-term loudness as the bar, true peak as a mark.
/**
 * @param {Context} context
 * @param {number} width
 * @param {number} height
 * @param {Pick<Levels, "shortTerm" | "truePeak">} before
 * @param {Pick<Levels, "shortTerm" | "truePeak">} after
 * @param {Colours} colours
 */
export function drawMeters(context, width, height, before, after, colours) {
  const barHeight = (height - 22) / 2 - 4;
  /** @param {number} db */
  const barX = (db) =>
    (width * (Math.min(kBarHigh, Math.max(kBarLow, db)) - kBarLow)) / (kBarHigh - kBarLow);
  context.clearRect(0, 0, width, height);
  context.font = "12px system-ui, sans-serif";
  context.textAlign = "center";
  context.textBaseline = "bottom";
  context.lineWidth = 1;
  for (const db of [-50, -40, -30, -20, -10, 0]) {
    const x = Math.round(barX(db)) + 0.5;
    line(context, x, 0, x, height - 18, db === 0 ? colours.zero : colours.grid);
    context.fillStyle = colours.label;
    context.fillText(db === 0 ? "0 dB" : `−${-db}`, x, height);
  }
  [before, after].forEach((levels, row) => {
    const y = row * (barHeight + 6);
    context.fillStyle = row === 0 ? colours.before : colours.after;
    context.fillRect(0, y, barX(levels.shortTerm), barHeight);
    if (levels.truePeak > kBarLow) context.fillRect(barX(levels.truePeak) - 2, y, 3, barHeight);
  });
}
