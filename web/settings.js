// Settings as objects, {key: value}, and as the list of numbers that the module takes.
import { parameters, presets } from "./table.js";

// The values of a preset. Throws a RangeError for a name that isn't there.
export function presetValues(name) {
  const preset = presets.find((one) => one.name === name);
  if (preset === undefined)
    throw new RangeError(`no preset is called ${name}; there are ` +
                         presets.map((one) => one.name).join(", "));
  return preset.values;
}

// One number for every parameter, NaN for what isn't set. Throws a RangeError for an unknown key.
export function valuesOf(settings) {
  for (const key of Object.keys(settings))
    if (!parameters.some((one) => one.key === key)) throw new RangeError(`no setting is called ${key}`);
  return parameters.map(({ key }) => settings[key] ?? NaN);
}
