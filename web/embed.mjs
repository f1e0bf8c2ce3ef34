// Makes what the scripts import and no one writes: table.js, and embedded.js with the modules and
// the texts of the two scripts that run in threads of their own.
// usage: node embed.mjs VECTOR_MODULE PLAIN_MODULE TABLE_MODULE
import { execFileSync } from "node:child_process";
import { readFileSync, writeFileSync } from "node:fs";
import { fileURLToPath } from "node:url";
import { instantiate } from "./module.js";

const [vectors, plain, table] = process.argv.slice(2).map((path) => readFileSync(path));
const here = (name) => fileURLToPath(new URL(name, import.meta.url));

const exports = instantiate(table);
const text = Buffer.from(exports.memory.buffer, exports.orvane_table());
writeFileSync(here("table.js"), `// Generated from the parameter table.\n${text.subarray(0, text.indexOf(0))}`);

const script = (name) => execFileSync("esbuild", [here(name), "--bundle", "--minify", "--format=iife"],
                                      { encoding: "utf8" });
const values = {
  vectorModule: vectors.toString("base64"),
  plainModule: plain.toString("base64"),
  processorText: script("processor.js"),
  workerText: script("offline_worker.js"),
};
writeFileSync(here("embedded.js"), Object.entries(values).map(
  ([name, value]) => `export const ${name} = ${JSON.stringify(value)};\n`).join(""));
