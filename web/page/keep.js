// What is kept: the result, the settings, a link to them.
import { readSettings, settingsText } from "../rules.js";
import { linkTo } from "./link.js";

const byId = (id) => document.getElementById(id);

// renderWav() gives the result as a Blob, pieceName() what it is called; tell(text) shows a message.
export function makeKeep(state, { renderWav, pieceName, tell }) {
  byId("save-wav").addEventListener("click", async ({ currentTarget: button }) => {
    button.disabled = true;
    tell("Rendering…");
    try {
      save(await renderWav(), `${pieceName().replace(/\.[^.]*$/, "")}-orvane.wav`);
      tell("");
    } catch (error) {
      tell(`Not saved: ${error.message}`);
    }
    button.disabled = false;
  });
  byId("save-settings").addEventListener("click", () =>
    save(new Blob([settingsText(state.all())], { type: "text/plain" }), "orvane-settings.txt"));
  byId("copy-link").addEventListener("click", async () => {
    const link = linkTo(state, location.href);
    history.replaceState(null, "", link);
    try {
      await navigator.clipboard.writeText(link);
      tell("The link is copied.");
    } catch {
      tell("The link stands in the address line.");
    }
  });
  byId("settings-file").addEventListener("change", async ({ currentTarget: input }) => {
    const [file] = input.files;
    input.value = "";
    if (file !== undefined) open(file);
  });

  async function open(file) {
    try {
      state.replace(readSettings(await file.text()));
      tell(`The settings of ${file.name} are in use.`);
    } catch (error) {
      tell(`${file.name} is no settings file: ${error.message}`);
    }
  }
}

function save(blob, name) {
  const link = Object.assign(document.createElement("a"),
                             { href: URL.createObjectURL(blob), download: name });
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 60000);
}
