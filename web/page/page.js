// Connects the parts of the page. What each part does stands in its own module.
import { measure, renderWav } from "../offline.js";
import * as rules from "../rules.js";
import { parameters, presets } from "../table.js";
import { makeControls, makePresets } from "./controls.js";
import { byId, coloursNow, inputById } from "./dom.js";
import { pieceOf, readAudio, readEmbedded } from "./file.js";
import { linkTo, makeKeep, settingsIn } from "./keep.js";
import { makeLevelsPanel } from "./levels_panel.js";
import { makePiece } from "./piece.js";
import { makePlayer } from "./player.js";
import { createSound } from "./sound.js";
import { createState } from "./state.js";
import { makeTonePanel } from "./tone_panel.js";

/** @import { Loudness } from "../package/index.d.ts" */
/** @import { NamedPiece } from "../types.d.ts" */

const kPieceRate = 48000;
// After the last move of a slider, one measurement starts this much later.
const kSettleMs = 200;
// Meters and spectra still fall for this long after the sound has ended.
const kAfterglowMs = 4000;
const kMessageMs = 8000;

const seconds = () => performance.now() / 1000;

await rules.ready();
const state = createState(parameters);
/** @type {NamedPiece | null} */
let piece = null;
let colours = coloursNow();
let movesUntil = 0;
let isDrawing = false;
/** @type {ReturnType<typeof setTimeout> | undefined} */
let messageTimer;
/** @type {ReturnType<typeof setTimeout> | undefined} */
let weighTimer;

// Shows a message for some seconds, or as long as something is going on that can be cancelled.
/** @param {string} text @param {(() => void) | null} cancel */
function tell(text, cancel = null) {
  byId("message").textContent = text;
  byId("progress").textContent = "";
  byId("cancel").hidden = cancel === null;
  byId("cancel").onclick = cancel;
  clearTimeout(messageTimer);
  if (cancel === null)
    messageTimer = setTimeout(() => (byId("message").textContent = ""), kMessageMs);
}
/** @param {unknown} error */
const tellError = (error) => tell(/** @type {Error} */ (error).message);

const levels = makeLevelsPanel();
const sound = createSound(state, {
  onMeter: (meter) => levels.take(meter, seconds()),
  onEnd: () => player.showPlaying(),
});
const player = makePlayer(sound, { onMove: move, tell });

function takeLink() {
  try {
    state.replace(settingsIn(location.href) ?? presets[0].values);
  } catch (error) {
    tell(`The link's settings are not used: ${/** @type {Error} */ (error).message}`);
    return false;
  }
  return true;
}
if (!takeLink()) state.replace(presets[0].values);
addEventListener("hashchange", takeLink);

const tonePanel = makeTonePanel(state, () => piece?.rate ?? kPieceRate, move);
makePresets(state);
makeControls(
  state,
  state.levels().map((_, band) => rules.bandHz(band, kPieceRate)),
);
const openSettings = makeKeep(state, {
  renderWav: (onProgress) => renderWav(/** @type {NamedPiece} */ (piece), state.all(), onProgress),
  pieceName: () => piece?.name ?? "",
  tell,
});

// Draws in every frame while something moves.
function move() {
  movesUntil = performance.now() + kAfterglowMs;
  if (isDrawing) return;
  isDrawing = true;
  requestAnimationFrame(draw);
}

function draw() {
  isDrawing = false;
  if (piece === null) return;
  player.draw(colours);
  tonePanel.draw(sound.spectra(), colours);
  levels.draw(seconds(), colours);
  isDrawing = sound.isPlaying() || performance.now() < movesUntil;
  if (isDrawing) requestAnimationFrame(draw);
}

/** @param {NamedPiece} wanted */
function load(wanted) {
  piece = wanted;
  player.load(piece);
  levels.clear();
  tonePanel.update();
  weigh();
  move();
}

// Measures the loudness of the whole piece before and after. The first figures come at once and
// then become more exact.
function weigh() {
  if (piece === null) return;
  levels.showWhole(null);
  /** @param {Loudness} loudness */
  const show = (loudness) => {
    player.setLoudness(loudness);
    levels.showWhole(loudness);
  };
  measure(piece, state.all(), show).then(show, tellError);
}

/** @type {object | null} the reading that is going on */
let reading = null;
/** @param {File} file */
async function open(file) {
  const mine = {};
  reading = mine;
  const start = seconds();
  tell(`Reading ${file.name}…`, () => {
    reading = null;
    tell(`${file.name} was not opened.`);
  });
  /** @param {number | null} part */
  const step = (part) => {
    if (reading !== mine) return false;
    const time = Math.floor(seconds() - start);
    byId("progress").textContent = part === null ? `${time} s` : `${Math.floor(100 * part)} %`;
    return true;
  };
  const ticks = setInterval(() => {
    if (reading === mine && !byId("progress").textContent?.includes("%")) step(null);
  }, 1000);
  try {
    const read = await readAudio(file, step);
    if (read === null || reading !== mine) return;
    reading = null;
    load(read);
    tell(`${file.name} is ready.`);
  } catch (error) {
    if (reading !== mine) return;
    reading = null;
    tellError(error);
  } finally {
    clearInterval(ticks);
  }
}

/** @param {DataTransfer} data */
function openDropped({ files }) {
  const [file] = files;
  if (file === undefined)
    tell("Only files can be dropped: this page loads nothing from the network.");
  else if (files.length > 1) tell("Drop one file at a time.");
  else if (/\.(conf|txt)$/i.test(file.name)) openSettings(file);
  else open(file);
}

state.listen(() => {
  levels.clearPeaks();
  move();
  clearTimeout(weighTimer);
  weighTimer = setTimeout(() => {
    weigh();
    history.replaceState(null, "", linkTo(state, location.href));
  }, kSettleMs);
});
inputById("file").addEventListener("change", () => {
  const file = inputById("file").files?.[0];
  if (file !== undefined) open(file);
  inputById("file").value = "";
});
for (const type of /** @type {const} */ (["dragenter", "dragover", "dragleave", "drop"]))
  document.addEventListener(type, (event) => {
    event.preventDefault();
    document.body.classList.toggle("dropping", type === "dragover");
    if (type === "drop" && event.dataTransfer !== null) openDropped(event.dataTransfer);
  });
addEventListener("resize", () => {
  tonePanel.layOut();
  move();
});
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
  colours = coloursNow();
  move();
});

const embedded = document.getElementById("orvane-piece");
if (embedded === null) {
  load(pieceOf("Built-in piece", kPieceRate, makePiece(kPieceRate)));
} else {
  const { piece: wanted, settings } = await readEmbedded(embedded);
  if (location.hash === "") state.replace(settings);
  load(wanted);
}
