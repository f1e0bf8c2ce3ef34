// The spectra before and after, behind the tone: before as an area, after as a line.
import { hzOf, yOf } from "./axes.js";

// Decibels below full scale at the plot's lower and upper edge.
const kLow = -100;
const kHigh = -10;

// before, after: decibels per bin of an analyser, bin 0 at 0 Hz, the last just below half the rate.
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

function trace(context, area, bins, rateHz) {
  context.beginPath();
  for (let x = 0; x <= area.width; x += 2) {
    const y = yOf(Math.min(kHigh, Math.max(kLow, levelAt(bins, x, area, rateHz))), area, kLow, kHigh);
    if (x === 0) context.moveTo(area.left, y);
    else context.lineTo(area.left + x, y);
  }
}

// The mean in decibels of the bins within a sixth of an octave; between two bins where they lie
// further apart. Tilted by 3 dB an octave about 1 kHz, so that music lies about level.
function levelAt(bins, x, area, rateHz) {
  const hz = hzOf(area.left + x, area);
  const perHz = (2 * bins.length) / rateHz;
  const last = bins.length - 1;
  const from = hz * 2 ** (-1 / 12) * perHz;
  const to = Math.min(last, hz * 2 ** (1 / 12) * perHz);
  const tilt = 3 * Math.log2(hz / 1000);
  if (to - from < 2) {
    const at = Math.min(last - 1, hz * perHz);
    const low = Math.floor(at);
    return tilt + bins[low] + (at - low) * (bins[low + 1] - bins[low]);
  }
  let sum = 0;
  for (let bin = Math.ceil(from); bin <= to; ++bin) sum += bins[bin];
  return tilt + sum / (Math.floor(to) - Math.ceil(from) + 1);
}
