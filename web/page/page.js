// The page's wiring: who tells whom. What each part does stands in its own module.
import { measure, renderWav } from "../offline.js";
import * as rules from "../rules.js";
import { parameters, presets } from "../table.js";
import { coloursNow } from "./canvas.js";
import { makeControls } from "./controls.js";
import { readAudio, readEmbedded } from "./file.js";
import { makeKeep } from "./keep.js";
import { makeLevelsPanel } from "./levels_panel.js";
import { linkTo, settingsIn } from "./link.js";
import { makePiece } from "./piece.js";
import { makePlayer } from "./player.js";
import { makePresets } from "./presets.js";
import { createSound } from "./sound.js";
import { createState } from "./state.js";
import { makeTonePanel } from "./tone_panel.js";

const kPieceRate = 48000;
// A slider that moves asks for one measurement, not for fifty.
const kSettleMs = 200;
// What still falls after the sound has ended: meters, spectra.
const kAfterglowMs = 4000;

const byId = (id) => document.getElementById(id);
const seconds = () => performance.now() / 1000;

await rules.ready();
const state = createState(parameters);
let piece = null;  // {name, rate, channels}: one or two arrays of samples
let colours = coloursNow();
let movesUntil = 0;
let isDrawing = false;

function tell(text) {
  byId("message").textContent = text;
  clearTimeout(tell.timer);
  tell.timer = setTimeout(() => (byId("message").textContent = ""), 8000);
}

const levels = makeLevelsPanel();
const sound = createSound(state, {
  onMeter: (meter) => levels.take(meter, seconds()),
  onEnd: () => player.showPlaying(),
});
const player = makePlayer(sound, { onMove: move, tell });

try {
  state.replace(settingsIn(location.href) ?? presets[0].values);
} catch (error) {
  state.replace(presets[0].values);
  tell(`The link's settings are not used: ${error.message}`);
}
const tonePanel = makeTonePanel(state, rules, () => piece?.rate ?? kPieceRate, move);
makePresets(byId("presets"), byId("preset-text"), state, presets);
makeControls(byId("groups"), state,
             Array.from({ length: state.levels().length }, (_, band) => rules.bandHz(band, kPieceRate)));
makeKeep(state, { renderWav: () => renderWav(piece, state.all()), pieceName: () => piece.name, tell });

// The loop runs while something moves.
function move() {
  movesUntil = performance.now() + kAfterglowMs;
  if (isDrawing) return;
  isDrawing = true;
  requestAnimationFrame(draw);
}

function draw() {
  player.draw(colours);
  tonePanel.draw(sound.spectra(), colours);
  levels.draw(seconds(), colours);
  isDrawing = sound.isPlaying() || performance.now() < movesUntil;
  if (isDrawing) requestAnimationFrame(draw);
}

function load(wanted) {
  piece = wanted;
  player.load(piece);
  levels.clear();
  tonePanel.update();
  weigh();
  move();
}

// How loud the piece is before and after, as a whole: the first figures come at once, then better.
function weigh() {
  if (piece === null) return;
  levels.showWhole(null);
  const show = (loudness) => {
    player.setLoudness(loudness);
    levels.showWhole(loudness);
  };
  measure(piece, state.all(), show).then(show, (error) => tell(error.message));
}

async function open(file) {
  tell(`Reading ${file.name}…`);
  try {
    load(await readAudio(file));
    tell(`${file.name} is ready.`);
  } catch (error) {
    tell(error.message);
  }
}

state.listen(() => {
  levels.clearPeaks();
  move();
  clearTimeout(weigh.timer);
  weigh.timer = setTimeout(() => {
    weigh();
    history.replaceState(null, "", linkTo(state, location.href));
  }, kSettleMs);
});
byId("file").addEventListener("change", ({ currentTarget: input }) => {
  if (input.files.length > 0) open(input.files[0]);
  input.value = "";
});
for (const type of ["dragenter", "dragover", "dragleave", "drop"])
  document.addEventListener(type, (event) => {
    event.preventDefault();
    document.body.classList.toggle("dropping", type === "dragover");
    if (type === "drop" && event.dataTransfer.files.length > 0) open(event.dataTransfer.files[0]);
  });
addEventListener("resize", () => {
  tonePanel.layOut();
  move();
});
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
  colours = coloursNow();
  move();
});

const embedded = byId("orvane-piece");
if (embedded === null) {
  load({ name: "Built-in piece", rate: kPieceRate, channels: makePiece(kPieceRate) });
} else {
  const { piece: wanted, settings } = await readEmbedded(embedded);
  if (location.hash === "") state.replace(settings);
  load(wanted);
}
