"use strict";
// The time line: the lanes below each other on one axis, and all that moves the zoom and the cursor.
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

  function legendOf(legend) {
    if (!legend.length) return null;
    return qav.html(
      "ul",
      { class: "legend" },
      legend.map((entry) => {
        if (entry.ramp) {
          const bar = qav.html("span", { class: "ramp", "data-ramp": entry.ramp });
          bar.style.backgroundImage = qav.gradient(entry.ramp);
          return qav.html(
            "li",
            { class: "scale" },
            qav.html("span", null, entry.from),
            bar,
            qav.html("span", null, entry.to),
          );
        }
        const mark = qav.html("span", { class: "mark " + entry.mark });
        mark.style.setProperty("--mark", `var(--${entry.ink})`);
        return qav.html("li", null, mark, entry.name);
      }),
    );
  }

  const readingOf = (rows) =>
    rows.map(([name, text, ink]) => {
      const swatch = ink ? qav.html("span", { class: "mark area" }) : null;
      if (swatch) swatch.style.setProperty("--mark", `var(--${ink})`);
      return qav.html("div", null, qav.html("dt", null, swatch, name), qav.html("dd", null, text));
    });

  qav.makeTimeline = (section, report, view, showFrame) => {
    const { columns } = report;
    const lanes = qav.makeLanes(report, view);
    const single = columns.framesPerColumn === 1;

    // ---- what stands above the lanes
    const button = (text, label, onclick) =>
      qav.html("button", { type: "button", title: label, "aria-label": label, onclick }, text);
    const here = qav.html("output", { class: "here" });
    const open = qav.html("button", { type: "button", class: "open", onclick: () => toFrame(true) }, "Show this frame");
    const channelChoice =
      report.channels === 2
        ? qav.html(
            "label",
            { class: "choice" },
            "Channels ",
            qav.html(
              "select",
              {
                id: "channel-choice",
                onchange: (event) =>
                  view.chooseChannel(event.target.value === "both" ? "both" : Number(event.target.value)),
              },
              qav.html("option", { value: "both" }, "both"),
              report.channelNames.map((name, i) => qav.html("option", { value: i }, name.toLowerCase())),
            ),
          )
        : null;
    const laneChoice = qav.html(
      "details",
      { class: "menu" },
      qav.html("summary", null, "Lanes"),
      qav.html(
        "div",
        { class: "menu-body" },
        lanes.map((lane) =>
          qav.html(
            "label",
            null,
            qav.html("input", {
              type: "checkbox",
              checked: true,
              onchange: (event) => {
                lane.element.hidden = !event.target.checked;
                view.refresh();
              },
            }),
            lane.title,
          ),
        ),
      ),
    );
    const keyHelp = qav.html(
      "details",
      { class: "menu" },
      qav.html("summary", null, "Keys"),
      qav.html(
        "dl",
        { class: "menu-body keys" },
        KEYS.map(([key, text]) =>
          qav.html(
            "div",
            null,
            qav.html(
              "dt",
              null,
              key.split(" ").map((k) => qav.html("kbd", null, k)),
            ),
            qav.html("dd", null, text),
          ),
        ),
        qav.html("p", null, "Drag a lane to move it; pinch, or turn the wheel with Ctrl held, to zoom."),
      ),
    );
    for (const menu of [laneChoice, keyHelp]) {
      menu.addEventListener("toggle", () => {
        if (menu.open) for (const other of [laneChoice, keyHelp]) if (other !== menu) other.open = false;
      });
    }
    const tools = qav.html(
      "div",
      { class: "tools", role: "toolbar", "aria-label": "Time line" },
      qav.html(
        "div",
        { class: "group" },
        button("−", "Zoom out", () => view.zoom(2)),
        button("+", "Zoom in", () => view.zoom(0.5)),
        button("All", "Show everything", () => view.fit()),
      ),
      report.findings.length
        ? qav.html(
            "div",
            { class: "group" },
            button("‹ Finding", "Previous finding", () => toFinding(-1)),
            button("Finding ›", "Next finding", () => toFinding(1)),
          )
        : null,
      channelChoice,
      laneChoice,
      keyHelp,
      qav.html("span", { class: "spring" }),
      here,
      open,
    );

    const overview = qav.makeOverview(report, view);
    const ruler = qav.svg("svg", { class: "ruler", "aria-hidden": "true" });
    const slider = qav.html(
      "div",
      {
        class: "slider",
        role: "slider",
        tabindex: 0,
        id: "cursor",
        "aria-label": "Cursor",
        "aria-valuemin": columns.firstFrame,
        "aria-valuemax": columns.endFrame - 1,
        "aria-describedby": "keys-told",
      },
      ruler,
    );
    const markers = qav.html("div", { class: "markers", role: "group", "aria-label": "Findings in view" });
    const row = (className, name, plot) =>
      qav.html(
        "div",
        { class: "row " + className },
        qav.html("div", { class: "row-name" }, name),
        qav.html("div", { class: "row-plot" }, plot),
      );

    // ---- the lanes
    function buildLane(lane) {
      lane.reading = qav.html("dl", { class: "reading" });
      lane.body = qav.html("div", { class: "planes" });
      lane.element = qav.html(
        "div",
        { class: "lane", id: "lane-" + lane.id, role: "group", "aria-label": lane.title },
        qav.html(
          "div",
          { class: "lane-name" },
          qav.html("h3", null, lane.title),
          qav.html("p", { class: "unit" }, lane.unit),
          legendOf(lane.legend),
        ),
        lane.body,
        lane.reading,
      );
      buildPlanes(lane);
      return lane.element;
    }
    function buildPlanes(lane) {
      lane.drawn = lane.planes().map((plane) => {
        const axis = qav.svg("svg", { class: "axis", "aria-hidden": "true" });
        const canvas = qav.html("canvas", { role: "img", "aria-label": `${lane.title}. ${plane.describe}.` });
        const place = qav.html(
          "div",
          { class: "plane" },
          axis,
          canvas,
          plane.label ? qav.html("span", { class: "channel", "aria-hidden": "true" }, plane.label) : null,
        );
        place.style.height = lane.height + "px";
        return { ...plane, axis, canvas, place };
      });
      lane.body.replaceChildren(...lane.drawn.map(({ place }) => place));
    }
    const cursorLine = qav.html("div", { class: "cursor", hidden: true });
    const chosenLine = qav.html("div", { class: "chosen", hidden: true });
    const field = qav.html("div", { class: "lanes" }, lanes.map(buildLane), cursorLine, chosenLine);

    section.append(
      qav.html(
        "div",
        { class: "section-head" },
        qav.html("h2", { id: "timeline-title" }, "Time line"),
        qav.html(
          "p",
          { class: "note" },
          single
            ? "Each column is a frame."
            : `Each column is ${columns.framesPerColumn} frames, about ${
                columns.unit === "second"
                  ? "a second"
                  : qav.number(report.secondsAt(1) - report.secondsAt(0)) + " seconds"
              }. For single frames, inspect a part: qav inspect --from 1:00 --to 3:00.`,
        ),
      ),
      report.model ? qav.html("p", { class: "note" }, report.model.text) : null,
      qav.html("p", { class: "unseen", id: "keys-told" }, KEYS.map(([key, text]) => `${key}: ${text}`).join("; ")),
      tools,
      row("overview-row", "Overview", overview.strip),
      qav.html(
        "div",
        { class: "top" },
        row("ruler-row", "", slider),
        report.findings.length ? row("marker-row", "Findings", markers) : null,
      ),
      field,
    );

    // ---- drawing
    let plot = { left: 0, width: 1 };
    function measure() {
      const lane = lanes.find(({ element }) => !element.hidden);
      if (!lane) return;
      const box = lane.drawn[0].canvas.getBoundingClientRect();
      plot = { left: box.left - field.getBoundingClientRect().left, width: Math.max(box.width, 1) };
    }
    function draw() {
      measure();
      for (const lane of lanes) {
        if (lane.element.hidden) continue;
        for (const plane of lane.drawn) {
          plane.draw(qav.plots.picture(plane.canvas, view));
          qav.valueAxis(plane.axis, plane.scale, plane.ticks);
        }
      }
      overview.draw();
      qav.timeAxis(ruler, report, view);
      qav.drawMarkers(markers, report, view, (findings) => {
        if (findings.length > 1 && view.span > 8) {
          const places = findings.map(({ finding }) => report.columnOf(finding.frame));
          view.show(places[0] - 4, places.at(-1) + 4);
        }
        chooseFinding(findings[0].finding);
      });
      for (const bar of section.querySelectorAll(".ramp")) bar.style.backgroundImage = qav.gradient(bar.dataset.ramp);
    }
    const columnToX = (column) => plot.left + ((column - view.from) / view.span) * plot.width;

    function drawCursor() {
      const { cursor, subband } = view;
      const inView = cursor !== null && cursor >= view.from && cursor <= view.to;
      cursorLine.hidden = !inView;
      if (inView) {
        const wide = plot.width / view.span; // of a column
        cursorLine.style.left = columnToX(wide > 3 ? Math.floor(cursor) : cursor) + "px";
        cursorLine.style.width = Math.max(wide > 3 ? wide : 1, 1) + "px";
      }
      const column = cursor ?? (view.from + view.to) / 2;
      const frame = report.frameAt(Math.floor(column));
      const seconds = report.secondsAt(Math.floor(column));
      const told = single
        ? `frame ${qav.number(frame)}`
        : `frames ${qav.number(frame)} to ${qav.number(Math.min(frame + columns.framesPerColumn, columns.endFrame) - 1)}`;
      here.textContent = cursor === null ? "" : `${qav.time(seconds)} · ${told}`;
      open.disabled = cursor === null;
      slider.setAttribute("aria-valuenow", frame);
      slider.setAttribute("aria-valuetext", cursor === null ? "nowhere" : `${qav.time(seconds)}, ${told}`);
      for (const lane of lanes) {
        lane.reading.replaceChildren(...(cursor === null ? [] : readingOf(lane.read(column, subband))));
        if (!lane.map) continue;
        for (const { place } of lane.drawn) {
          place.style.setProperty("--subband", subband === null ? "-1" : String((subband + 0.5) / report.subbands));
          place.classList.toggle("at-subband", subband !== null && cursor !== null);
        }
      }
      drawChosen();
    }
    function drawChosen() {
      const column = view.frame === null ? -1 : report.columnOf(view.frame);
      const inView = column >= view.from - 1 && column <= view.to;
      chosenLine.hidden = !inView;
      if (inView) {
        chosenLine.style.left = columnToX(qav.clamp(column, view.from, view.to)) + "px";
        chosenLine.style.width = Math.max(plot.width / view.span / columns.framesPerColumn, 1) + "px";
      }
    }

    // ---- moving
    function toFrame(scroll) {
      if (view.cursor !== null) showFrame(report.frameAt(single ? Math.floor(view.cursor) : view.cursor), scroll);
    }
    function chooseFinding(finding) {
      const column = qav.clamp(report.columnOf(finding.frame), 0, columns.count - 1e-3);
      view.reveal(column);
      view.moveCursor(column);
      showFrame(finding.frame, false);
    }
    function toFinding(step) {
      const at = view.cursor === null ? -1 : report.frameAt(single ? Math.floor(view.cursor) : view.cursor);
      const ahead = report.findings.filter(
        ({ frame }) => (step > 0 ? frame > at : frame < at) && frame >= columns.firstFrame && frame <= columns.endFrame,
      );
      const next = step > 0 ? ahead[0] : ahead.at(-1);
      if (next) chooseFinding(next);
    }
    function stepCursor(columnsBy, subbandsBy = 0) {
      const column = view.cursor ?? view.from;
      const to = qav.clamp(
        view.cursor === null ? column : Math.floor(column) + columnsBy + 1e-3,
        0,
        columns.count - 1e-3,
      );
      const subband = subbandsBy
        ? (view.subband ?? (subbandsBy > 0 ? -1 : report.subbands)) + subbandsBy
        : view.subband;
      view.moveCursor(to, subband);
      view.reveal(to);
    }
    slider.addEventListener("keydown", (event) => {
      if (event.ctrlKey || event.metaKey || event.altKey) return;
      const far = Math.max(Math.round(view.span / 10), 1);
      const by = event.shiftKey ? far : 1;
      const act = {
        ArrowLeft: () => stepCursor(-by),
        ArrowRight: () => stepCursor(by),
        ArrowUp: () => stepCursor(0, 1),
        ArrowDown: () => stepCursor(0, -1),
        PageUp: () => stepCursor(-far),
        PageDown: () => stepCursor(far),
        Home: () => stepCursor(-columns.count),
        End: () => stepCursor(columns.count),
        "+": () => view.zoom(0.5),
        "=": () => view.zoom(0.5),
        "-": () => view.zoom(2),
        0: () => view.fit(),
        n: () => toFinding(1),
        N: () => toFinding(1),
        p: () => toFinding(-1),
        P: () => toFinding(-1),
        Enter: () => toFrame(true),
        Escape: () => view.moveCursor(null, null),
      }[event.key];
      if (!act) return;
      event.preventDefault();
      act();
    });

    const columnOfEvent = (event) => {
      const x = event.clientX - field.getBoundingClientRect().left - plot.left;
      return x < 0 || x > plot.width ? null : view.from + (x / plot.width) * view.span;
    };
    const subbandOfEvent = (event) => {
      const canvas = event.target.closest?.("canvas");
      const lane = lanes.find(({ map, drawn }) => map && drawn.some((plane) => plane.canvas === canvas));
      if (!lane) return null;
      const box = canvas.getBoundingClientRect();
      return qav.clamp(
        Math.floor((1 - (event.clientY - box.top) / box.height) * report.subbands),
        0,
        report.subbands - 1,
      );
    };
    const pointers = new Map(); // those that are down: where they were last
    let dragged = 0;
    field.addEventListener("pointerdown", (event) => {
      if (columnOfEvent(event) === null || event.button > 0) return;
      pointers.set(event.pointerId, event.clientX);
      dragged = 0;
    });
    field.addEventListener("pointermove", (event) => {
      const before = pointers.get(event.pointerId);
      if (before !== undefined) {
        const moved = event.clientX - before;
        dragged += Math.abs(moved);
        if (dragged > 4) {
          if (!field.hasPointerCapture(event.pointerId)) field.setPointerCapture(event.pointerId);
          const others = [...pointers].filter(([id]) => id !== event.pointerId);
          if (others.length) {
            // two fingers: their distance is the zoom
            const other = others[0][1];
            const [old, now] = [Math.abs(before - other), Math.abs(event.clientX - other)];
            if (old > 8 && now > 8) {
              const x = (event.clientX + other) / 2 - field.getBoundingClientRect().left - plot.left;
              view.zoom(old / now, view.from + (x / plot.width) * view.span);
            }
          } else view.pan((-moved / plot.width) * view.span);
          pointers.set(event.pointerId, event.clientX);
        }
        return;
      }
      const column = columnOfEvent(event);
      if (column !== null) view.moveCursor(column, subbandOfEvent(event));
    });
    field.addEventListener("pointerup", (event) => {
      const wasDown = pointers.delete(event.pointerId);
      const column = columnOfEvent(event);
      if (!wasDown || dragged > 4 || column === null) return;
      view.moveCursor(column, subbandOfEvent(event));
      slider.focus({ preventScroll: true });
      toFrame(false);
    });
    field.addEventListener("pointercancel", (event) => pointers.delete(event.pointerId));
    field.addEventListener("dblclick", (event) => {
      const column = columnOfEvent(event);
      if (column !== null) view.zoom(0.25, column);
    });
    slider.addEventListener("pointerdown", (event) => {
      const column = columnOfEvent(event);
      if (column !== null) view.moveCursor(column);
    });
    section.addEventListener(
      "wheel",
      (event) => {
        const column = columnOfEvent(event);
        if (column === null) return;
        const unit = event.deltaMode === 1 ? 16 : 1;
        if (event.ctrlKey || event.metaKey) {
          event.preventDefault();
          view.zoom(Math.exp(event.deltaY * unit * 0.004), column);
        } else if (event.deltaX || event.shiftKey) {
          event.preventDefault();
          view.pan((((event.deltaX || event.deltaY) * unit) / plot.width) * view.span);
        }
      },
      { passive: false },
    );

    view.on("zoom", draw);
    view.on("cursor", drawCursor);
    view.on("frame", drawChosen);
    view.on("channel", () => {
      lanes.forEach(buildPlanes);
      view.refresh();
    });
    new ResizeObserver(() => view.refresh()).observe(field);
    return { lanes, draw, drawCursor, chooseFinding };
  };
})();
