// Tests the modules of the page that need no browser.
import assert from "node:assert/strict";
import { test } from "node:test";

import { kHighDb, kLowDb, plotArea, xOf, yOf } from "../page/axes.js";
import { drawGain, drawMeters, drawSpectrum, drawTone, drawWave, outlineOf } from "../page/draw.js";
import { formatOf } from "../page/frames.js";
import { linkTo, settingsIn } from "../page/keep.js";
import { makePiece } from "../page/piece.js";
import { createState } from "../page/state.js";
import { readSettings, ready, settingsText } from "../rules.js";
import { parameters, presets } from "../table.js";

await ready();
/** @type {any} */
const kColours = { after: "after", before: "before", rest: "rest" };

// Returns a canvas context that records its calls, each with the colours of that moment.
function recorder() {
  /** @type {{ name: string, args: number[], fill: string, stroke: string }[]} */
  const calls = [];
  const context = new Proxy(/** @type {any} */ ({}), {
    get: (target, /** @type {string} */ name) =>
      target[name] ??
      ((/** @type {number[]} */ ...args) =>
        calls.push({ name, args, fill: target.fillStyle, stroke: target.strokeStyle })),
  });
  const named = (/** @type {string[]} */ ...names) => calls.filter((call) => names.includes(call.name));
  return { context, named };
}

test("a state keeps values in range and tells changes once", () => {
  /** @type {string[]} */
  const told = [];
  const state = createState(parameters);
  state.listen((key) => told.push(key));
  state.set("output-gain", 0.754);
  state.set("output-gain", 0.75);
  state.set("output-gain", NaN);
  state.set("ratio", 99);
  assert.deepEqual(told, ["output-gain", "ratio"]);
  assert.deepEqual(state.all(), { "output-gain": 0.75, ratio: 10 });
  state.unset("output-gain");
  assert.equal(state.get("output-gain"), 1);
  state.set("eq-3", -0.5);
  assert(state.isOn("equalizer"));
  state.set("equalizer", 0);
  assert(!state.isOn("equalizer"));
});

test("every preset comes back from its file and from its link", () => {
  for (const { name, values } of presets) {
    const state = createState(parameters);
    state.replace(values);
    assert.deepEqual(readSettings(settingsText(state.all())), values, name);
    const link = linkTo(state, "file:///page.html#old");
    assert.deepEqual(settingsIn(link) ?? {}, values, name);
  }
});

test("settings are read as the renderer reads them", () => {
  assert.deepEqual(readSettings("# night\nratio= 3 # less\r\n\n enhancer =on\noutput-gain = -6 dB"), {
    ratio: 3,
    enhancer: 1,
    "output-gain": 0.5,
  });
  const levels = Object.values(readSettings("eq = 0=-0.5, 9=1"));
  assert.deepEqual(levels, [-0.5, 0, 0, 0, 0, 0, 0, 0, 0, 1]);
  for (const [text, why] of [
    ["rato = 1", "line 1: no setting is called rato"],
    ["\nratio = 11", "line 2: ratio 11 is outside 0 to 10"],
  ])
    assert.throws(() => readSettings(text), { message: why });
});

test("rate and bits are read from a file's header", () => {
  const bytes = (/** @type {string} */ text) => Uint8Array.from(text, (letter) => letter.charCodeAt(0)).buffer;
  const wav = "RIFF____WAVELIST\x03\0\0\0abc\0fmt \x10\0\0\0\x01\0\x02\0";
  for (const [rate, bits, text, mp3] of /** @type {[number, number, string, number?][]} */ ([
    [44100, 16, `${wav}\x44\xac\0\0${"\0".repeat(6)}\x10\0`],
    [44100, 24, `${wav}\x44\xac\0\0${"\0".repeat(6)}\x18\0`],
    [44100, 0, `${wav.replace("\x01\0\x02", "\x03\0\x02")}\x44\xac\0\0${"\0".repeat(6)}\x10\0`],
    [96000, 16, `${wav}\0\x77\x01\0${"\0".repeat(6)}\x10\0`],
    [44100, 16, `fLaC${"\0".repeat(14)}\x0a\xc4\x42\xf0${"\0".repeat(20)}`],
    [44100, 0, `OggS${"\0".repeat(24)}\x01vorbis\0\0\0\0\x02\x44\xac\0\0`],
    [44100, 0, `ID3\x04\0\0\0\0\x01\x02${"x".repeat(130)}\xff\xfb\x90\x00`, 140],
    [24000, 0, "\xff\xf3\x94\x00", 0], // MPEG-2
    [0, 0, "no sound"],
    [0, 0, ""],
  ])) {
    const format = formatOf(bytes(text));
    assert.deepEqual([format.rate, format.bits, format.mp3], [rate, bits, mp3], text);
  }
});

test("the built-in piece is within full scale and the same every time", () => {
  const [left, right] = makePiece(32000);
  assert.equal(left.length, 32000 * 19.2);
  const peak = Math.max(...outlineOf([left, right], 100));
  assert(peak > 0.5 && peak <= 1, `${peak}`);
  // Bytes are compared, because a comparison of so many numbers takes seconds.
  assert(Buffer.from(makePiece(32000)[0].buffer).equals(Buffer.from(left.buffer)));
});

test("the tone is drawn where its decibels are, cut below the plot", () => {
  const area = plotArea(600, 300);
  const { context, named } = recorder();
  drawTone(
    context,
    area,
    [
      [20, 0],
      [1000, kHighDb],
      [20000, -120],
    ],
    [
      [20, 6],
      [20000, 6],
    ],
    true,
    kColours,
  );
  const points = named("moveTo", "lineTo").map(({ args }) => args);
  assert.deepEqual(points.slice(0, 2), [
    [area.left, yOf(6, area, kLowDb, kHighDb)],
    [xOf(20000, area), yOf(6, area, kLowDb, kHighDb)],
  ]);
  assert.deepEqual(points[3], [xOf(1000, area), area.top]);
  assert.equal(points[4][1], yOf(2 * kLowDb, area, kLowDb, kHighDb));
});

test("a tone stands in the spectrum at its frequency", () => {
  const bins = new Float32Array(8192).fill(-120);
  const hz = 3000,
    rate = 48000;
  bins[(hz * 2 * bins.length) / rate] = -20;
  const area = plotArea(600, 300);
  const { context, named } = recorder();
  drawSpectrum(context, area, bins, bins, rate, kColours);
  const highest = named("lineTo").reduce((a, b) => (b.args[1] < a.args[1] ? b : a));
  assert(Math.abs(highest.args[0] - xOf(hz, area)) < 12, `${highest.args[0]}`);
});

test("the gain ends at the right and has a gap where nothing was heard", () => {
  const { context, named } = recorder();
  const history = [0, 3, null, 9].map((db, n) => ({ time: 100 + n, db }));
  drawGain(context, 300, 96, history, 103, kColours);
  const curve = named("moveTo", "lineTo").slice(-3);
  assert.deepEqual(
    curve.map(({ name }) => name),
    ["moveTo", "lineTo", "moveTo"],
  );
  assert.equal(curve[2].args[0], 296);
  assert.equal(curve[2].args[1], yOf(9, { top: 8, height: 80 }, -12, 12));
});

test("bars and outline follow their levels", () => {
  const meters = recorder();
  const silent = { shortTerm: -Infinity, truePeak: -Infinity };
  drawMeters(meters.context, 630, 56, { shortTerm: -23, truePeak: -3 }, silent, kColours);
  assert.deepEqual(
    meters.named("fillRect").map(({ args, fill }) => [fill, args[0], args[2]]),
    [
      ["before", 0, 370],
      ["before", 568, 3],
      ["after", 0, 0],
    ],
  );
  const wave = recorder();
  drawWave(wave.context, 100, 40, outlineOf([Float32Array.of(0, 0.05, -0.1, 0)], 4), 0.5, "after", kColours);
  assert.deepEqual(
    wave.named("fillRect").map(({ args, fill }) => [fill, args[3]]),
    [
      ["after", 1.5],
      ["after", 19],
      ["rest", 38],
      ["rest", 1.5],
    ],
  );
});
