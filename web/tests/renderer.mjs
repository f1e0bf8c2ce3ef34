// The page in a browser and what it plays, a piece of music, and what the renderer makes of it.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after } from "node:test";
import { pathToFileURL } from "node:url";
import { chromium } from "playwright-core";
import { Quantizer, wavHeader } from "../samples.js";

/** @import { Browser, BrowserContextOptions, Page } from "playwright-core" */

const root = new URL("../../", import.meta.url);
const renderer = new URL("build/release/orvane", root).pathname;

// Two seconds of interleaved stereo.
export const music = new Int16Array(readFileSync(new URL("tests/data/input.s16", root)).buffer);
// Every second sample of it: the left channel.
export const left = music.filter((_, n) => n % 2 === 0);

/** @type {(samples: Int16Array, channels: number) => Float32Array<ArrayBuffer>[]} */
export const planar = (samples, channels) =>
  Array.from({ length: channels }, (_, side) =>
    Float32Array.from({ length: samples.length / channels }, (_, n) => samples[n * channels + side] / 32768),
  );

/** @type {(samples: Int16Array, rate: number, channels: number) => Buffer} */
export const wav = (samples, rate, channels) =>
  Buffer.concat([wavHeader(samples.byteLength, rate, channels), Buffer.from(samples.buffer)]);

/** @type {(channels: Float32Array<ArrayBuffer>[]) => Int16Array} */
export const interleave = (channels) => new Quantizer(false).interleave(channels);

// Returns the samples of a WAV file of 16 bits.
/** @param {Uint8Array} file */
export function dataOf(file) {
  const bytes = Buffer.from(file),
    at = bytes.indexOf("data");
  return new Int16Array(
    bytes.buffer.slice(bytes.byteOffset + at + 8, bytes.byteOffset + at + 8 + bytes.readUInt32LE(at + 4)),
  );
}

/** @type {(...words: string[]) => string} */
export const run = (...words) => execFileSync(renderer, words, { encoding: "utf8" });

// Returns {samples, report} of `orvane render` for interleaved samples and options.
/** @type {(samples: Int16Array, rate: number, channels: number, ...options: string[]) => { samples: Int16Array, report: any }} */
export const render = (samples, rate, channels, ...options) => renderFile(wav(samples, rate, channels), ...options);

// Returns the same for the bytes of a file.
/** @param {Uint8Array} bytes @param {string[]} options */
export function renderFile(bytes, ...options) {
  const folder = mkdtempSync(join(tmpdir(), "orvane-"));
  try {
    const [from, to] = ["in.wav", "out.wav"].map((name) => join(folder, name));
    writeFileSync(from, bytes);
    const report = run("render", from, to, "--json", ...options);
    return { samples: dataOf(readFileSync(to)), report: JSON.parse(report) };
  } finally {
    rmSync(folder, { recursive: true });
  }
}

// Returns steady stereo noise with stronger low frequencies, two seconds unless `frames` says otherwise. Every
// part of it is equally loud.
export function noise(frames = 96000) {
  let seed = 1,
    last = 0;
  return Int16Array.from({ length: 2 * frames }, () => {
    seed = (Math.imul(seed, 1103515245) + 12345) >>> 0;
    last = 0.9 * last + (seed / 2 ** 32 - 0.5) * 2000;
    return last;
  });
}

// Returns a WAV file with a title.
/** @param {Buffer} file @param {string} title */
export function titled(file, title) {
  const text = Buffer.from(title + "\0".repeat(2 - (title.length % 2)));
  const size = (/** @type {number} */ bytes) => Buffer.from(Uint32Array.of(bytes).buffer);
  const list = ["LIST", size(12 + text.length), "INFOINAM", size(text.length), text];
  const whole = Buffer.concat([file, ...list.map((part) => Buffer.from(part))]);
  whole.writeUInt32LE(whole.length - 8, 4);
  return whole;
}

// In a page: records what goes to the speakers in window.heard: blocks of two channels.
export function noteWhatIsHeard() {
  window.heard = [];
  /** @type {any} */
  const connect = AudioNode.prototype.connect;
  /** @type {ScriptProcessorNode | undefined} */
  let recorder;
  AudioNode.prototype.connect = /** @type {(this: AudioNode, to: any, ...more: any[]) => any} */ function (
    to,
    ...more
  ) {
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

// In a page: records the sizes of what is decoded in window.parts. If window.isDamaged is set, one decoding fails.
export function noteParts() {
  window.parts = [];
  const { decodeAudioData } = OfflineAudioContext.prototype;
  OfflineAudioContext.prototype.decodeAudioData = function (/** @type {ArrayBuffer} */ bytes) {
    window.parts.push(bytes.byteLength);
    if (window.isDamaged) bytes = new ArrayBuffer(0);
    window.isDamaged = false;
    return decodeAudioData.call(this, bytes);
  };
}

// Lets the page play into an OfflineAudioContext, window.heard, which starts when the test says so.
export function playOffTheClock() {
  /** @type {any} */ (window).AudioContext = class extends OfflineAudioContext {
    constructor(/** @type {{ sampleRate: number }} */ { sampleRate }) {
      super(2, 13 * sampleRate, sampleRate);
      window.heard = this;
    }
    async resume() {}
  };
}

export const address = pathToFileURL(process.env.ORVANE_PAGE ?? "build/web/orvane.html");
/** @type {Promise<Browser> | undefined} */
let running;
export const browser = () =>
  (running ??= chromium.launch({
    executablePath: "/usr/bin/chromium",
    args: ["--no-sandbox", "--autoplay-policy=user-gesture-required"],
  }));
after(async () => (await running)?.close());

// Calls `use` with a new page, without a network. Afterwards the page must have reported no error, apart from
// requests to orvane.invalid, which it must refuse.
/** @param {BrowserContextOptions & { url?: string, hash?: string, width?: number, script?: () => void }} wanted @param {(page: Page) => Promise<unknown>} use */
export async function withPage({ url = address.href, hash = "", width = 1280, script = () => {}, ...options }, use) {
  const context = await (await browser()).newContext({ viewport: { width, height: 900 }, offline: true, ...options });
  const page = await context.newPage();
  page.setDefaultTimeout(10000);
  /** @type {string[]} */
  const faults = [];
  page.on("pageerror", ({ message }) => faults.push(message));
  page.on(
    "console",
    (line) => line.type() === "error" && !/orvane.invalid/.test(line.text()) && faults.push(line.text()),
  );
  await page.addInitScript(script);
  await page.goto(url + hash);
  await page.locator("[name=preset]").first().waitFor({ state: "attached" });
  await use(page);
  assert.deepEqual(faults, []);
  await context.close();
}
