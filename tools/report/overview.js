"use strict";
// The whole range in a strip above the lanes, with a window on what the lanes show: drag it, drag its edges, or press
// elsewhere to bring it there.
(() => {
  const EDGE = 8; // pixels that count as an edge

  qav.makeOverview = (report, view) => {
    const { count } = report.columns;
    const canvas = qav.html("canvas");
    const lens = qav.html("div", { class: "lens" });
    const strip = qav.html("div", { class: "overview", "aria-hidden": "true" }, canvas, lens);
    const all = { from: 0, span: count };
    const frames = qav.series(report.lanes.frames, "max");
    const { wave, channels } = report;
    const scale = { least: -1, greatest: 1 };
    const low = wave && qav.planes(wave.min, channels, "min");
    const high = wave && qav.planes(wave.max, channels, "max");

    function draw() {
      const p = qav.plots.picture(canvas, all);
      for (let channel = 0; wave && channel < channels; channel++) {
        qav.plots.band(p, low[channel], high[channel], scale, { ink: "wave", points: wave.pointsPerColumn });
      }
      qav.plots.gaps(p, frames);
      p.context.fillStyle = qav.ink("bad");
      for (const finding of report.findings) {
        const column = report.columnOf(finding.frame);
        if (column >= 0 && column <= count) {
          p.context.fillRect((column / count) * (p.width - 2 * p.ratio), 0, 2 * p.ratio, p.height);
        }
      }
    }
    function place() {
      lens.style.left = (100 * view.from) / count + "%";
      lens.style.width = (100 * view.span) / count + "%";
    }

    let grip = null; // what is being dragged: {kind, column, from, to}
    const columnAt = (event) => {
      const box = strip.getBoundingClientRect();
      return qav.clamp((event.clientX - box.left) / box.width, 0, 1) * count;
    };
    strip.addEventListener("pointerdown", (event) => {
      const box = lens.getBoundingClientRect();
      const [left, right] = [event.clientX - box.left, box.right - event.clientX];
      const column = columnAt(event);
      if (Math.abs(left) <= EDGE && left < right) grip = { kind: "left" };
      else if (Math.abs(right) <= EDGE) grip = { kind: "right" };
      else {
        if (left < 0 || right < 0) view.show(column - view.span / 2, column + view.span / 2);
        grip = { kind: "whole", column, from: view.from };
      }
      strip.setPointerCapture(event.pointerId);
      event.preventDefault();
    });
    strip.addEventListener("pointermove", (event) => {
      const column = columnAt(event);
      if (!grip) return;
      if (grip.kind === "left") view.show(Math.min(column, view.to - 1), view.to);
      else if (grip.kind === "right") view.show(view.from, Math.max(column, view.from + 1));
      else {
        const from = grip.from + column - grip.column;
        view.show(from, from + view.span);
      }
    });
    for (const end of ["pointerup", "pointercancel"])
      strip.addEventListener(end, () => {
        grip = null;
      });

    view.on("zoom", place);
    place();
    return { strip, draw };
  };
})();
