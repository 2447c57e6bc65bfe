"use strict";
// One frame in full: where its bits went, header, subbands, bytes.
(() => {
  const hexWord = (value) => "0x" + value.toString(16).padStart(4, "0");

  function statusText(frame) {
    if (frame.status === 2) return ["bad", "Refused: its bits run out before its fields do."];
    if (frame.status === 1) {
      return [
        "bad",
        `The check word is wrong: ${hexWord(frame.checkGiven)} stands there, ${hexWord(frame.checkComputed)} is right.`,
      ];
    }
    return [
      "good",
      Number.isFinite(frame.checkGiven)
        ? `Good; the check word ${hexWord(frame.checkGiven)} is right.`
        : "Good; it carries no check word.",
    ];
  }

  /** The sections as one bar, widths by bits, and as a list with the numbers. */
  function budget(frame) {
    const total = frame.content.length * 8;
    const bar = qav.html("div", { class: "budget", "aria-hidden": "true" });
    const list = qav.html("dl", { class: "budget-list" });
    qav.SECTIONS.forEach(({ id, name, letter }, section) => {
      const bits = frame.bits[section];
      if (bits) {
        const part = qav.html("div", null, bits > total / 16 ? letter : "");
        part.style.flexGrow = bits;
        part.style.background = `var(--${id}-soft)`;
        part.style.borderTopColor = `var(--${id})`;
        bar.append(part);
      }
      const mark = qav.html("span", { class: "mark letter" }, letter);
      mark.style.setProperty("--mark", `var(--${id}-soft)`);
      list.append(
        qav.html(
          "div",
          null,
          qav.html("dt", null, mark, name),
          qav.html(
            "dd",
            null,
            `${qav.number(bits)} bit`,
            qav.html("span", null, ` ${qav.number((100 * bits) / total, 1)} %`),
          ),
        ),
      );
    });
    return qav.html("div", null, bar, list);
  }

  function headerTable(frame) {
    return qav.html(
      "div",
      { class: "wide-table" },
      qav.table(
        "Header, field by field",
        ["Field", "Bits", "Stored", "Meaning"],
        qav
          .headerRows(frame)
          .map(({ name, place, stored, meaning }) => [name, place, qav.html("code", null, stored), meaning]),
        { class: "header-table" },
      ),
    );
  }

  const channelsOf = (frame) => Array.from({ length: frame.channels }, (_, i) => i);

  /** For each channel: bars for the signal-to-noise ratio that the allocation buys, a line for what the mask asks. */
  function maskChart(frame, report) {
    const [width, height, left, foot] = [420, 150, 34, 20];
    const [least, greatest] = [-20, 100];
    const y = (value) => (height - foot) * (1 - (qav.clamp(value, least, greatest) - least) / (greatest - least));
    const x = (sb) => left + (sb * (width - left - 4)) / report.subbands;
    const charts = channelsOf(frame).map((ch) => {
      const bars = [];
      let mask = "";
      let short = 0;
      for (let sb = 0; sb < frame.sblimit; sb++) {
        const [smr, nmr] = [frame.smr(ch, sb), frame.nmr(ch, sb)];
        if (!Number.isFinite(smr) || !Number.isFinite(nmr)) continue;
        short += nmr > 0;
        const bar = (name, low, high) =>
          bars.push(
            qav.svg("rect", {
              class: name,
              x: x(sb) + 1,
              width: Math.max(x(1) - x(0) - 2, 1),
              y: y(high),
              height: Math.max(y(low) - y(high), 1),
            }),
          );
        if (smr - nmr > 0) bar("bought", 0, smr - nmr);
        if (nmr > 0) bar("short", smr - nmr, smr);
        mask += `${mask ? "L" : "M"}${x(sb).toFixed(1)} ${y(smr).toFixed(1)}H${x(sb + 1).toFixed(1)}`;
      }
      const ticks = [0, 30, 60, 90].map((value) =>
        qav.svg(
          "g",
          { class: "tick" },
          qav.svg("line", { x1: left, x2: width, y1: y(value), y2: y(value) }),
          qav.svg("text", { x: left - 4, y: y(value), dy: "0.32em", "text-anchor": "end" }, String(value)),
        ),
      );
      const bands = [0, 8, 16, 24]
        .filter((sb) => sb < report.subbands)
        .map((sb) =>
          qav.svg("text", { class: "band", x: x(sb + 0.5), y: height - 5, "text-anchor": "middle" }, String(sb)),
        );
      const name = report.channelNames[frame.channels === 1 ? 0 : ch];
      return qav.html(
        "figure",
        { class: "small-chart" },
        qav.html("figcaption", null, `${frame.channels === 1 ? "" : name + ": "}signal to noise, bought and asked for`),
        qav.svg(
          "svg",
          {
            viewBox: `0 0 ${width} ${height}`,
            role: "img",
            "aria-label": `${name}: by subband, in dB. ${short ? qav.count(short, "subband") + " below what the mask asks." : "All subbands above what the mask asks."}`,
          },
          ticks,
          bars,
          qav.svg("path", { class: "mask", d: mask }),
          bands,
        ),
      );
    });
    return qav.html(
      "div",
      { class: "chart-row" },
      charts,
      qav.html(
        "ul",
        { class: "legend" },
        qav.html("li", null, qav.html("span", { class: "mark bar bought" }), "bought by the allocation"),
        qav.html("li", null, qav.html("span", { class: "mark bar short" }), "missing (outlined)"),
        qav.html("li", null, qav.html("span", { class: "mark mask-line" }), "signal to mask, dB by subband"),
      ),
    );
  }

  function subbandTable(frame, report) {
    const model = Boolean(report.details.smr);
    const channels = channelsOf(frame);
    const names = ["Levels", "Bits", "Sel.", "Scale factors, dB", ...(model ? ["SMR", "NMR"] : [])];
    const most = Math.max(
      ...channels.map((ch) =>
        Math.max(...Array.from({ length: frame.sblimit }, (_, sb) => qav.sampleBits(frame, ch, sb))),
      ),
      1,
    );
    const cells = (ch, sb) => {
      const levels = qav.levelsOf(frame, ch, sb);
      if (!levels) {
        return [
          qav.html("td", { class: "edge nothing", colspan: model ? 4 : names.length }, "nothing coded"),
          ...(model ? ratios(ch, sb) : []),
        ];
      }
      const bits = qav.sampleBits(frame, ch, sb);
      const joint = frame.channels === 2 && sb >= frame.bound;
      const bar = qav.html(
        "td",
        { class: "bar-cell", title: joint ? "shared by both channels" : null },
        qav.number(bits),
        joint ? qav.html("abbr", { title: "shared by both channels" }, " j") : null,
      );
      bar.style.setProperty("--share", bits / most);
      const thirds = [0, 1, 2].map((third) => qav.number(qav.scaleFactorDb(frame.scaleFactor(ch, third, sb)), 1));
      const factors =
        frame.layer === 1 || (thirds[0] === thirds[1] && thirds[1] === thirds[2]) ? thirds[0] : thirds.join(" ");
      const selection = frame.selection(ch, sb);
      return [
        qav.html("td", { class: "edge" }, qav.number(levels)),
        bar,
        qav.html(
          "td",
          null,
          Number.isFinite(selection) ? qav.html("abbr", { title: qav.SELECTIONS[selection] }, String(selection)) : "–",
        ),
        qav.html("td", { class: "factors" }, factors),
        ...(model ? ratios(ch, sb) : []),
      ];
    };
    const ratios = (ch, sb) => {
      const [smr, nmr] = [frame.smr(ch, sb), frame.nmr(ch, sb)];
      return [
        qav.html("td", null, qav.number(smr)),
        qav.html("td", { class: nmr > 0 ? "over" : null }, nmr > 0 ? "▲ " : "", qav.number(nmr, 1)),
      ];
    };
    const rows = Array.from({ length: frame.sblimit }, (_, sb) =>
      qav.html(
        "tr",
        null,
        qav.html("th", { scope: "row" }, String(sb)),
        qav.html("td", null, ((sb * frame.freqHz) / 64000).toFixed(1)),
        channels.map((ch) => cells(ch, sb)),
      ),
    );
    return qav.html(
      "div",
      {
        class: "wide-table",
        tabindex: 0,
        role: "group",
        "aria-label": "Subbands, to be scrolled sideways where narrow",
      },
      qav.html(
        "table",
        { class: "subband-table" },
        qav.html("caption", { class: "unseen" }, "Allocation, selection information and scale factors by subband"),
        qav.html(
          "thead",
          null,
          frame.channels === 2
            ? qav.html(
                "tr",
                null,
                qav.html("td", { colspan: 2 }),
                channels.map((ch) =>
                  qav.html("th", { scope: "colgroup", class: "edge", colspan: names.length }, report.channelNames[ch]),
                ),
              )
            : null,
          qav.html(
            "tr",
            null,
            qav.html("th", { scope: "col" }, "Sb"),
            qav.html("th", { scope: "col" }, "kHz"),
            channels.map(() =>
              names.map((name, i) => qav.html("th", { scope: "col", class: i ? null : "edge" }, name)),
            ),
          ),
        ),
        qav.html("tbody", null, rows),
      ),
    );
  }

  qav.makeFramePanel = (section, report, view, goTo) => {
    const { details, columns } = report;
    const title = qav.html("h2", { id: "frame-title", tabindex: -1 }, "Frame");
    section.append(qav.html("div", { class: "section-head" }, title));
    if (!details) {
      section.append(qav.html("p", { class: "note" }, "No frame in this range could be read."));
      return { show() {} };
    }
    const last = details.count - 1;
    let current = 0;
    const input = qav.html("input", {
      type: "number",
      id: "frame-number",
      min: columns.firstFrame,
      max: columns.endFrame - 1,
      step: 1,
      onchange: (event) => goTo(Number(event.target.value)),
    });
    const step = (by) => goTo(details.frame[qav.clamp(current + by, 0, last)]);
    const earlier = qav.html("button", { type: "button", onclick: () => step(-1) }, "‹ Previous");
    const later = qav.html("button", { type: "button", onclick: () => step(1) }, "Next ›");
    const body = qav.html("div", { class: "frame-body" });
    section
      .querySelector(".section-head")
      .append(
        qav.html(
          "div",
          { class: "group" },
          earlier,
          qav.html("label", { class: "choice" }, qav.html("span", { class: "unseen" }, "Frame number"), input),
          later,
        ),
      );
    section.append(body);

    function part(name, ...content) {
      return qav.html("div", { class: "part" }, qav.html("h3", null, name), content);
    }
    /** Show `number`, or the nearest frame before it whose bytes are in the page. */
    function show(number, focus = false) {
      current = report.detailOf(number);
      const frame = qav.readFrame(report, current);
      const seconds = report.secondsAt(report.columnOf(frame.number));
      const [mood, status] = statusText(frame);
      title.textContent = `Frame ${qav.number(frame.number)}`;
      input.value = frame.number;
      earlier.disabled = current === 0;
      later.disabled = current === last;
      const missing =
        frame.number === number
          ? null
          : qav.html(
              "p",
              { class: "notice", id: "frame-notice" },
              `The bytes of frame ${qav.number(number)} are not in this report`,
              details.every > 1 ? `, which holds every ${details.every}th` : " (it could not be read)",
              `; this is frame ${qav.number(frame.number)}. `,
              details.every > 1
                ? qav.html(
                    "code",
                    null,
                    `qav inspect --from ${qav.time(Math.max(seconds - 30, 0), 0)} --to ${qav.time(seconds + 30, 0)}`,
                  )
                : "",
              details.every > 1 ? " makes a report with all frames around it." : "",
            );
      const channelNames = report.channelNames;
      body.replaceChildren(
        ...[
          missing,
          qav.html(
            "p",
            { class: "where" },
            `${qav.time(seconds)} · byte ${qav.number(frame.offset)} · ${qav.count(frame.content.length, "byte")}` +
              ` · table ${frame.table.name} · ${frame.sblimit} subbands`,
          ),
          qav.html("p", { class: "status " + mood, id: "frame-status" }, mood === "good" ? "✓ " : "▲ ", status),
          part("Where its bits went", budget(frame)),
          qav.html(
            "div",
            { class: "columns" },
            part("Header", headerTable(frame)),
            part(
              details.smr ? "Bits against the mask" : "Left over",
              details.smr ? maskChart(frame, report) : qav.unusedTail(frame),
            ),
          ),
          qav.html(
            "div",
            { class: "columns uneven" },
            part("Subbands", subbandTable(frame, report)),
            part("Bytes", qav.makeHex(frame, channelNames)),
          ),
          details.smr ? part("Left over", qav.unusedTail(frame)) : null,
        ].filter(Boolean),
      );
      view.choose(frame.number);
      if (focus) {
        section.scrollIntoView({ block: "start" });
        title.focus({ preventScroll: true });
      }
    }
    return { show };
  };
})();
