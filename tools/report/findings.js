"use strict";
// The list of what is wrong or worth knowing, in the order of the stream.
(() => {
  const FEW = 12;

  /** Bytes in hex, 16 a line, the ones from `mark` on emphasised. */
  function dump({ offset, data }, mark) {
    const lines = [];
    for (let at = 0; at < data.length; at += 32) {
      const line = qav.html(
        "div",
        null,
        qav.html("span", { class: "at" }, String(offset + at / 2).padStart(9, "\u2007")),
      );
      for (let i = at; i < Math.min(at + 32, data.length); i += 2) {
        const byte = data.slice(i, i + 2);
        const place = offset + i / 2;
        line.append(place === mark ? " ▸" : "  ", place >= mark ? qav.html("b", null, byte) : byte);
      }
      lines.push(line);
    }
    return qav.html(
      "div",
      { class: "dump", tabindex: 0, role: "group", "aria-label": "Bytes around the place, in hex" },
      lines,
    );
  }

  qav.makeFindings = (section, report, choose) => {
    const { findings } = report;
    if (!findings.length) return;
    section.hidden = false;
    const { firstFrame, endFrame } = report.columns;
    const item = (finding, index) => {
      const inside = finding.frame >= firstFrame && finding.frame <= endFrame;
      const lost = finding.lostFrames ? `, ${qav.count(finding.lostFrames, "frame")} lost` : "";
      return qav.html(
        "li",
        { class: "finding", "data-frame": finding.frame, "data-kind": finding.kind, hidden: index >= FEW },
        qav.signImage(finding),
        qav.html(
          "div",
          { class: "finding-text" },
          qav.html(
            "p",
            null,
            qav.html("strong", null, finding.kind + (finding.warning ? " (a warning)" : "")),
            ": ",
            finding.what,
            lost,
          ),
          qav.html(
            "p",
            { class: "where" },
            `${qav.time(finding.seconds)} · frame ${qav.number(finding.frame)} · byte ` +
              `${qav.number(finding.offset)}`,
            finding.bytes ? ` · ${qav.count(finding.bytes, "byte")}` : "",
          ),
          finding.hex && finding.hex.data
            ? qav.html("details", null, qav.html("summary", null, "Bytes there"), dump(finding.hex, finding.offset))
            : null,
        ),
        inside
          ? qav.html(
              "button",
              { type: "button", class: "go", onclick: () => choose(finding) },
              "Show",
              qav.html("span", { class: "unseen" }, ` frame ${finding.frame}`),
            )
          : null,
      );
    };
    const list = qav.html("ol", { class: "finding-list" }, findings.map(item));
    const omitted = report.stream.findingsOmitted ?? 0;
    section.append(
      qav.html(
        "div",
        { class: "section-head" },
        qav.html("h2", { id: "findings-title" }, qav.count(findings.length + omitted, "finding")),
      ),
      list,
    );
    if (findings.length > FEW) {
      section.append(
        qav.html(
          "button",
          {
            type: "button",
            class: "more",
            onclick: (event) => {
              for (const entry of list.children) entry.hidden = false;
              event.target.remove();
            },
          },
          `Show all ${qav.number(findings.length)}`,
        ),
      );
    }
    if (omitted)
      section.append(qav.html("p", { class: "note" }, `${qav.count(omitted, "more finding")} are not listed.`));
  };
})();
