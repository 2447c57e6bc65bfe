"use strict";
// Subband by time as colours: one pixel column a value, stretched to the height of the lane.
(() => {
  const pad = document.createElement("canvas");

  /** `series` holds `width` subbands a column; `scale` gives the values at the two ends of the colours. */
  qav.heatmap = (p, series, scale, rampName) => {
    const { context, width, height } = p;
    const bands = series.width;
    const { values, shift } = series.detail(p.step);
    const ramp = qav.ramp(rampName);
    const image = new ImageData(width, bands);
    const pixels = new Uint32Array(image.data.buffer);
    const slope = 255 / (scale.greatest - scale.least);
    const start = scale.least * slope;
    let last = -1;
    for (let x = 0; x < width; x++) {
      const column = Math.floor((p.from + (x + 0.5) * p.step) / shift);
      if (column === last) {
        // as wide as the one before
        for (let row = 0; row < bands; row++) pixels[row * width + x] = pixels[row * width + x - 1];
        continue;
      }
      last = column;
      const from = column * bands;
      if (from + bands > values.length) continue;
      for (let band = 0; band < bands; band++) {
        const value = values[from + band];
        if (value !== value || value === scale.nothing) continue; // the ground shows through
        const place = Math.round(value * slope - start);
        pixels[(bands - 1 - band) * width + x] = ramp[place < 0 ? 0 : place > 255 ? 255 : place];
      }
    }
    if (pad.width !== width || pad.height !== bands) Object.assign(pad, { width, height: bands });
    pad.getContext("2d").putImageData(image, 0, 0);
    context.imageSmoothingEnabled = false;
    context.drawImage(pad, 0, 0, width, bands, 0, 0, width, height);
  };
})();
