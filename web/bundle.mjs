// Assembles what people get, from this folder as the build of the module left it:
//   OUT/orvane.html   the page, everything inside
//   OUT/package/      the package for web developers, as `npm pack` takes it
// usage: node bundle.mjs OUT VERSION
import { execFileSync } from "node:child_process";
import { createHash } from "node:crypto";
import { copyFileSync, mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { fileURLToPath } from "node:url";
import { processorText } from "./embedded.js";

const [out, version] = process.argv.slice(2);
/** @param {string} name */
const here = (name) => fileURLToPath(new URL(name, import.meta.url));
/** @param {string} name */
const read = (name) => readFileSync(here(name), "utf8");
/** @param {string} name */
const bundle = (name) =>
  execFileSync("esbuild", [here(name), "--bundle", "--minify", "--format=esm", "--target=es2022"], {
    encoding: "utf8",
    maxBuffer: 1 << 26,
  });

// Replaces text that must be there.
/** @type {(text: string, place: string, by: string) => string} */
function replaced(text, place, by) {
  if (!text.includes(place)) throw new Error(`${place} is missing`);
  return text.replace(place, () => by);
}

mkdirSync(join(out, "package"), { recursive: true });

// A script's text must not end the element that holds it.
const script = bundle("page/page.js")
  .replaceAll("</script", "<\\/script")
  .replaceAll("<!--", "<\\!--");
const style = bundle("page/style.css");
/** @param {string} text */
const hashOf = (text) => `'sha256-${createHash("sha256").update(text).digest("base64")}'`;

// The browser enforces that nothing leaves the machine. The scripts of the two other threads are
// data: URLs, because a page that was opened as a file may load scripts from nowhere else.
const policy = [
  "default-src 'none'",
  "connect-src 'none'",
  `script-src ${hashOf(script)} 'wasm-unsafe-eval' data:`,
  "worker-src data:",
  `style-src ${hashOf(style)}`,
  "img-src data:",
  "media-src blob:",
  "base-uri 'none'",
  "form-action 'none'",
].join("; ");

let page = read("page/index.html");
for (const [place, by] of [
  ["<!-- policy -->", `<meta http-equiv="Content-Security-Policy" content="${policy}">`],
  ['<link rel="stylesheet" href="style.css">', `<style>${style}</style>`],
  ['<script type="module" src="page.js"></script>', `<script type="module">${script}</script>`],
])
  page = replaced(page, place, by);
writeFileSync(join(out, "orvane.html"), page);

/** @param {string} name */
const inPackage = (name) => join(out, "package", name);
writeFileSync(inPackage("index.js"), bundle("exports.js"));
writeFileSync(inPackage("processor.js"), processorText);
const manifest = JSON.parse(read("package/package.json"));
writeFileSync(inPackage("package.json"), JSON.stringify({ ...manifest, version }, null, 2) + "\n");
// The names of settings and presets come from the table.
const names =
  read("table.d.ts")
    .match(/^export type .*\n/gm)
    ?.join("") ?? "";
let types = replaced(
  read("package/index.d.ts"),
  'import type { PresetName, SettingKey } from "../table.js";\n',
  names,
);
types = replaced(types, "export type { PresetName, SettingKey };\n\n", "");
writeFileSync(inPackage("index.d.ts"), types);
copyFileSync(here("package/README.md"), inPackage("README.md"));
