// A piece of music, and what the renderer makes of it.
import { execFileSync } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { Quantizer, wavHeader } from "../samples.js";

const root = new URL("../../", import.meta.url);
const renderer = new URL("build/release/orvane", root).pathname;

// Two seconds of interleaved stereo.
export const music = new Int16Array(readFileSync(new URL("tests/data/input.s16", root)).buffer);
// Every second sample of it: the left channel.
export const left = music.filter((_, n) => n % 2 === 0);

export const planar = (samples, channels) =>
  Array.from({ length: channels }, (_, side) =>
    Float32Array.from({ length: samples.length / channels }, (_, n) => samples[n * channels + side] / 32768),
  );

export const wav = (samples, rate, channels) =>
  Buffer.concat([wavHeader(samples.byteLength, rate, channels), Buffer.from(samples.buffer)]);

export const interleave = (channels) => new Quantizer(false).interleave(channels);

// Returns the samples of a WAV file of 16 bits.
export function dataOf(file) {
  const bytes = Buffer.from(file),
    at = bytes.indexOf("data");
  return new Int16Array(
    bytes.buffer.slice(bytes.byteOffset + at + 8, bytes.byteOffset + at + 8 + bytes.readUInt32LE(at + 4)),
  );
}

export const run = (...words) => execFileSync(renderer, words, { encoding: "utf8" });

// Returns {samples, report} of `orvane render` for interleaved samples and options.
export const render = (samples, rate, channels, ...options) => renderFile(wav(samples, rate, channels), ...options);

// Returns the same for the bytes of a file.
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
