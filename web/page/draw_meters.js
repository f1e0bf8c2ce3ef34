// Level bars before and after: short-term loudness as the bar, true peak as a mark.
import { line } from "./axes.js";

const kLow = -60;
const kHigh = 3;

// before, after: {shortTerm, truePeak} in LUFS and dB, -Infinity for silence.
export function drawMeters(context, width, height, before, after, colours) {
  const barHeight = (height - 22) / 2 - 4;
  const xOf = (db) => (width * (Math.min(kHigh, Math.max(kLow, db)) - kLow)) / (kHigh - kLow);
  context.clearRect(0, 0, width, height);
  context.font = "12px system-ui, sans-serif";
  context.textAlign = "center";
  context.textBaseline = "bottom";
  context.lineWidth = 1;
  for (const db of [-50, -40, -30, -20, -10, 0]) {
    const x = Math.round(xOf(db)) + 0.5;
    line(context, x, 0, x, height - 18, db === 0 ? colours.zero : colours.grid);
    context.fillStyle = colours.label;
    context.fillText(db === 0 ? "0 dB" : `−${-db}`, x, height);
  }
  [[before, colours.before], [after, colours.after]].forEach(([levels, colour], row) => {
    const y = row * (barHeight + 6);
    context.fillStyle = colour;
    context.fillRect(0, y, xOf(levels.shortTerm), barHeight);
    if (levels.truePeak > kLow) context.fillRect(xOf(levels.truePeak) - 2, y, 3, barHeight);
  });
}
