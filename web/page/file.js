// A dropped file as samples, at its own rate where the chain can take it.

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

// Throws an Error that says what to do. Mono becomes two equal channels, of more than two the first
// two are taken.
export async function readAudio(file) {
  const bytes = await file.arrayBuffer();
  const rate = rateOf(bytes);
  let audio;
  try {
    audio = await new OfflineAudioContext(2, 1, rate).decodeAudioData(bytes);
  } catch {
    throw new Error(`${file.name} is not a sound file that this browser can read. ` +
                    "WAV, FLAC, MP3 and Ogg are read everywhere.");
  }
  if (audio.length === 0) throw new Error(`${file.name} has no sound in it.`);
  const channels = [0, audio.numberOfChannels > 1 ? 1 : 0].map((n) => audio.getChannelData(n));
  return { name: file.name, rate, channels };
}
