// A slider and a number box for every row of the table, in groups that fold with their switch; and the
// presets.
import { withSwitches } from "../rules.js";
import { presets } from "../table.js";
import { hzText } from "./axes.js";
import { byId, element, sentence } from "./dom.js";

/** @import { Parameter, Settings } from "../package/index.d.ts" */
/** @import { State } from "./state.js" */
/** @typedef {ReturnType<typeof scaleOf>} Scale */

// The lowest gain in decibels. Below it, the steps of 0.01 of a linear gain are too coarse.
const kLowestGainDb = -20;

// `bandHz` holds the frequency at which each band of the equalizer has most effect. A value out of
// range becomes the nearest value in range.
/** @param {State} state @param {readonly number[]} bandHz */
export function makeControls(state, bandHz) {
  /** @type {Map<string, ReturnType<typeof makeGroup>>} */
  const groups = new Map();
  for (const row of state.table) {
    const group = groups.get(row.group) ?? makeGroup(state, row.group);
    groups.set(row.group, group);
    if (row.kind === "switch") group.addSwitch(row);
    else group.add(row, row.band === undefined ? undefined : bandHz[row.band]);
  }
}

/** @param {State} state @param {string} name */
function makeGroup(state, name) {
  const box = element("div", { className: "group" });
  const title = element("h3", { textContent: sentence(name) });
  const body = element("fieldset");
  body.setAttribute("aria-label", sentence(name));
  box.append(title, body);
  byId("groups").append(box);
  /** @type {HTMLElement | null} */
  let bands = null;

  /** @param {Parameter} row */
  function addSwitch(row) {
    const input = element("input", { type: "checkbox", id: `set-${row.key}` });
    const label = element("label", { className: "check" });
    label.append(input, ` ${row.label}`);
    title.replaceChildren(label);
    title.after(element("p", { className: "hint", textContent: sentence(row.law) }));
    input.addEventListener("change", () => state.set(row.key, input.checked ? 1 : 0));
    const show = () => {
      input.checked = state.isOn(row.key);
      body.disabled = body.hidden = !input.checked;
    };
    state.listen(show);
    show();
  }

  /** @param {Parameter} row @param {number} [bandHz] */
  function add(row, bandHz) {
    if (bandHz !== undefined && bands === null) {
      bands = element("details");
      bands.append(element("summary", { textContent: "Its ten bands" }));
      body.append(bands);
    }
    (bands ?? body).append(makeRow(state, row, bandHz));
  }
  return { addSwitch, add };
}

/** @param {State} state @param {Parameter} row @param {number} [bandHz] */
function makeRow(state, row, bandHz) {
  const scale = scaleOf(row);
  const id = `set-${row.key}`;
  const name = bandHz === undefined ? row.label : bandName(row, bandHz);
  const box = element("div", { className: "row" });
  const label = element("label", { htmlFor: id, textContent: name });
  const limits = { min: scale.min, max: scale.max, step: scale.step };
  const slider = element("input", { type: "range", id, ...limits });
  const number = element("input", { type: "number", ...limits });
  number.setAttribute("aria-label", `${name}, number`);
  box.append(
    label,
    slider,
    number,
    element("span", { className: "unit", textContent: scale.unit }),
  );
  if (row.band === undefined)
    box.append(element("p", { className: "hint", textContent: sentence(row.law) }));

  slider.addEventListener("input", () => state.set(row.key, scale.toValue(slider.valueAsNumber)));
  number.addEventListener("change", () => {
    state.set(row.key, scale.toValue(number.valueAsNumber));
    show();
  });
  box.addEventListener("dblclick", (event) => {
    if (event.target === slider || event.target === label) state.unset(row.key);
  });
  const show = () => {
    const shown = scale.toShown(state.get(row.key));
    slider.value = `${shown}`;
    number.value = shown.toFixed(scale.digits);
    slider.setAttribute("aria-valuetext", spoken(shown, scale));
  };
  state.listen((key) => {
    if (key === row.key) show();
  });
  show();
  return box;
}

// How a row is shown: gains in decibels, everything else in the units of the table.
/** @param {Parameter} row */
export function scaleOf(row) {
  if (!row.isGain)
    return {
      unit: "",
      word: "",
      digits: 2,
      min: row.min,
      max: row.max,
      step: row.step,
      toShown: (/** @type {number} */ value) => value,
      toValue: (/** @type {number} */ shown) => shown,
    };
  /** @param {number} db */
  const clean = (db) => Math.round(Math.max(kLowestGainDb, db) * 10) / 10 + 0;
  return {
    unit: "dB",
    word: " decibels",
    digits: 1,
    min: kLowestGainDb,
    max: clean(20 * Math.log10(row.max)),
    step: 0.1,
    toShown: (/** @type {number} */ value) => clean(20 * Math.log10(value)),
    toValue: (/** @type {number} */ shown) => 10 ** (shown / 20),
  };
}

// Returns a shown value as a screen reader says it.
/** @type {(shown: number, scale: Scale) => string} */
function spoken(shown, scale) {
  return `${shown < 0 ? "minus " : ""}${Math.abs(shown).toFixed(scale.digits)}${scale.word}`;
}

/** @type {(row: Parameter, hz: number) => string} */
const bandName = (row, hz) => (row.band === 0 ? `Below ${hzText(hz)}` : `Around ${hzText(hz)}`);

// Makes the presets as one group of radio buttons. None is chosen while the settings are the listener's
// own.
/** @param {State} state */
export function makePresets(state) {
  const inputs = presets.map((preset) => {
    const label = element("label");
    const input = element("input", { type: "radio", name: "preset", value: preset.name });
    label.append(input, sentence(preset.name));
    byId("presets").append(label);
    input.addEventListener("change", () => state.replace(preset.values));
    return input;
  });

  function show() {
    const chosen = presets.findIndex(({ values }) => isSame(values));
    inputs.forEach((input, index) => {
      input.checked = index === chosen;
    });
    const preset = presets[chosen];
    byId("preset-purpose").textContent = sentence(preset?.purpose ?? "your own settings");
    byId("preset-more").hidden = preset === undefined;
    byId("preset-text").textContent =
      preset === undefined ? "" : `${sentence(preset.description)}.`;
  }

  // Returns whether these values act as the present ones.
  /** @param {Settings} values */
  function isSame(values) {
    const wanted = withSwitches(values);
    return state.table.every(
      ({ key, default: standard }) => state.acting(key) === (wanted[key] ?? standard),
    );
  }

  state.listen(show);
  show();
}
