// Tests the built page and the package's node in a browser. The page is opened as a file, without a network.
import assert from "node:assert/strict";
import { test } from "node:test";
import { mkdtempSync, rmSync, truncateSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

import axe from "axe-core";
import { wavHeader } from "../samples.js";
import { withPage } from "./renderer.mjs";

/** @import { Locator, Page } from "playwright-core" */

// Returns where an element is on the page.
const boxOf = async (/** @type {Locator} */ one) => (await one.boundingBox()) ?? assert.fail("it is not shown");
const message = (/** @type {Page} */ page) => page.locator("#message");
const file = (/** @type {string} */ name, /** @type {string} */ text) => ({
  name,
  mimeType: "text/plain",
  buffer: Buffer.from(text),
});
const hashOf = (/** @type {Page} */ page) => new URL(page.url()).hash;

// Shows every control.
/** @param {Page} page */
async function openAll(page) {
  await page.getByText("Loud", { exact: true }).click();
  await page.getByText("Settings", { exact: true }).click();
  await page.getByText("Its ten bands").click();
}

for (const colorScheme of /** @type {const} */ (["light", "dark"]))
  test(`every control has a name and every text contrast, ${colorScheme}`, () =>
    withPage({ colorScheme }, async (page) => {
      await openAll(page);
      await page.locator("#play").click();
      await page.waitForTimeout(300);
      await page.evaluate(axe.source);
      const { violations } = await page.evaluate(() => axe.run());
      assert.deepEqual(
        violations.flatMap(({ id, nodes }) => nodes.map(({ html }) => [id, html])),
        [],
      );
    }));

test("every control is reached by Tab", () =>
  withPage({}, async (page) => {
    await openAll(page);
    const count = await page.evaluate(() => {
      const isStop = (/** @type {any} */ one) =>
        one.checkVisibility() && !one.disabled && (one.type !== "radio" || one.checked);
      window.waiting = new Set([...document.querySelectorAll("button, input, summary")].filter(isStop));
      return window.waiting.size;
    });
    // Two more steps lead through the browser's own controls.
    for (let n = 0; n < count + 2; ++n) {
      await page.keyboard.press("Tab");
      await page.evaluate(() => window.waiting.delete(document.activeElement));
    }
    assert.deepEqual(await page.evaluate(() => [...window.waiting].map((one) => one?.outerHTML)), []);
  }));

test("nothing is wider than a narrow phone", () =>
  withPage({ width: 360 }, async (page) => {
    await openAll(page);
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 360);
  }));

test("the link holds the settings and restores them", async () => {
  /** @type {string | undefined} */
  let hash;
  await withPage({}, async (page) => {
    await page.getByText("Night", { exact: true }).click();
    await page.getByText("Settings", { exact: true }).click();
    await page.getByLabel("Output gain, number").fill("-6");
    await page.keyboard.press("Enter");
    await page.keyboard.press("b"); // in a number's box, it is no command
    assert(await page.locator("[name=side][value=after]").isChecked());
    await page.waitForFunction(() => location.hash.includes("output-gain=0.5"));
    hash = hashOf(page);
  });
  await withPage({ hash }, async (page) => {
    assert.equal(await page.locator("#set-output-gain").inputValue(), "-6");
    assert.equal(await page.locator("#set-ratio").inputValue(), "3");
    assert.equal(await page.locator("#set-eq-0").inputValue(), "-0.7");
    assert.equal(await page.locator("[name=preset]:checked").count(), 0);
    await page.getByText("Settings", { exact: true }).click();
    assert((await page.locator("#set-ratio").isVisible()) && !(await page.locator("#set-process").isVisible()));
    await page.locator("#set-output-gain").dblclick();
    assert.equal(await page.locator("#set-output-gain").inputValue(), "0");
  });
  await withPage({ hash: "#ratio=11" }, async (page) => {
    assert.match(String(await message(page).textContent()), /ratio 11 is outside 0 to 10/);
    assert(await page.locator("[name=preset][value=music]").isChecked());
  });
});

test("a wrong file is told, a settings file of the renderer is taken", () =>
  withPage({}, async (page) => {
    await page.locator("#file").setInputFiles(file("letter.txt", "no sound"));
    await page.getByText(/letter.txt is not a sound file/).waitFor();
    assert.equal(await page.locator("#piece-name").textContent(), "Built-in piece");
    await page.locator("#settings-file").setInputFiles(file("mine.txt", "rato = 1"));
    await page.getByText(/line 1: no setting is called rato/).waitFor();
    await page.locator("#settings-file").setInputFiles(file("mine.txt", "# mine\neq = 1=0.5\n"));
    await page.getByText(/settings of mine.txt/).waitFor();
    assert.equal(await page.locator("#set-eq-1").inputValue(), "0.5");
    assert(await page.locator("#set-equalizer").isChecked());
  }));

test("a dragged point and an arrow key raise the tone", () =>
  withPage({}, async (page) => {
    await page.getByText("Off", { exact: true }).click();
    const { x, y, width, height } = await boxOf(page.locator(".point").nth(4));
    await page.mouse.move(x + width / 2, y + height / 2);
    await page.mouse.down();
    await page.mouse.move(x + width / 2, y + height / 2 - 40, { steps: 5 });
    await page.mouse.up();
    assert.match(String(await page.locator("#fit").textContent()), /^As drawn within|can't follow/);
    assert(await page.locator("#set-equalizer").isChecked());
    const input = page.getByLabel("Point 5, decibels");
    const dragged = Number(await input.inputValue());
    assert(dragged > 3 && dragged < 6, `${dragged}`);
    await input.press("ArrowUp");
    assert(Number(await input.inputValue()) > dragged);
    await page.locator("#flat").click();
    assert.equal(Number(await input.inputValue()), 0);
  }));

test("it plays at a click, and a key switches before and after", () =>
  withPage({}, async (page) => {
    await page.locator("#play").click();
    await page.waitForFunction(() => document.getElementById("short-after")?.textContent !== "–");
    await page.keyboard.press("b");
    assert(await page.locator("[name=side][value=before]").isChecked());
    assert.equal(await page.locator("#spoken").textContent(), "before");
    await page.keyboard.press("b");
    assert(await page.locator("[name=side][value=after]").isChecked());
    await page.waitForFunction(() => / dB$|as they are/.test(document.getElementById("match")?.textContent ?? ""));
    await page.keyboard.press(" ");
    assert.equal(String(await page.locator("#play").textContent()).trim(), "Play");
  }));

/** @param {Page} page @param {boolean} wanted */
const isPlaying = (page, wanted) =>
  page.waitForFunction((wanted) => document.body.classList.contains("playing") === wanted, wanted);

test("Space plays after a click, and presses what Tab has reached", () =>
  withPage({}, async (page) => {
    await page.getByText("Before", { exact: true }).click();
    await page.keyboard.press(" ");
    await isPlaying(page, true);
    await page.getByText("Night", { exact: true }).click();
    await page.keyboard.press(" ");
    await isPlaying(page, false);
    await page.locator("#flat").click();
    await page.keyboard.press(" ");
    await isPlaying(page, true);
    await page.keyboard.press(" ");
    await isPlaying(page, false);
    await page.locator("#seek").focus();
    await page.keyboard.press("Tab");
    await page.keyboard.press(" ");
    assert(!(await page.locator("#loop").isChecked()));
    await isPlaying(page, false);
  }));

// Drops files, each [name, text], or a link onto the page.
/** @param {Page} page @param {string[][]} files @param {string} [link] */
const drop = (page, files, link) =>
  page.evaluate(
    ({ files, link }) => {
      const dataTransfer = new DataTransfer();
      for (const [name, text] of files) dataTransfer.items.add(new File([text], name));
      if (link) dataTransfer.setData("text/uri-list", link);
      document.body.dispatchEvent(new DragEvent("drop", { dataTransfer, bubbles: true, cancelable: true }));
    },
    { files, link },
  );

test("settings are dropped and come from a changed link; what can't be opened is answered", () =>
  withPage({}, async (page) => {
    await drop(page, [["mine.conf", "ratio = 4\n"]]);
    await page.getByText("The settings of mine.conf are in use.").waitFor();
    assert.equal(await page.locator("#set-ratio").inputValue(), "4");
    await page.evaluate(() => (location.hash = "#ratio=5"));
    await page.waitForFunction(() => /** @type {any} */ (document.getElementById("set-ratio")).value === "5");
    await drop(page, [
      ["a.wav", ""],
      ["b.wav", ""],
    ]);
    await page.getByText(/one file at a time/).waitFor();
    await drop(page, [], "https://orvane.invalid/song.mp3");
    await page.getByText(/loads nothing from the network/).waitFor();
  }));

test("a piece of two hours is refused at once, and reading can be cancelled", () =>
  withPage({}, async (page) => {
    const folder = mkdtempSync(join(tmpdir(), "orvane-"));
    const path = join(folder, "long.wav");
    writeFileSync(path, wavHeader(2 * 4000 * 7200, 4000, 1));
    truncateSync(path, 44 + 2 * 4000 * 7200);
    await page.locator("#file").setInputFiles(path);
    await page.getByText(/long.wav is 2.0 hours long.*orvane render/).waitFor();
    rmSync(folder, { recursive: true });
    await page.evaluate(() => {
      const { decodeAudioData } = OfflineAudioContext.prototype;
      OfflineAudioContext.prototype.decodeAudioData = async function (/** @type {ArrayBuffer} */ bytes) {
        await new Promise((resolve) => (window.goOn = resolve));
        setTimeout(() => (window.hasGoneOn = true));
        return decodeAudioData.call(this, bytes);
      };
    });
    const slow = Buffer.concat([wavHeader(2000, 22050, 1), Buffer.alloc(2000)]);
    await page.locator("#file").setInputFiles({ name: "slow.wav", mimeType: "audio/wav", buffer: slow });
    await page.waitForFunction(() => window.goOn);
    await page.getByText("Cancel").click();
    await page.getByText("slow.wav was not opened.").waitFor();
    await page.evaluate(() => window.goOn());
    await page.waitForFunction(() => window.hasGoneOn);
    await page.waitForTimeout(200);
    assert.equal(await page.locator("#piece-name").textContent(), "Built-in piece");
  }));

// Notes the rate of each context in window.rates.
function noteRates() {
  const Context = AudioContext;
  window.rates = [];
  window.AudioContext = class extends Context {
    constructor(/** @type {AudioContextOptions=} */ options) {
      super(options);
      window.rates.push(this.sampleRate);
    }
  };
}

test("a seek and a pause keep the place, a moved value is heard, and a new file starts at its own rate", () =>
  withPage({ script: noteRates, hash: "#output-gain=1" }, async (page) => {
    const at = () => page.locator("#seek").evaluate((/** @type {HTMLInputElement} */ one) => one.valueAsNumber);
    // Sooner than a start at the beginning would.
    const passes = (/** @type {number} */ place) =>
      page.waitForFunction(
        (place) => /** @type {any} */ (document.getElementById("seek")).valueAsNumber > place,
        place,
        { timeout: 5000 },
      );
    await page.locator("#play").click();
    await isPlaying(page, true);
    await page.locator("#seek").fill("8");
    await passes(8);
    await page.locator("#play").click();
    await isPlaying(page, false);
    const paused = await at();
    assert(paused > 8, `${paused}`);
    await page.locator("#play").click();
    await passes(paused);
    // The equalizer follows its bands, which lower everything by 20 dB.
    await page.evaluate((levels) => (location.hash = `#eq=${levels}`), new Array(10).fill(-0.9).join());
    await page.waitForFunction(() => {
      const [before, after] = ["before", "after"].map((side) =>
        parseFloat((document.getElementById(`short-${side}`)?.textContent ?? "").replace("−", "-")),
      );
      return after < before - 15;
    });
    const short = Buffer.concat([wavHeader(88200, 44100, 1), Buffer.alloc(88200)]);
    await page.locator("#file").setInputFiles({ name: "short.wav", mimeType: "audio/wav", buffer: short });
    await page.getByText("short.wav is ready.").waitFor();
    await page.waitForFunction(() => /** @type {any} */ (document.getElementById("seek")).valueAsNumber === 0);
    await page.locator("#play").click();
    await page.waitForFunction(() => window.rates.length === 2);
    assert.deepEqual(await page.evaluate(() => window.rates), [48000, 44100]);
  }));

test("a phone shows play, presets and tone at once, and before and after always", () =>
  withPage({ width: 390 }, async (page) => {
    await page.setViewportSize({ width: 390, height: 844 });
    const bottom = (/** @type {string} */ id) =>
      page.evaluate((id) => document.getElementById(id)?.getBoundingClientRect().bottom ?? NaN, id);
    for (const id of ["play", "presets", "preset-purpose", "tone"]) assert((await bottom(id)) <= 844, id);
    assert(!(await page.locator("#groups").isVisible()));
    await page.locator("#file").setInputFiles(file(`${"long name ".repeat(90)}.wav`, "no sound"));
    await page.getByText(/is not a sound file/).waitFor();
    assert((await boxOf(page.locator(".message"))).height < 300);
    await page.mouse.wheel(0, 500);
    await page.waitForFunction(() => scrollY > 300);
    assert.equal((await boxOf(page.locator(".compare"))).y, 0);
  }));

test("points don't cross, and a curve that can't be followed is told", () =>
  withPage({}, async (page) => {
    const drag = async (/** @type {number} */ index, /** @type {number[]} */ [x, y]) => {
      const box = await boxOf(page.locator(".point").nth(index));
      await page.mouse.move(box.x + 18, box.y + 18);
      await page.mouse.down();
      await page.mouse.move(x, y, { steps: 4 });
      await page.mouse.up();
    };
    const plot = await boxOf(page.locator("#plot"));
    await drag(3, [plot.x + plot.width, plot.y]);
    const step = async (/** @type {number} */ n) => Number(await page.getByLabel(`Point ${n}, frequency`).inputValue());
    assert((await step(4)) < (await step(5)));
    const next = await boxOf(page.locator(".point").nth(4));
    await drag(4, [next.x + 18, plot.y + plot.height]);
    await page.getByText(/can't follow this curve everywhere/).waitFor();
  }));
