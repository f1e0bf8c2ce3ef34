// Reads a file into samples of 16 bits, at its own rate where the chain can take that rate.
import { bytesOf } from "../rules.js";
import { fromDecoded, Quantizer, wavHeader } from "../samples.js";
import { cutFile, readFormat } from "./frames.js";

/** @import { Settings } from "../package/index.d.ts" */
/** @import { NamedPiece } from "../types.d.ts" */
/** @import { Part, Wav } from "./frames.js" */
/** @typedef {Float32Array<ArrayBuffer>} Samples */

// Pieces of two hours and more do not fit in the memory of a page.
const kLongSeconds = 2 * 3600;
// The size from which a file of unknown duration is refused.
const kManyBytes = 400e6;
const kPartBytes = 1 << 22;
const kPatienceMs = 4000;
// The longest time that the page takes no click while it converts.
const kBusyFrames = 1 << 18;
// The rate of pieces whose own rate the chain does not take.
const kRate = 48000;
// A filter that converts the rate reaches less far.
const kReach = 128;
// Frames by which it is seen that a part begins as the one before it ends.
const kAgain = 1024;

// Reads a file. The samples of a 16-bit file are exactly its own. Others are dithered as the renderer
// does. Of more than two channels, the first two are taken. Throws an Error that says what to do. `step`
// is called with the part that is done, from 0 to 1, or with null if that is not known. If it returns
// false, the result is null.
/** @type {(file: File, step: (part: number | null) => boolean) => Promise<NamedPiece | null>} */
export async function readAudio(file, step) {
  await refuseLong(file);
  if (!step(null)) return null;
  try {
    const { rate, bits, ...format } = await readFormat(file);
    const { wav } = format;
    if (wav !== undefined && bits === 16 && isTaken(rate))
      if (wav.channels <= 2 && wav.align === 2 * wav.channels)
        return await readPcm(file, rate, wav, step);
    const inParts = async () => {
      const cut = await cutFile(file, { rate, bits, ...format });
      return await readParts(file.name, cut, bits, step);
    };
    const piece = await inParts().catch(() => undefined);
    if (piece !== undefined) return piece;
    const whole = { rate: isTaken(rate) ? rate : kRate, parts: [{ bytes: [file], done: null }] };
    return await readParts(file.name, whole, isTaken(rate) ? bits : 0, step);
  } catch {
    throw new Error(
      `${file.name} is not a sound file that this browser can read. ` +
        "WAV, FLAC and MP3 are read everywhere.",
    );
  }
}

/** @param {number} rate */
const isTaken = (rate) => rate === 44100 || rate === 48000;

// Returns the piece and the settings that stand in the page itself. The piece is a FLAC file in
// base64.
/** @type {(element: HTMLElement) => Promise<{ piece: NamedPiece, settings: Settings }>} */
export async function readEmbedded(element) {
  const { name, rate, settings, source } = JSON.parse(element.textContent ?? "");
  const whole = { rate, parts: [{ bytes: [bytesOf(source)], done: null }] };
  const piece = await readParts(name, whole, 16, () => true);
  return { piece: /** @type {NamedPiece} */ (piece), settings };
}

// Makes a piece of floats.
/** @type {(name: string, rate: number, channels: Samples[]) => NamedPiece} */
export function pieceOf(name, rate, channels) {
  const piece = emptyPiece(name, rate, channels.length, channels[0].length);
  put(piece, new Quantizer(false).interleave(channels), 0);
  return piece;
}

/** @type {(name: string, rate: number, count: number, frames: number) => NamedPiece} */
function emptyPiece(name, rate, count, frames) {
  if (frames === 0) throw new Error("no samples");
  return { name, rate, channels: Array.from({ length: count }, () => new Int16Array(frames)) };
}

// Puts interleaved samples into a piece, from frame `frame` on. What is too much is left out.
/** @type {(piece: NamedPiece, samples: Int16Array, frame: number) => void} */
function put({ channels }, samples, frame) {
  channels.forEach((channel, side) => {
    const end = Math.min(channel.length, frame + samples.length / channels.length);
    for (let n = frame, from = side; n < end; ++n, from += channels.length)
      channel[n] = samples[from];
  });
}

// Throws an Error if the file is too long for a page.
/** @param {File} file */
async function refuseLong(file) {
  const seconds = await secondsOf(file);
  const isLong = seconds === null ? file.size >= kManyBytes : seconds >= kLongSeconds;
  if (!isLong) return;
  const length = seconds === null ? "large" : `${(seconds / 3600).toFixed(1)} hours long`;
  throw new Error(
    `${file.name} is ${length}, too much for a page. Use the program instead: ` +
      "orvane render IN OUT.wav takes files of any length.",
  );
}

// Returns how long the browser's player says the file is, or null if it does not know.
/** @type {(file: File) => Promise<number | null>} */
async function secondsOf(file) {
  const player = new Audio();
  player.preload = "metadata";
  player.src = URL.createObjectURL(file);
  await new Promise((resolve) => {
    player.onloadedmetadata = player.onerror = resolve;
    setTimeout(resolve, kPatienceMs);
  });
  const { duration } = player;
  URL.revokeObjectURL(player.src);
  player.removeAttribute("src");
  return Number.isFinite(duration) ? duration : null;
}

// Reads a 16-bit WAV file part by part, so that the file and its samples are never both in memory.
/**
 * @param {File} file
 * @param {number} rate
 * @param {Wav} wav
 * @param {(part: number) => boolean} step
 */
async function readPcm(file, rate, { start, channels, align }, step) {
  // The header's size is wrong in files that were streamed or cut.
  const head = new DataView(await file.slice(start - 4, start).arrayBuffer());
  const size = Math.min(head.getUint32(0, true), file.size - start);
  const piece = emptyPiece(file.name, rate, channels, Math.floor(size / align));
  const end = start + align * Math.floor(size / align);
  for (let at = start; at < end; at += kPartBytes) {
    const part = await file.slice(at, Math.min(end, at + kPartBytes)).arrayBuffer();
    put(piece, new Int16Array(part), (at - start) / align);
    if (!step(Math.min(1, (at + kPartBytes - start) / (end - start)))) return null;
  }
  return piece;
}

// Decodes a file part by part. Throws an Error if the parts don't fit together, or if their length is
// not the one that the file tells. `frames` is missing if the file is decoded at once.
/**
 * @param {string} name
 * @param {{ rate: number, frames?: number, parts: Iterable<Part> | AsyncIterable<Part> }} cut
 * @param {number} bits
 * @param {(part: number | null) => boolean} step
 * @returns {Promise<NamedPiece | null>}
 */
async function readParts(name, { rate, frames, parts }, bits, step) {
  const decoder = new OfflineAudioContext(2, 1, rate);
  // A file that is decoded at once has the rate of the piece already.
  const wanted = isTaken(rate) || frames === undefined ? rate : kRate;
  const convert = wanted === rate ? null : makeConverter(rate);
  const isExact = bits === 16 && convert === null;
  const quantizer = new Quantizer(!isExact);
  /** @type {NamedPiece | undefined} */
  let piece;
  let read = 0; // frames of the file
  let written = 0; // frames of the piece
  /** @type {Samples[]} the last frames that were read */
  let before = [];
  for await (const { bytes, end, done } of parts) {
    const audio = await decoder.decodeAudioData(await new Blob(bytes).arrayBuffer());
    frames ??= audio.length;
    piece ??= emptyPiece(
      name,
      wanted,
      Math.min(2, audio.numberOfChannels),
      Math.ceil((frames * wanted) / rate),
    );
    const all = piece.channels.map((_, side) => audio.getChannelData(side));
    const start = end === undefined ? read : end - audio.length;
    compare(before, all, read - start);
    // The last frames of a part depend on the next one.
    const reach = end === undefined || done === 1 ? 0 : kReach;
    const stop = Math.min(frames, start + audio.length - reach);
    let channels = all.map((samples) => samples.subarray(read - start, stop - start));
    before = channels.map((samples) => samples.slice(-kAgain));
    read = stop;
    if (convert !== null) channels = await convert(channels, read === frames);
    const { length } = channels[0];
    for (let at = 0; at < length; at += kBusyFrames) {
      const some = channels.map((samples) => samples.subarray(at, at + kBusyFrames));
      if (isExact) some.forEach(fromDecoded);
      put(piece, quantizer.interleave(some), written);
      written += some[0].length;
      if (!step(done)) return null;
      if (length > kBusyFrames) await new Promise((resolve) => setTimeout(resolve));
    }
  }
  if (piece === undefined || read !== frames) throw new Error("some frames are missing");
  return piece;
}

// Throws an Error unless a part begins with what was read before. `again` is how many frames it repeats.
/** @type {(before: Samples[], channels: Samples[], again: number) => void} */
function compare(before, channels, again) {
  if (again < 0) throw new Error("some frames are missing");
  before.forEach((samples, side) => {
    const count = Math.min(samples.length, again);
    let power = 1e-5;
    let difference = 0;
    for (let n = 1; n <= count; ++n) {
      const sample = samples[samples.length - n];
      power += sample ** 2;
      difference += (channels[side][again - n] - sample) ** 2;
    }
    if (difference > power / 100)
      throw new Error("a part does not begin as the one before it ends");
  });
}

// Returns a function that converts parts that follow each other to kRate, with the browser's filter.
/** @type {(rate: number) => (channels: Samples[], isLast: boolean) => Promise<Samples[]>} */
function makeConverter(rate) {
  const context = new OfflineAudioContext(2, 1, kRate);
  // So many frames last as long as a whole number of frames of the result.
  let grain = 1;
  while (!Number.isInteger((grain * kRate) / rate)) ++grain;
  const margin = grain * Math.ceil(kReach / grain);
  const placeOf = (/** @type {number} */ frame) => Math.round((frame * kRate) / rate);
  /** @type {Samples[]} the last frames of the parts before, and then the present part */
  let held = [];
  let given = 0; // how many of them were converted
  return async (channels, isLast) => {
    held = channels.map((samples, side) => joined(held[side] ?? new Float32Array(0), samples));
    const { length } = held[0];
    // The last frames depend on the next part.
    const stop = isLast ? length : Math.max(given, grain * Math.floor((length - margin) / grain));
    const audio = await context.decodeAudioData(floatWav(held, rate));
    const [start, end] = [placeOf(given), isLast ? audio.length : placeOf(stop)];
    const kept = Math.max(0, stop - margin);
    given = stop - kept;
    held = held.map((samples) => samples.slice(kept));
    return held.map((_, side) => audio.getChannelData(side).subarray(start, end));
  };
}

/** @type {(one: Samples, next: Samples) => Samples} */
function joined(one, next) {
  const both = new Float32Array(one.length + next.length);
  both.set(one);
  both.set(next, one.length);
  return both;
}

// Returns a WAV file of floats.
/** @type {(channels: Samples[], rate: number) => ArrayBuffer} */
function floatWav(channels, rate) {
  const count = channels.length;
  const samples = new Float32Array(count * channels[0].length);
  channels.forEach((from, side) =>
    from.forEach((sample, n) => (samples[n * count + side] = sample)),
  );
  const header = wavHeader(samples.byteLength, rate, count);
  const view = new DataView(header.buffer);
  const kFloat = 3;
  view.setUint16(20, kFloat, true);
  view.setUint32(28, 4 * count * rate, true);
  view.setUint16(32, 4 * count, true);
  view.setUint16(34, 32, true);
  const file = new Uint8Array(header.length + samples.byteLength);
  file.set(header);
  file.set(new Uint8Array(samples.buffer), header.length);
  return file.buffer;
}
