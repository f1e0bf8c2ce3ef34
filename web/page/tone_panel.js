// The tone's panel: the spectrum of what plays, the equalizer's response over it, points to drag.
import { drawGrid, kHighHz, kLowHz, plotArea } from "./axes.js";
import { surfaceOf } from "./canvas.js";
import { drawSpectrum } from "./draw_spectrum.js";
import { drawTone } from "./draw_tone.js";
import { makePoints } from "./points.js";

const kCurvePoints = 400;
const byId = (id) => document.getElementById(id);

// tone: {toneDb, fitTone} of the rate in rateOf().
export function makeTonePanel(state, tone, rateOf, onMove) {
  const canvas = byId("tone");
  const areaOf = () => plotArea(canvas.clientWidth, canvas.clientHeight);
  const hertz = Array.from({ length: kCurvePoints + 1 },
                           (_, n) => kLowHz * (kHighHz / kLowHz) ** (n / kCurvePoints));
  let response = [];
  let wanted = null;
  let isFitting = false;
  let isStale = false;

  // Through the points to ten levels; the curve shows what comes of it.
  const points = makePoints(byId("points"), areaOf, (moved) => {
    const fit = tone.fitTone(moved, rateOf());
    wanted = [[kLowHz, moved[0].db], ...moved.map(({ hz, db }) => [hz, db]),
              [kHighHz, moved.at(-1).db]];
    isFitting = true;
    changed();
    byId("fit").textContent = fitText(fit);
    if (!state.isOn("equalizer")) state.set("equalizer", 1);
    fit.levels.forEach((level, band) => state.set(`eq-${band}`, level));
    onMove();
  });

  // Once for all the bands that change together.
  function changed() {
    if (!isStale) queueMicrotask(update);
    isStale = true;
  }

  function update() {
    isStale = false;
    const levels = state.isOn("equalizer") ? state.levels() : state.levels().fill(0);
    const decibels = tone.toneDb(levels, hertz, rateOf());
    response = hertz.map((hz, n) => [hz, decibels[n]]);
    const isFitted = isFitting;
    isFitting = false;
    if (isFitted) return;
    wanted = null;
    byId("fit").textContent = "";
    points.follow((hz) => tone.toneDb(levels, [hz], rateOf())[0]);
  }

  state.listen((key) => {
    if (key === "equalizer" || key.startsWith("eq-")) changed();
  });
  byId("flat").addEventListener("click", () => {
    state.levels().forEach((_, band) => state.set(`eq-${band}`, 0));
    onMove();
  });
  update();

  function draw(spectra, colours) {
    const { context, width, height } = surfaceOf(canvas);
    const area = plotArea(width, height);
    context.clearRect(0, 0, width, height);
    if (spectra !== null)
      drawSpectrum(context, area, spectra.before, spectra.after, rateOf(), colours);
    drawGrid(context, area, colours);
    drawTone(context, area, response, wanted, state.isOn("equalizer"), colours);
  }
  return { draw, update, layOut: points.layOut };
}

function fitText(fit) {
  if (Math.abs(fit.worstDb) < 1.5) return `As drawn within ${fit.rmsDb.toFixed(1)} dB.`;
  return `Ten bands can't follow this curve everywhere: off by ${Math.abs(fit.worstDb).toFixed(1)} dB ` +
    `at ${Math.round(fit.worstHz)} Hz. The thick line is what you hear.`;
}
