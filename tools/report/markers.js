"use strict";
// The findings along the time line: a sign for each kind, of a shape and a letter of its own. Signs too close to tell
// apart become one with their number.
(() => {
  // kind: letter and outline, within 18 by 18 around the middle
  const SIGNS = {
    "check word": { letter: "C", path: "M0-9 9 0 0 9-9 0Z" },
    "lost sync": { letter: "L", path: "M-8-8H8V8H-8Z" },
    "missing bytes": { letter: "M", path: "M-8-8H8V8H-8Z" },
    truncated: { letter: "T", path: "M-9-8H3L9 0 3 8H-9Z" },
    "format change": { letter: "F", path: "M0-9A9 9 0 1 1 0 9 9 9 0 1 1 0-9Z" },
  };
  const OTHER = { letter: "!", path: "M0-10 10 8H-10Z" };
  const NEAR = 20; // pixels

  qav.sign = (kind) => SIGNS[kind] ?? OTHER;

  /** A sign as an image of its own, for lists and legends. */
  qav.signImage = (finding, count = 1) => {
    const { letter, path } = qav.sign(finding.kind);
    return qav.svg(
      "svg",
      {
        class: "sign" + (finding.warning ? " mild" : ""),
        viewBox: "-11 -11 22 22",
        width: 22,
        height: 22,
        "aria-hidden": "true",
      },
      qav.svg("path", { d: path }),
      qav.svg("text", { y: 4, "text-anchor": "middle" }, count > 1 ? (count > 99 ? "∞" : String(count)) : letter),
    );
  };

  const sentence = (finding) => `${qav.time(finding.seconds)}, frame ${finding.frame}: ${finding.what}`;

  /** Draw the signs within `lane`, an element as wide as the plots. */
  qav.drawMarkers = (lane, report, view, onChoose) => {
    const { width } = lane.getBoundingClientRect();
    const groups = [];
    report.findings.forEach((finding, index) => {
      const column = report.columnOf(finding.frame);
      if (column < view.from - 1 || column > view.to + 1) return;
      // A finding stands in the middle of its frame once frames are wide; the end of the stream is inside the picture.
      const middle = Math.min(column + 0.5 / report.columns.framesPerColumn, report.columns.count);
      const x = qav.clamp(((middle - view.from) / view.span) * width, 0, width);
      const group = groups.at(-1);
      if (group && x - group.x < NEAR) group.findings.push({ finding, index });
      else groups.push({ x, findings: [{ finding, index }] });
    });
    const focused = lane.contains(document.activeElement) ? document.activeElement.dataset.first : null;
    lane.replaceChildren(
      ...groups.map(({ x, findings }) => {
        const { finding, index } = findings[0];
        const text =
          findings.length > 1
            ? `${findings.length} findings from ${sentence(finding)}`
            : `${finding.kind}: ${sentence(finding)}`;
        const button = qav.html(
          "button",
          {
            type: "button",
            class: "marker",
            title: text,
            "aria-label": text,
            "data-frame": finding.frame,
            "data-first": index,
            "data-kind": finding.kind,
            "data-count": findings.length,
            onclick: () => onChoose(findings),
          },
          qav.signImage(finding, findings.length),
        );
        button.style.left = ((100 * x) / width).toFixed(3) + "%";
        return button;
      }),
    );
    if (focused !== null) lane.querySelector(`[data-first="${focused}"]`)?.focus({ preventScroll: true });
  };
})();
