// The presets as one group of radio buttons. None is chosen while the settings are the listener's own.
import { withSwitches } from "../rules.js";
import { presets } from "../table.js";
import { byId, element, sentence } from "./dom.js";

/** @import { Settings } from "../package/index.d.ts" */

/** @param {import("./state.js").State} state */
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
