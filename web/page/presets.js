// The presets as one group of radio buttons; none is chosen while the settings are the listener's own.
import { withSwitches } from "../rules.js";

export function makePresets(parent, text, state, presets) {
  const inputs = presets.map((preset) => {
    const label = document.createElement("label");
    const input = Object.assign(document.createElement("input"),
                                { type: "radio", name: "preset", value: preset.name });
    label.append(input, preset.name[0].toUpperCase() + preset.name.slice(1));
    parent.append(label);
    input.addEventListener("change", () => state.replace(preset.values));
    return input;
  });

  function show() {
    const chosen = presets.findIndex(({ values }) => isSame(values));
    inputs.forEach((input, index) => {
      input.checked = index === chosen;
    });
    const description = chosen < 0 ? "your own settings" : presets[chosen].description;
    text.textContent = `${description[0].toUpperCase()}${description.slice(1)}.`;
  }

  function isSame(values) {
    const wanted = withSwitches(values);
    return state.table.every(({ key, default: standard }) =>
      state.acting(key) === (wanted[key] ?? standard));
  }

  state.listen(show);
  show();
}
