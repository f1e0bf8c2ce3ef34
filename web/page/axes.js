// The axes of the tone's plot: frequency to the right on a logarithmic scale, decibels up. An area is
// in CSS pixels of the canvas.

/** @import { Area, Colours } from "../types.d.ts" */

export const kLowHz = 20;
export const kHighHz = 20000;
export const kLowDb = -18;
export const kHighDb = 12;

/** @type {(hz: number, area: Area) => number} */
export const xOf = (hz, area) =>
  area.left + (area.width * Math.log(hz / kLowHz)) / Math.log(kHighHz / kLowHz);
/** @type {(x: number, area: Area) => number} */
export const hzOf = (x, area) => kLowHz * (kHighHz / kLowHz) ** ((x - area.left) / area.width);
// Returns where a value lies on an axis from `low` (bottom) to `high` (top).
/** @type {(value: number, area: { top: number, height: number }, low: number, high: number) => number} */
export const yOf = (value, area, low, high) =>
  area.top + area.height * (1 - (value - low) / (high - low));
/** @type {(y: number, area: Area) => number} */
export const dbOf = (y, area) => kHighDb - ((y - area.top) / area.height) * (kHighDb - kLowDb);

// 1500 -> "1.5 kHz"
/** @type {(hz: number) => string} */
export const hzText = (hz) =>
  hz < 1000 ? `${Math.round(hz)} Hz` : `${+(hz / 1000).toPrecision(2)} kHz`;

// "+3.0", "−3.0", and never "−0.0".
/** @type {(db: number) => string} */
export function dbText(db) {
  const rounded = Math.round(db * 10) / 10;
  if (rounded === 0) return "0.0";
  return (rounded > 0 ? "+" : "−") + Math.abs(rounded).toFixed(1);
}

// Returns the part of a canvas that labels leave free.
/** @type {(width: number, height: number) => Area} */
export const plotArea = (width, height) => ({
  left: 34,
  top: 10,
  width: width - 34 - 10,
  height: height - 10 - 22,
});

/** @param {CanvasRenderingContext2D} context @param {Area} area @param {Colours} colours */
export function drawGrid(context, area, colours) {
  context.font = "12px system-ui, sans-serif";
  context.lineWidth = 1;
  context.textBaseline = "top";
  const isNarrow = area.width < 480;
  for (const hz of [20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000]) {
    const x = Math.round(xOf(hz, area)) + 0.5;
    line(context, x, area.top, x, area.top + area.height, colours.grid);
    if (isNarrow && ![50, 200, 1000, 5000, 20000].includes(hz)) continue;
    const isLast = hz === kHighHz;
    context.fillStyle = colours.label;
    context.textAlign = isLast ? "right" : "center";
    const text = hz < 1000 ? `${hz}` : `${hz / 1000}k`;
    const y = area.top + area.height + 6;
    if (isLast) context.fillText(`${text} Hz`, area.left + area.width + 8, y);
    else context.fillText(text, x, y);
  }
  context.textAlign = "right";
  context.textBaseline = "middle";
  for (let db = kLowDb; db <= kHighDb; db += 6) {
    const y = Math.round(yOf(db, area, kLowDb, kHighDb)) + 0.5;
    const right = area.left + area.width;
    line(context, area.left, y, right, y, db === 0 ? colours.zero : colours.grid);
    context.fillStyle = colours.label;
    context.fillText(db === kHighDb ? "dB" : dbText(db).replace(".0", ""), area.left - 6, y);
  }
}

/**
 * @param {CanvasRenderingContext2D} context
 * @param {number} fromX
 * @param {number} fromY
 * @param {number} toX
 * @param {number} toY
 * @param {string} colour
 */
export function line(context, fromX, fromY, toX, toY, colour) {
  context.strokeStyle = colour;
  context.beginPath();
  context.moveTo(fromX, fromY);
  context.lineTo(toX, toY);
  context.stroke();
}
