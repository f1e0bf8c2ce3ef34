// Settings as the renderer's settings files have them (orvane render --settings): lines of
// `key = value`, comments behind #, switches on or off, gains also in decibels, the equalizer's ten
// levels in one line or as BAND=LEVEL.

const isGain = (row) => row.unit === "factor" || row.unit === "full scale";

// Values by key of what the lines say. Throws an Error that tells the first wrong line.
export function readSettings(text, table) {
  const values = {};
  const seen = new Set();
  text.split("\n").forEach((line, index) => {
    const content = line.replace(/#.*/, "").trim();
    if (content === "") return;
    const [, key, value] = /^([^=]*?)\s*=\s*(.*)$/.exec(content) ?? [];
    const refuse = (why) => {
      throw new Error(`line ${index + 1}: ${why}`);
    };
    if (key === undefined) refuse(`"${content}" is not key = value`);
    if (seen.has(key)) refuse(`${key} stands here a second time`);
    seen.add(key);
    for (const [row, word] of assignments(key, value, table, refuse))
      values[row.key] = read(row, word, key, refuse);
  });
  return values;
}

// What was set, as the lines of a settings file.
export function settingsText(state) {
  const lines = [];
  for (const row of state.table) {
    if (row.band !== undefined) {
      if (row.band === 0 && bandRows(state.table).some(({ key }) => state.isSet(key)))
        lines.push(`eq = ${state.levels().join(",")}`);
    } else if (state.isSet(row.key)) {
      const value = state.get(row.key);
      lines.push(`${row.key} = ${row.kind === "switch" ? (value ? "on" : "off") : value}`);
    }
  }
  return lines.map((line) => `${line}\n`).join("");
}

const bandRows = (table) => table.filter((row) => row.band !== undefined);

// Rows and the words for them: one, or the equalizer's bands.
function assignments(key, value, table, refuse) {
  if (key !== "eq") {
    const row = table.find((one) => one.key === key && one.band === undefined);
    if (row === undefined) refuse(`no setting is called ${key}`);
    return [[row, value]];
  }
  const bands = bandRows(table);
  const form = `eq takes ${bands.length} levels, or BAND=LEVEL, not "${value}"`;
  const items = value.split(",").map((item) => item.split("=").map((side) => side.trim()));
  if (items.every((sides) => sides.length === 1)) {
    if (items.length !== bands.length) refuse(form);
    return items.map(([word], band) => [bands[band], word]);
  }
  if (!items.every((sides) => sides.length === 2 && /^\d+$/.test(sides[0]))) refuse(form);
  return items.map(([band, word]) => {
    if (!(band in bands)) refuse(`eq has bands 0 to ${bands.length - 1}`);
    return [bands[band], word];
  });
}

function read(row, word, key, refuse) {
  if (row.kind === "switch") {
    if (!/^(on|off|1|0)$/.test(word)) refuse(`${key} ${word} is neither on nor off`);
    return word === "on" || word === "1" ? 1 : 0;
  }
  const [, number, decibels] = /^(.*?)\s*(dB)?$/.exec(word);
  let value = number === "" || (decibels && !isGain(row)) ? NaN : Number(number);
  if (Number.isNaN(value)) refuse(`${key} ${word} is not a number`);
  if (decibels) value = 10 ** (value / 20);
  if (!(value >= row.min && value <= row.max))
    refuse(`${key} ${word} is outside ${row.min} to ${row.max}`);
  return value;
}
