// The points on the tone. They are dragged, or moved by the arrow keys in two inputs behind each.
import { dbOf, dbText, hzOf, hzText, kHighDb, kHighHz, kLowDb, kLowHz, xOf, yOf } from "./axes.js";
import { element } from "./dom.js";

/** @import { Area, TonePoint } from "../types.d.ts" */

const kFirstHz = [40, 90, 200, 450, 1000, 2500, 6000, 13000];
// The least distance of two points: a sixth of an octave.
const kApart = 2 ** (1 / 6);
// About the most that all ten bands together can give.
const kMostDb = 9.5;

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
