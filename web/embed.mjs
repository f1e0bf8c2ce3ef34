// Generates what the scripts import: table.js with its types in table.d.ts, and embedded.js with
// the modules and the scripts of the two other threads.
// usage: node embed.mjs VECTOR_MODULE PLAIN_MODULE TABLE_MODULE
import { execFileSync } from "node:child_process";
import { readFileSync, writeFileSync } from "node:fs";
import { fileURLToPath } from "node:url";
import { instantiate } from "./module.js";

const [vectors, plain, table] = process.argv.slice(2).map((path) => readFileSync(path));
/** @param {string} name */
const here = (name) => fileURLToPath(new URL(name, import.meta.url));

const exports = instantiate(table);
const text = Buffer.from(exports.memory.buffer, exports.orvane_table());
writeFileSync(
  here("table.js"),
  `// Generated from the parameter table.\n${text.subarray(0, text.indexOf(0))}`,
);

const { parameters, presets } = await import(new URL("table.js", import.meta.url).href);
/** @param {string[]} names */
const union = (names) => names.map((name) => JSON.stringify(name)).join(" | ");
writeFileSync(
  here("table.d.ts"),
  `// Generated from the parameter table.
import type { Parameter, Preset } from "./package/index.d.ts";
export const parameters: readonly Parameter[];
export const presets: readonly Preset[];
export type SettingKey = ${union(parameters.map((/** @type {{ key: string }} */ one) => one.key))};
export type PresetName = ${union(presets.map((/** @type {{ name: string }} */ one) => one.name))};
`,
);

/** @param {string} name */
const script = (name) =>
  execFileSync("esbuild", [here(name), "--bundle", "--minify", "--format=iife"], {
    encoding: "utf8",
  });
const values = {
  vectorModule: vectors.toString("base64"),
  plainModule: plain.toString("base64"),
  processorText: script("processor.js"),
  workerText: script("offline_worker.js"),
};
writeFileSync(
  here("embedded.js"),
  Object.entries(values)
    .map(([name, value]) => `export const ${name} = ${JSON.stringify(value)};\n`)
    .join(""),
);
