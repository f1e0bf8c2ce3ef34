// The panel of the tone: the spectrum of what plays, the equalizer's response over it, and points to
// drag.
import { dbOf, dbText, drawGrid, hzOf, hzText, kHighDb, kHighHz, kLowDb, kLowHz } from "./axes.js";
import { plotArea, xOf, yOf } from "./axes.js";
import { byId, element, surfaceOf } from "./dom.js";
import { drawSpectrum, drawTone } from "./draw.js";
import { fitTone, toneDb } from "../rules.js";

/** @import { Area, Colours, Sides, ToneFit, TonePoint } from "../types.d.ts" */
/** @import { State } from "./state.js" */

const kCurvePoints = 400;
const kFirstHz = [40, 90, 200, 450, 1000, 2500, 6000, 13000];
// The least distance of two points: a sixth of an octave.
const kApart = 2 ** (1 / 6);
// About the most that all ten bands together can give.
const kMostDb = 9.5;

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

// Makes the points on the tone. They are dragged, or moved by the arrow keys in two inputs behind each.
// `areaOf` returns the present area of the plot. `onMove` takes all points, ascending in frequency.
/**
 * @param {HTMLElement} parent
 * @param {() => Area} areaOf
 * @param {(points: readonly TonePoint[]) => void} onMove
 */
export function makePoints(parent, areaOf, onMove) {
  const points = kFirstHz.map((hz) => ({ hz, db: 0 }));
  const handles = points.map(makeHandle);

  /** @param {TonePoint} point @param {number} index */
  function makeHandle(point, index) {
    const handle = element("div", { className: "point" });
    const text = element("span");
    const inputs = [
      makeInput(`Point ${index + 1}, decibels`, kLowDb, kMostDb, 0.5, (value) =>
        move(index, point.hz, value),
      ),
      makeInput(`Point ${index + 1}, frequency`, 0, 120, 1, (value) =>
        move(index, hzOfStep(value), point.db),
      ),
    ];
    handle.append(text, ...inputs);
    parent.append(handle);
    handle.addEventListener("pointerdown", (event) => {
      event.preventDefault();
      handle.setPointerCapture(event.pointerId);
      handle.classList.add("dragged");
      inputs[0].focus({ preventScroll: true });
    });
    handle.addEventListener("pointermove", (event) => {
      if (!handle.hasPointerCapture(event.pointerId)) return;
      const { left, top } = parent.getBoundingClientRect();
      const area = areaOf();
      move(index, hzOf(event.clientX - left, area), dbOf(event.clientY - top, area));
    });
    handle.addEventListener("lostpointercapture", () => handle.classList.remove("dragged"));
    handle.addEventListener("dblclick", () => move(index, point.hz, 0));
    return { handle, text, inputs };
  }

  // Moves a point, no further than its neighbours and the plot allow.
  /** @param {number} index @param {number} hz @param {number} db */
  function move(index, hz, db) {
    const low = index === 0 ? kLowHz : points[index - 1].hz * kApart;
    const high = index === points.length - 1 ? kHighHz : points[index + 1].hz / kApart;
    points[index].hz = Math.min(high, Math.max(low, hz));
    points[index].db = Math.min(kMostDb, Math.max(kLowDb, db));
    layOut();
    onMove(points);
  }

  // Puts the points onto a response, which returns decibels for a frequency in hertz.
  /** @param {(hz: number) => number} response */
  function follow(response) {
    for (const point of points) point.db = Math.min(kMostDb, Math.max(kLowDb, response(point.hz)));
    layOut();
  }

  function layOut() {
    const area = areaOf();
    points.forEach(({ hz, db }, index) => {
      const { handle, text, inputs } = handles[index];
      const x = xOf(hz, area),
        y = yOf(db, area, kLowDb, kHighDb);
      handle.style.left = `${x}px`;
      handle.style.top = `${y}px`;
      handle.classList.toggle("at-left", x < 70);
      handle.classList.toggle("at-right", x > area.left + area.width - 60);
      handle.classList.toggle("at-top", y < 60);
      text.textContent = `${hzText(hz)}  ${dbText(db)} dB`;
      const spoken = `${db < 0 ? "minus " : ""}${Math.abs(db).toFixed(1)} decibels at ${Math.round(hz)} hertz`;
      inputs[0].value = `${db}`;
      inputs[1].value = `${stepOfHz(hz)}`;
      for (const input of inputs) input.setAttribute("aria-valuetext", spoken);
    });
  }

  layOut();
  return { points, follow, layOut };
}

// Frequencies in steps of a twelfth of an octave from the plot's lower end.
/** @param {number} step */
const hzOfStep = (step) => kLowHz * 2 ** (step / 12);
/** @param {number} hz */
const stepOfHz = (hz) => Math.round(12 * Math.log2(hz / kLowHz));

/** @type {(name: string, min: number, max: number, step: number, onInput: (value: number) => void) => HTMLInputElement} */
function makeInput(name, min, max, step, onInput) {
  const input = element("input", { type: "range", min, max, step });
  input.setAttribute("aria-label", name);
  input.addEventListener("input", () => onInput(input.valueAsNumber));
  return input;
}
