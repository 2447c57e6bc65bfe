"use strict";
// Charts in SVG for the distributions: bars, stacks, and squares for how often a pair occurs.
(() => {
  const [WIDTH, HEIGHT, LEFT, RIGHT, FOOT, TOP] = [420, 190, 40, 6, 30, 8];
  const [DIGIT, MARGIN] = [7, 12]; // of the texts at the left

  // Charts are drawn as wide as they are shown, so that their texts are as large as those of the page; on paper, whose
  // width nobody tells beforehand, of one width.
  const drawings = new WeakMap();
  const shown = new ResizeObserver((entries) => {
    for (const { target, contentRect } of entries) {
      if (contentRect.width) drawings.get(target)(Math.round(contentRect.width));
    }
  });
  const drawAll = (widthOf) => {
    for (const chart of document.querySelectorAll("svg.chart")) drawings.get(chart)(widthOf(chart) || WIDTH);
  };
  addEventListener("beforeprint", () => drawAll(() => WIDTH));
  addEventListener("afterprint", () => drawAll((chart) => Math.round(chart.clientWidth)));

  /** A drawing area with both axes; xs and ys are lists of {at: 0..1, text}. Each mark gets the two scales. */
  function frame({ xs, ys, xName, yName, describe, height = HEIGHT }, ...marks) {
    const left = Math.max(LEFT, MARGIN + DIGIT * Math.max(...ys.map(({ text }) => text.length)));
    const y = (at) => height - FOOT - at * (height - FOOT - TOP);
    const chart = qav.svg("svg", { role: "img", "aria-label": describe, class: "chart", height });

    function draw(width) {
      const right = width - RIGHT;
      const x = (at) => left + at * (right - left);
      chart.setAttribute("viewBox", `0 0 ${width} ${height}`);
      chart.replaceChildren(
        ...ys.map(({ at, text }) =>
          qav.svg(
            "g",
            { class: "tick" },
            qav.svg("line", { x1: left, x2: right, y1: y(at), y2: y(at) }),
            qav.svg("text", { x: left - 5, y: y(at), dy: "0.32em", "text-anchor": "end" }, text),
          ),
        ),
        ...xs.map(({ at, text }) => {
          const anchor = at === 1 ? "end" : "middle"; // a number in the middle of the last place would be cut off
          return qav.svg("text", { class: "band", x: x(at), y: height - FOOT + 13, "text-anchor": anchor }, text);
        }),
        ...marks.flat().map((mark) => mark(x, y)),
        qav.svg("text", { class: "axis-name", x: right, y: height - 4, "text-anchor": "end" }, xName),
        qav.svg("text", { class: "axis-name", x: 2, y: height - 4 }, "↑ " + yName),
      );
    }

    draw(WIDTH);
    drawings.set(chart, draw);
    shown.observe(chart);
    return chart;
  }

  const rect = (x0, y0, x1, y1, attributes) => (x, y) =>
    qav.svg("rect", {
      x: x(x0).toFixed(1),
      y: y(y1).toFixed(1),
      width: Math.max(x(x1) - x(x0), 0.5).toFixed(1),
      height: Math.max(y(y0) - y(y1), 0).toFixed(1),
      ...attributes,
    });

  const path = (points, attributes) => (x, y) =>
    qav.svg("path", {
      d: points.map(([px, py], i) => `${i ? "L" : "M"}${x(px).toFixed(1)} ${y(py).toFixed(1)}`).join(""),
      ...attributes,
    });

  /** Round ticks from 0 to about `greatest`. */
  function scaleTo(greatest, text = (value) => qav.number(value, value % 1 ? 1 : 0)) {
    const rough = Math.max(greatest, 1e-9) / 3;
    const unit = 10 ** Math.floor(Math.log10(rough));
    const step = [1, 2, 2.5, 5, 10].map((m) => m * unit).find((candidate) => candidate >= rough);
    const top = Math.ceil(greatest / step - 1e-9) * step || step;
    const ticks = [];
    for (let value = 0; value <= top + step / 2; value += step) ticks.push({ at: value / top, text: text(value) });
    return { top, ticks };
  }

  /** A figure: what it is, what it says, the chart, and its numbers as a table to open. */
  function figure(name, note, chart, numbers) {
    const caption = qav.html("figcaption", null, qav.html("h3", null, name), note ? qav.html("p", null, note) : null);
    const box = qav.html("figure", { class: "distribution" }, caption, chart);
    if (numbers) {
      box.append(qav.html("details", null, qav.html("summary", null, "Numbers"), qav.scrolled(name, numbers)));
    }
    return box;
  }

  qav.charts = { frame, rect, path, scaleTo, figure };
})();
