// Cuts Ogg and MP4 files into parts (see frames.js).

/** @import { Cut } from "./frames.js" */

const kPartSeconds = 25;
// Decoders of Ogg Vorbis, Opus and AAC have settled after this time.
const kLeadSeconds = 2;
const kAacRates = [
  96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350,
];
const kAacFrame = 1024;

// Cuts Ogg Vorbis and Opus between pages (RFC 3533, 6). Each page tells the frame at which it ends.
/** @type {(view: DataView, rate: number) => Cut} */
export function cutOgg(view, rate) {
  const bytes = new Uint8Array(/** @type {ArrayBuffer} */ (view.buffer));
  const skipped = bytes[28] === 1 ? 0 : view.getUint16(38, true); // Opus (RFC 7845, 5.1)
  /** @type {{ at: number, frame: number }[]} frame: -1 if no packet ends in the page */
  const pages = [];
  let at = 0;
  while (at < bytes.length) {
    const isPage =
      view.getUint32(at) === 0x4f676753 && view.getUint32(at + 14) === view.getUint32(14);
    if (!isPage) throw new Error("no page, or another stream");
    pages.push({ at, frame: Number(view.getBigInt64(at + 6, true)) });
    const sizes = bytes.subarray(at + 27, at + 27 + bytes[at + 26]);
    at += sizes.reduce((sum, size) => sum + size, 27 + sizes.length);
  }
  pages.push({ at, frame: -1 });
  const head = pages.findLastIndex(({ frame }) => frame === 0) + 1;
  const last = pages.findLastIndex(({ frame }) => frame > 0);
  function* parts() {
    let from = head;
    for (let n = head, before = 0; n <= last; ++n) {
      const { frame } = pages[n];
      if (frame < before + kPartSeconds * rate && n !== last) continue;
      const run = bytes.subarray(pages[from].at, pages[n + 1].at);
      yield {
        bytes: [bytes.subarray(0, pages[head].at), run],
        end: frame - skipped,
        done: n / last,
      };
      before = frame;
      const enough = frame - kLeadSeconds * rate;
      const lead = pages.findLastIndex(({ frame }, k) => k < n && frame > 0 && frame <= enough);
      from = Math.max(head, lead + 1);
    }
  }
  return { rate, frames: pages[last].frame - skipped, parts: parts() };
}

// Cuts AAC in MP4 between its frames (ISO 14496-12, 8) into ADTS streams (ISO 13818-7, 6.2).
/** @type {(file: File) => Promise<Cut>} */
export async function cutMp4(file) {
  const movie = await movieOf(file);
  const table = boxAt(movie, "trak/mdia/minf/stbl");
  const { index, channels } = aacConfig(boxAt(from(boxAt(table, "stsd"), 8), "mp4a"));
  // Low rates may be half of what a decoder gives, with the band replicated above (HE-AAC).
  const factor = kAacRates[index] > 24000 ? 1 : 2;
  const rate = factor * kAacRates[index];
  const size = factor * kAacFrame;
  const frames = aacFrames(table);
  const count = frames.length;
  const timeScale = (/** @type {DataView} */ box) => box.getUint32(box.getUint8(0) === 1 ? 20 : 12);
  // The edit list tells what is skipped at the start, and how long the piece is.
  const edits = boxAt(movie, "trak/edts/elst");
  let skipped = 0;
  let length = count * size;
  if (edits.byteLength > 0) {
    const isPlain = edits.getUint32(0) === 0 && edits.getUint32(4) === 1;
    skipped = (edits.getUint32(12) * rate) / timeScale(boxAt(movie, "trak/mdia/mdhd"));
    const wanted = Math.round((edits.getUint32(8) * rate) / timeScale(boxAt(movie, "mvhd")));
    length = Math.min(length - skipped, wanted);
    if (!isPlain || !(length > 0) || !Number.isInteger(skipped)) throw new Error("other edits");
  }
  async function* parts() {
    const step = Math.ceil((kPartSeconds * rate) / size);
    const lead = Math.ceil((kLeadSeconds * rate) / size);
    for (let first = 0; first < count; first += step) {
      const to = Math.min(count, first + step);
      const run = frames.slice(Math.max(0, first - lead), to);
      const start = run[0].at;
      const end = run[run.length - 1].at + run[run.length - 1].size;
      const bytes = new Uint8Array(await file.slice(start, end).arrayBuffer());
      const stream = run.flatMap((one) => [
        adtsHeader(index, channels, one.size),
        bytes.subarray(one.at - start, one.at - start + one.size),
      ]);
      yield { bytes: stream, end: to * size - skipped, done: to / count };
    }
  }
  return { rate, frames: length, parts: parts() };
}

/** @type {(file: File) => Promise<DataView>} */
async function movieOf(file) {
  for (let at = 0; at + 16 <= file.size;) {
    const head = new DataView(await file.slice(at, at + 16).arrayBuffer());
    const size = head.getUint32(0) === 1 ? Number(head.getBigUint64(8)) : head.getUint32(0);
    if (nameAt(head, 4) === "moov")
      return new DataView(await file.slice(at + 8, at + size).arrayBuffer());
    if (size < 8) break;
    at += size;
  }
  throw new Error("no movie");
}

/** @type {(view: DataView, at: number) => string} */
const nameAt = (view, at) =>
  String.fromCharCode(...new Uint8Array(view.buffer, view.byteOffset + at, 4));
/** @type {(view: DataView, at: number) => DataView} */
const from = (view, at) => new DataView(view.buffer, view.byteOffset + at, view.byteLength - at);

// Returns the content of the first box at a path, or nothing, which can't be read from.
/** @type {(view: DataView, path: string) => DataView} */
function boxAt(view, path) {
  const [name, ...rest] = path.split("/");
  for (let at = 0; at + 8 <= view.byteLength;) {
    const size = view.getUint32(at);
    if (size < 8) break;
    if (nameAt(view, at + 4) === name) {
      const box = new DataView(view.buffer, view.byteOffset + at + 8, size - 8);
      return rest.length === 0 ? box : boxAt(box, rest.join("/"));
    }
    at += size;
  }
  return new DataView(new ArrayBuffer(0));
}

// Returns the index of the rate and the number of channels. Throws an Error unless it is AAC-LC or
// HE-AAC.
/** @type {(entry: DataView) => { index: number, channels: number }} */
function aacConfig(entry) {
  const descriptor = boxAt(from(entry, 28), "esds");
  let at = 4;
  // A tag and a length of up to four bytes.
  const open = () => {
    do ++at;
    while (descriptor.getUint8(at) & 0x80);
    ++at;
  };
  open();
  at += 3;
  open();
  const isAac = descriptor.getUint8(at) === 0x40;
  at += 13;
  open();
  const config = descriptor.getUint16(at);
  const index = (config >>> 7) & 15;
  const channels = (config >>> 3) & 15;
  const isKnown = [2, 5, 29].includes(config >>> 11) && index < kAacRates.length;
  if (!isAac || !isKnown || channels === 0 || channels > 7) throw new Error("another codec");
  return { index, channels };
}

// Returns where the frames stand in the file.
/** @type {(table: DataView) => { at: number, size: number }[]} */
function aacFrames(table) {
  const [sizes, runs, chunks] = ["stsz", "stsc", "stco"].map((name) => boxAt(table, name));
  /** @type {{ at: number, size: number }[]} */
  const frames = [];
  for (let chunk = 0, run = 0; chunk < chunks.getUint32(4); ++chunk) {
    if (run + 1 < runs.getUint32(4) && runs.getUint32(20 + 12 * run) === chunk + 1) ++run;
    let at = chunks.getUint32(8 + 4 * chunk);
    for (let left = runs.getUint32(12 + 12 * run); left > 0; --left) {
      frames.push({ at, size: sizes.getUint32(4) || sizes.getUint32(12 + 4 * frames.length) });
      at += frames[frames.length - 1].size;
    }
  }
  if (frames.length !== sizes.getUint32(8)) throw new Error("some frames are missing");
  return frames;
}

// AAC-LC, without a checksum, and with a buffer of unknown fullness.
/** @type {(index: number, channels: number, bytes: number) => Uint8Array<ArrayBuffer>} */
function adtsHeader(index, channels, bytes) {
  const size = bytes + 7;
  return Uint8Array.of(
    0xff,
    0xf1,
    0x40 | (index << 2) | (channels >>> 2),
    ((channels & 3) << 6) | (size >>> 11),
    (size >>> 3) & 255,
    ((size & 7) << 5) | 31,
    0xfc,
  );
}
