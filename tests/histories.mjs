// Replays the histories of histories.h through the WebAssembly module of the library, as
// histories.cpp does with a shared library.
// usage: node histories.mjs MODULE HISTORIES_MODULE DIGESTS
import assert from "node:assert";
import { readFileSync } from "node:fs";
import { Instance, load } from "../web/library.mjs";

const [library, histories] = [await load(process.argv[2]), await load(process.argv[3])];
const digests = readFileSync(process.argv[4], "utf8").trim().split("\n");

function answer(instance, kind, first, values) {
  if (kind === 0) return instance.configure(first, values[0]);
  if (kind === 1) return instance.command(first);
  if (kind === 2) return instance.set(first, ...values);
  const channels = histories.history_channels();
  const samples = new Int16Array(histories.memory.buffer, histories.history_input(),
                                 first * channels);
  return instance.process(samples, channels);
}

function play(number) {
  const instance = new Instance(library, histories.history_most_frames());
  histories.history_begin(number);
  for (let at; (at = histories.history_next()) !== 0;) {
    const [kind, first, ...values] = new Int32Array(histories.memory.buffer, at, 4);
    histories.history_answer(answer(instance, kind, first, values));
  }
  instance.release();
  return BigInt.asUintN(64, histories.history_digest()).toString(16).padStart(16, "0");
}

assert.equal(digests.length, histories.history_recorded());
const different = digests.map((_, number) => number).filter((n) => play(n) !== digests[n]);
assert.deepEqual(different, [], "these histories differ");
