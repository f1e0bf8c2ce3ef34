// The points on the tone: dragged, or moved by the arrow keys in the two inputs behind each.
import { dbOf, dbText, hzOf, hzText, kHighDb, kHighHz, kLowDb, kLowHz, xOf, yOf } from "./axes.js";

const kFirstHz = [40, 90, 200, 450, 1000, 2500, 6000, 13000];
// The least that two points lie apart: a sixth of an octave.
const kApart = 2 ** (1 / 6);
// What all ten bands together can give, nearly.
const kMostDb = 9.5;

// areaOf() is the plot's area now; onMove(points) takes [{hz, db}] ascending in hz.
export function makePoints(parent, areaOf, onMove) {
  const points = kFirstHz.map((hz) => ({ hz, db: 0 }));
  const handles = points.map(makeHandle);

  function makeHandle(point, index) {
    const handle = document.createElement("div");
    handle.className = "point";
    const text = document.createElement("span");
    const inputs = [
      makeInput(`Point ${index + 1}, decibels`, kLowDb, kMostDb, 0.5,
                (value) => move(index, point.hz, value)),
      makeInput(`Point ${index + 1}, frequency`, 0, 120, 1,
                (value) => move(index, hzOfStep(value), point.db)),
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

  function move(index, hz, db) {
    const low = index === 0 ? kLowHz : points[index - 1].hz * kApart;
    const high = index === points.length - 1 ? kHighHz : points[index + 1].hz / kApart;
    points[index].hz = Math.min(high, Math.max(low, hz));
    points[index].db = Math.min(kMostDb, Math.max(kLowDb, db));
    layOut();
    onMove(points);
  }

  // Puts the points onto a response, a function of the frequency in decibels.
  function follow(response) {
    for (const point of points)
      point.db = Math.min(kMostDb, Math.max(kLowDb, response(point.hz)));
    layOut();
  }

  function layOut() {
    const area = areaOf();
    points.forEach(({ hz, db }, index) => {
      const { handle, text, inputs } = handles[index];
      const x = xOf(hz, area), y = yOf(db, area, kLowDb, kHighDb);
      handle.style.left = `${x}px`;
      handle.style.top = `${y}px`;
      handle.classList.toggle("at-left", x < 70);
      handle.classList.toggle("at-right", x > area.left + area.width - 60);
      handle.classList.toggle("at-top", y < 60);
      text.textContent = `${hzText(hz)}  ${dbText(db)} dB`;
      const spoken = `${db < 0 ? "minus " : ""}${Math.abs(db).toFixed(1)} decibels at ${Math.round(hz)} hertz`;
      inputs[0].value = db;
      inputs[1].value = stepOfHz(hz);
      for (const input of inputs) input.setAttribute("aria-valuetext", spoken);
    });
  }

  layOut();
  return { points, follow, layOut };
}

// Frequencies in steps of a twelfth of an octave from the plot's lower end.
const hzOfStep = (step) => kLowHz * 2 ** (step / 12);
const stepOfHz = (hz) => Math.round(12 * Math.log2(hz / kLowHz));

function makeInput(name, min, max, step, onInput) {
  const input = Object.assign(document.createElement("input"), { type: "range", min, max, step });
  input.setAttribute("aria-label", name);
  input.addEventListener("input", () => onInput(input.valueAsNumber));
  return input;
}
