// The presets as one group of radio buttons; none is chosen while the settings are the listener's own.
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

  const isSame = (values) => state.table.every(({ key, kind, default: standard }) =>
    kind === "switch" ? state.isOn(key) === isOnIn(values, key)
                      : state.get(key) === (values[key] ?? standard));

  state.listen(show);
  show();
}

// As State.isOn() has it: the equalizer is on if a band isn't flat.
function isOnIn(values, key) {
  if (key in values || key !== "equalizer") return Boolean(values[key]);
  return Object.entries(values).some(([name, value]) => name.startsWith("eq-") && value !== 0);
}
