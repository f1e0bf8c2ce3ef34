// Elements of the page, canvases as sharp as the screen, and the colours of the style sheet.

/** @type {(id: string) => HTMLElement} */
export function byId(id) {
  const found = document.getElementById(id);
  if (found === null) throw new Error(`the page has no ${id}`);
  return found;
}
/** @type {(id: string) => HTMLInputElement} */
export const inputById = (id) => /** @type {HTMLInputElement} */ (byId(id));

// Makes an element with the given properties.
/**
 * @template {keyof HTMLElementTagNameMap} Tag
 * @param {Tag} tag
 * @param {Partial<HTMLElementTagNameMap[Tag]> | Record<string, any>} properties
 * @returns {HTMLElementTagNameMap[Tag]}
 */
export const element = (tag, properties = {}) =>
  Object.assign(document.createElement(tag), properties);

// Starts a text with a capital letter.
/** @type {(text: string) => string} */
export const sentence = (text) => text[0].toUpperCase() + text.slice(1);

// Sizes a canvas to what the page gives it. Width and height are in CSS pixels.
/** @param {string} id */
export function surfaceOf(id) {
  const canvas = /** @type {HTMLCanvasElement} */ (byId(id));
  const { clientWidth: width, clientHeight: height } = canvas;
  const ratio = window.devicePixelRatio;
  const wide = Math.round(width * ratio);
  const tall = Math.round(height * ratio);
  if (canvas.width !== wide || canvas.height !== tall)
    Object.assign(canvas, { width: wide, height: tall });
  const context = /** @type {CanvasRenderingContext2D} */ (canvas.getContext("2d"));
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  return { context, width, height };
}

/** @returns {import("../types.d.ts").Colours} */
export function coloursNow() {
  const style = getComputedStyle(document.documentElement);
  /** @param {string} name */
  const of = (name) => style.getPropertyValue(`--${name}`).trim();
  return {
    grid: of("grid"),
    zero: of("zero"),
    label: of("soft"),
    curve: of("ink"),
    rest: of("rest"),
    before: of("before"),
    beforeFill: of("before-fill"),
    after: of("after"),
  };
}
