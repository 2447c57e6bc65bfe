"use strict";
// The report put together.
(() => {
  const find = (id) => document.getElementById(id);
  const report = qav.readReport(find("data").textContent);
  const view = qav.makeView(report);

  qav.theme.apply();
  qav.makeHead(find("head"), report);

  let panel = null;
  const showFrame = (frame, scroll) => panel.show(frame, scroll);
  const timeline = qav.makeTimeline(find("timeline"), report, view, showFrame);
  function goTo(frame) {
    const column = qav.clamp(report.columnOf(frame), 0, report.columns.count - 1e-3);
    view.reveal(column);
    view.moveCursor(column);
    panel.show(frame);
  }
  panel = qav.makeFramePanel(find("frame"), report, view, goTo);
  qav.makeFindings(find("findings"), report, (finding) => {
    timeline.chooseFinding(finding);
    find("timeline").scrollIntoView({ block: "start" });
    find("cursor").focus({ preventScroll: true });
  });
  qav.makeDistributions(find("distributions"), report);
  qav.makeComparison(find("against"), report, (frame) => {
    goTo(frame);
    find("timeline").scrollIntoView({ block: "start" });
  });

  const titles = [
    ["findings", "Findings"],
    ["timeline", "Time line"],
    ["frame", "Frame"],
    ["distributions", "Distributions"],
    ["against", "Against"],
  ];
  find("contents").append(
    qav.html(
      "ul",
      null,
      titles
        .filter(([id]) => !find(id).hidden)
        .map(([id, name]) => qav.html("li", null, qav.html("a", { href: "#" + id }, name))),
    ),
  );
  find("foot").append(`Written by ${report.tool}. This page holds all its data and loads nothing.`);

  qav.theme.changed = () => {
    timeline.draw();
    timeline.drawCursor();
  };
  // Paper is light, and as wide as it is: the pictures are drawn again for it.
  addEventListener("beforeprint", () => qav.theme.print(true));
  addEventListener("afterprint", () => qav.theme.print(false));

  const firstFinding = report.findings.find(
    ({ frame }) => frame >= report.columns.firstFrame && frame < report.columns.endFrame,
  );
  goTo(firstFinding ? firstFinding.frame : report.columns.firstFrame);
  view.refresh();
  document.documentElement.dataset.ready = "yes";
})();
