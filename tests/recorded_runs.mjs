// Plays the recorded scenarios through a WebAssembly module and compares the digests of all samples,
// as recorded_runs_test.cpp does with the shared library. usage: node recorded_runs.mjs MODULE
import assert from "node:assert";
import { readFileSync } from "node:fs";
import { Instance, load } from "../web/library.mjs";

const read = (name, encoding) => readFileSync(new URL(`data/${name}`, import.meta.url), encoding);
const bytes = read("input.s16");
const music = new Int16Array(bytes.buffer, bytes.byteOffset, bytes.length / 2);

function digest(samples) {
  let value = 14695981039346656037n;
  for (const byte of new Uint8Array(samples.buffer, 0, samples.byteLength))
    value = BigInt.asUintN(64, (value ^ BigInt(byte)) * 1099511628211n);
  return value.toString(16).padStart(16, "0");
}

function play(exports, name, count) {
  const instance = new Instance(exports, 4096);
  const output = new Int16Array(count);
  let channels = 2, position = 0, written = 0;
  for (const line of read(`runs/${name}.txt`, "utf8").split("\n")) {
    const [verb, ...words] = line.replace(/#.*/, "").trim().split(/\s+/);
    const v = words.map(Number);
    if (verb === "configure") {
      [channels, position] = [v[1], 0];
      assert.equal(instance.configure(...v), 0, line);
    } else if (verb === "command") {
      instance.command(v[0]);
    } else if (verb === "set") {
      assert.equal(instance.set(...v), 0, line);
    } else if (verb === "get") {
      assert.equal(instance.get(v[0]), v[1], line);
    } else if (verb === "process") {
      for (let call = 0; call < v[1]; ++call, position += v[0]) {
        const samples = new Int16Array(v[0] * channels).map((_, i) =>
          music[(2 * (position + Math.floor(i / channels))) % music.length + (i % channels)]);
        assert.equal(instance.process(samples, channels), 0, line);
        output.set(samples, written);
        written += samples.length;
      }
    } else assert.equal(verb, "");
  }
  instance.release();
  assert.equal(written, count, name);
  return output;
}

const exports = await load(process.argv[2]);
let runs = 0;
for (const line of read("runs/digests", "utf8").trim().split("\n")) {
  const [name, count, , expected] = line.split(" ");
  assert.equal(digest(play(exports, name, Number(count))), expected, name);
  ++runs;
}
assert.equal(runs, 12);
