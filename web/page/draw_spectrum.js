// The spectra before and after, behind the tone: before as an area, after as a line. Power in bands
// of a sixth of an octave, in which music lies about level.
import { hzOf, kLowHz, xOf, yOf } from "./axes.js";

// Decibels at the plot's lower and upper edge.
const kLow = -80;
const kHigh = 15;
const kHalfBand = 2 ** (1 / 12);

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
  const below = powerBelow(bins);
  const perHz = (2 * bins.length) / rateHz;
  const bandPower = (x) => {
    const hz = hzOf(area.left + x, area);
    return at(below, hz * kHalfBand * perHz) - at(below, (hz / kHalfBand) * perHz);
  };
  const halfBand = xOf(kHalfBand * kLowHz, area) - area.left;
  context.beginPath();
  for (let x = 0; x <= area.width; x += 2) {
    // Over a band's width once more: its edges fall off in a slope.
    let power = 0;
    for (let n = -2; n <= 2; ++n) power += bandPower(x + (n * halfBand) / 2) / 5;
    const level = Math.min(kHigh, Math.max(kLow, 10 * Math.log10(Math.max(0, power))));
    const y = yOf(level, area, kLow, kHigh);
    if (x === 0) context.moveTo(area.left, y);
    else context.lineTo(area.left + x, y);
  }
}

// Power of all bins before each edge between bins: one more than there are bins.
function powerBelow(bins) {
  const below = new Float64Array(bins.length + 1);
  bins.forEach((db, bin) => {
    below[bin + 1] = below[bin] + 10 ** (db / 10);
  });
  return below;
}

// Between edges in a straight line. A bin reaches half a bin to both sides of its frequency.
function at(below, bin) {
  const edge = Math.min(below.length - 1.001, Math.max(0, bin + 0.5));
  const low = Math.floor(edge);
  return below[low] + (edge - low) * (below[low + 1] - below[low]);
}
