// The gain from before to after over the last seconds, in decibels: now is at the right.
import { dbText, line, yOf } from "./axes.js";

export const kGainSeconds = 10;

// history: {time, db} ascending in time (seconds); db is null while there is nothing to compare.
export function drawGain(context, width, height, history, now, colours) {
  const area = { left: 34, top: 8, width: width - 34 - 4, height: height - 16 };
  const reach = reachOf(history);
  context.clearRect(0, 0, width, height);
  context.font = "12px system-ui, sans-serif";
  context.textAlign = "right";
  context.textBaseline = "middle";
  context.lineWidth = 1;
  for (const db of [-reach, 0, reach]) {
    const y = Math.round(yOf(db, area, -reach, reach)) + 0.5;
    line(context, area.left, y, area.left + area.width, y, db === 0 ? colours.zero : colours.grid);
    context.fillStyle = colours.label;
    context.fillText(dbText(db).replace(".0", ""), area.left - 6, y);
  }
  context.strokeStyle = colours.after;
  context.lineWidth = 2;
  context.lineJoin = "round";
  context.beginPath();
  let isDown = false;
  for (const { time, db } of history) {
    const x = area.left + area.width * (1 - (now - time) / kGainSeconds);
    if (db === null || x < area.left) {
      isDown = false;
      continue;
    }
    const y = yOf(Math.min(reach, Math.max(-reach, db)), area, -reach, reach);
    if (isDown) context.lineTo(x, y);
    else context.moveTo(x, y);
    isDown = true;
  }
  context.stroke();
}

// 6, 12, 24 or 48 dB: the least that holds all.
function reachOf(history) {
  const most = Math.max(0, ...history.map(({ db }) => Math.abs(db ?? 0)));
  return [6, 12, 24].find((reach) => most <= reach) ?? 48;
}
