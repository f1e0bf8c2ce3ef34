// Exports what the package offers, which is exactly what package/index.d.ts declares.
export { measure, renderWav } from "./offline.js";
export { OrvaneNode } from "./orvane_node.js";
export { fromDecoded } from "./samples.js";
export { parameters, presets } from "./table.js";
