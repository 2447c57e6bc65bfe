"use strict";
// How close the stream is to its masking threshold, by subband, and where more bits would help.
(() => {
  const { frame, rect, path, figure } = qav.charts;
  const [LEAST, GREATEST, BINS, BIN] = [-50, 30, 40, 2]; // dB, and the bins of the histograms
  const NOTHING = -999; // below this there is no value
  const RANKED = 8;

  const place = (value) => (qav.clamp(value, LEAST, GREATEST) - LEAST) / (GREATEST - LEAST);
  const decibel = (value) => (value > NOTHING ? qav.decibel(value) : "–");
  const percent = (share) => qav.number(100 * share, 1) + " %";

  /** The ratio that a share of the frames stays below, to a bin; NaN where there is no frame. */
  function quantile(counts, share) {
    const wanted = share * counts.reduce((a, b) => a + b, 0);
    let sum = 0;
    const bin = counts.findIndex((count) => (sum += count) >= wanted && sum > 0);
    return bin < 0 ? NaN : LEAST + BIN * (bin + 0.5);
  }

  function spreadChart({ report, bands, xs }, nmr, ch) {
    const { subbands, channelNames } = report;
    const marks = [path([[0, place(0)], [1, place(0)]], { class: "threshold" })]; // prettier-ignore
    for (const band of bands) {
      const i = ch * subbands + band;
      const counts = nmr.histogram.subarray(i * BINS, (i + 1) * BINS);
      const [low, high] = [quantile(counts, 0.1), quantile(counts, 0.9)];
      if (!Number.isFinite(low)) continue;
      const [left, right] = [(band + 0.22) / subbands, (band + 0.78) / subbands];
      marks.push(rect(left, place(low - BIN / 2), right, place(high + BIN / 2), { class: "spread" }));
      const worst = nmr.worst[i];
      const dash = (x, y) => `M${x - 3} ${y}h6`;
      const triangle = (x, y) => `M${x} ${y - 4}l4 7h-8Z`;
      marks.push((x, y) =>
        qav.svg("path", {
          class: worst > 0 ? "worst over" : "worst",
          d: (worst > 0 ? triangle : dash)(x((band + 0.5) / subbands), y(place(worst))),
        }),
      );
    }
    const ys = [-40, -20, 0, 20].map((value) => ({ at: place(value), text: qav.number(value) }));
    const describe = `${channelNames[ch]}: noise to mask by subband; the numbers follow as a table.`;
    return frame({ xs, ys, xName: "subband", yName: "dB", height: 170, describe }, marks);
  }

  function spreadFigure(base, nmr, estimated) {
    const { subbands } = base.report;
    const cells = (ch, band) => {
      const i = ch * subbands + band;
      return [decibel(nmr.mean[i]), decibel(nmr.worst[i]), percent(nmr.over[i])];
    };
    return figure(
      "Noise to mask by subband",
      (estimated ? "Estimated. " : "") +
        "Bars hold 80 % of the frames; a dash or a triangle is the worst frame; above the line noise may be heard.",
      base.perChannel((ch) => spreadChart(base, nmr, ch)),
      base.table(["mean", "worst", "over"], cells),
    );
  }

  function helpFigure({ report, bands, chs }, nmr, estimated) {
    const { channels, subbands, channelNames, subbandHz } = report;
    const mask = estimated ? "estimated mask" : "mask";
    const ranked = chs
      .flatMap((ch) => bands.map((band) => ({ ch, band, i: ch * subbands + band })))
      .filter(({ i }) => nmr.over[i] > 0)
      .sort((a, b) => nmr.over[b.i] - nmr.over[a.i] || nmr.worst[b.i] - nmr.worst[a.i]);
    const name = "Where would more bits help?";
    if (!ranked.length) return figure(name, `In no subband does noise rise above the ${mask}.`, "");

    const kHz = (band) => ((band * subbandHz) / 1000).toFixed(1);
    const rows = ranked.slice(0, RANKED).map(({ ch, band, i }) => {
      const frequencies = subbandHz ? `${kHz(band)}–${kHz(band + 1)} kHz` : "";
      const where = channels === 1 ? [String(band)] : [String(band), channelNames[ch]];
      return [...where, frequencies, percent(nmr.over[i]), decibel(nmr.worst[i])];
    });
    const head = ["Subband", ...(channels === 1 ? [] : ["Channel"]), "Band", "Frames", "Worst"];
    const note =
      `Noise rises above the ${mask} in ${qav.count(ranked.length, "subband")}` +
      `${channels === 1 ? "" : " of the two channels"}; most often here:`;
    return figure(name, note, qav.table("Subbands where noise rises above the mask", head, rows, { id: "help-table" }));
  }

  qav.maskFigures = (base, raw) => {
    const nmr = Object.fromEntries(Object.entries(raw).map(([name, array]) => [name, qav.decode(array)]));
    const estimated = base.report.model?.kind !== "true";
    return [helpFigure(base, nmr, estimated), spreadFigure(base, nmr, estimated)];
  };
})();
