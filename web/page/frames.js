// Cuts encoded files into parts of about half a minute, each of which a browser decodes by itself.
// Decoding an hour at once takes more memory than a page should take. Here: WAV, FLAC and MP3.
import { cutMp4, cutOgg } from "./containers.js";

/** @typedef {(text: string, at: number) => boolean} Has whether the bytes hold a text there */
/** @typedef {{ start: number, channels: number, align: number }} Wav align: bytes of one frame */
/** @typedef {{ start: number, frames: number }} Flac */
/**
 * `rate` is 0 if it is not known. `bits` is 0 if the samples are no whole numbers. `wav`, `flac` and
 * `mp3` tell where the frames start.
 * @typedef {{
 *   rate: number, bits: number, wav?: Wav, flac?: Flac, mp3?: number, isOgg?: true, isMp4?: true,
 * }} Format
 */
/**
 * What is decoded by itself. Its last frame is the one before frame `end` of the piece, and its first
 * ones repeat the part before it. A part without `end` repeats nothing. `done` is 0 to 1, or null if unknown.
 * @typedef {{ bytes: BlobPart[], end?: number, done: number | null }} Part
 */
/**
 * A cut file: its rate, its length in frames at this rate, and its parts.
 * @typedef {{ rate: number, frames: number, parts: Iterable<Part> | AsyncIterable<Part> }} Cut
 */

const kHeadBytes = 1 << 24;
const kPartBytes = 1 << 22;
// Some seconds of FLAC, so that the page soon takes clicks again.
const kFlacPartBytes = 1 << 20;
// "fLaC" and the block that describes the stream.
const kFlacBytes = 42;
// The part of a FLAC file in which the next frame is looked for. Frames are much shorter.
const kSoughtBytes = 1 << 18;
// The bit rates of layer III in kbit/s, of MPEG-1 and of MPEG-2 (ISO 11172-3 and 13818-3, 2.4.2.3).
const kMp3Rates = [
  [0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320],
  [0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160],
];
// Frames of a part: 12 to 74 s.
const kMp3Part = 1024;
// Frames that are decoded once more in front of a part. A frame depends on the decoder's state, and on
// up to 511 bytes (255 in MPEG-2) of the frames before it. The smallest frames hold 11 of these.
const kMp3Lead = 32;
// Samples that decoders of MP3 are late by.
const kMp3Late = 529;

// Reads the header of WAV, FLAC, Ogg and MP3 files.
/** @type {(head: ArrayBuffer) => Format} */
export function formatOf(head) {
  const view = new DataView(head);
  /** @type {Has} */
  const has = (text, at) =>
    at + text.length <= view.byteLength &&
    [...text].every((letter, n) => view.getUint8(at + n) === letter.charCodeAt(0));
  if (has("RIFF", 0) && has("WAVE", 8)) return wavFormat(view, has);
  if (has("fLaC", 0) && view.byteLength >= kFlacBytes) return flacFormat(view);
  if (has("ftyp", 4)) return { rate: 0, bits: 0, isMp4: true };
  if (has("OggS", 0) && has("\x01vorbis", 28) && view.byteLength >= 44)
    return { rate: view.getUint32(40, true), bits: 0, isOgg: true };
  if (has("OggS", 0) && has("OpusHead", 28)) return { rate: 48000, bits: 0, isOgg: true };
  return mp3Format(view, has);
}

/** @type {(view: DataView, has: Has) => Format} */
function wavFormat(view, has) {
  const kPcm = 1;
  const kExtensible = 0xfffe;
  /** @type {Format} */
  const format = { rate: 0, bits: 0 };
  let channels = 0;
  let align = 0;
  for (let at = 12; at + 8 <= view.byteLength;) {
    const size = view.getUint32(at + 4, true);
    if (has("fmt ", at) && at + 24 <= view.byteLength) {
      let kind = view.getUint16(at + 8, true);
      if (kind === kExtensible && at + 34 <= view.byteLength) kind = view.getUint16(at + 32, true);
      channels = view.getUint16(at + 10, true);
      format.rate = view.getUint32(at + 12, true);
      align = view.getUint16(at + 20, true);
      format.bits = kind === kPcm ? view.getUint16(at + 22, true) : 0;
    } else if (has("data", at)) {
      if (align > 0) format.wav = { start: at + 8, channels, align };
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
  if (frames > 0) format.flac = { start, frames };
  return format;
}

// Reads the header of the first frame behind an ID3 tag (ISO 11172-3, 2.4.1.3).
/** @type {(view: DataView, has: Has) => Format} */
function mp3Format(view, has) {
  let at = 0;
  if (has("ID3", 0) && view.byteLength >= 10)
    at = 10 + [6, 7, 8, 9].reduce((size, n) => size * 128 + view.getUint8(n), 0);
  if (at + 4 > view.byteLength) return { rate: 0, bits: 0 };
  const head = view.getUint32(at);
  // How often the rates of MPEG-1 are halved in MPEG-2.5 and MPEG-2.
  const halved = [2, NaN, 1, 0][(head >>> 19) & 3];
  const rate = [44100, 48000, 32000, NaN][(head >>> 10) & 3] / 2 ** halved;
  const isMp3 = head >>> 21 === 0x7ff && ((head >>> 17) & 3) === 1 && rate > 0;
  return isMp3 ? { rate, bits: 0, mp3: at } : { rate: 0, bits: 0 };
}

/** @type {(file: File) => Promise<Format>} */
export const readFormat = async (file) => formatOf(await file.slice(0, kHeadBytes).arrayBuffer());

// Throws an Error if this file can't be cut.
/** @type {(file: File, format: Format) => Promise<Cut>} */
export async function cutFile(file, { rate, wav, flac, mp3, isOgg, isMp4 }) {
  if (wav !== undefined) return cutWav(file, rate, wav);
  if (flac !== undefined) return { rate, frames: flac.frames, parts: flacParts(file, flac.start) };
  if (isMp4) return cutMp4(file);
  if (mp3 === undefined && !isOgg) throw new Error("another format");
  const view = new DataView(await file.arrayBuffer());
  return mp3 === undefined ? cutOgg(view, rate) : cutMp3(view, rate, mp3);
}

/** @type {(file: File, rate: number, wav: Wav) => Promise<Cut>} */
async function cutWav(file, rate, { start, align }) {
  const head = new DataView(await file.slice(0, start).arrayBuffer());
  // The header's size is wrong in files that were streamed or cut.
  const size = Math.min(head.getUint32(start - 4, true), file.size - start);
  const frames = Math.floor(size / align);
  const end = start + frames * align;
  const step = align * Math.ceil(kPartBytes / align);
  function* parts() {
    for (let at = start; at < end; at += step) {
      const to = Math.min(end, at + step);
      head.setUint32(start - 4, to - at, true);
      yield { bytes: [head, file.slice(at, to)], done: to / end };
    }
  }
  return { rate, frames, parts: parts() };
}

/** @type {(file: File, start: number) => AsyncIterable<Part>} */
async function* flacParts(file, start) {
  // The length and the checksum of a part are not known, so both are 0.
  const head = new Uint8Array(await file.slice(0, kFlacBytes).arrayBuffer());
  head[4] = 0x80; // the last block before the frames
  head[21] &= 0xf0;
  head.fill(0, 22);
  for (let at = start; at < file.size;) {
    const end = await flacFrame(file, start, at + kFlacPartBytes);
    yield { bytes: [head, file.slice(at, end)], done: end / file.size };
    at = end;
  }
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

/** @type {(view: DataView, rate: number, start: number) => Cut} */
function cutMp3(view, rate, start) {
  const head = view.getUint32(start);
  const isOne = ((head >>> 19) & 1) === 1; // MPEG-1
  const isMono = ((head >>> 6) & 3) === 3;
  const size = isOne ? 1152 : 576;
  const file = /** @type {ArrayBuffer} */ (view.buffer);
  const frames = mp3Frames(view, rate, start, isOne);
  const count = frames.length - 1;
  const tag = start + 4 + (isOne ? (isMono ? 17 : 32) : isMono ? 9 : 17);
  const [skipped, cut] = mp3Ends(view, tag, count, size);
  // The frame with the tag is left out: some browsers cut the end of the first part as the tag tells.
  const silent = skipped > 0 ? 1 : 0;
  function* parts() {
    for (let from = 0; from < count; from += kMp3Part) {
      const to = Math.min(count, from + kMp3Part);
      const at = frames[Math.max(silent, from - kMp3Lead)];
      const bytes = [new Uint8Array(file, at, frames[to] - at)];
      yield { bytes, end: to * size - skipped, done: to / count };
    }
  }
  return { rate, frames: count * size - skipped - cut, parts: parts() };
}

// Returns where each frame starts and the last one ends. Throws an Error if something else than tags
// stands between or behind them, or if the rate or the number of channels changes.
/** @type {(view: DataView, rate: number, start: number, isOne: boolean) => number[]} */
function mp3Frames(view, rate, start, isOne) {
  const first = view.getUint32(start);
  const isMono = (/** @type {number} */ head) => ((head >>> 6) & 3) === 3;
  const frames = [];
  let at = start;
  while (at + 4 <= view.byteLength) {
    const head = view.getUint32(at);
    const bitRate = kMp3Rates[isOne ? 0 : 1][(head >>> 12) & 15];
    const isFrame = ((head ^ first) & 0xfffe0c00) === 0 && isMono(head) === isMono(first);
    if (!isFrame || !bitRate) break;
    frames.push(at);
    at += Math.floor(((isOne ? 144000 : 72000) * bitRate) / rate) + ((head >>> 9) & 1);
  }
  const rest = new Uint8Array(view.buffer).subarray(at, at + 8);
  const isTag = /^(TAG|APETAGEX)/.test(String.fromCharCode(...rest));
  if (at !== view.byteLength && !isTag) throw new Error("no frame");
  return [...frames, at];
}

// Returns how many samples browsers skip at the start and at the end. A frame at the start, without
// sound, tells the encoder's delay and what it added at the end.
/** @type {(view: DataView, tag: number, count: number, size: number) => [number, number]} */
function mp3Ends(view, tag, count, size) {
  const name = view.getUint32(tag);
  if (name !== 0x58696e67 && name !== 0x496e666f) return [0, 0]; // "Xing" and "Info"
  const kAllFields = 15;
  if (view.getUint32(tag + 4) !== kAllFields || view.getUint32(tag + 8) !== count - 1)
    throw new Error("the tag does not fit the frames");
  const ends = view.getUint32(tag + 140);
  const delay = (ends >>> 12) & 0xfff;
  return [size + delay + kMp3Late, Math.max(0, (ends & 0xfff) - kMp3Late)];
}
