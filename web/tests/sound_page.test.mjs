// Tests what is heard and saved by the node and the page in a browser.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { createServer } from "node:http";
import { mkdtempSync, readFileSync, rmSync, statSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { test } from "node:test";
import { fileURLToPath, pathToFileURL } from "node:url";
import { instantiate, Piece, Stream } from "../module.js";
import { presetValues, ready, valuesOf, withSwitches } from "../rules.js";
import { parameters } from "../table.js";
import { dataOf, interleave, left, music, planar, render, renderFile, run, wav } from "./renderer.mjs";
import { address, browser, noise, noteParts, noteWhatIsHeard, playOffTheClock, titled, withPage } from "./renderer.mjs";

/** @import { Page } from "playwright-core" */

await ready();
const kBlock = 1024;
const built = new URL("../../build/", import.meta.url);
const packageText = readFileSync(new URL("web/package/index.js", built), "utf8");
const exports = instantiate(readFileSync(new URL("wasm/orvane.wasm", built)));

// Plays `samples` offline through a node. Returns both outputs as four channels, and the latency in seconds.
/**
 * @param {Page} page @param {ArrayLike<number>[]} samples @param {number} rate @param {import("../package/index.d.ts").Options} options
 * @param {[string, number, number][]} automation
 */
function playOffline(page, samples, rate, options, automation) {
  return page.evaluate(
    async ({ text, pcm, rate, options, automation }) => {
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
    { text: packageText, pcm: samples.map((side) => Array.from(side)), rate, options, automation },
  );
}

test("the node gives the library's samples, a value from its block on, and the source in step", () =>
  withPage({}, async (page) => {
    const rate = 48000;
    /** @type {[string, number, number]} */
    const change = ["output-gain", 0.5, (20 * kBlock) / rate];
    const channels = planar(music, 2);
    const { channels: out, latency } = await playOffline(page, channels, rate, { preset: "voice" }, [change]);
    const stream = new Stream(exports, rate, valuesOf(withSwitches(presetValues("voice"))));
    const expected = [0, 1, 2, 3].map(() => /** @type {number[]} */ ([]));
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

// Returns the lag, at most 300 frames, at which two signals are most similar.
/** @param {number[]} one @param {number[]} other */
function lagOf(one, other) {
  const at = (/** @type {number} */ lag) =>
    one.slice(30000, 60000).reduce((sum, sample, n) => sum + sample * other[30000 + n + lag], 0);
  const lags = Array.from({ length: 601 }, (_, n) => n - 300);
  return lags.reduce((best, lag) => (at(lag) > at(best) ? lag : best), 0);
}

test("a wrong rate, preset and setting are told", () =>
  withPage({}, async (page) => {
    for (const [rate, options] of /** @type {[number, any][]} */ ([
      [96000, {}],
      [48000, { preset: "nigth" }],
      [48000, { settings: { rato: 1 } }],
    ]))
      await assert.rejects(playOffline(page, [[0], [0]], rate, options, []), /RangeError.*(96000|nigth|rato)/);
  }));

/** @param {Page} page @param {Int16Array} samples @param {number} rate @param {number} channels */
async function drop(page, samples, rate, channels, name = "music.wav") {
  const buffer = wav(samples, rate, channels);
  await page.locator("#file").setInputFiles({ name, mimeType: "audio/wav", buffer });
  await page.locator("#piece-name").filter({ hasText: name }).waitFor();
}

for (const [samples, rate, channels] of /** @type {[Int16Array, number, number][]} */ ([
  [music, 44100, 2],
  [music, 48000, 2],
  [left, 48000, 1],
]))
  test(`a 16-bit file comes out as the renderer's: ${rate} Hz, ${channels} channels`, () =>
    withPage({}, async (page) => {
      await drop(page, samples, rate, channels);
      await page.locator("[name=preset][value=loud]").check({ force: true });
      assert.deepEqual(await savedBy(page), render(samples, rate, channels, "--preset", "loud").samples);
    }));

/** @param {Page} page */
async function savedBy(page) {
  const [download] = await Promise.all([page.waitForEvent("download"), page.locator("#save-wav").click()]);
  const bytes = readFileSync(await download.path());
  assert.equal(bytes.readUInt32LE(40), bytes.length - 44);
  return dataOf(bytes);
}

test("a FLAC file is decoded in small parts and comes out as the renderer's", () => {
  const folder = mkdtempSync(join(tmpdir(), "orvane-"));
  const [wave, flac, to] = ["in.wav", "in.flac", "out.wav"].map((name) => join(folder, name));
  writeFileSync(wave, wav(noise(1e6), 44100, 2));
  run("render", wave, flac, "-q", "--output-gain", "5");
  run("render", flac, to, "-q", "--preset", "loud");
  const use = async (/** @type {Page} */ page) => {
    await page.locator("#file").setInputFiles(flac);
    await page.locator("#piece-name").filter({ hasText: "in.flac" }).waitFor();
    const parts = await page.evaluate(() => window.parts);
    assert.ok(parts.length > 2 && Math.max(...parts) < 1.2e6, `${parts}`);
    await page.locator("[name=preset][value=loud]").check({ force: true });
    assert.deepEqual(await savedBy(page), dataOf(readFileSync(to)));
  };
  return withPage({ script: noteParts }, use).finally(() => rmSync(folder, { recursive: true }));
});

for (const kind of ["mp3 48000", "mp3 22050", "ogg 32000", "opus 48000", "m4a 48000", "m4a 24000"])
  test(`${kind} is decoded in parts, and at once if a part is damaged, with the same samples`, () => {
    const [format, rate] = kind.split(" ");
    const folder = mkdtempSync(join(tmpdir(), "orvane-"));
    const path = join(folder, `in.${format}`);
    execFileSync("ffmpeg", ["-loglevel", "error", "-i", "-", path], { input: wav(noise(55 * +rate), +rate, 2) });
    const { size } = statSync(path);
    const use = async (/** @type {Page} */ page) => {
      await page.locator("[name=preset][value=off]").check({ force: true });
      const read = async () => {
        await page.locator("#file").setInputFiles(path);
        await page.getByText(`in.${format} is ready.`).waitFor();
        return { parts: await page.evaluate(() => window.parts.splice(0)), samples: await savedBy(page) };
      };
      const { parts, samples } = await read();
      assert.ok(parts.length > 2 && !parts.includes(size), `${parts}`);
      await page.evaluate(() => (window.isDamaged = true));
      const whole = await read();
      assert.equal(whole.parts.at(-1), size);
      assert.equal(samples.length, whole.samples.length);
      // A decoder cuts samples off at the ends. The filter that converts the rate may have used them.
      assert.ok(!samples.slice(64, -64).some((one, n) => Math.abs(one - whole.samples[n + 64]) > 1));
    };
    return withPage({ script: noteParts }, use).finally(() => rmSync(folder, { recursive: true }));
  });

test("a page with a piece inside plays it with its settings", () => {
  const folder = mkdtempSync(join(tmpdir(), "orvane-"));
  const [from, to] = ["in.wav", "out.html"].map((name) => join(folder, name));
  const title = "<!-- </script><script>window.hit = 1</script>";
  writeFileSync(from, titled(wav(music, 32000, 2), title));
  run("compare", from, to, "--preset", "bass", "--output-gain", "0.3", "--page", fileURLToPath(address));
  return withPage({ url: pathToFileURL(to).href }, async (page) => {
    await page.locator("#piece-name").filter({ hasText: title }).waitFor();
    assert.equal(await page.evaluate(() => window.hit), undefined);
    const refused = page.evaluate(
      () =>
        new Promise((resolve) => {
          addEventListener("securitypolicyviolation", (event) => resolve(event.effectiveDirective));
          fetch("https://orvane.invalid/").catch(() => setTimeout(resolve, 500, "not by the policy"));
        }),
    );
    assert.equal(await refused, "connect-src");
    assert.deepEqual(await savedBy(page), render(music, 32000, 2, "--preset", "bass", "--output-gain", "0.3").samples);
  }).finally(() => rmSync(folder, { recursive: true }));
});

test("before and after are equally loud as they are heard", () =>
  withPage({ script: noteWhatIsHeard }, async (page) => {
    // The measurement of a long piece must not be shown when a short one has taken its place.
    await drop(page, new Int16Array(8000 * 300), 8000, 1, "long.wav");
    await drop(page, noise(), 48000, 2);
    await page.locator("[name=preset][value=bass]").check({ force: true });
    await page.waitForTimeout(1500); // until the piece is measured with these settings
    await page.locator("#play").click();
    const loudness = { before: NaN, after: NaN };
    for (const side of /** @type {const} */ (["after", "before"])) {
      await page.locator(`[name=side][value=${side}]`).check({ force: true });
      await page.waitForTimeout(500);
      const end = 48 + (await page.evaluate(() => window.heard.length));
      await page.waitForFunction((end) => window.heard.length >= end, end);
      /** @type {number[][][]} */
      const heard = await page.evaluate((end) => window.heard.slice(end - 48, end), end);
      const samples = heard.flatMap((block) => [...interleave(block.map((channel) => Float32Array.from(channel)))]);
      const meter = new Piece(exports, 48000, 2, valuesOf({}));
      for (let at = 0; at < samples.length; at += Piece.samples)
        meter.process(Int16Array.from(samples.slice(at, at + Piece.samples)));
      loudness[side] = meter.loudness().before;
    }
    assert.ok(Math.abs(loudness.after - loudness.before) < 0.2, JSON.stringify(loudness));
    // The louder one was lowered. The page shows the loudness of both.
    const { report } = render(noise(), 48000, 2, "--preset", "bass");
    const softer = Math.min(...Object.values(report.loudnessLufs));
    assert.ok(Math.abs(loudness.after - softer) < 0.5, `${loudness.after} and ${softer}`);
    for (const side of ["before", "after"]) {
      const shown = parseFloat(String(await page.locator(`#whole-${side}`).textContent()).replace("−", "-"));
      assert.ok(Math.abs(shown - report.loudnessLufs[side]) < 0.11, `${side}: ${shown}`);
    }
  }));

test("the node tells a changed latency, and goes back to defaults", () =>
  withPage({}, async (page) => {
    const told = await page.evaluate(async (text) => {
      const { OrvaneNode, parameters } = await import(`data:text/javascript,${encodeURIComponent(text)}`);
      const context = new OfflineAudioContext(2, 48000, 48000);
      const node = await OrvaneNode.create(context, { preset: "voice" });
      node.connect(context.destination);
      let meters = 0;
      node.onmeter = () => ++meters; // every 50 ms
      const before = node.latency;
      const latency = new Promise((resolve) => {
        node.onlatency = resolve;
        setTimeout(resolve, 5000, NaN);
      });
      node.apply({});
      await context.startRendering();
      return {
        before,
        after: await latency,
        meters,
        wrong: parameters.filter(
          (/** @type {any} */ one) => Math.abs(node.parameters.get(one.key).value - one.default) > 1e-6,
        ),
      };
    }, packageText);
    assert.ok(told.after < told.before, JSON.stringify(told));
    assert.deepEqual(told.wrong, []);
    assert(told.meters > 10 && told.meters < 25, `${told.meters}`);
  }));

test("a strict content security policy lets the worklet come from its URL", async () => {
  const server = createServer(({ url }, answer) => {
    const isScript = url?.endsWith(".js");
    answer.setHeader("content-type", isScript ? "text/javascript" : "text/html");
    answer.setHeader("content-security-policy", "default-src 'none'; script-src 'self' 'wasm-unsafe-eval'");
    answer.end(isScript ? readFileSync(new URL(`web/package${url}`, built)) : "");
  });
  await new Promise((resolve) => server.listen(0, "localhost", () => resolve(undefined)));
  const page = await (await browser()).newPage();
  await page.goto(`http://localhost:${/** @type {import("node:net").AddressInfo} */ (server.address()).port}/`);
  const make = (/** @type {string | undefined} */ processorUrl) =>
    page.evaluate(async (processorUrl) => {
      const { OrvaneNode } = await import(`${"/index.js"}`);
      return (await OrvaneNode.create(new OfflineAudioContext(2, 128, 48000), { processorUrl })).latency;
    }, processorUrl);
  await assert.rejects(make(undefined));
  assert.ok((await make("/processor.js")) > 0);
  await page.close();
  server.close();
});

test("a 24-bit file is dithered as the renderer does", () =>
  withPage({}, async (page) => {
    const bytes = wav(music, 48000, 2);
    const data = Buffer.alloc(3 * music.length);
    music.forEach((sample, n) => data.writeIntLE(256 * sample + ((77 * n) % 256), 3 * n, 3));
    const header = bytes.subarray(0, 44);
    header.writeUInt32LE(36 + data.length, 4);
    header.writeUInt32LE(6 * 48000, 28);
    header.writeUInt16LE(6, 32);
    header.writeUInt16LE(24, 34);
    header.writeUInt32LE(data.length, 40);
    const source = Buffer.concat([header, data]);
    await page.locator("#file").setInputFiles({ name: "deep.wav", mimeType: "audio/wav", buffer: source });
    await page.locator("#piece-name").filter({ hasText: "deep.wav" }).waitFor();
    await page.locator("[name=preset][value=off]").check({ force: true });
    assert.deepEqual(await savedBy(page), renderFile(source, "--preset", "off").samples);
  }));

test("a dropped mono file is heard on both sides, ends without Loop, and is saved under its name", () =>
  withPage({ script: noteWhatIsHeard }, async (page) => {
    await page.evaluate(
      (bytes) => {
        const dataTransfer = new DataTransfer();
        dataTransfer.items.add(new File([Uint8Array.from(bytes)], "mono.song.wav"));
        document.body.dispatchEvent(new DragEvent("drop", { dataTransfer, bubbles: true, cancelable: true }));
      },
      [...wav(Int16Array.of(...left, ...new Int16Array(24000)), 48000, 1)],
    );
    await page.locator("#piece-name").filter({ hasText: "mono.song.wav" }).waitFor();
    await page.locator("#play").click();
    // The second round of the loop has begun, so that the position must not jump when the loop ends.
    await page.waitForFunction(() => window.heard.length > 40);
    await page.locator("#loop").uncheck();
    await page.getByText("Play", { exact: true }).waitFor();
    const energy = await page.evaluate(() =>
      [0, 1].map((side) =>
        /** @type {number[][][]} */ (window.heard)
          .flatMap((block) => block[side])
          .reduce((sum, one) => sum + one * one, 0),
      ),
    );
    assert.ok(energy[0] > 1 && Math.abs(energy[1] / energy[0] - 1) < 1e-3, `${energy}`);
    await page.waitForTimeout(600); // the peak stays shown after the silence at the end
    const peak = parseFloat(String(await page.locator("#peak-after").textContent()).replace("−", "-"));
    assert.ok(peak > -40, `${peak}`);
    await page.locator("[name=preset][value=night]").check({ force: true });
    await page.waitForFunction(
      () => !(parseFloat((document.getElementById("peak-after")?.textContent ?? "").replace("−", "-")) > -40),
    );
    const [download] = await Promise.all([page.waitForEvent("download"), page.locator("#save-wav").click()]);
    assert.equal(download.suggestedFilename(), "mono.song-orvane.wav");
  }));

test("the position shown is the one heard, and before and after fade into each other", () => {
  // Samples that tell their time: they rise by one every four frames. At 11.5 s, the third section of them plays.
  const rise = Int16Array.from({ length: 36000 }, (_, n) => n / 4);
  return withPage({ script: playOffTheClock, url: `${address.href}#output-gain=0.25` }, async (page) => {
    await drop(page, rise, 48000, 1);
    await page.locator("#equal").uncheck();
    await page.locator("#play").click();
    await page.locator("body.playing").waitFor();
    const { shown, out } = await page.evaluate(async () => {
      const pauses = [6, 11.5].map((time) => window.heard.suspend(time));
      const rendering = window.heard.startRendering();
      await pauses[0];
      await new Promise((resolve) => setTimeout(resolve, 200));
      OfflineAudioContext.prototype.resume.call(window.heard);
      await pauses[1];
      /** @type {any} */ (document.querySelector("[name=side][value=before]")).click();
      document.getElementById("loop")?.click();
      await new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve)));
      const shown = /** @type {any} */ (document.getElementById("seek")).valueAsNumber;
      OfflineAudioContext.prototype.resume.call(window.heard);
      return { shown, out: [...(await rendering).getChannelData(0)].slice(551000, 557000) };
    });
    const heard = (out[1000] * 32768 * 4) / 0.25 / 48000;
    assert.ok(Math.abs(heard - shown) < 0.005, `${heard} s is heard, ${shown} s is shown`);
    const jump = out.reduce((most, sample, n) => (n === 0 ? most : Math.max(most, Math.abs(sample - out[n - 1]))), 0);
    assert.ok(out[2999] > 3 * out[0] && jump < 0.003, `${jump}`);
  });
});
