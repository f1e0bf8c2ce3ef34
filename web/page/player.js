// The player's panel: play, seek, loop, before and after, equally loud.
import { surfaceOf } from "./canvas.js";
import { drawWave, outlineOf } from "./draw_wave.js";

const kColumns = 240;

const byId = (id) => document.getElementById(id);

// onMove: something on the page moves from now on. tell(text) shows and speaks a message.
export function makePlayer(sound, { onMove, tell }) {
  let outline = new Float32Array(kColumns);
  let loudness = null;  // of the whole piece, before and after, LUFS
  const side = () => document.querySelector("[name=side]:checked").value;

  async function play() {
    try {
      if (sound.isPlaying()) sound.pause();
      else await sound.play();
    } catch (error) {
      tell(`No sound: ${error.message}`);
    }
    showPlaying();
    onMove();
  }

  function showPlaying() {
    document.body.classList.toggle("playing", sound.isPlaying());
    byId("play-word").textContent = sound.isPlaying() ? "Pause" : "Play";
  }

  // The louder side is turned down, so that nothing is louder than it came.
  function compare() {
    const difference = loudness === null ? 0 : loudness.after - loudness.before;
    const matched = byId("equal").checked && Number.isFinite(difference) ? difference : 0;
    const gainOf = (db) => 10 ** (Math.min(0, db) / 20);
    sound.compare(side(), { before: gainOf(matched), after: gainOf(-matched) });
    byId("match").textContent = matchText(loudness, matched, byId("equal").checked);
    onMove();
  }

  function setLoudness(wanted) {
    loudness = wanted;
    compare();
  }

  function load(piece) {
    sound.load(piece);
    outline = outlineOf(piece.channels, kColumns);
    byId("piece-name").textContent = piece.name;
    byId("piece-format").textContent =
      `${piece.rate / 1000} kHz, ${piece.channels.length === 1 ? "mono" : "stereo"}`;
    byId("seek").max = sound.duration();
    showPlaying();
    setLoudness(null);
  }

  function draw(colours) {
    const { context, width, height } = surfaceOf(byId("wave"));
    const at = sound.position(), whole = sound.duration();
    drawWave(context, width, height, outline, at / whole, colours[side()], colours);
    byId("seek").value = at;
    byId("seek").setAttribute("aria-valuetext", `${clock(at)} of ${clock(whole)}`);
    byId("time").textContent = `${clock(at)} / ${clock(whole)}`;
  }

  byId("play").addEventListener("click", play);
  byId("seek").addEventListener("input", (event) => {
    sound.seek(Math.min(event.target.valueAsNumber, sound.duration() - 0.01));
    onMove();
  });
  byId("loop").addEventListener("change", (event) => sound.loop(event.target.checked));
  byId("equal").addEventListener("change", compare);
  for (const input of document.querySelectorAll("[name=side]"))
    input.addEventListener("change", compare);
  document.addEventListener("keydown", (event) => {
    if (event.repeat || event.ctrlKey || event.metaKey || event.altKey) return;
    if (event.target.matches("[type=number]")) return;
    if (event.key.toLowerCase() === "b") {
      const other = document.querySelector("[name=side]:not(:checked)");
      other.checked = true;
      byId("spoken").textContent = side();
      compare();
    } else if (event.key === " " && !event.target.matches("button, input:not([type=range]), summary")) {
      event.preventDefault();
      play();
    }
  });
  return { load, draw, setLoudness, showPlaying };
}

function matchText(loudness, matched, isEqual) {
  if (!isEqual) return "off: before is a plain bypass";
  if (loudness === null) return "measuring…";
  if (Math.abs(matched) < 0.05) return "both as they are";
  return `${matched > 0 ? "after" : "before"} −${Math.abs(matched).toFixed(1)} dB`;
}

function clock(seconds) {
  const whole = Math.floor(seconds);
  return `${Math.floor(whole / 60)}:${String(whole % 60).padStart(2, "0")}`;
}
