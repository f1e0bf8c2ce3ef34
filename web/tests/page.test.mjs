// The built page in a browser, opened from its file, without network.
import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { pathToFileURL } from "node:url";

import axe from "axe-core";
import { chromium } from "playwright-core";

const address = pathToFileURL(process.env.ORVANE_PAGE ?? "build/web/orvane.html").href;
let browser;
before(async () => {
  browser = await chromium.launch({
    executablePath: "/usr/bin/chromium",
    args: ["--no-sandbox", "--autoplay-policy=user-gesture-required"],
  });
});
after(() => browser.close());

// Hands a new page to `use`; afterwards nothing may have gone wrong in it.
async function withPage({ hash = "", width = 1280, ...options }, use) {
  const context = await browser.newContext({ viewport: { width, height: 900 }, offline: true, ...options });
  const page = await context.newPage();
  page.setDefaultTimeout(10000);
  const faults = [];
  page.on("pageerror", ({ message }) => faults.push(message));
  page.on("console", (line) => line.type() === "error" && faults.push(line.text()));
  await page.goto(address + hash);
  await page.locator("[name=preset]").first().waitFor({ state: "attached" });
  await use(page);
  assert.deepEqual(faults, []);
  await context.close();
}

const message = (page) => page.locator("#message");
const file = (name, text) => ({ name, mimeType: "text/plain", buffer: Buffer.from(text) });
const hashOf = (page) => new URL(page.url()).hash;

for (const colorScheme of ["light", "dark"])
  test(`every control has a name and every text contrast, ${colorScheme}`, () =>
    withPage({ colorScheme }, async (page) => {
      await page.getByText("Loud", { exact: true }).click();
      await page.getByText("Settings", { exact: true }).click();
      await page.getByText("Its ten bands").click();
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
    await page.getByText("Loud", { exact: true }).click();
    await page.getByText("Settings", { exact: true }).click();
    await page.getByText("Its ten bands").click();
    const count = await page.evaluate(() => {
      const isStop = (one) => one.checkVisibility() && !one.disabled && (one.type !== "radio" || one.checked);
      window.waiting = new Set([...document.querySelectorAll("button, input, summary")].filter(isStop));
      return window.waiting.size;
    });
    // Once round, through the browser's own frame.
    for (let n = 0; n < count + 2; ++n) {
      await page.keyboard.press("Tab");
      await page.evaluate(() => window.waiting.delete(document.activeElement));
    }
    assert.deepEqual(await page.evaluate(() => [...window.waiting].map((one) => one.outerHTML)), []);
  }));

test("nothing is wider than a narrow phone", () =>
  withPage({ width: 360 }, async (page) => {
    await page.getByText("Loud", { exact: true }).click();
    await page.getByText("Settings", { exact: true }).click();
    await page.getByText("Its ten bands").click();
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 360);
  }));

test("the link holds the settings and restores them", async () => {
  let hash;
  await withPage({}, async (page) => {
    await page.getByText("Night", { exact: true }).click();
    await page.getByText("Settings", { exact: true }).click();
    await page.getByLabel("Output gain, number").fill("-6");
    await page.keyboard.press("Enter");
    await page.waitForFunction(() => location.hash.includes("output-gain=0.5"));
    hash = hashOf(page);
  });
  await withPage({ hash }, async (page) => {
    assert.equal(await page.locator("#set-output-gain").inputValue(), "-6");
    assert.equal(await page.locator("#set-ratio").inputValue(), "3");
    assert.equal(await page.locator("#set-eq-0").inputValue(), "-0.7");
    assert.equal(await page.locator("[name=preset]:checked").count(), 0);
    await page.getByText("Settings", { exact: true }).click();
    await page.locator("#set-output-gain").dblclick();
    assert.equal(await page.locator("#set-output-gain").inputValue(), "0");
  });
  await withPage({ hash: "#ratio=11" }, async (page) => {
    assert.match(await message(page).textContent(), /ratio 11 is outside 0 to 10/);
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
    const { x, y, width, height } = await page.locator(".point").nth(4).boundingBox();
    await page.mouse.move(x + width / 2, y + height / 2);
    await page.mouse.down();
    await page.mouse.move(x + width / 2, y + height / 2 - 40, { steps: 5 });
    await page.mouse.up();
    assert.match(await page.locator("#fit").textContent(), /^As drawn within|can't follow/);
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
    await page.waitForFunction(() => document.getElementById("short-after").textContent !== "–");
    await page.keyboard.press("b");
    assert(await page.locator("[name=side][value=before]").isChecked());
    assert.equal(await page.locator("#spoken").textContent(), "before");
    await page.keyboard.press("b");
    assert(await page.locator("[name=side][value=after]").isChecked());
    await page.waitForFunction(() => / dB$|as they are/.test(document.getElementById("match").textContent));
    await page.keyboard.press(" ");
    assert.equal(
      await page
        .locator("#play")
        .textContent()
        .then((text) => text.trim()),
      "Play",
    );
  }));
