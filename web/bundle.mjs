// Puts together what people get, from this folder as the build of the module left it:
//   OUT/orvane.html   the page, everything inside
//   OUT/package/      the package for web developers, as `npm pack` takes it
// usage: node bundle.mjs OUT VERSION
import { execFileSync } from "node:child_process";
import { copyFileSync, mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { fileURLToPath } from "node:url";

const [out, version] = process.argv.slice(2);
const here = (name) => fileURLToPath(new URL(name, import.meta.url));
const bundle = (name, ...options) => execFileSync(
  "esbuild", [here(name), "--bundle", "--minify", "--format=esm", "--target=es2022", ...options],
  { encoding: "utf8", maxBuffer: 1 << 26 });

mkdirSync(join(out, "package"), { recursive: true });

// A script's text must not end the element that holds it.
const script = bundle("page/page.js").replaceAll("</script", "<\\/script").replaceAll("<!--", "<\\!--");
let page = readFileSync(here("page/index.html"), "utf8");
for (const [element, text] of [
  ['<link rel="stylesheet" href="style.css">', `<style>${bundle("page/style.css")}</style>`],
  ['<script type="module" src="page.js"></script>', `<script type="module">${script}</script>`],
]) {
  if (!page.includes(element)) throw new Error(`index.html has no ${element}`);
  page = page.replace(element, () => text);
}
writeFileSync(join(out, "orvane.html"), page);

const inPackage = (name) => join(out, "package", name);
writeFileSync(inPackage("index.js"), bundle("package/index.js"));
const manifest = JSON.parse(readFileSync(here("package/package.json"), "utf8"));
writeFileSync(inPackage("package.json"), JSON.stringify({ ...manifest, version }, null, 2) + "\n");
for (const name of ["index.d.ts", "README.md"]) copyFileSync(here(`package/${name}`), inPackage(name));
