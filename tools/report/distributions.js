"use strict";
// How often what occurs, over the range of the report: by subband, and by frame.
(() => {
  const { frame, rect, scaleTo, figure } = qav.charts;

  const list = (n) => Array.from({ length: n }, (_, i) => i);
  const sumOf = (values) => values.reduce((a, b) => a + b, 0);
  const greatestIn = (values) => values.reduce((a, b) => Math.max(a, b), 1);
  const percent = (share, digits = 1) => qav.number(100 * share, digits) + " %";

  /** What the figures by subband have in common: names, axis, tables. */
  function makeBase(report) {
    const { channels, subbands, channelNames } = report;
    const bands = list(subbands);
    const chs = list(channels);
    const every = subbands > 16 ? 4 : 2;
    return {
      report,
      bands,
      chs,
      /** Ticks below the subbands. */
      xs: bands
        .filter((band) => band % every === 0)
        .map((band) => ({ at: (band + 0.5) / subbands, text: String(band) })),
      /** One picture for each channel, with its name where there are two. */
      perChannel: (draw) =>
        chs.map((ch) => {
          const name = channels === 1 ? null : qav.html("p", { class: "chart-name" }, channelNames[ch]);
          return qav.html("div", null, name, draw(ch));
        }),
      /** A table with a row for each subband and the columns `names` for each channel. */
      table(names, cells) {
        const head = chs.flatMap((ch) => names.map((name) => (channels === 1 ? name : `${channelNames[ch]} ${name}`)));
        const rows = bands.map((band) => [String(band), ...chs.flatMap((ch) => cells(ch, band))]);
        return qav.table("By subband", ["Subband", ...head], rows);
      },
    };
  }

  function bitsFigure({ report, bands, chs, xs, table }, bits) {
    const { channels, subbands, channelNames } = report;
    const { top, ticks } = scaleTo(greatestIn(bits));
    const value = (ch, band) => bits[ch * subbands + band];
    const wide = 0.84 / subbands / channels;
    const bars = chs.flatMap((ch) =>
      bands.map((band) => {
        const from = (band + 0.08) / subbands + ch * wide;
        return rect(from, 0, from + wide, value(ch, band) / top, { class: ch ? "bar second" : "bar" });
      }),
    );
    const best = bands.reduce((a, b) => (value(0, b) > value(0, a) ? b : a), 0);
    const describe = `Most in subband ${best}; the numbers follow as a table.`;
    const chart = frame({ xs, ys: ticks, xName: "subband", yName: "bits a frame", describe }, bars);
    const names = channelNames.map((name, ch) => ({
      ink: ch ? "wave-2" : "wave",
      name: name + (ch ? " (outlined)" : ""),
    }));
    return figure(
      "Bits by subband",
      "Mean bits of a frame that a subband takes, with its share of the side information.",
      [chart, channels === 1 ? "" : qav.legend(names)],
      table(["bits a frame"], (ch, band) => [qav.number(value(ch, band), 1)]),
    );
  }

  /** Squares, the stronger the colour the more frequent the pair of subband and row. */
  function squares({ report, bands, xs }, name, { rows, share, ys, yName }) {
    const { subbands, channelNames } = report;
    return (ch) => {
      const marks = [];
      for (const band of bands) {
        for (const row of list(rows)) {
          const part = share(ch, band, row);
          if (!part) continue;
          const strength = { class: "square", "fill-opacity": (0.1 + 0.9 * part ** 0.5).toFixed(2) };
          marks.push(rect(band / subbands, row / rows, (band + 0.94) / subbands, (row + 0.94) / rows, strength));
        }
      }
      const describe = `${name}, ${channelNames[ch]}; the numbers follow as a table.`;
      return frame({ xs, ys, xName: "subband", yName, height: 160, describe }, marks);
    };
  }

  function allocationFigure(base, counts) {
    const { tables, subbands } = base.report;
    const name = "Allocation by subband";
    const at = (ch, band) => counts.subarray((ch * subbands + band) * 16, (ch * subbands + band) * 16 + 16);
    const share = (ch, band, index) => at(ch, band)[index] / (sumOf(at(ch, band)) || 1);
    const ys = [0, 5, 10, 15].map((index) => ({ at: (index + 0.5) / 16, text: String(index) }));
    const usual = (ch, band) => {
      const index = at(ch, band).indexOf(greatestIn(at(ch, band)));
      const levels = tables.length === 1 ? tables[0].levels[band]?.[index] : 0;
      return index > 0 ? `index ${index}` + (levels ? `, ${qav.number(levels)} levels` : "") : "nothing";
    };
    return figure(
      name,
      "How often each allocation index is used; the stronger the colour, the more often. Index 0 is nothing coded.",
      base.perChannel(squares(base, name, { rows: 16, share, ys, yName: "allocation index" })),
      base.table(["most frequent", "coded in"], (ch, band) => [usual(ch, band), percent(1 - share(ch, band, 0))]),
    );
  }

  function scaleFactorFigure(base, counts) {
    const { subbands } = base.report;
    const name = "Scale factors by subband";
    const at = (ch, band) => counts.subarray((ch * subbands + band) * 64, (ch * subbands + band) * 64 + 63);
    // A row is two indexes; index 62 is -118 dB and at the foot, index 0 is +6 dB.
    const share = (ch, band, row) => {
      const index = 62 - row * 2;
      const all = sumOf(at(ch, band));
      return all ? (at(ch, band)[index] + (index ? at(ch, band)[index - 1] : 0)) / all : 0;
    };
    const ys = [-90, -60, -30, 0].map((value) => ({ at: (value + 120) / 126, text: qav.number(value) }));
    const median = (ch, band) => {
      const half = sumOf(at(ch, band)) / 2;
      let sum = 0;
      return half ? qav.scaleFactorDb(at(ch, band).findIndex((count) => (sum += count) >= half)) : NaN;
    };
    return figure(
      name,
      "How often each level is sent, in dB re full scale; a row is two steps of 2 dB.",
      base.perChannel(squares(base, name, { rows: 32, share, ys, yName: "dB" })),
      base.table(["median"], (ch, band) => [qav.decibel(median(ch, band))]),
    );
  }

  function selectionFigure({ report, bands, chs, xs }, counts) {
    const { subbands } = report;
    const kinds = qav.SELECTION_ORDER;
    const at = (band, kind) => sumOf(chs.map((ch) => counts[(ch * subbands + band) * 4 + kind]));
    const total = (band) => sumOf(list(4).map((kind) => at(band, kind)));
    const share = (band, kind) => (total(band) ? at(band, kind) / total(band) : 0);
    const marks = bands.flatMap((band) => {
      let foot = 0;
      return kinds.map(({ kind, ink }) => {
        const from = foot;
        foot += share(band, kind);
        const look = { class: "part-of", style: `fill: var(--${ink})` };
        return rect((band + 0.06) / subbands, from, (band + 0.94) / subbands, foot, look);
      });
    });
    const ys = [0, 0.5, 1].map((value) => ({ at: value, text: percent(value, 0) }));
    const describe = "Share of each kind by subband; the numbers follow as a table.";
    const cell = (band, kind) => (total(band) ? percent(share(band, kind)) : "–");
    const rows = bands.map((band) => [String(band), ...kinds.map(({ kind }) => cell(band, kind))]);
    return figure(
      "Selection information by subband",
      "How many of a frame's three scale factors are sent, all channels together.",
      [frame({ xs, ys, xName: "subband", yName: "share", describe }, marks), qav.legend([...kinds].reverse())],
      qav.table("By subband", ["Subband", ...kinds.map(({ name }) => name)], rows),
    );
  }

  function unusedFigure(counts, width) {
    const last = counts.reduce((a, count, i) => (count ? i : a), 0);
    const bins = Math.max(last + 1, 8);
    const { top, ticks } = scaleTo(greatestIn(counts));
    const marks = list(bins).map((bin) =>
      rect((bin + 0.05) / bins, 0, (bin + 0.95) / bins, counts[bin] / top, { class: "bar" }),
    );
    const xs = list(5).map((k) => ({ at: k / 4, text: qav.number((k / 4) * bins * width) }));
    const range = (bin) => (bin === 63 ? `${bin * width} or more` : `${bin * width} to ${(bin + 1) * width - 1}`);
    const rows = list(bins)
      .filter((bin) => counts[bin])
      .map((bin) => [range(bin), qav.number(counts[bin])]);
    const describe = "The numbers follow as a table.";
    return figure(
      "Unused bits",
      "Frames by the bits left over at their end.",
      frame({ xs, ys: ticks, xName: "bits", yName: "frames", describe }, marks),
      qav.table("Frames by unused bits", ["Bits", "Frames"], rows),
    );
  }

  /** Frames by bitrate or mode, a bar each. */
  function tallyFigure(name, pairs, text) {
    const all = sumOf(pairs.map(([, count]) => count));
    const note = pairs.length === 1 ? `${text(pairs[0][0])} in all ${qav.count(all, "frame")}.` : null;
    const rows = pairs.map(([value, count]) => {
      const bar = qav.html("span", { class: "tally-bar" });
      bar.style.width = percent(count / all, 3).replace(" ", "");
      const tally = qav.html("dd", null, bar, qav.html("span", null, qav.count(count, "frame")));
      return qav.html("div", null, qav.html("dt", null, text(value)), tally);
    });
    return figure(name, note, note ? "" : qav.html("dl", { class: "tally" }, rows));
  }

  qav.makeDistributions = (section, report) => {
    const data = report.distributions;
    const base = makeBase(report);
    const selection = qav.decode(data.selection);
    const grid = qav.html("div", { class: "distribution-grid" });
    if (data.nmr) grid.append(...qav.maskFigures(base, data.nmr));
    grid.append(
      bitsFigure(base, qav.decode(data.bits)),
      allocationFigure(base, qav.decode(data.allocation)),
      scaleFactorFigure(base, qav.decode(data.scaleFactors)),
      selection ? selectionFigure(base, selection) : "",
      unusedFigure(qav.decode(data.unusedBits), data.unusedBinBits),
      tallyFigure("Bitrate", data.kbps, (kbps) => `${kbps} kbit/s`),
      tallyFigure("Mode", data.modes, (mode) => qav.MODES[mode]),
    );
    const title = qav.html("h2", { id: "distributions-title" }, "Distributions");
    section.append(qav.html("div", { class: "section-head" }, title), grid);
  };
})();
