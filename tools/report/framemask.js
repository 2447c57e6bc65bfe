"use strict";
// One frame against its mask: the signal-to-noise ratio that the allocation buys in each subband, and what is asked.
(() => {
  const { frame: axes, rect, path } = qav.charts;
  const [LEAST, GREATEST] = [-20, 100]; // dB

  const place = (value) => (qav.clamp(value, LEAST, GREATEST) - LEAST) / (GREATEST - LEAST);
  const mark = (name, text) => qav.html("li", null, qav.html("span", { class: "mark " + name }), text);

  function chart(frame, report, ch) {
    const { subbands } = report;
    const bars = [];
    const steps = []; // of the mask; a subband without a ratio leaves a gap
    let missing = 0;
    for (let sb = 0; sb < frame.sblimit; sb++) {
      const [smr, nmr] = [frame.smr(ch, sb), frame.nmr(ch, sb)];
      if (!Number.isFinite(smr) || !Number.isFinite(nmr)) continue;
      const bought = smr - nmr;
      const bar = (name, low, high) =>
        bars.push(rect((sb + 0.1) / subbands, place(low), (sb + 0.9) / subbands, place(high), { class: name }));
      if (bought > 0) bar("bought", 0, bought);
      if (nmr > 0) bar("short", bought, smr);
      missing += nmr > 0;
      if (steps.at(-1)?.next !== sb) steps.push({ points: [] });
      steps.at(-1).points.push([sb / subbands, place(smr)], [(sb + 1) / subbands, place(smr)]);
      steps.at(-1).next = sb + 1;
    }
    const mask = steps.map(({ points }) => path(points, { class: "mask" }));
    const xs = [0, 8, 16, 24]
      .filter((sb) => sb < subbands)
      .map((sb) => ({ at: (sb + 0.5) / subbands, text: String(sb) }));
    const ys = [0, 30, 60, 90].map((value) => ({ at: place(value), text: String(value) }));
    const name = report.channelNames[frame.channels === 1 ? 0 : ch];
    const describe = `${name}: ${missing ? qav.count(missing, "subband") : "no subband"} below what the mask asks.`;
    const options = { xs, ys, xName: "subband", yName: "dB", height: 170, describe };
    const title = frame.channels === 1 ? null : qav.html("figcaption", null, name);
    return qav.html("figure", null, title, axes(options, bars, mask));
  }

  qav.frameMask = (frame, report) => {
    const charts = Array.from({ length: frame.channels }, (_, ch) => chart(frame, report, ch));
    const legend = qav.html("ul", { class: "legend" });
    legend.append(mark("bought", "signal to noise bought by the allocation"));
    legend.append(mark("short", "missing (outlined)"), mark("mask-line", "signal to mask"));
    return qav.html("div", { class: "chart-row" }, charts, legend);
  };
})();
