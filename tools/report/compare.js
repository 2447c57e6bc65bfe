"use strict";
// The stream against another of the same programme: the first difference field by field, and lanes of differences.
(() => {
  const PARTS = [
    ["samples", "samples"],
    ["scaleFactors", "scale factors"],
    ["selection", "selection information"],
    ["allocation", "allocation"],
    ["header", "header"],
    ["unused", "unused"],
  ];

  qav.addDifferenceLanes = ({ report, add, addMap, upTo, range, frames, greatestOf }) => {
    const { against } = report;
    const lanes = Object.fromEntries(Object.entries(against.lanes).map(([name, array]) => [name, qav.decode(array)]));
    const perColumn = report.columns.framesPerColumn;
    const parts = PARTS.filter(([name]) => lanes[name]).map(([name, text]) => ({
      name: text,
      series: qav.series(lanes[name], "max"),
    }));
    const rows = parts.length;
    // A row a part; in one picture, so that what differs together stands together.
    const grid = new Float32Array(report.columns.count * rows).fill(NaN);
    parts.forEach(({ series }, row) =>
      series.values.forEach((value, column) => {
        if (value > 0) grid[column * rows + row] = value / perColumn;
      }),
    );
    const map = qav.series(grid, "max", rows);
    add({
      id: "against-parts",
      title: "What differs",
      unit: `from the other stream${perColumn > 1 ? ", share of the frames" : ""}`,
      height: rows * 16,
      legend: perColumn > 1 ? [{ ramp: "amount", from: "few frames", to: "all" }] : [],
      planes: () => [
        {
          label: "",
          scale: { least: 0, greatest: rows },
          ticks: parts.map(({ name }, row) => ({ value: row + 0.5, text: name.split(" ")[0] })),
          describe: parts
            .map(
              ({ name, series }) =>
                `${name}: ${series.values.reduce((sum, value) => sum + (value > 0), 0)} columns differ`,
            )
            .join("; "),
          draw(p) {
            qav.heatmap(p, map, { least: 0, greatest: 1 }, "amount");
            for (let row = 1; row < rows; row++) qav.plots.rule(p, { least: 0, greatest: rows }, row);
          },
        },
      ],
      read: (column) =>
        parts
          .filter(({ series }) => series.at(column) > 0)
          .map(({ name, series }) => [
            name.split(" ")[0],
            perColumn > 1 ? qav.count(series.at(column), "frame") : "differs",
          ]),
    });
    if (lanes.snr) {
      const snr = qav.series(lanes.snr, "min");
      const axis = upTo(120);
      add({
        id: "against-snr",
        title: "Signal to difference",
        unit: "dB; a gap is no difference",
        height: 72,
        legend: [],
        planes: () => [
          {
            label: "",
            ...axis,
            describe: range(snr, qav.decibel),
            draw(p) {
              for (const { value } of axis.ticks) qav.plots.rule(p, axis.scale, value);
              qav.plots.line(p, snr, axis.scale, { ink: "wave" });
              qav.plots.gaps(p, frames);
            },
          },
        ],
        read: (column) => [["", Number.isFinite(snr.at(column)) ? qav.decibel(snr.at(column), 0) : "no difference"]],
      });
    }
    const signed = (unit) => (value) =>
      Number.isFinite(value) ? (value > 0 ? "+" : "") + qav.number(value) + unit : "–";
    const difference = (bound, unit) => ({
      ramp: "difference",
      least: -bound,
      greatest: bound,
      text: signed(unit),
      summary: greatestOf(signed(unit)),
    });
    addMap("against-bits", "Bits, other less this", "bits a frame", qav.decode(against.maps.bits), "mean", {
      ...difference(120, " bit"),
      nothing: 0,
    });
    addMap("against-scale", "Scale factors, other less this", "dB", qav.decode(against.maps.scale), "mean", {
      ...difference(12, " dB"),
      nothing: 0,
    });
  };

  function verdict({ framesCompared, framesDiffering, onlyInA, onlyInB }) {
    if (!framesDiffering && !onlyInA && !onlyInB) return "Every frame is the same, bit for bit.";
    const compared = `${qav.count(framesCompared, "frame")} compared`;
    const words = [
      framesDiffering ? `${qav.number(framesDiffering)} of ${compared} differ` : `none of ${compared} differs`,
    ];
    if (onlyInA) words.push(`${qav.count(onlyInA, "frame")} only in this stream`);
    if (onlyInB) words.push(`${qav.count(onlyInB, "frame")} only in the other`);
    const text = words.join("; ") + ".";
    return text[0].toUpperCase() + text.slice(1);
  }

  function shiftText(shift) {
    const there = Math.max(-shift, 0);
    const here = Math.max(shift, 0);
    return (
      `The other stream begins ${qav.count(Math.abs(shift), "frame")} ${shift > 0 ? "later" : "sooner"}: ` +
      `its frame ${qav.number(there)} is compared with frame ${qav.number(here)} of this one.`
    );
  }

  function firstDifference({ frame, frameB, seconds, offsetA, offsetB, fields, fieldsOmitted }, goTo) {
    const link = qav.html("button", { type: "button", class: "link", onclick: () => goTo(frame) }, qav.number(frame));
    const there = frameB === frame ? "" : `frame ${qav.number(frameB)}, byte `;
    const bytes = `byte ${qav.number(offsetA)} here, ${there}${qav.number(offsetB)} there`;
    const words = qav.html(
      "p",
      null,
      "The first difference is in frame ",
      link,
      ` at ${qav.time(seconds)} (${bytes}):`,
    );
    const rows = fields.map(({ field, a, b }) => [field, a, b]);
    const caption = "Fields that differ in the first differing frame";
    const table = qav.table(caption, ["Field", "This stream", "The other"], rows);
    const more = fieldsOmitted ? `${qav.count(fieldsOmitted, "more field")} differ in this frame.` : "";
    const box = qav.html("div", { class: "first-difference" }, words, qav.scrolled("Fields that differ", table));
    if (more) box.append(qav.html("p", { class: "note" }, more));
    return box;
  }

  qav.makeComparison = (section, report, goTo) => {
    const { against } = report;
    if (!against) return;
    section.hidden = false;
    const title = qav.html("h2", { id: "against-title" }, "Against ", against.file.split(/[\\/]/).at(-1));
    section.append(
      qav.html("div", { class: "section-head" }, title),
      qav.html("p", { class: "lead", id: "against-verdict" }, verdict(against)),
      against.frameShift ? qav.html("p", { id: "against-shift" }, shiftText(against.frameShift)) : "",
      against.first ? firstDifference(against.first, goTo) : "",
      qav.html("h3", null, "The other stream"),
      qav.html("div", { class: "fact-groups" }, qav.factGroups(against.head, against.stream.frames)),
    );
  };
})();
