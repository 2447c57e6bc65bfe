"use strict";
// How often what occurs, over the range of the report; and where more bits would help.
(() => {
  const { frame, rect, path, scaleTo, figure } = qav.charts;

  const list = (n) => Array.from({ length: n }, (_, i) => i);
  const inkOf = (channel) => (channel ? "wave-2" : "wave");

  qav.makeDistributions = (section, report) => {
    const { channels, subbands, channelNames } = report;
    const raw = report.distributions;
    const data = Object.fromEntries(
      ["allocation", "scaleFactors", "selection", "bits", "unusedBits"].map((name) => [name, qav.decode(raw[name])]),
    );
    const nmr =
      raw.nmr && Object.fromEntries(Object.entries(raw.nmr).map(([name, array]) => [name, qav.decode(array)]));
    const bands = list(subbands);
    const chs = list(channels);
    const xs = bands
      .filter((band) => band % (subbands > 16 ? 4 : 2) === 0)
      .map((band) => ({ at: (band + 0.5) / subbands, text: String(band) }));
    const channelLegend = () =>
      channels === 1
        ? null
        : qav.html(
            "ul",
            { class: "legend" },
            chs.map((ch) => {
              const mark = qav.html("span", { class: "mark area" });
              mark.style.setProperty("--mark", `var(--${inkOf(ch)})`);
              return qav.html("li", null, mark, channelNames[ch] + (ch ? " (outlined)" : ""));
            }),
          );
    /** Bars by subband, the channels side by side. */
    const sideBySide = (value, top) =>
      chs.flatMap((ch) =>
        bands.map((band) => {
          const wide = 0.84 / subbands / channels;
          const from = (band + 0.08) / subbands + ch * wide;
          return rect(from, 0, from + wide, value(ch, band) / top, { class: ch ? "bar second" : "bar" });
        }),
      );
    const perSubband = (names, cells) =>
      qav.table(
        "By subband",
        ["Subband", ...names],
        bands.map((band) => [String(band), ...chs.flatMap((ch) => cells(ch, band))]),
      );
    const named = (name) => chs.map((ch) => (channels === 1 ? name : `${channelNames[ch]} ${name}`));

    function bitsFigure() {
      const { top, ticks } = scaleTo(data.bits.reduce((a, b) => Math.max(a, b), 1));
      const value = (ch, band) => data.bits[ch * subbands + band];
      const best = bands.reduce((a, b) => (value(0, b) > value(0, a) ? b : a), 0);
      return figure(
        "Bits by subband",
        "Mean bits of a frame that a subband takes, with its share of the side information.",
        [
          frame(
            { xs, ys: ticks, xName: "subband", yName: "bits a frame", describe: `Most in subband ${best}.` },
            sideBySide(value, top),
          ),
          channelLegend(),
        ],
        perSubband(named("bits a frame"), (ch, band) => [qav.number(value(ch, band), 1)]),
      );
    }

    /** Squares, as dark as the pair is frequent; for each channel one picture. */
    function squares(name, note, yName, rows, share, yTicks, numbers) {
      const pictures = chs.map((ch) => {
        const marks = [];
        for (const band of bands) {
          for (let row = 0; row < rows; row++) {
            const part = share(ch, band, row);
            if (part > 0) {
              marks.push(
                rect(band / subbands, row / rows, (band + 0.94) / subbands, (row + 0.94) / rows, {
                  class: "square",
                  "fill-opacity": (0.1 + 0.9 * part ** 0.5).toFixed(2),
                }),
              );
            }
          }
        }
        return qav.html(
          "div",
          null,
          channels === 1 ? null : qav.html("p", { class: "chart-name" }, channelNames[ch]),
          frame(
            {
              xs,
              ys: yTicks,
              xName: "subband",
              yName,
              height: 160,
              describe: `${name}, ${channelNames[ch]}; the numbers follow as a table.`,
            },
            marks,
          ),
        );
      });
      return figure(name, note, pictures, numbers);
    }

    function allocationFigure() {
      const at = (ch, band, index) => data.allocation[(ch * subbands + band) * 16 + index];
      const total = (ch, band) => list(16).reduce((sum, index) => sum + at(ch, band, index), 0) || 1;
      const levels = (band, index) => (report.tables.length === 1 ? report.tables[0].levels[band]?.[index] : undefined);
      const usual = (ch, band) => list(16).reduce((a, b) => (at(ch, band, b) > at(ch, band, a) ? b : a), 0);
      return squares(
        "Allocation by subband",
        "How often each allocation index is used; the stronger the colour, the more often. Index 0 is nothing coded.",
        "allocation index",
        16,
        (ch, band, index) => at(ch, band, index) / total(ch, band),
        [0, 5, 10, 15].map((index) => ({ at: (index + 0.5) / 16, text: String(index) })),
        perSubband(
          chs.flatMap((ch) => [named("most frequent")[ch], named("coded in")[ch]]),
          (ch, band) => {
            const index = usual(ch, band);
            const steps = levels(band, index);
            return [
              index ? `index ${index}${steps ? `, ${qav.number(steps)} levels` : ""}` : "nothing",
              qav.number(100 * (1 - at(ch, band, 0) / total(ch, band)), 1) + " %",
            ];
          },
        ),
      );
    }

    function scaleFactorFigure() {
      const at = (ch, band, index) => data.scaleFactors[(ch * subbands + band) * 64 + index];
      const sums = chs.map((ch) => bands.map((band) => list(63).reduce((sum, index) => sum + at(ch, band, index), 0)));
      const place = (decibel) => (decibel + 120) / 126; // index 62 is -118 dB, index 0 is +6 dB
      const median = (ch, band) => {
        let sum = 0;
        for (let index = 0; index < 63; index++) {
          sum += at(ch, band, index);
          if (sum * 2 >= sums[ch][band] && sum) return qav.scaleFactorDb(index);
        }
        return NaN;
      };
      return squares(
        "Scale factors by subband",
        "How often each level is sent, in dB re full scale; rows of two steps of 2 dB.",
        "dB",
        32,
        (ch, band, row) => {
          const index = 62 - row * 2;
          return sums[ch][band] ? (at(ch, band, index) + (index ? at(ch, band, index - 1) : 0)) / sums[ch][band] : 0;
        },
        [-90, -60, -30, 0].map((value) => ({ at: place(value), text: qav.number(value) })),
        perSubband(named("median"), (ch, band) => [qav.decibel(median(ch, band))]),
      );
    }

    function selectionFigure() {
      if (!data.selection) return null;
      const order = [
        [0, "select-3", "three"],
        [1, "select-2a", "two, first shared"],
        [3, "select-2b", "two, last shared"],
        [2, "select-1", "one"],
      ];
      const at = (band, kind) => chs.reduce((sum, ch) => sum + data.selection[(ch * subbands + band) * 4 + kind], 0);
      const total = (band) => list(4).reduce((sum, kind) => sum + at(band, kind), 0);
      const marks = bands.flatMap((band) => {
        let foot = 0;
        return order.map(([kind, ink]) => {
          const from = foot;
          foot += total(band) ? at(band, kind) / total(band) : 0;
          return rect((band + 0.06) / subbands, from, (band + 0.94) / subbands, foot, {
            class: "part-of",
            style: `fill: var(--${ink})`,
          });
        });
      });
      const legend = qav.html(
        "ul",
        { class: "legend" },
        [...order].reverse().map(([, ink, name]) => {
          const mark = qav.html("span", { class: "mark area" });
          mark.style.setProperty("--mark", `var(--${ink})`);
          return qav.html("li", null, mark, name);
        }),
      );
      return figure(
        "Selection information by subband",
        "How many of a frame's three scale factors are sent, all channels together.",
        [
          frame(
            {
              xs,
              ys: [0, 0.5, 1].map((v) => ({ at: v, text: 100 * v + " %" })),
              xName: "subband",
              yName: "share",
              describe: "Share of each kind by subband; the numbers follow as a table.",
            },
            marks,
          ),
          legend,
        ],
        qav.table(
          "By subband",
          ["Subband", ...order.map(([, , name]) => name)],
          bands.map((band) => [
            String(band),
            ...order.map(([kind]) => (total(band) ? qav.number((100 * at(band, kind)) / total(band), 1) + " %" : "–")),
          ]),
        ),
      );
    }

    function unusedFigure() {
      const width = raw.unusedBinBits;
      const last = data.unusedBits.reduce((a, count, i) => (count ? i : a), 0);
      const bins = Math.max(last + 1, 8);
      const { top, ticks } = scaleTo(data.unusedBits.reduce((a, b) => Math.max(a, b), 1));
      const marks = list(bins).map((bin) =>
        rect((bin + 0.05) / bins, 0, (bin + 0.95) / bins, data.unusedBits[bin] / top, { class: "bar" }),
      );
      const xTicks = list(5).map((k) => ({ at: k / 4, text: qav.number((k / 4) * bins * width) }));
      return figure(
        "Unused bits",
        "Frames by the bits left over at their end.",
        frame(
          { xs: xTicks, ys: ticks, xName: "bits", yName: "frames", describe: "The numbers follow as a table." },
          marks,
        ),
        qav.table(
          "Frames by unused bits",
          ["Bits", "Frames"],
          list(bins)
            .filter((bin) => data.unusedBits[bin])
            .map((bin) => [
              bin === 63 ? `${bin * width} or more` : `${bin * width} to ${(bin + 1) * width - 1}`,
              qav.number(data.unusedBits[bin]),
            ]),
        ),
      );
    }

    /** Frames by bitrate and mode: words where there is but one, bars where there are more. */
    function countsFigure(name, note, pairs, text) {
      if (!pairs.length) return null;
      const sum = pairs.reduce((all, [, count]) => all + count, 0);
      return figure(
        name,
        pairs.length === 1 ? `${text(pairs[0][0])} in all ${qav.count(sum, "frame")}.` : note,
        qav.html(
          "dl",
          { class: "tally" },
          pairs.map(([value, count]) => {
            const bar = qav.html("span", { class: "tally-bar" });
            bar.style.width = (100 * count) / sum + "%";
            return qav.html(
              "div",
              null,
              qav.html("dt", null, text(value)),
              qav.html("dd", null, bar, qav.html("span", null, qav.count(count, "frame"))),
            );
          }),
        ),
      );
    }

    function maskFigure() {
      const [least, greatest] = [-50, 30];
      const place = (value) => (qav.clamp(value, least, greatest) - least) / (greatest - least);
      const i = (ch, band) => ch * subbands + band;
      /** The ratio that a share of the frames stays below. */
      const quantile = (ch, band, part) => {
        const counts = nmr.histogram.subarray(i(ch, band) * 40, i(ch, band) * 40 + 40);
        const all = counts.reduce((a, b) => a + b, 0);
        let sum = 0;
        for (let bin = 0; bin < 40; bin++) {
          sum += counts[bin];
          if (all && sum >= part * all) return least + 2 * (bin + 0.5);
        }
        return NaN;
      };
      const pictures = chs.map((ch) => {
        const marks = [
          path(
            [
              [0, place(0)],
              [1, place(0)],
            ],
            { class: "threshold" },
          ),
        ];
        for (const band of bands) {
          const [low, high] = [quantile(ch, band, 0.1), quantile(ch, band, 0.9)];
          if (!Number.isFinite(low)) continue;
          const middle = (band + 0.5) / subbands;
          marks.push(
            rect((band + 0.22) / subbands, place(low - 1), (band + 0.78) / subbands, place(high + 1), {
              class: "spread",
            }),
          );
          const worst = nmr.worst[i(ch, band)];
          marks.push((x, y) =>
            qav.svg("path", {
              class: worst > 0 ? "worst over" : "worst",
              d: worst > 0 ? `M${x(middle)} ${y(place(worst)) - 4}l4 7h-8Z` : `M${x(middle) - 3} ${y(place(worst))}h6`,
            }),
          );
        }
        return qav.html(
          "div",
          null,
          channels === 1 ? null : qav.html("p", { class: "chart-name" }, channelNames[ch]),
          frame(
            {
              xs,
              ys: [-40, -20, 0, 20].map((value) => ({ at: place(value), text: qav.number(value) })),
              xName: "subband",
              yName: "dB",
              height: 170,
              describe: `${channelNames[ch]}: noise to mask by subband; the numbers follow as a table.`,
            },
            marks,
          ),
        );
      });
      return figure(
        "Noise to mask by subband",
        (report.model.kind === "true" ? "" : "Estimated. ") +
          "Bars hold 80 % of the frames; a dash or a triangle is the worst frame; above the line noise may be heard.",
        pictures,
        perSubband(
          chs.flatMap((ch) => [named("mean")[ch], named("worst")[ch], named("over")[ch]]),
          (ch, band) => [
            nmr.mean[i(ch, band)] > -999 ? qav.decibel(nmr.mean[i(ch, band)]) : "–",
            nmr.worst[i(ch, band)] > -999 ? qav.decibel(nmr.worst[i(ch, band)]) : "–",
            qav.number(100 * nmr.over[i(ch, band)], 1) + " %",
          ],
        ),
      );
    }

    function helpFigure() {
      const ranked = chs
        .flatMap((ch) =>
          bands.map((band) => ({
            ch,
            band,
            over: nmr.over[ch * subbands + band],
            worst: nmr.worst[ch * subbands + band],
          })),
        )
        .filter(({ over }) => over > 0)
        .sort((a, b) => b.over - a.over || b.worst - a.worst);
      const kHz = (band) =>
        report.subbandHz
          ? `${((band * report.subbandHz) / 1000).toFixed(1)}–${(((band + 1) * report.subbandHz) / 1000).toFixed(1)} kHz`
          : "";
      const verdict = ranked.length
        ? `Noise rises above the ${report.model.kind === "true" ? "" : "estimated "}mask in ${qav.count(ranked.length, "subband")}${channels === 1 ? "" : " of the two channels"}; most often here:`
        : `In no subband does noise rise above the ${report.model.kind === "true" ? "" : "estimated "}mask: more bits would not be heard.`;
      return figure(
        "Where would more bits help?",
        verdict,
        ranked.length
          ? qav.table(
              "Subbands where noise rises above the mask",
              ["Subband", ...(channels === 1 ? [] : ["Channel"]), "Band", "Frames", "Worst"],
              ranked
                .slice(0, 8)
                .map(({ ch, band, over, worst }) => [
                  String(band),
                  ...(channels === 1 ? [] : [channelNames[ch]]),
                  kHz(band),
                  qav.number(100 * over, 1) + " %",
                  qav.decibel(worst),
                ]),
              { id: "help-table" },
            )
          : "",
      );
    }

    section.append(
      qav.html("div", { class: "section-head" }, qav.html("h2", { id: "distributions-title" }, "Distributions")),
      qav.html(
        "div",
        { class: "distribution-grid" },
        [
          nmr ? helpFigure() : null,
          nmr ? maskFigure() : null,
          bitsFigure(),
          allocationFigure(),
          scaleFactorFigure(),
          selectionFigure(),
          unusedFigure(),
          countsFigure("Bitrate", "Frames by bitrate.", raw.kbps, (kbps) => `${kbps} kbit/s`),
          countsFigure("Mode", "Frames by mode.", raw.modes, (mode) => qav.MODES[mode]),
        ].filter(Boolean),
      ),
    );
  };
})();
