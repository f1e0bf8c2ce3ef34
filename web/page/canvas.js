// A canvas as sharp as the screen, and the colours of the style sheet.

// Sized to what the page gives it. {context, width, height} in CSS pixels.
export function surfaceOf(canvas) {
  const { clientWidth: width, clientHeight: height } = canvas;
  const ratio = window.devicePixelRatio;
  const wide = Math.round(width * ratio), tall = Math.round(height * ratio);
  if (canvas.width !== wide || canvas.height !== tall) Object.assign(canvas, { width: wide, height: tall });
  const context = canvas.getContext("2d");
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  return { context, width, height };
}

export function coloursNow() {
  const style = getComputedStyle(document.documentElement);
  const of = (name) => style.getPropertyValue(`--${name}`).trim();
  return { grid: of("grid"), zero: of("zero"), label: of("soft"), curve: of("ink"), rest: of("rest"),
           before: of("before"), beforeFill: of("before-fill"), after: of("after") };
}
