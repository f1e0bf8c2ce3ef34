// A dropped file as samples, at its own rate where the chain can take it.
import { fromDecoded } from "../samples.js";

// 44100 or 48000: at which the file is decoded. Read from the headers of WAV, FLAC and Ogg Vorbis;
// what can't be told, and every other rate, is 48000.
export function rateOf(bytes) {
  const view = new DataView(bytes);
  const has = (text, at) =>
    at + text.length <= view.byteLength &&
    [...text].every((letter, n) => view.getUint8(at + n) === letter.charCodeAt(0));
  let rate = 0;
  if (has("RIFF", 0) && has("WAVE", 8)) rate = wavRate(view, has);
  else if (has("fLaC", 0) && view.byteLength >= 22) rate = view.getUint32(18) >>> 12;
  else if (has("OggS", 0) && has("\x01vorbis", 28) && view.byteLength >= 44)
    rate = view.getUint32(40, true);
  else rate = mpegRate(view, has);
  return rate === 44100 ? 44100 : 48000;
}

function wavRate(view, has) {
  let at = 12;
  while (at + 16 <= view.byteLength) {
    if (has("fmt ", at)) return view.getUint32(at + 12, true);
    const size = view.getUint32(at + 4, true);
    at += 8 + size + (size % 2);
  }
  return 0;
}

// Of the first frame's header behind an ID3 tag (ISO 11172-3, 2.4.1.3).
function mpegRate(view, has) {
  let at = 0;
  if (has("ID3", 0) && view.byteLength >= 10)
    at = 10 + [6, 7, 8, 9].reduce((size, n) => size * 128 + view.getUint8(n), 0);
  if (at + 4 > view.byteLength || view.getUint16(at) >>> 5 !== 0x7ff) return 0;
  return [44100, 48000, 32000][(view.getUint8(at + 2) >>> 2) & 3] ?? 0;
}

// {name, rate, channels}: one or two arrays of samples, those of a 16-bit file exactly s / 32768.
// Throws an Error that says what to do. Of more than two channels the first two are taken.
export async function readAudio(file) {
  const bytes = await file.arrayBuffer();
  try {
    return await decode(file.name, bytes, rateOf(bytes));
  } catch {
    throw new Error(`${file.name} is not a sound file that this browser can read. ` +
                    "WAV, FLAC and MP3 are read everywhere.");
  }
}

// The piece and the settings that stand in the page itself, as {name, rate, settings, source},
// source a sound file in base64.
export async function readEmbedded(element) {
  const { name, rate, settings, source } = JSON.parse(element.textContent);
  const bytes = Uint8Array.from(atob(source), (letter) => letter.charCodeAt(0));
  return { piece: await decode(name, bytes.buffer, rate), settings };
}

async function decode(name, bytes, rate) {
  const audio = await new OfflineAudioContext(2, 1, rate).decodeAudioData(bytes);
  const channels = Array.from({ length: Math.min(2, audio.numberOfChannels) },
                              (_, n) => audio.getChannelData(n));
  channels.forEach(fromDecoded);
  return { name, rate, channels };
}
