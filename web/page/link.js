// The settings behind the # of the page's address: a settings file's lines, joined by &.
import { readSettings, settingsText } from "../rules.js";

export function linkTo(state, address) {
  const lines = settingsText(state.all()).replaceAll(" ", "").trim();
  return `${address.split("#")[0]}#${lines.replaceAll("\n", "&")}`;
}

// Values by key, or null if the address has none. Throws an Error that tells what is wrong.
export function settingsIn(address) {
  const hash = address.split("#")[1] ?? "";
  if (hash === "") return null;
  return readSettings(decodeURIComponent(hash).replaceAll("&", "\n"));
}
