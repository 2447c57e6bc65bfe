"use strict";
// One frame by subband and channel: allocation, bits, selection information, scale factors, and the model's ratios.
(() => {
  const cell = (content, attributes) => qav.html("td", attributes, content);

  function factorsText(frame, ch, sb) {
    const thirds = [0, 1, 2].map((third) => qav.number(qav.scaleFactorDb(frame.scaleFactor(ch, third, sb)), 1));
    return thirds.every((text) => text === thirds[0]) ? thirds[0] : thirds.join(" ");
  }

  function ratioCells(frame, ch, sb) {
    const [smr, nmr] = [frame.smr(ch, sb), frame.nmr(ch, sb)];
    const over = nmr > 0;
    return [cell(qav.number(smr)), cell((over ? "▲ " : "") + qav.number(nmr, 1), over ? { class: "over" } : null)];
  }

  function codedCells(frame, ch, sb, most) {
    const bits = qav.sampleBits(frame, ch, sb);
    const joint = frame.channels === 2 && sb >= frame.bound;
    const selection = frame.selection(ch, sb);
    const sign = joint ? qav.html("abbr", { title: "shared by both channels" }, " j") : null;
    const bar = cell([qav.number(bits), sign], { class: "bar-cell" });
    bar.style.setProperty("--share", bits / most);
    return [
      cell(qav.number(qav.levelsOf(frame, ch, sb)), { class: "edge" }),
      bar,
      cell(
        Number.isFinite(selection) ? qav.html("abbr", { title: qav.SELECTIONS[selection] }, String(selection)) : "–",
      ),
      cell(factorsText(frame, ch, sb), { class: "factors" }),
    ];
  }

  qav.subbandTable = (frame, report) => {
    const model = Boolean(report.details.smr);
    const channels = Array.from({ length: frame.channels }, (_, ch) => ch);
    const bands = Array.from({ length: frame.sblimit }, (_, sb) => sb);
    const names = ["Levels", "Bits", "Sel.", "Scale factors, dB", ...(model ? ["SMR", "NMR"] : [])];
    const most = Math.max(1, ...channels.flatMap((ch) => bands.map((sb) => qav.sampleBits(frame, ch, sb))));

    const cells = (ch, sb) => {
      const coded = frame.allocation(ch, sb) > 0;
      const nothing = [cell("nothing coded", { class: "edge nothing", colspan: 4 })];
      return [...(coded ? codedCells(frame, ch, sb, most) : nothing), ...(model ? ratioCells(frame, ch, sb) : [])];
    };
    const rows = bands.map((sb) => {
      const row = qav.html("tr", null, qav.html("th", { scope: "row" }, String(sb)));
      row.append(cell(((sb * frame.freqHz) / 64000).toFixed(1)), ...channels.flatMap((ch) => cells(ch, sb)));
      return row;
    });
    const heads = channels.flatMap(() =>
      names.map((name, i) => qav.html("th", { scope: "col", class: i ? null : "edge" }, name)),
    );
    const groups = channels.map((ch) =>
      qav.html("th", { scope: "colgroup", class: "edge", colspan: names.length }, report.channelNames[ch]),
    );
    const head = qav.html("thead");
    if (frame.channels === 2) head.append(qav.html("tr", null, cell("", { colspan: 2 }), groups));
    head.append(
      qav.html(
        "tr",
        null,
        ["Sb", "kHz"].map((name) => qav.html("th", { scope: "col" }, name)),
        heads,
      ),
    );
    const caption = "Allocation, selection information and scale factors by subband";
    const table = qav.html(
      "table",
      { class: "subband-table" },
      qav.html("caption", { class: "unseen" }, caption),
      head,
    );
    table.append(qav.html("tbody", null, rows));
    return qav.scrolled("Subbands", table);
  };
})();
