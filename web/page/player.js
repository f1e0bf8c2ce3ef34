// The player's panel: play, seek, loop, before and after, equally loud.
import { byId, inputById, surfaceOf } from "./dom.js";
import { drawWave, peakOf } from "./draw.js";

/** @import { Loudness } from "../package/index.d.ts" */
/** @import { Colours, NamedPiece, Sides } from "../types.d.ts" */

const kColumns = 240;
// The longest time that the page takes no click while it makes the outline of a long piece.
const kBusyMs = 12;
// Space presses these controls if Tab has reached them.
const kPressed = "button, summary, [type=checkbox], [type=radio]:not(:checked), [type=file]";

const chosen = () =>
  /** @type {HTMLInputElement} */ (document.querySelector("[name=side]:checked"));
const side = () => /** @type {keyof Sides<any>} */ (chosen().value);

// `onMove` is called when something on the page moves from now on. `tell` shows a message.
/**
 * @param {ReturnType<typeof import("./sound.js").createSound>} sound
 * @param {{ onMove: () => void, tell: (text: string) => void }} page
 */
export function makePlayer(sound, { onMove, tell }) {
  let outline = new Float32Array(kColumns);
  /** @type {Loudness | null} of the whole piece, LUFS */
  let loudness = null;

  async function play() {
    try {
      if (sound.isPlaying()) sound.pause();
      else await sound.play();
    } catch (error) {
      tell(`No sound: ${/** @type {Error} */ (error).message}`);
    }
    showPlaying();
    onMove();
  }

  function showPlaying() {
    document.body.classList.toggle("playing", sound.isPlaying());
    byId("play-word").textContent = sound.isPlaying() ? "Pause" : "Play";
  }

  // Lowers the louder side to the other, so that neither becomes louder than it was.
  function compare() {
    const isEqual = inputById("equal").checked;
    const difference = loudness === null ? 0 : loudness.after - loudness.before;
    const matched = isEqual && Number.isFinite(difference) ? difference : 0;
    /** @param {number} db */
    const gainOf = (db) => 10 ** (Math.min(0, db) / 20);
    sound.compare(side(), { before: gainOf(matched), after: gainOf(-matched) });
    byId("match").textContent = matchText(loudness, matched, isEqual);
    onMove();
  }

  /** @param {Loudness | null} wanted null while it is not known */
  function setLoudness(wanted) {
    loudness = wanted;
    compare();
  }

  /** @param {NamedPiece} piece */
  function load(piece) {
    sound.load(piece);
    makeOutline(piece);
    byId("piece-name").textContent = byId("piece-name").title = piece.name;
    byId("piece-format").textContent =
      `${piece.rate / 1000} kHz, ${piece.channels.length === 1 ? "mono" : "stereo"}`;
    inputById("seek").max = `${sound.duration()}`;
    showPlaying();
    setLoudness(null);
  }

  // Makes the outline column by column, with pauses in which the page takes clicks.
  /** @param {NamedPiece} piece */
  async function makeOutline({ channels }) {
    const mine = new Float32Array(kColumns);
    outline = mine;
    let start = performance.now();
    for (let column = 0; column < kColumns && outline === mine; ++column) {
      mine[column] = peakOf(channels, column, kColumns) / 32768;
      if (performance.now() - start < kBusyMs) continue;
      onMove();
      await new Promise((resolve) => setTimeout(resolve));
      start = performance.now();
    }
  }

  /** @param {Colours} colours */
  function draw(colours) {
    const { context, width, height } = surfaceOf("wave");
    const at = sound.position();
    const whole = sound.duration();
    drawWave(context, width, height, outline, at / whole, colours[side()], colours);
    inputById("seek").value = `${at}`;
    byId("seek").setAttribute("aria-valuetext", `${clock(at)} of ${clock(whole)}`);
    byId("time").textContent = `${clock(at)} / ${clock(whole)}`;
  }

  byId("play").addEventListener("click", play);
  byId("seek").addEventListener("input", () => {
    sound.seek(Math.min(inputById("seek").valueAsNumber, sound.duration() - 0.01));
    onMove();
  });
  byId("loop").addEventListener("change", () => sound.loop(inputById("loop").checked));
  byId("equal").addEventListener("change", compare);
  for (const input of document.querySelectorAll("[name=side]"))
    input.addEventListener("change", compare);

  // A click or touch leaves the focus on what it hit. Space then plays; it presses only what the
  // keyboard has reached. (Chromium's :focus-visible becomes true with the key itself.)
  let isByPointer = false;
  document.addEventListener("pointerdown", () => (isByPointer = true));
  /** @param {Element} target */
  const isPressed = (target) => target.matches(kPressed) && !isByPointer;
  let isTaken = false;
  document.addEventListener("keydown", (event) => {
    if (event.key === "Tab") isByPointer = false;
    const target = /** @type {Element} */ (event.target);
    if (event.ctrlKey || event.metaKey || event.altKey || target.matches("[type=number]")) return;
    if (event.key === " ") {
      isTaken = !isPressed(target);
      if (!isTaken) return;
      event.preventDefault();
      if (!event.repeat) play();
    } else if (event.key.toLowerCase() === "b" && !event.repeat) {
      const other = document.querySelector("[name=side]:not(:checked)");
      /** @type {HTMLInputElement} */ (other).checked = true;
      byId("spoken").textContent = side();
      compare();
    }
  });
  // Some browsers press a button when the key comes up.
  document.addEventListener("keyup", (event) => {
    if (event.key === " " && isTaken) event.preventDefault();
  });
  return { load, draw, setLoudness, showPlaying };
}

/** @type {(loudness: Loudness | null, matched: number, isEqual: boolean) => string} */
function matchText(loudness, matched, isEqual) {
  if (!isEqual) return "off: before is the file as it is";
  if (loudness === null) return "measuring…";
  if (Math.abs(matched) < 0.05) return "both as they are";
  return `${matched > 0 ? "after" : "before"} −${Math.abs(matched).toFixed(1)} dB`;
}

/** @param {number} seconds */
function clock(seconds) {
  const whole = Math.floor(seconds);
  return `${Math.floor(whole / 60)}:${String(whole % 60).padStart(2, "0")}`;
}
