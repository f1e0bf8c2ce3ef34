// Compares two WebAssembly builds of the library. Both get the same music, and every output sample is
// compared. They are timed in turns, so that other work on the machine slows both alike. Prints two numbers
// for each setting. The first is the median of the turns' ratios (below 1, the second is faster). The other
// one is the second's speed as a multiple of real time. Exits with 1 if a sample differed.
//
// usage: node race.mjs FIRST SECOND
import { readFileSync } from "node:fs";
import { Instance, load } from "../web/library.mjs";

const kTurns = 60, kTurnFrames = 8192, kRateHz = 44100;
const bytes = readFileSync(new URL("../tests/data/input.s16", import.meta.url));
const music = new Int16Array(bytes.buffer, bytes.byteOffset, bytes.length / 2);

// Every processor is on, and parameters are away from their defaults.
const kEverything = [[0x20003, 150], [0x20004, 130], [0x20005, 400], [0x20002, 1], [0x20006, 1],
  [0x20009, 180], [0x2000A, 70], [0x20008, 1], [0x2000B, 140], [0x2000C, 80]];
for (let band = 0; band < 10; ++band) kEverything.push([0x20007, band, 15 * band - 60]);

async function start(path) {
  const instance = new Instance(await load(path), 4096);
  instance.configure(kRateHz, 2);
  for (const values of kEverything)
    if (instance.set(...values) !== 0) throw new Error(`parameter ${values}`);
  instance.command(3);
  return instance;
}

const median = (values) => values.sort((a, b) => a - b)[Math.floor(values.length / 2)];
let different = 0;
for (const frames of [256, 1024]) {
  const raced = [await start(process.argv[2]), await start(process.argv[3])];
  const ratios = [], speeds = [];
  for (let turn = 0; turn < kTurns; ++turn) {
    const times = [], outputs = [];
    for (const which of turn % 2 === 0 ? [0, 1] : [1, 0]) {
      const output = new Int16Array(2 * kTurnFrames).map(
        (_, i) => music[(2 * turn * kTurnFrames + i) % music.length]);
      const begin = process.hrtime.bigint();
      for (let at = 0; at < output.length; at += 2 * frames)
        raced[which].process(output.subarray(at, at + 2 * frames), 2);
      times[which] = Number(process.hrtime.bigint() - begin);
      outputs[which] = output;
    }
    different += outputs[0].filter((sample, i) => sample !== outputs[1][i]).length;
    if (turn < 10) continue;  // the engine has not compiled its fastest code yet
    ratios.push(times[1] / times[0]);
    speeds.push((1e9 * kTurnFrames) / kRateHz / times[1]);
  }
  console.log(`everything, ${frames} frames: ratio ${median(ratios).toFixed(3)}, ` +
              `${median(speeds).toFixed(0)} times real time`);
  raced.forEach((instance) => instance.release());
}
console.log(different === 0 ? "equal" : `${different} samples differ`);
process.exitCode = different === 0 ? 0 : 1;
