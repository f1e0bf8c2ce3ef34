// The module that this browser can run: with 128-bit vectors, or without.
import { plainModule, vectorModule } from "./embedded.js";

const bytesOf = (base64) => Uint8Array.from(atob(base64), (letter) => letter.charCodeAt(0));

let chosen;
export function moduleBytes() {
  if (chosen === undefined) {
    const vectors = bytesOf(vectorModule);
    chosen = WebAssembly.validate(vectors) ? vectors : bytesOf(plainModule);
  }
  return chosen;
}
