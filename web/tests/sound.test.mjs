// Compares both modules with the renderer, without a browser.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { test } from "node:test";
import { instantiate, Piece, Stream, Tone } from "../module.js";
import { fromDecoded } from "../samples.js";
import { presetValues, ready, valuesOf, withSwitches } from "../rules.js";
import { interleave, left, music, planar, render, run } from "./renderer.mjs";

/** @import { Settings } from "../package/index.d.ts" */
/** @import { Bytes } from "../types.d.ts" */

await ready();
const kBlock = 1024;
const modules = ["build/wasm/orvane.wasm", "build/wasm/plain/orvane.wasm"].map((path) =>
  readFileSync(new URL(`../../${path}`, import.meta.url)),
);

/** @param {Bytes} bytes @param {number} rate @param {Settings} settings */
function startStream(bytes, rate, settings) {
  return new Stream(instantiate(bytes), rate, valuesOf(withSwitches(settings)));
}

// Plays two channels and then silence. Returns result and source, which are as long as the channels
// and the silence together.
/** @param {Stream} stream @param {Float32Array[]} channels @param {number} silentFrames */
function play(stream, [one, other], silentFrames) {
  const quanta = [128, 1, 128, 77];
  const frames = one.length + silentFrames;
  const result = [0, 1].map(() => new Float32Array(frames)),
    source = [0, 1].map(() => new Float32Array(frames));
  for (let at = 0, quantum = 0; at < frames; ++quantum) {
    const count = Math.min(quanta[quantum % quanta.length], frames - at);
    const views = stream.channels();
    [one, other].forEach((samples, side) =>
      views.in[side].fill(0).set(samples.subarray(at, Math.min(at + count, one.length))),
    );
    stream.process(count);
    for (const side of [0, 1]) {
      result[side].set(views.result[side].subarray(0, count), at);
      source[side].set(views.source[side].subarray(0, count), at);
    }
    at += count;
  }
  return { result, source };
}

/** @param {Float32Array<ArrayBuffer>} samples @param {number} frames */
const behind = (samples, frames) => samples.slice(frames);

for (const [kind, bytes] of /** @type {[string, Bytes][]} */ ([
  ["vectors", modules[0]],
  ["plain", modules[1]],
]))
  for (const rate of [44100, 48000])
    test(`a running stream gives the renderer's samples: ${kind}, ${rate} Hz`, () => {
      const options = `--cold-start --keep-delay --no-dither --buffer ${kBlock} --preset loud`;
      const { samples } = render(music, rate, 2, ...options.split(" "));
      const stream = startStream(bytes, rate, presetValues("loud"));
      const latency = stream.latencyFrames();
      const channels = planar(music, 2);
      const { result, source } = play(stream, channels, latency);
      assert.equal(latency, samples.length / 2 - channels[0].length + kBlock);
      assert.deepEqual(interleave(result.map((side) => behind(side, kBlock))), samples);
      assert.deepEqual(
        source.map((side) => behind(side, latency)),
        channels,
      );
    });

for (const [name, samples, rate, channels] of /** @type {[string, Int16Array, number, number][]} */ ([
  ["stereo", music, 44100, 2],
  ["mono", left, 48000, 1],
]))
  for (const preset of /** @type {const} */ (["night", "loud"]))
    test(`a whole piece is the renderer's, and as loud: ${name}, ${preset}`, () => {
      const expected = render(samples, rate, channels, "--preset", preset);
      const piece = new Piece(instantiate(modules[0]), rate, channels, valuesOf(presetValues(preset)));
      const out = [];
      for (let at = 0; at < samples.length; at += Piece.samples)
        out.push(...piece.process(samples.subarray(at, at + Piece.samples)));
      out.push(...piece.finish());
      assert.deepEqual(Int16Array.from(out), expected.samples);
      const loudness = piece.loudness();
      for (const side of /** @type {const} */ (["before", "after"]))
        assert.ok(Math.abs(loudness[side] - expected.report.loudnessLufs[side]) < 0.01, side);
    });

test("a running stream's true peaks are the renderer's", () => {
  const { report } = render(music, 48000, 2, "--preset", "off");
  const stream = startStream(modules[0], 48000, {});
  play(stream, planar(music, 2), stream.latencyFrames());
  const { before, after } = stream.levels();
  assert.ok(Math.abs(before.truePeak - report.truePeakDb.before) < 0.01);
  assert.ok(Math.abs(after.truePeak - report.truePeakDb.after) < 0.01);
});

test("bypassed, the result is the source", () => {
  const stream = startStream(modules[1], 44100, presetValues("music"));
  stream.bypass(true);
  const { result, source } = play(stream, planar(music, 2), 0);
  assert.deepEqual(behind(result[1], kBlock), behind(source[1], kBlock));
});

test("the package can be imported without Web Audio", async () => {
  const exported = await import("../../build/web/package/index.js");
  // @ts-expect-error
  await assert.rejects(exported.OrvaneNode.create({ sampleRate: 96000 }), RangeError);
});

test("the tone is solved as the renderer solves it", () => {
  const tone = new Tone(instantiate(modules[0]));
  const points = [
    { hz: 60, db: 6 },
    { hz: 200, db: 0 },
    { hz: 8000, db: 3 },
  ];
  const fit = tone.fitTone(points, 48000);
  const text = run("tone", "60:6", "200:0", "8000:3", "--rate", "48000");
  assert.deepEqual(
    [...text.matchAll(/level +([-\d.]+)/g)].map((match) => Number(match[1])),
    fit.levels.map((level) => Number(level.toFixed(2))),
  );
  const db = tone.toneDb(fit.levels, [60], 48000)[0].toFixed(1);
  assert.match(text, new RegExp(`gets \\+?${db}\n`));
});

test("what a browser decodes comes back to the 16 bits that it was", () => {
  const exact = Float32Array.from({ length: 65536 }, (_, n) => (n - 32768) / 32768);
  const chromium = exact.map((sample) => (sample > 0 ? (sample * 32768) / 32767 : sample));
  assert.deepEqual(fromDecoded(chromium), exact);
  assert.deepEqual(fromDecoded(exact.slice()), exact);
});
