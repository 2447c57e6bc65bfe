"use strict";
// Axes in SVG: of values beside a lane, of time above all lanes.
(() => {
  const STEPS = [
    0.001, 0.002, 0.005, 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200,
  ];

  const percent = (share) => (100 * share).toFixed(3) + "%";

  /** Ticks {value, text} at the right edge of `svg`; the greatest value is at the top. */
  qav.valueAxis = (svg, scale, ticks) => {
    const { height } = svg.getBoundingClientRect();
    svg.replaceChildren(
      qav.svg(
        "svg",
        { x: "100%", overflow: "visible" },
        ticks.map(({ value, text }) => {
          const y = height * (1 - (value - scale.least) / (scale.greatest - scale.least));
          return qav.svg(
            "g",
            null,
            qav.svg("line", { x1: -4, x2: 0, y1: y, y2: y }),
            qav.svg("text", { x: -7, y: qav.clamp(y, 5, height - 4), "text-anchor": "end", dy: "0.32em" }, text),
          );
        }),
      ),
    );
  };

  /** Whole seconds where the steps are whole. */
  qav.timeTicks = (from, to, most) => {
    const step = STEPS.find((candidate) => (to - from) / candidate <= most) ?? STEPS.at(-1);
    const digits = step >= 1 ? 0 : Math.min(Math.ceil(-Math.log10(step)), 3);
    const ticks = [];
    for (let n = Math.ceil(from / step - 1e-6); n * step <= to + 1e-9; n++) {
      ticks.push({ seconds: n * step, text: qav.time(n * step, digits) });
    }
    return ticks;
  };

  /** Places are shares of the width, so that the axis holds on paper too. */
  qav.timeAxis = (svg, report, view) => {
    const { width, height } = svg.getBoundingClientRect();
    const ticks = qav.timeTicks(report.secondsAt(view.from), report.secondsAt(view.to), Math.max(width / 88, 2));
    svg.replaceChildren(
      ...ticks.map(({ seconds, text }) => {
        const share = (report.columnAt(seconds) - view.from) / view.span;
        const x = percent(share);
        const anchor = share * width < 24 ? "start" : share * width > width - 24 ? "end" : "middle";
        return qav.svg(
          "g",
          null,
          qav.svg("line", { x1: x, x2: x, y1: height - 6, y2: height }),
          qav.svg("text", { x, y: height - 10, "text-anchor": anchor }, text),
        );
      }),
    );
  };
})();
