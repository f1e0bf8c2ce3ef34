// The piece's outline over its time, what was played in the colour of what is heard.

// Largest magnitudes of `columns` equal parts of the piece, all channels together.
export function outlineOf(channels, columns) {
  const frames = channels[0].length;
  return Float32Array.from({ length: columns }, (_, column) => {
    const end = Math.floor(((column + 1) * frames) / columns);
    let peak = 0;
    for (const samples of channels)
      for (let n = Math.floor((column * frames) / columns); n < end; ++n)
        peak = Math.max(peak, Math.abs(samples[n]));
    return peak;
  });
}

// played: the part of it from 0 to 1.
export function drawWave(context, width, height, outline, played, colour, colours) {
  context.clearRect(0, 0, width, height);
  const step = width / outline.length;
  outline.forEach((peak, column) => {
    const tall = Math.max(1.5, peak * (height - 2));
    context.fillStyle = (column + 0.5) / outline.length < played ? colour : colours.rest;
    context.fillRect(column * step, (height - tall) / 2, Math.max(1, step - 1), tall);
  });
}
