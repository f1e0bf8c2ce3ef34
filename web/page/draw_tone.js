// The equalizer's response as it is, and the curve that was asked for where they differ.
import { kHighDb, kLowDb, xOf, yOf } from "./axes.js";

// response, wanted: [hz, dB] ascending in hz; wanted may be null. What leaves the plot below is cut.
export function drawTone(context, area, response, wanted, isOn, colours) {
  context.save();
  context.beginPath();
  context.rect(area.left, area.top, area.width, area.height);
  context.clip();
  context.lineJoin = "round";
  if (wanted !== null) {
    context.setLineDash([4, 5]);
    context.lineWidth = 1.5;
    stroke(context, area, wanted, colours.label);
    context.setLineDash([]);
  }
  context.lineWidth = 3;
  stroke(context, area, response, isOn ? colours.curve : colours.label);
  context.restore();
}

function stroke(context, area, curve, colour) {
  context.strokeStyle = colour;
  context.beginPath();
  curve.forEach(([hz, db], n) => {
    // Far below the plot a line would be as steep as the canvas's numbers allow.
    const y = yOf(Math.max(db, 2 * kLowDb), area, kLowDb, kHighDb);
    if (n === 0) context.moveTo(xOf(hz, area), y);
    else context.lineTo(xOf(hz, area), y);
  });
  context.stroke();
}
