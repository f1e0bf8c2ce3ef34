// The node and the page in a browser, from files, without network: what is heard and saved.
import assert from "node:assert/strict";
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, before, test } from "node:test";
import { fileURLToPath, pathToFileURL } from "node:url";
import { chromium } from "playwright-core";
import { instantiate, Piece, Stream } from "../module.js";
import { presetValues, ready, valuesOf, withSwitches } from "../rules.js";
import { parameters } from "../table.js";
import { dataOf, interleave, left, music, planar, render, run, wav } from "./renderer.mjs";

await ready();
const kBlock = 1024;
const built = new URL("../../build/", import.meta.url);
const address = process.env.ORVANE_PAGE ? pathToFileURL(process.env.ORVANE_PAGE) : new URL("web/orvane.html", built);
const packageText = readFileSync(new URL("web/package/index.js", built), "utf8");
const exports = instantiate(readFileSync(new URL("wasm/orvane.wasm", built)));

let browser;
before(async () => {
  browser = await chromium.launch({
    executablePath: "/usr/bin/chromium",
    args: ["--no-sandbox", "--autoplay-policy=user-gesture-required"],
  });
});
after(() => browser.close());

async function withPage(use, { script = () => {}, url = address.href } = {}) {
  const context = await browser.newContext({ offline: true, acceptDownloads: true });
  const page = await context.newPage();
  const faults = [];
  page.on("pageerror", ({ message }) => faults.push(message));
  await page.addInitScript(script);
  await page.goto(url);
  await page.locator("[name=preset]").first().waitFor({ state: "attached" });
  await use(page);
  assert.deepEqual(faults, []);
  await context.close();
}

// Both outputs of a node that plays `samples` offline, as four channels, and its latency in seconds.
function playOffline(page, samples, rate, options, automation) {
  return page.evaluate(
    async ([text, pcm, rate, options, automation]) => {
      const { OrvaneNode } = await import(`data:text/javascript,${encodeURIComponent(text)}`);
      const frames = pcm[0].length;
      const context = new OfflineAudioContext(4, frames, rate);
      const buffer = new AudioBuffer({ numberOfChannels: 2, length: frames, sampleRate: rate });
      pcm.forEach((side, n) => buffer.copyToChannel(Float32Array.from(side), n));
      const node = await OrvaneNode.create(context, options);
      for (const [key, value, at] of automation) node.parameters.get(key).setValueAtTime(value, at);
      const merger = new ChannelMergerNode(context, { numberOfInputs: 4 });
      for (const output of [0, 1]) {
        const splitter = new ChannelSplitterNode(context, { numberOfOutputs: 2 });
        node.connect(splitter, output);
        for (const side of [0, 1]) splitter.connect(merger, side, 2 * output + side);
      }
      merger.connect(context.destination);
      const source = new AudioBufferSourceNode(context, { buffer });
      source.connect(node);
      source.start();
      const out = await context.startRendering();
      return { channels: [0, 1, 2, 3].map((n) => [...out.getChannelData(n)]), latency: node.latency };
    },
    [packageText, samples.map((side) => [...side]), rate, options, automation],
  );
}

test("the node gives the library's samples, a value from its block on, and the source in step", () =>
  withPage(async (page) => {
    const rate = 48000,
      change = ["output-gain", 0.5, (20 * kBlock) / rate];
    const channels = planar(music, 2);
    const { channels: out, latency } = await playOffline(page, channels, rate, { preset: "voice" }, [change]);
    const stream = new Stream(exports, rate, valuesOf(withSwitches(presetValues("voice"))));
    const expected = [0, 1, 2, 3].map(() => []);
    for (let at = 0; at + 128 <= channels[0].length; at += 128) {
      if (at === 20 * kBlock)
        stream.set(
          parameters.findIndex(({ key }) => key === change[0]),
          change[1],
        );
      const views = stream.channels();
      channels.forEach((side, n) => views.in[n].set(side.subarray(at, at + 128)));
      stream.process(128);
      [...views.result, ...views.source].forEach((side, n) => expected[n].push(...side));
    }
    assert.deepEqual(
      out.map((side) => side.slice(0, expected[0].length)),
      expected,
    );
    assert.equal(latency, stream.latencyFrames() / rate);
    assert.equal(lagOf(out[2], out[0]), 0);
  }));

// Where two signals are most alike, within 300 frames.
function lagOf(one, other) {
  const at = (lag) => one.slice(30000, 60000).reduce((sum, sample, n) => sum + sample * other[30000 + n + lag], 0);
  const lags = Array.from({ length: 601 }, (_, n) => n - 300);
  return lags.reduce((best, lag) => (at(lag) > at(best) ? lag : best), 0);
}

test("a wrong rate, preset and setting are told", () =>
  withPage(async (page) => {
    for (const [rate, options] of [
      [96000, {}],
      [48000, { preset: "nigth" }],
      [48000, { settings: { rato: 1 } }],
    ])
      await assert.rejects(playOffline(page, [[0], [0]], rate, options, []), /RangeError.*(96000|nigth|rato)/);
  }));

const drop = (page, samples, rate, channels) =>
  page
    .locator("#file")
    .setInputFiles({ name: "music.wav", mimeType: "audio/wav", buffer: wav(samples, rate, channels) });

for (const [samples, rate, channels] of [
  [music, 44100, 2],
  [music, 48000, 2],
  [left, 48000, 1],
])
  test(`a 16-bit file comes out as the renderer's: ${rate} Hz, ${channels} channels`, () =>
    withPage(async (page) => {
      await drop(page, samples, rate, channels);
      await page.locator("#piece-name").filter({ hasText: "music.wav" }).waitFor();
      await page.locator("[name=preset][value=loud]").check({ force: true });
      assert.deepEqual(await savedBy(page), render(samples, rate, channels, "--preset", "loud").samples);
    }));

async function savedBy(page) {
  const [download] = await Promise.all([page.waitForEvent("download"), page.locator("#save-wav").click()]);
  return dataOf(readFileSync(await download.path()));
}

test("a page with a piece inside plays it with its settings", () => {
  const folder = mkdtempSync(join(tmpdir(), "orvane-"));
  const [from, to] = ["<in>.wav", "out.html"].map((name) => join(folder, name));
  writeFileSync(from, wav(music, 44100, 2));
  run("compare", from, to, "--preset", "bass", "--output-gain", "0.3", "--page", fileURLToPath(address));
  return withPage(
    async (page) => {
      await page.locator("#piece-name").filter({ hasText: "<in>.wav" }).waitFor();
      assert.deepEqual(
        await savedBy(page),
        render(music, 44100, 2, "--preset", "bass", "--output-gain", "0.3").samples,
      );
    },
    { url: pathToFileURL(to).href },
  ).finally(() => rmSync(folder, { recursive: true }));
});

// Notes what goes to the speakers, in window.heard.
function noteWhatIsHeard() {
  window.heard = [];
  const { connect } = AudioNode.prototype;
  let recorder;
  AudioNode.prototype.connect = function (to, ...more) {
    if (to instanceof AudioDestinationNode) {
      if (recorder === undefined) {
        recorder = to.context.createScriptProcessor(4096, 2, 2);
        recorder.onaudioprocess = ({ inputBuffer }) =>
          window.heard.push([0, 1].map((n) => [...inputBuffer.getChannelData(n)]));
        connect.call(recorder, to);
      }
      connect.call(this, recorder);
    }
    return connect.call(this, to, ...more);
  };
}

// Two seconds of even noise, low frequencies stronger: any piece of it is as loud as another.
function noise() {
  let seed = 1,
    last = 0;
  return Int16Array.from({ length: 2 * 96000 }, () => {
    seed = (Math.imul(seed, 1103515245) + 12345) >>> 0;
    last = 0.9 * last + (seed / 2 ** 32 - 0.5) * 2000;
    return last;
  });
}

test("before and after are equally loud as they are heard", () =>
  withPage(
    async (page) => {
      await drop(page, noise(), 48000, 2);
      await page.locator("#piece-name").filter({ hasText: "music.wav" }).waitFor();
      await page.locator("[name=preset][value=bass]").check({ force: true });
      await page.waitForTimeout(1500); // until the piece is measured with these settings
      await page.locator("#play").click();
      const loudness = {};
      for (const side of ["after", "before"]) {
        await page.locator(`[name=side][value=${side}]`).check({ force: true });
        await page.waitForTimeout(500);
        const start = await page.evaluate(() => window.heard.length);
        const blocks = 48;
        await page.waitForFunction((end) => window.heard.length >= end, start + blocks);
        const heard = await page.evaluate(([from, to]) => window.heard.slice(from, to), [start, start + blocks]);
        const samples = heard.flatMap((block) => [...interleave(block.map((channel) => Float32Array.from(channel)))]);
        const meter = new Piece(exports, 48000, 2, valuesOf({}));
        for (let at = 0; at < samples.length; at += Piece.samples)
          meter.process(Int16Array.from(samples.slice(at, at + Piece.samples)));
        loudness[side] = meter.loudness().before;
      }
      assert.ok(Math.abs(loudness.after - loudness.before) < 0.2, JSON.stringify(loudness));
    },
    { script: noteWhatIsHeard },
  ));
