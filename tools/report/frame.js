"use strict";
// One frame in full: where its bits went, header, subbands, bytes.
(() => {
  const hexWord = (value) => "0x" + value.toString(16).padStart(4, "0");

  /** How the frame is, in a word and in a sentence. */
  function statusOf({ status, checkGiven, checkComputed }) {
    if (status === 2) return ["bad", "Refused: its bits run out before its fields do."];
    const given = Number.isFinite(checkGiven) ? hexWord(checkGiven) : null;
    if (status === 1)
      return ["bad", `The check word is wrong: ${given} stands there, ${hexWord(checkComputed)} is right.`];
    return ["good", given ? `Good; the check word ${given} is right.` : "Good; it carries no check word."];
  }

  /** The sections as one bar, widths by bits, and as a list with the numbers. */
  function budget(frame) {
    const total = frame.content.length * 8;
    const bar = qav.html("div", { class: "budget", "aria-hidden": "true" });
    const list = qav.html("dl", { class: "budget-list" });
    qav.SECTIONS.forEach(({ id, name, letter }, section) => {
      const bits = frame.bits[section];
      const share = qav.html("span", null, ` ${qav.number((100 * bits) / total, 1)} %`);
      const label = qav.html("dt", null, qav.swatch("letter", id + "-soft", letter), name);
      list.append(qav.html("div", null, label, qav.html("dd", null, `${qav.number(bits)} bit`, share)));
      if (!bits) return;
      const part = qav.html("div", null, bits > total / 16 ? letter : "");
      part.style.flexGrow = bits;
      part.style.background = `var(--${id}-soft)`;
      part.style.borderTopColor = `var(--${id})`;
      bar.append(part);
    });
    return [bar, list];
  }

  function headerTable(frame) {
    const rows = qav.headerRows(frame).map(({ name, place, stored, meaning }) => {
      return [name, place, qav.html("code", null, stored), meaning];
    });
    const head = ["Field", "Bits", "Stored", "Meaning"];
    return qav.scrolled("Header", qav.table("Header, field by field", head, rows, { class: "header-table" }));
  }

  /** Why another frame than the wanted one is shown, and how to see that one. */
  function notice(wanted, shown, seconds, every) {
    const words = `The bytes of frame ${qav.number(wanted)} are not in this report`;
    const instead = `; this is frame ${qav.number(shown)}. `;
    const box = qav.html("p", { class: "notice", id: "frame-notice" }, words);
    if (every === 1) box.append(" (it could not be read)", instead);
    else {
      const [from, to] = [Math.max(seconds - 30, 0), seconds + 30].map((place) => qav.time(place, 0));
      const command = qav.html("code", null, `qav inspect --from ${from} --to ${to}`);
      box.append(`, which holds every ${every}th`, instead, command, " makes a report with all frames around it.");
    }
    return box;
  }

  const part = (name, ...content) => qav.html("div", { class: "part" }, qav.html("h3", null, name), content);

  function body(frame, report, seconds) {
    const [mood, words] = statusOf(frame);
    const facts = [
      qav.time(seconds),
      `byte ${qav.number(frame.offset)}`,
      qav.count(frame.content.length, "byte"),
      `table ${frame.table.name}`,
      `${frame.sblimit} subbands`,
    ];
    const rest = part("Left over", qav.unusedTail(frame));
    const model = Boolean(report.details.smr);
    return [
      qav.html("p", { class: "where" }, facts.join(" · ")),
      qav.html("p", { class: "status " + mood, id: "frame-status" }, mood === "good" ? "✓ " : "▲ ", words),
      part("Where its bits went", budget(frame)),
      qav.html(
        "div",
        { class: "columns" },
        part("Header", headerTable(frame)),
        model ? part("Bits against the mask", qav.frameMask(frame, report)) : rest,
      ),
      qav.html(
        "div",
        { class: "columns uneven" },
        part("Subbands", qav.subbandTable(frame, report)),
        part("Bytes", qav.makeHex(frame, report.channelNames)),
      ),
      model ? rest : "",
    ];
  }

  /** The panel; `goTo(number)` is to move the time line to a frame and have it shown. */
  qav.makeFramePanel = (section, report, view, goTo) => {
    const { details, columns } = report;
    const title = qav.html("h2", { id: "frame-title", tabindex: -1 }, "Frame");
    const head = qav.html("div", { class: "section-head" }, title);
    section.append(head);
    if (!details) {
      section.append(qav.html("p", { class: "note" }, "No frame in this range could be read."));
      return { show() {} };
    }

    let current = 0; // place in the details
    const step = (by) => goTo(details.frame[qav.clamp(current + by, 0, details.count - 1)]);
    const earlier = qav.html("button", { type: "button", onclick: () => step(-1) }, "‹ Previous");
    const later = qav.html("button", { type: "button", onclick: () => step(1) }, "Next ›");
    const input = qav.html("input", {
      type: "number",
      id: "frame-number",
      min: columns.firstFrame,
      max: columns.endFrame - 1,
      step: 1,
      onchange: ({ target }) => goTo(qav.clamp(Number(target.value), columns.firstFrame, columns.endFrame - 1)),
    });
    const label = qav.html("label", { class: "choice" }, qav.html("span", { class: "unseen" }, "Frame number"), input);
    const shown = qav.html("div", { class: "frame-body" });
    head.append(qav.html("div", { class: "group" }, earlier, label, later));
    section.append(shown);

    /** Show `number`, or the nearest frame before it whose bytes are in the page. */
    function show(number, focus = false) {
      current = report.detailOf(number);
      const frame = qav.readFrame(report, current);
      const seconds = report.secondsAt(report.columnOf(frame.number));
      title.textContent = `Frame ${qav.number(frame.number)}`;
      input.value = frame.number;
      earlier.disabled = current === 0;
      later.disabled = current === details.count - 1;
      const missing = frame.number === number ? "" : notice(number, frame.number, seconds, details.every);
      shown.replaceChildren(missing, ...body(frame, report, seconds));
      view.choose(frame.number);
      if (!focus) return;
      section.scrollIntoView({ block: "start" });
      title.focus({ preventScroll: true });
    }
    return { show };
  };
})();
