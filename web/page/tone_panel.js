// The panel of the tone: the spectrum of what plays, the equalizer's response over it, and points to
// drag.
import { drawGrid, kHighHz, kLowHz, plotArea } from "./axes.js";
import { byId, surfaceOf } from "./dom.js";
import { drawSpectrum, drawTone } from "./draw.js";
import { makePoints } from "./points.js";
import { fitTone, toneDb } from "../rules.js";

/** @import { Colours, Sides, ToneFit } from "../types.d.ts" */
/** @import { State } from "./state.js" */

const kCurvePoints = 400;

// `rateOf` returns the rate of the piece. `onMove` is called when something has to be drawn.
/**
 * @param {State} state
 * @param {() => number} rateOf
 * @param {() => void} onMove
 */
export function makeTonePanel(state, rateOf, onMove) {
  const canvas = byId("tone");
  const areaOf = () => plotArea(canvas.clientWidth, canvas.clientHeight);
  const hertz = Array.from(
    { length: kCurvePoints + 1 },
    (_, n) => kLowHz * (kHighHz / kLowHz) ** (n / kCurvePoints),
  );
  /** @type {[number, number][]} */
  let response = [];
  /** @type {[number, number][] | null} */
  let wanted = null;
  let isFitting = false;
  let isStale = false;

  // The points give the ten levels. The curve shows the response of these levels.
  const points = makePoints(byId("points"), areaOf, (moved) => {
    const fit = fitTone(moved, rateOf());
    const curve = moved.map(({ hz, db }) => /** @type {[number, number]} */ ([hz, db]));
    wanted = [[kLowHz, curve[0][1]], ...curve, [kHighHz, curve[curve.length - 1][1]]];
    isFitting = true;
    changed();
    byId("fit").textContent = fitText(fit);
    if (!state.isOn("equalizer")) state.set("equalizer", 1);
    state.setLevels(fit.levels);
    onMove();
  });

  // Updates once for all bands that change together.
  function changed() {
    if (!isStale) queueMicrotask(update);
    isStale = true;
  }

  function update() {
    isStale = false;
    const levels = state.isOn("equalizer") ? state.levels() : state.levels().fill(0);
    const decibels = toneDb(levels, hertz, rateOf());
    response = hertz.map((hz, n) => [hz, decibels[n]]);
    const isFitted = isFitting;
    isFitting = false;
    if (isFitted) return;
    wanted = null;
    byId("fit").textContent = "";
    points.follow((hz) => toneDb(levels, [hz], rateOf())[0]);
  }

  state.listen((key) => {
    if (key === "equalizer" || key.startsWith("eq-")) changed();
  });
  byId("flat").addEventListener("click", () => {
    state.setLevels(state.levels().fill(0));
    onMove();
  });
  update();

  // `spectra` is null while nothing plays.
  /** @param {Sides<Float32Array> | null} spectra @param {Colours} colours */
  function draw(spectra, colours) {
    const { context, width, height } = surfaceOf("tone");
    const area = plotArea(width, height);
    context.clearRect(0, 0, width, height);
    if (spectra !== null)
      drawSpectrum(context, area, spectra.before, spectra.after, rateOf(), colours);
    drawGrid(context, area, colours);
    drawTone(context, area, response, wanted, state.isOn("equalizer"), colours);
  }
  return { draw, update, layOut: points.layOut };
}

/** @param {ToneFit} fit */
function fitText(fit) {
  if (Math.abs(fit.worstDb) < 1.5) return `As drawn within ${fit.rmsDb.toFixed(1)} dB.`;
  return (
    `Ten bands can't follow this curve everywhere: off by ${Math.abs(fit.worstDb).toFixed(1)} dB ` +
    `at ${Math.round(fit.worstHz)} Hz. The thick line is what you hear.`
  );
}
