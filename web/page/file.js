// Reads a file into samples, at its own rate where the chain can take that rate.
import { bytesOf } from "../rules.js";
import { fromDecoded } from "../samples.js";

/** @import { Settings } from "../package/index.d.ts" */
/** @import { NamedPiece } from "../types.d.ts" */
/** @typedef {(text: string, at: number) => boolean} Has whether the bytes hold a text there */
/** @typedef {{ start: number, channels: number }} Pcm */
/** @typedef {{ start: number, channels: number, frames: number }} Flac */
/** @typedef {{ rate: number, bits: number, pcm?: Pcm, flac?: Flac, mp3?: number }} Format */

// Pieces of two hours and more do not fit in the memory of a page.
const kLongSeconds = 2 * 3600;
// The size from which a file of unknown duration is refused.
const kManyBytes = 400e6;
// "fLaC" and the block that describes the stream.
const kFlacBytes = 42;
const kHeadBytes = 1 << 24;
const kPartBytes = 1 << 22;
// Some seconds of FLAC, so that the page soon takes clicks again.
const kFlacPartBytes = 1 << 20;
// The part of a FLAC file in which the next frame is looked for. Frames are much shorter.
const kSoughtBytes = 1 << 18;
// The bit rates of MPEG-1 layer III in kbit/s (ISO 11172-3, 2.4.2.3).
const kMp3Rates = [0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320];
const kMp3Frame = 1152;
// Frames of a part: 25 s at 48 kHz.
const kMp3Part = 1024;
// Frames that are decoded once more in front of a part. A frame uses up to 511 bytes of the frames before
// it, and the decoder's state of two frames. The smallest frame holds 58 bytes.
const kMp3Lead = 12;
// Samples that decoders of MP3 are late by.
const kMp3Late = 529;
const kPatienceMs = 4000;
// The longest time that the page takes no click while it converts.
const kBusySamples = 1 << 20;

// Returns the rate at which the file is decoded, 44100 or 48000 Hz, and how many bits its samples have. 0
// bits mean that this is not known, or that the samples are no whole numbers of 16 bits at this rate.
// Headers of WAV, FLAC, Ogg Vorbis and MP3 are read; every other file is decoded at 48000 Hz. `pcm` tells
// where the samples of a 16-bit WAV file start. `flac` and `mp3` tell where the frames of such a file
// start.
/** @type {(head: ArrayBuffer) => Format} */
export function formatOf(head) {
  const view = new DataView(head);
  /** @type {Has} */
  const has = (text, at) =>
    at + text.length <= view.byteLength &&
    [...text].every((letter, n) => view.getUint8(at + n) === letter.charCodeAt(0));
  /** @type {Format} */
  let format = { rate: 0, bits: 0 };
  if (has("RIFF", 0) && has("WAVE", 8)) format = wavFormat(view, has);
  else if (has("fLaC", 0) && view.byteLength >= kFlacBytes) format = flacFormat(view);
  else if (has("OggS", 0) && has("\x01vorbis", 28) && view.byteLength >= 44)
    format.rate = view.getUint32(40, true);
  else format = mpegFormat(view, has);
  return [44100, 48000].includes(format.rate) ? format : { rate: 48000, bits: 0 };
}

/** @type {(view: DataView, has: Has) => Format} */
function wavFormat(view, has) {
  const kPcm = 1;
  const kExtensible = 0xfffe;
  /** @type {Format} */
  let format = { rate: 0, bits: 0 };
  let channels = 0;
  for (let at = 12; at + 8 <= view.byteLength;) {
    const size = view.getUint32(at + 4, true);
    if (has("fmt ", at) && at + 24 <= view.byteLength) {
      let kind = view.getUint16(at + 8, true);
      if (kind === kExtensible && at + 34 <= view.byteLength) kind = view.getUint16(at + 32, true);
      channels = view.getUint16(at + 10, true);
      format.rate = view.getUint32(at + 12, true);
      format.bits = kind === kPcm ? view.getUint16(at + 22, true) : 0;
    } else if (has("data", at)) {
      if (format.bits === 16 && (channels === 1 || channels === 2))
        format.pcm = { start: at + 8, channels };
      break;
    }
    at += 8 + size + (size % 2);
  }
  return format;
}

// Reads the blocks in front of the frames (RFC 9639, 8). The first one describes the stream.
/** @type {(view: DataView) => Format} */
function flacFormat(view) {
  const word = view.getUint32(18);
  /** @type {Format} */
  const format = { rate: word >>> 12, bits: ((word >>> 4) & 31) + 1 };
  let start = 4;
  for (let isLast = false; !isLast;) {
    if (start + 4 > view.byteLength) return format;
    const head = view.getUint32(start);
    isLast = head >>> 31 === 1;
    start += 4 + (head & 0xffffff);
  }
  const frames = (word & 15) * 2 ** 32 + view.getUint32(22);
  if (frames > 0) format.flac = { start, channels: ((word >>> 9) & 7) + 1, frames };
  return format;
}

// Reads the header of the first frame behind an ID3 tag (ISO 11172-3, 2.4.1.3).
/** @type {(view: DataView, has: Has) => Format} */
function mpegFormat(view, has) {
  let at = 0;
  if (has("ID3", 0) && view.byteLength >= 10)
    at = 10 + [6, 7, 8, 9].reduce((size, n) => size * 128 + view.getUint8(n), 0);
  if (at + 4 > view.byteLength || view.getUint16(at) >>> 5 !== 0x7ff) return { rate: 0, bits: 0 };
  const rate = [44100, 48000, 32000][(view.getUint8(at + 2) >>> 2) & 3] ?? 0;
  const isMp3 = view.getUint16(at) >>> 1 === 0x7ffd; // version 1, layer III
  return isMp3 ? { rate, bits: 0, mp3: at } : { rate, bits: 0 };
}

// Reads a file. The samples of a 16-bit file are exactly s / 32768. Of more than two channels, the
// first two are taken. Throws an Error that says what to do. `step` is called with the part that is done,
// from 0 to 1, or with null if that is not known. If it returns false, the result is null.
/** @type {(file: File, step: (part: number | null) => boolean) => Promise<NamedPiece | null>} */
export async function readAudio(file, step) {
  await refuseLong(file);
  if (!step(null)) return null;
  try {
    const format = formatOf(await file.slice(0, kHeadBytes).arrayBuffer());
    if (format.pcm !== undefined) return await readPcm(file, format.rate, format.pcm, step);
    if (format.flac !== undefined && file.size > kFlacPartBytes) {
      const piece = await readFlac(file, format, format.flac, step).catch(() => undefined);
      if (piece !== undefined) return piece;
    }
    if (format.mp3 !== undefined) {
      const piece = await readMp3(file, format.rate, format.mp3, step).catch(() => undefined);
      if (piece !== undefined) return piece;
    }
    const bytes = await file.arrayBuffer();
    return step(null) ? await decode(file.name, bytes, format, () => step(null)) : null;
  } catch {
    throw new Error(
      `${file.name} is not a sound file that this browser can read. ` +
        "WAV, FLAC and MP3 are read everywhere.",
    );
  }
}

// Returns the piece and the settings that stand in the page itself. The piece is a FLAC file in
// base64.
/** @type {(element: HTMLElement) => Promise<{ piece: NamedPiece, settings: Settings }>} */
export async function readEmbedded(element) {
  const { name, rate, settings, source } = JSON.parse(element.textContent ?? "");
  const piece = await decode(name, bytesOf(source).buffer, { rate, bits: 16 }, () => true);
  return { piece: /** @type {NamedPiece} */ (piece), settings };
}

// Makes a piece of what Web Audio plays.
/** @type {(name: string, buffer: AudioBuffer, dithers?: boolean) => NamedPiece} */
export function pieceOf(name, buffer, dithers = false) {
  const count = Math.min(2, buffer.numberOfChannels);
  const channels = Array.from({ length: count }, (_, n) => buffer.getChannelData(n));
  return { name, rate: buffer.sampleRate, channels, buffer, dithers };
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
 * @param {{ start: number, channels: number }} pcm
 * @param {(part: number) => boolean} step
 */
async function readPcm(file, rate, { start, channels: count }, step) {
  // The header's size is wrong in files that were streamed or cut.
  const head = new DataView(await file.slice(start - 4, start).arrayBuffer());
  const size = Math.min(head.getUint32(0, true), file.size - start);
  const length = Math.floor(size / 2 / count);
  const piece = pieceOf(
    file.name,
    new AudioBuffer({ numberOfChannels: count, length, sampleRate: rate }),
  );
  const end = start + 2 * count * length;
  for (let at = start, frame = 0; at < end; at += kPartBytes) {
    const part = await file.slice(at, Math.min(end, at + kPartBytes)).arrayBuffer();
    const samples = new Int16Array(part);
    const frames = samples.length / count;
    piece.channels.forEach((channel, side) => {
      const to = channel.subarray(frame, frame + frames);
      for (let n = 0, from = side; n < frames; ++n, from += count) to[n] = samples[from] / 32768;
    });
    frame += frames;
    if (!step(Math.min(1, (at + kPartBytes - start) / (end - start)))) return null;
  }
  return piece;
}

// Decodes a FLAC file part by part, because decoding it at once takes twice the memory of its samples.
// Throws an Error if the parts don't have as many frames as the file says.
/** @type {(file: File, format: Format, flac: Flac, step: (part: number) => boolean) => Promise<NamedPiece | null>} */
async function readFlac(file, { rate, bits }, { start, channels, frames }, step) {
  // The length and the checksum of a part are not known, so both are 0.
  const head = new Uint8Array(await file.slice(0, kFlacBytes).arrayBuffer());
  head[4] = 0x80; // the last block before the frames
  head[21] &= 0xf0;
  head.fill(0, 22);
  const numberOfChannels = Math.min(2, channels);
  const buffer = new AudioBuffer({ numberOfChannels, length: frames, sampleRate: rate });
  const piece = pieceOf(file.name, buffer, bits !== 16);
  const context = new OfflineAudioContext(2, 1, rate);
  let frame = 0;
  for (let at = start; at < file.size;) {
    const end = await flacFrame(file, start, at + kFlacPartBytes);
    const part = await new Blob([head, file.slice(at, end)]).arrayBuffer();
    const audio = await context.decodeAudioData(part);
    piece.channels.forEach((channel, side) => {
      const samples = audio.getChannelData(side);
      channel.set(bits === 16 ? fromDecoded(samples) : samples, frame);
    });
    frame += audio.length;
    at = end;
    if (!step(at / file.size)) return null;
  }
  if (frame !== frames) throw new Error("some frames are missing");
  return piece;
}

// Returns where the first frame at or behind `from` starts, or the file's size if there is none. A
// frame is known by its sync code, by bytes that are the same in all frames, and by its checksum.
/** @type {(file: File, start: number, from: number) => Promise<number>} */
async function flacFrame(file, start, from) {
  const first = new Uint8Array(await file.slice(start, start + 4).arrayBuffer());
  const bytes = new Uint8Array(await file.slice(from, from + kSoughtBytes).arrayBuffer());
  for (let at = 0; at + 16 < bytes.length; ++at) {
    if ([0, 1, 2].some((n) => bytes[at + n] !== first[n])) continue;
    // The frame's number has as many bytes as its first byte has leading ones, or one byte.
    const size = 4 + Math.max(1, Math.clz32(~(bytes[at + 4] << 24)));
    const blockSize = bytes[at + 2] >>> 4;
    const rate = bytes[at + 2] & 15;
    const end =
      at +
      size +
      (blockSize === 6 ? 1 : blockSize === 7 ? 2 : 0) +
      (rate === 12 ? 1 : rate > 12 ? 2 : 0);
    if (crc8(bytes.subarray(at, end)) === bytes[end]) return from + at;
  }
  return file.size;
}

// Returns the checksum of a frame's header, with the polynomial x^8 + x^2 + x + 1.
/** @param {Uint8Array} bytes */
function crc8(bytes) {
  let sum = 0;
  for (const byte of bytes) {
    sum ^= byte;
    for (let n = 0; n < 8; ++n) sum = (sum << 1) ^ (sum & 0x80 ? 0x107 : 0);
  }
  return sum;
}

// Decodes an MP3 file part by part, too. Throws an Error if it is one part, or if the parts don't fit
// together.
/** @type {(file: File, rate: number, start: number, step: (part: number) => boolean) => Promise<NamedPiece | null>} */
async function readMp3(file, rate, start, step) {
  const view = new DataView(await file.arrayBuffer());
  const frames = mp3Frames(view, rate, start);
  const count = frames.length - 1;
  if (count <= kMp3Part) throw new Error("one part");
  const isMono = view.getUint8(start + 3) >>> 6 === 3;
  const [skipped, cut] = mp3Ends(view, start + (isMono ? 21 : 36), count);
  const length = count * kMp3Frame - skipped - cut;
  const buffer = new AudioBuffer({ numberOfChannels: isMono ? 1 : 2, length, sampleRate: rate });
  const piece = pieceOf(file.name, buffer, true);
  const context = new OfflineAudioContext(2, 1, rate);
  for (let from = 0; from < count; from += kMp3Part) {
    const to = Math.min(count, from + kMp3Part);
    const lead = Math.min(from, kMp3Lead);
    const bytes = view.buffer.slice(frames[from - lead], frames[to]);
    const audio = await context.decodeAudioData(bytes);
    const isFirst = from === 0;
    if (audio.length !== (to - from + lead) * kMp3Frame - (isFirst ? skipped : 0))
      throw new Error("a part has another length");
    const fresh = lead * kMp3Frame;
    const at = isFirst ? 0 : from * kMp3Frame - skipped;
    piece.channels.forEach((channel, side) => {
      const samples = audio.getChannelData(side);
      const again = samples.subarray(Math.max(0, fresh - kMp3Frame), fresh);
      const before = channel.subarray(at - again.length, at);
      if (again.some((sample, n) => Math.abs(sample - before[n]) > 1e-6))
        throw new Error("a part does not begin as the one before it ends");
      channel.set(samples.subarray(fresh, fresh + length - at), at);
    });
    if (!step(to / count)) return null;
  }
  return piece;
}

// Returns where each frame starts and the last one ends. Throws an Error if something else than tags
// stands between or behind them, or if the rate or the number of channels changes.
/** @type {(view: DataView, rate: number, start: number) => number[]} */
function mp3Frames(view, rate, start) {
  const first = view.getUint32(start);
  const isMono = (/** @type {number} */ head) => ((head >>> 6) & 3) === 3;
  const frames = [];
  let at = start;
  while (at + 4 <= view.byteLength) {
    const head = view.getUint32(at);
    const bitRate = kMp3Rates[(head >>> 12) & 15];
    const isFrame = ((head ^ first) & 0xfffe0c00) === 0 && isMono(head) === isMono(first);
    if (!isFrame || !bitRate) break;
    frames.push(at);
    at += Math.floor((144000 * bitRate) / rate) + ((head >>> 9) & 1);
  }
  const rest = new Uint8Array(view.buffer).subarray(at, at + 8);
  const isTag = /^(TAG|APETAGEX)/.test(String.fromCharCode(...rest));
  if (at !== view.byteLength && !isTag) throw new Error("no frame");
  return [...frames, at];
}

// Returns how many samples browsers skip at the start and at the end. A frame at the start, without
// sound, tells the encoder's delay and what it added at the end.
/** @type {(view: DataView, tag: number, count: number) => [number, number]} */
function mp3Ends(view, tag, count) {
  const name = view.getUint32(tag);
  if (name !== 0x58696e67 && name !== 0x496e666f) return [0, 0]; // "Xing" and "Info"
  const kAllFields = 15;
  if (view.getUint32(tag + 4) !== kAllFields || view.getUint32(tag + 8) !== count - 1)
    throw new Error("the tag does not fit the frames");
  const ends = view.getUint32(tag + 140);
  const delay = (ends >>> 12) & 0xfff;
  return [kMp3Frame + delay + kMp3Late, Math.max(0, (ends & 0xfff) - kMp3Late)];
}

/** @type {(name: string, bytes: ArrayBuffer, format: Format, step: () => boolean) => Promise<NamedPiece | null>} */
async function decode(name, bytes, { rate, bits }, step) {
  const audio = await new OfflineAudioContext(2, 1, rate).decodeAudioData(bytes);
  const isExact = bits === 16;
  const piece = pieceOf(name, audio, !isExact);
  if (!isExact) return piece;
  for (const samples of piece.channels)
    for (let at = 0; at < samples.length; at += kBusySamples) {
      fromDecoded(samples.subarray(at, at + kBusySamples));
      if (!step()) return null;
      if (at > 0) await new Promise((resolve) => setTimeout(resolve));
    }
  return piece;
}
