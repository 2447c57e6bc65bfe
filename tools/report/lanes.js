"use strict";
// The lanes of the time line: what each draws, how its axis reads, and what it says at the cursor.
//
// A lane is {id, title, unit, text, legend, height, planes, read}. A plane is one picture of it: {label, scale, ticks,
// draw(picture), describe}. Lanes with a plane for each channel take the view's choice of channels.
(() => {
  const { plots } = qav;
  const ticksOf = (values, text = (value) => qav.number(value)) =>
    values.map((value) => ({ value, text: text(value) }));

  /** A scale from 0 with round ticks. */
  function upTo(greatest, parts = 3) {
    const rough = Math.max(greatest, 1) / parts;
    const unit = 10 ** Math.floor(Math.log10(rough));
    const step = [1, 2, 2.5, 5, 10].map((m) => m * unit).find((candidate) => candidate >= rough);
    const ticks = [];
    for (let n = 0; n * step <= greatest * 1.001 || n < 2; n++) ticks.push(n * step);
    return { scale: { least: 0, greatest: Math.max(greatest, ticks[1]) * 1.04 }, ticks: ticksOf(ticks) };
  }

  const range = (series, text) => {
    const { least, greatest, mean, count } = series.summary();
    return count ? `from ${text(least)} to ${text(greatest)}, mean ${text(mean)}` : "nothing to show";
  };

  qav.makeLanes = (report, view) => {
    const { lanes: data, maps, wave, channels, subbands, channelNames, against } = report;
    const channelList = Array.from({ length: channels }, (_, i) => i);
    const shown = () => (view.channel === "both" ? channelList : [view.channel]);
    const frames = qav.series(data.frames, "max");
    const lanes = [];
    const perFrame = report.columns.framesPerColumn === 1 ? "" : ", mean of the second";

    /** The first letters of a channel's name, for where there is little room. */
    const short = (channel) =>
      channels === 1
        ? ""
        : channelNames[channel].replace("Channel ", "Ch ")[0] === "C"
          ? String(channel + 1)
          : channelNames[channel][0];
    const perChannel = (value) =>
      channelList.map((channel) => [channels === 1 ? "" : channelNames[channel], value(channel)]);

    function add(lane) {
      lanes.push(lane);
    }

    if (wave) {
      const points = wave.pointsPerColumn;
      const low = qav.planes(wave.min, channels, "min");
      const high = qav.planes(wave.max, channels, "max");
      const rms = qav.planes(wave.rms, channels, "mean");
      const peak = qav.planes(wave.peak, channels, "max");
      const clipped = qav.planes(wave.clipped, channels, "max");
      const waveScale = { least: -1, greatest: 1 };
      add({
        id: "wave",
        title: "Waveform",
        unit: "of full scale",
        height: channels === 1 ? 84 : 58,
        legend: clipped.some((series) => series.summary().greatest > 0)
          ? [{ ink: "bad", name: "clipped samples", mark: "tick" }]
          : [],
        planes: () =>
          shown().map((channel) => ({
            label: short(channel),
            scale: waveScale,
            ticks: ticksOf([-1, 0, 1]),
            describe: `${channelNames[channel]}: peak ${range(peak[channel], qav.decibel)} re full scale`,
            draw(p) {
              plots.rule(p, waveScale, 0);
              plots.band(p, low[channel], high[channel], waveScale, { ink: "wave", points });
              plots.ticks(p, clipped[channel], "bad");
              plots.gaps(p, frames);
            },
          })),
        read: (column) =>
          perChannel((channel) => {
            const count = clipped[channel].at(column);
            return count > 0 ? qav.number(count) + " clipped" : "peak " + qav.decibel(peak[channel].at(column));
          }),
      });
      const levelScale = { least: -80, greatest: 3 };
      add({
        id: "level",
        title: "Level",
        unit: "dB re full scale",
        height: 72,
        legend: [
          { ink: "wave", name: "RMS", mark: "area" },
          { ink: "ink", name: "peak", mark: "line" },
        ],
        planes: () =>
          shown().map((channel) => ({
            label: short(channel),
            scale: levelScale,
            ticks: ticksOf([-60, -40, -20, 0]),
            describe: `${channelNames[channel]}: RMS level ${range(rms[channel], qav.decibel)}`,
            draw(p) {
              for (const value of [-60, -40, -20, 0]) plots.rule(p, levelScale, value);
              plots.area(p, rms[channel], levelScale, { ink: "wave", alpha: 0.55 });
              plots.line(p, peak[channel], levelScale, { ink: "ink", width: 1 });
              plots.gaps(p, frames);
            },
          })),
        read: (column) => perChannel((channel) => "RMS " + qav.decibel(rms[channel].at(column))),
      });
    }

    const hertz = (subband) => report.subbandHz && subband * report.subbandHz;
    const mapScale = { least: 0, greatest: subbands };
    const mapTicks = report.subbandHz
      ? [0, 5, 10, 15, 20]
          .filter((kHz) => kHz * 1000 <= subbands * report.subbandHz)
          .map((kHz) => ({ value: (kHz * 1000) / report.subbandHz, text: kHz ? String(kHz) : "0 kHz" }))
      : [0, 8, 16, 24].filter((band) => band < subbands).map((band) => ({ value: band, text: String(band) }));
    const bandName = (subband) =>
      "Subband " + subband + (report.subbandHz ? ` (${(hertz(subband) / 1000).toFixed(1)} kHz)` : "");

    /** A map with a plane for each channel. */
    function addMap(id, title, unit, values, how, { ramp, least, greatest, nothing, text, summary }) {
      const series = qav.planes(values, channels, how, subbands);
      if (!series) return;
      const scale = { least, greatest, nothing };
      add({
        id,
        title,
        unit,
        height: 88,
        map: true,
        legend: [{ ramp, from: text(least), to: text(greatest) }],
        planes: () =>
          shown().map((channel) => ({
            label: short(channel),
            scale: mapScale,
            ticks: mapTicks,
            describe: `${channelNames[channel]}, subband by time: ${range(series[channel], text)}`,
            draw(p) {
              qav.heatmap(p, series[channel], scale, ramp);
              plots.gaps(p, frames);
            },
          })),
        read: (column, subband) =>
          subband === null
            ? summary(column, series)
            : [[bandName(subband), ""], ...perChannel((channel) => text(series[channel].at(column, subband)))],
      });
    }

    /** What a map says when the cursor is at no subband: the greatest value and where. */
    const greatestOf = (text) => (column, series) =>
      perChannel((channel) => {
        let [best, at] = [NaN, 0];
        for (let band = 0; band < subbands; band++) {
          const value = series[channel].at(column, band);
          if (value === value && !(value <= best)) [best, at] = [value, band];
        }
        return best === best ? `${text(best)}, sb ${at}` : "–";
      });

    const mapBits = (value) => (Number.isFinite(value) ? qav.number(value) + " bit" : "–");
    const wholeDecibel = (value) => qav.decibel(value, 0);
    addMap("map-bits", "Bits by subband", "bits a frame" + perFrame, maps.bits, "mean", {
      ramp: "amount",
      least: 0,
      greatest: qav.clamp(qav.series(maps.bits, "mean").summary().greatest, 60, 400),
      nothing: 0,
      text: mapBits,
      summary: (column, series) =>
        perChannel((channel) => {
          let sum = 0;
          for (let band = 0; band < subbands; band++) sum += series[channel].at(column, band) || 0;
          return mapBits(sum);
        }),
    });
    addMap("map-scale", "Scale factors", "dB re full scale, greatest of a frame", maps.scale, "max", {
      ramp: "amount",
      least: -96,
      greatest: 0,
      text: wholeDecibel,
      summary: greatestOf(wholeDecibel),
    });

    const parts = [
      ["bitsSamples", "samples", "samples"],
      ["bitsScaleFactors", "scale", "scale factors"],
      ["bitsSelection", "selection", "selection information"],
      ["bitsAllocation", "allocation", "allocation"],
      ["bitsHeader", "header", "header and check word"],
      ["bitsUnused", "unused", "unused or ancillary"],
    ].map(([name, ink, text]) => ({ series: qav.series(data[name], "mean"), ink, name: text }));
    const frameBits = data.bitsSamples.map((_, i) =>
      parts.reduce((sum, { series }) => sum + (series.values[i] || 0), 0),
    );
    const bitsAxis = upTo(frameBits.reduce((a, b) => Math.max(a, b), 1));
    add({
      id: "bits",
      title: "Bits of a frame",
      unit: "bits" + perFrame,
      height: 132,
      legend: [...parts].reverse(),
      planes: () => [
        {
          label: "",
          ...bitsAxis,
          describe: parts.map(({ series, name }) => `${name}: ${range(series, mapBits)}`).join("; "),
          draw(p) {
            plots.stack(p, parts, bitsAxis.scale);
            plots.gaps(p, frames);
          },
        },
      ],
      read: (column) =>
        [...parts].reverse().map(({ series, name, ink }) => [name.split(" ")[0], mapBits(series.at(column)), ink]),
    });

    if (data.selection) {
      const kinds = qav.planes(data.selection, 4, "mean");
      const order = qav.SELECTION_ORDER.map((entry) => ({ ...entry, series: kinds[entry.kind] }));
      const pairs = Math.max(subbands * channels, 1);
      const selectionAxis = { scale: { least: 0, greatest: pairs }, ticks: ticksOf([0, pairs / 2, pairs]) };
      add({
        id: "selection",
        title: "Selection information",
        unit: "subbands of all channels, by scale factors sent",
        height: 104,
        legend: [...order].reverse(),
        planes: () => [
          {
            label: "",
            ...selectionAxis,
            describe: order
              .map(({ series, name }) => `${name}: ${range(series, (value) => qav.number(value))}`)
              .join("; "),
            draw(p) {
              plots.stack(p, order, selectionAxis.scale);
              plots.gaps(p, frames);
            },
          },
        ],
        read: (column) =>
          [...order]
            .reverse()
            .map(({ series, name, ink }) => [name.replace(" shared", ""), qav.number(series.at(column)), ink]),
      });
    }

    const bound = qav.series(data.bound, "mean");
    if (bound.summary().count) {
      const boundScale = { least: 0, greatest: 33 };
      add({
        id: "bound",
        title: "Joint-stereo bound",
        unit: "first subband coded jointly",
        height: 56,
        legend: [{ ink: "ink", name: "bound; a gap is a frame without joint stereo", mark: "line" }],
        planes: () => [
          {
            label: "",
            scale: boundScale,
            ticks: ticksOf([0, 16, 32]),
            describe: range(bound, (value) => qav.number(value)),
            draw(p) {
              for (const value of [4, 8, 12, 16]) plots.rule(p, boundScale, value, "hair", [2, 3]);
              plots.line(p, bound, boundScale, { ink: "ink", width: 1.75 });
            },
          },
        ],
        read: (column) => [
          ["", Number.isFinite(bound.at(column)) ? "subband " + qav.number(bound.at(column)) : "none"],
        ],
      });
    }

    const kbps = qav.series(data.kbps, "mean");
    const { least: leastKbps, greatest: greatestKbps } = kbps.summary();
    if (leastKbps !== greatestKbps) {
      const kbpsAxis = upTo(greatestKbps);
      add({
        id: "kbps",
        title: "Bitrate",
        unit: "kbit/s",
        height: 56,
        legend: [],
        planes: () => [
          {
            label: "",
            ...kbpsAxis,
            describe: range(kbps, (value) => qav.number(value) + " kbit/s"),
            draw(p) {
              plots.line(p, kbps, kbpsAxis.scale, { ink: "ink", width: 1.75 });
              plots.gaps(p, frames);
            },
          },
        ],
        read: (column) => [["", qav.number(kbps.at(column)) + " kbit/s"]],
      });
    }

    if (report.model) {
      const kind = report.model.kind === "true" ? "" : "estimate: ";
      addMap("map-smr", "Signal to mask", kind + "dB", maps.smr, "mean", {
        ramp: "amount",
        least: -20,
        greatest: 40,
        text: wholeDecibel,
        summary: greatestOf(wholeDecibel),
      });
      addMap("map-nmr", "Noise to mask", kind + "dB; above 0 noise may be heard", maps.nmr, "max", {
        ramp: "threshold",
        least: -30,
        greatest: 30,
        text: qav.decibel,
        summary: greatestOf(qav.decibel),
      });
      const worst = qav.series(data.nmrMax, "max");
      const over = qav.series(data.nmrOver, "mean");
      const worstScale = { least: -30, greatest: 30 };
      add({
        id: "nmr",
        title: "Worst noise to mask",
        unit: kind + "dB, of all subbands",
        height: 84,
        legend: [
          { ink: "wave", name: "worst subband", mark: "line" },
          { ink: "muted", name: "threshold", mark: "dash" },
        ],
        planes: () => [
          {
            label: "",
            scale: worstScale,
            ticks: ticksOf([-20, 0, 20]),
            describe: range(worst, qav.decibel),
            draw(p) {
              plots.rule(p, worstScale, 0, "muted", [4, 3]);
              plots.line(p, worst, worstScale, { ink: "wave" });
              plots.gaps(p, frames);
            },
          },
        ],
        read: (column) => [
          ["worst", qav.decibel(worst.at(column))],
          ["above 0", qav.count(over.at(column) || 0, "subband")],
        ],
      });
    }

    if (against) qav.addDifferenceLanes({ report, add, addMap, upTo, range, frames, greatestOf });
    return lanes;
  };
})();
