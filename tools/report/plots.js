"use strict";
// Lines, areas and stacks on a canvas, a value a pixel column.
(() => {
  /** A canvas made as large as it is shown, and what drawing on it takes: all lengths in its own pixels. */
  function picture(canvas, view) {
    const ratio = Math.min(window.devicePixelRatio || 1, 3);
    const box = canvas.getBoundingClientRect();
    const width = Math.max(Math.round(box.width * ratio), 1);
    const height = Math.max(Math.round(box.height * ratio), 1);
    if (canvas.width !== width || canvas.height !== height) Object.assign(canvas, { width, height });
    const context = canvas.getContext("2d");
    context.clearRect(0, 0, width, height);
    return { context, width, height, ratio, from: view.from, step: view.span / width };
  }

  /** Calls back with (pixel, value) for each pixel column; `points` values of the series make a column. */
  function each(p, series, callback, points = 1) {
    const { values, shift } = series.detail(p.step * points);
    for (let x = 0; x < p.width; x++) {
      const i = Math.floor(((p.from + (x + 0.5) * p.step) * points) / shift);
      callback(x, i < values.length ? values[i] : NaN);
    }
  }

  const toY = (p, scale, value) => {
    const share = (value - scale.least) / (scale.greatest - scale.least);
    return p.height - qav.clamp(share, 0, 1) * p.height;
  };

  function line(p, series, scale, { ink, width = 1.25, dash = [] }) {
    const { context, ratio } = p;
    context.beginPath();
    let down = false;
    each(p, series, (x, value) => {
      if (value !== value) {
        down = false;
        return;
      }
      const y = qav.clamp(toY(p, scale, value), ratio / 2, p.height - ratio / 2);
      if (down) context.lineTo(x, y);
      else context.moveTo(x - 0.5, y);
      context.lineTo(x + 1, y);
      down = true;
    });
    context.strokeStyle = qav.ink(ink);
    context.lineWidth = width * ratio;
    context.setLineDash(dash.map((length) => length * ratio));
    context.lineJoin = "round";
    context.stroke();
    context.setLineDash([]);
  }

  /** The area between a series and the foot of the picture. */
  function area(p, series, scale, { ink, alpha = 1 }) {
    const { context } = p;
    context.fillStyle = qav.ink(ink);
    context.globalAlpha = alpha;
    each(p, series, (x, value) => {
      if (value === value) context.fillRect(x, toY(p, scale, value), 1, p.height);
    });
    context.globalAlpha = 1;
  }

  /** From `low` to `high` at each pixel, as a waveform is drawn. */
  function band(p, low, high, scale, { ink, points }) {
    const { context, ratio } = p;
    const tops = new Float32Array(p.width);
    each(
      p,
      high,
      (x, value) => {
        tops[x] = value;
      },
      points,
    );
    context.fillStyle = qav.ink(ink);
    each(
      p,
      low,
      (x, value) => {
        if (value !== value) return;
        const top = toY(p, scale, tops[x]);
        context.fillRect(x, top, 1, Math.max(toY(p, scale, value) - top, ratio));
      },
      points,
    );
  }

  /** Series upon each other, the first at the foot, a hair of ground between them. */
  function stack(p, parts, scale) {
    const { context, ratio } = p;
    const foot = new Float32Array(p.width);
    for (const { series, ink } of parts) {
      context.fillStyle = qav.ink(ink);
      each(p, series, (x, value) => {
        if (!(value > 0)) return;
        const [low, high] = [toY(p, scale, foot[x]), toY(p, scale, foot[x] + value)];
        foot[x] += value;
        context.fillRect(x, high, 1, low - high);
      });
      context.beginPath();
      for (let x = 0; x < p.width; x++) context.lineTo(x + 0.5, toY(p, scale, foot[x]));
      context.strokeStyle = qav.ink("ground");
      context.lineWidth = 0.75 * ratio;
      context.stroke();
    }
  }

  /** A level line across the picture. */
  function rule(p, scale, value, ink = "hair", dash = []) {
    const { context, ratio } = p;
    const y = Math.round(toY(p, scale, value)) + (ratio % 2) / 2;
    context.beginPath();
    context.moveTo(0, y);
    context.lineTo(p.width, y);
    context.strokeStyle = qav.ink(ink);
    context.lineWidth = ratio;
    context.setLineDash(dash.map((length) => length * ratio));
    context.stroke();
    context.setLineDash([]);
  }

  /** Ticks at the upper edge where a series is above 0. */
  function ticks(p, series, ink) {
    const { context, ratio } = p;
    context.fillStyle = qav.ink(ink);
    each(p, series, (x, value) => {
      if (value > 0) context.fillRect(x - 0.5 * ratio, 0, 2 * ratio, 5 * ratio);
    });
  }

  /** Stripes over the columns that hold no frame that could be decoded. */
  function gaps(p, frames) {
    const { context, ratio, height } = p;
    context.strokeStyle = qav.ink("bad");
    context.lineWidth = ratio;
    context.globalAlpha = 0.6;
    context.beginPath();
    each(p, frames, (x, value) => {
      if (value > 0) return;
      for (let y = (x % (6 * ratio)) - 6 * ratio; y < height; y += 6 * ratio) {
        context.moveTo(x, height - y);
        context.lineTo(x + 1, height - y - 1);
      }
    });
    context.stroke();
    context.globalAlpha = 1;
  }

  qav.plots = { picture, line, area, band, stack, rule, ticks, gaps };
})();
