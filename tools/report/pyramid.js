"use strict";
// A series at every level of detail: level k has a value for each 2^k columns. Whatever the zoom, a picture then looks
// at about one value a pixel, and a peak of one frame is still there when an hour is in view.
(() => {
  const COMBINE = {
    mean: (a, b) => (a !== a ? b : b !== b ? a : (a + b) / 2),
    max: (a, b) => (a !== a || b > a ? b : a),
    min: (a, b) => (a !== a || b < a ? b : a),
  };

  /** `width` values a column stand side by side in `values`. */
  function pyramid(values, width, how) {
    const combine = COMBINE[how];
    const levels = [values];
    while (levels.at(-1).length > width) {
      const below = levels.at(-1);
      const count = below.length / width;
      const above = new Float32Array(Math.ceil(count / 2) * width);
      for (let column = 0; column < count; column += 2) {
        const to = (column / 2) * width;
        const from = column * width;
        for (let k = 0; k < width; k++) {
          above[to + k] = column + 1 < count ? combine(below[from + k], below[from + width + k]) : below[from + k];
        }
      }
      levels.push(above);
    }
    return levels;
  }

  /** Level and divisor for pixels that are `columns` columns wide. */
  const levelFor = (levels, columns) => qav.clamp(Math.ceil(Math.log2(Math.max(columns, 1e-9))), 0, levels.length - 1);

  class Series {
    constructor(values, how, width = 1) {
      this.values = values;
      this.width = width;
      this.levels = pyramid(values, width, how);
    }
    /** What a picture reads: values and by how much to shift a column number to find its place in them. */
    detail(columnsPerPixel) {
      const level = levelFor(this.levels, columnsPerPixel);
      return { values: this.levels[level], shift: 2 ** level };
    }
    at(column, k = 0) {
      const i = Math.floor(column) * this.width + k;
      return i >= 0 && i < this.values.length ? this.values[i] : NaN;
    }
    /** Least, greatest and mean of what there is. */
    summary() {
      let [least, greatest, sum, count] = [Infinity, -Infinity, 0, 0];
      for (const value of this.values) {
        if (value !== value) continue;
        if (value < least) least = value;
        if (value > greatest) greatest = value;
        sum += value;
        count++;
      }
      return { least, greatest, mean: sum / count, count };
    }
  }

  qav.series = (values, how, width) => (values ? new Series(values, how, width) : null);
  /** One series for each of `planes` equal parts of the values. */
  qav.planes = (values, planes, how, width) => {
    if (!values) return null;
    const size = values.length / planes;
    return Array.from({ length: planes }, (_, i) => new Series(values.subarray(i * size, (i + 1) * size), how, width));
  };
})();
