"use strict";
// What stands above the lanes: buttons for the zoom and the findings, menus for channels, lanes and keys.
(() => {
  const KEYS = [
    ["← →", "cursor by a column; with Shift by a tenth of the view"],
    ["↑ ↓", "cursor to another subband"],
    ["+ −", "zoom in and out at the cursor"],
    ["0", "show everything"],
    ["Home End", "cursor to either end"],
    ["N P", "next and previous finding"],
    ["Enter", "show the frame at the cursor"],
  ];
  qav.keysInWords = () => KEYS.map(([keys, text]) => `${keys}: ${text}`).join("; ");

  const button = (text, label, onclick) =>
    qav.html("button", { type: "button", title: label, "aria-label": label, onclick }, text);

  const menu = (name, ...content) => qav.html("details", { class: "menu" }, qav.html("summary", null, name), content);

  function channelChoice(report, view) {
    const onchange = ({ target }) => view.chooseChannel(target.value === "both" ? "both" : Number(target.value));
    const options = report.channelNames.map((name, i) => qav.html("option", { value: i }, name.toLowerCase()));
    const select = qav.html("select", { id: "channel-choice", onchange });
    select.append(qav.html("option", { value: "both" }, "both"), ...options);
    return qav.html("label", { class: "choice" }, "Channels ", select);
  }

  function laneMenu(lanes, view) {
    const labels = lanes.map((lane) => {
      const onchange = ({ target }) => {
        lane.element.hidden = !target.checked;
        view.refresh();
      };
      return qav.html("label", null, qav.html("input", { type: "checkbox", checked: true, onchange }), lane.title);
    });
    return menu("Lanes", qav.html("div", { class: "menu-body" }, labels));
  }

  function keyMenu() {
    const rows = KEYS.map(([keys, text]) => {
      const caps = keys.split(" ").map((key) => qav.html("kbd", null, key));
      return qav.html("div", null, qav.html("dt", null, caps), qav.html("dd", null, text));
    });
    const note = "Drag a lane to move it; pinch, or turn the wheel with Ctrl held, to zoom.";
    return menu(
      "Keys",
      qav.html("div", { class: "menu-body keys" }, qav.html("dl", null, rows), qav.html("p", null, note)),
    );
  }

  /** `acts` are toFinding(step) and openFrame(); returns the bar, and in it what tells where the cursor is. */
  qav.makeToolbar = (report, view, lanes, acts) => {
    const here = qav.html("output", { class: "here" });
    const open = qav.html("button", { type: "button", onclick: acts.openFrame }, "Show this frame");
    const zoom = [
      button("−", "Zoom out", () => view.zoom(2)),
      button("+", "Zoom in", () => view.zoom(0.5)),
      button("All", "Show everything", () => view.fit()),
    ];
    const findings = [
      button("‹ Finding", "Previous finding", () => acts.toFinding(-1)),
      button("Finding ›", "Next finding", () => acts.toFinding(1)),
    ];
    const menus = [laneMenu(lanes, view), keyMenu()];
    for (const one of menus) {
      one.addEventListener("toggle", () => {
        if (one.open) menus.filter((other) => other !== one).forEach((other) => (other.open = false));
      });
    }
    const bar = qav.html("div", { class: "tools", role: "toolbar", "aria-label": "Time line" });
    bar.append(qav.html("div", { class: "group" }, zoom));
    if (report.findings.length) bar.append(qav.html("div", { class: "group" }, findings));
    if (report.channels === 2) bar.append(channelChoice(report, view));
    bar.append(...menus, qav.html("span", { class: "spring" }), here, open);
    return { bar, here, open };
  };
})();
