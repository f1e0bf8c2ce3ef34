// The plot's axes: frequency to the right on a logarithmic scale, decibels up.
//
// An area is {left, top, width, height} in CSS pixels of the canvas, `low` and `high` its ends.
export const kLowHz = 20;
export const kHighHz = 20000;
export const kLowDb = -18;
export const kHighDb = 12;

export const xOf = (hz, area) =>
  area.left + (area.width * Math.log(hz / kLowHz)) / Math.log(kHighHz / kLowHz);
export const hzOf = (x, area) => kLowHz * (kHighHz / kLowHz) ** ((x - area.left) / area.width);
export const yOf = (value, area, low, high) =>
  area.top + area.height * (1 - (value - low) / (high - low));
export const dbOf = (y, area) =>
  kHighDb - ((y - area.top) / area.height) * (kHighDb - kLowDb);

// 1500 -> "1.5 kHz"
export const hzText = (hz) =>
  hz < 1000 ? `${Math.round(hz)} Hz` : `${+(hz / 1000).toPrecision(2)} kHz`;

// "+3.0", "−3.0", and never "−0.0".
export function dbText(db) {
  const rounded = Math.round(db * 10) / 10;
  if (rounded === 0) return "0.0";
  return (rounded > 0 ? "+" : "−") + Math.abs(rounded).toFixed(1);
}

// The area that labels leave free, of a canvas of that size.
export const plotArea = (width, height) =>
  ({ left: 34, top: 10, width: width - 34 - 10, height: height - 10 - 22 });

export function drawGrid(context, area, colours) {
  context.font = "12px system-ui, sans-serif";
  context.lineWidth = 1;
  context.textAlign = "center";
  context.textBaseline = "top";
  const isNarrow = area.width < 480;
  for (const hz of [20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000]) {
    const x = Math.round(xOf(hz, area)) + 0.5;
    line(context, x, area.top, x, area.top + area.height, colours.grid);
    if (isNarrow && ![50, 200, 1000, 5000, 20000].includes(hz)) continue;
    context.fillStyle = colours.label;
    context.textAlign = hz === kHighHz ? "right" : "center";
    const short = hz < 1000 ? `${hz}` : `${hz / 1000}k`;
    context.fillText(hz === kHighHz ? `${short} Hz` : short, hz === kHighHz ? area.left + area.width + 8 : x,
                     area.top + area.height + 6);
  }
  context.textAlign = "right";
  context.textBaseline = "middle";
  for (let db = kLowDb; db <= kHighDb; db += 6) {
    const y = Math.round(yOf(db, area, kLowDb, kHighDb)) + 0.5;
    line(context, area.left, y, area.left + area.width, y, db === 0 ? colours.zero : colours.grid);
    context.fillStyle = colours.label;
    context.fillText(db === kHighDb ? "dB" : dbText(db).replace(".0", ""), area.left - 6, y);
  }
}

export function line(context, fromX, fromY, toX, toY, colour) {
  context.strokeStyle = colour;
  context.beginPath();
  context.moveTo(fromX, fromY);
  context.lineTo(toX, toY);
  context.stroke();
}
