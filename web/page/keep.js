// Saves the result and the settings, and makes a link to the settings.
import { readSettings, settingsText } from "../rules.js";
import { byId, inputById } from "./dom.js";

/** @import { Settings } from "../package/index.d.ts" */
/** @import { State } from "./state.js" */

// The settings stand behind the # of the page's address: the lines of a settings file, joined by &.
/** @type {(state: State, address: string) => string} */
export function linkTo(state, address) {
  const lines = settingsText(state.all()).replaceAll(" ", "").trim();
  return `${address.split("#")[0]}#${lines.replaceAll("\n", "&")}`;
}

// Returns the settings in an address, or null if it has none. Throws an Error that says what is
// wrong.
/** @type {(address: string) => Settings | null} */
export function settingsIn(address) {
  const hash = address.split("#")[1] ?? "";
  if (hash === "") return null;
  return readSettings(decodeURIComponent(hash).replaceAll("&", "\n"));
}

// Returns the name of the result of a piece: "song.mp3" becomes "song-orvane.wav".
/** @type {(piece: string) => string} */
const resultName = (piece) => `${piece.replace(/\.[^.]*$/, "")}-orvane.wav`;

// `renderWav` returns the result as a Blob and tells its progress from 0 to 1. `pieceName` returns
// the name of the piece. `tell` shows a message. Returns a function that opens a settings file.
/**
 * @param {State} state
 * @param {{
 *   renderWav: (onProgress: (part: number) => void) => Promise<Blob>,
 *   pieceName: () => string,
 *   tell: (text: string) => void,
 * }} page
 */
export function makeKeep(state, { renderWav, pieceName, tell }) {
  const button = /** @type {HTMLButtonElement} */ (byId("save-wav"));
  button.addEventListener("click", async () => {
    button.disabled = true;
    const name = resultName(pieceName());
    try {
      save(await renderWav((part) => tell(`Rendering… ${Math.floor(100 * part)} %`)), name);
      tell("");
    } catch (error) {
      tell(`Not saved: ${/** @type {Error} */ (error).message}`);
    }
    button.disabled = false;
  });
  byId("save-settings").addEventListener("click", () =>
    save(new Blob([settingsText(state.all())], { type: "text/plain" }), "orvane-settings.txt"),
  );
  byId("copy-link").addEventListener("click", async () => {
    const link = linkTo(state, location.href);
    history.replaceState(null, "", link);
    try {
      await navigator.clipboard.writeText(link);
      tell("The link is copied.");
    } catch {
      tell("The address of this page is now the link. Copy it from the address bar.");
    }
  });
  const input = inputById("settings-file");
  input.addEventListener("change", async () => {
    const file = input.files?.[0];
    input.value = "";
    if (file !== undefined) open(file);
  });

  /** @param {File} file */
  async function open(file) {
    try {
      state.replace(readSettings(await file.text()));
      tell(`The settings of ${file.name} are in use.`);
    } catch (error) {
      tell(`${file.name} is not a settings file: ${/** @type {Error} */ (error).message}`);
    }
  }
  return open;
}

/** @type {(blob: Blob, name: string) => void} */
function save(blob, name) {
  const link = document.createElement("a");
  Object.assign(link, { href: URL.createObjectURL(blob), download: name });
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 60000);
}
