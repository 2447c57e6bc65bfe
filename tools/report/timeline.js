"use strict";
// The time line: the lanes below each other on one axis, under one cursor.
(() => {
  const INSIDE = 1e-3; // of a column: keeps a place within the last one

  const NO_MODEL = "No estimate of what the ear asks for: the psychoacoustic model knows MPEG-1 Layer II alone.";

  function introduction({ columns, model, secondsAt }) {
    const { framesPerColumn: frames, unit } = columns;
    const wide = unit === "second" ? "a second" : qav.number(secondsAt(1) - secondsAt(0)) + " seconds";
    const words =
      frames === 1
        ? "Each column is a frame."
        : `Each column is ${frames} frames, about ${wide}. For single frames, inspect a part: --from 1:00 --to 3:00.`;
    return [
      qav.html(
        "div",
        { class: "section-head" },
        qav.html("h2", { id: "timeline-title" }, "Time line"),
        qav.html("p", { class: "note" }, words),
      ),
      qav.html("p", { class: "note" }, model ? model.text : NO_MODEL),
      qav.html("p", { class: "unseen", id: "keys-told" }, qav.keysInWords()),
    ];
  }

  function buildPlanes(lane) {
    lane.drawn = lane.planes().map((plane) => {
      const axis = qav.svg("svg", { class: "axis", "aria-hidden": "true" });
      const canvas = qav.html("canvas", { role: "img", "aria-label": `${lane.title}. ${plane.describe}.` });
      const place = qav.html("div", { class: "plane" }, axis, canvas);
      if (plane.label) place.append(qav.html("span", { class: "channel", "aria-hidden": "true" }, plane.label));
      place.style.height = lane.height + "px";
      return { ...plane, axis, canvas, place };
    });
    lane.body.replaceChildren(...lane.drawn.map(({ place }) => place));
  }
  function buildLane(lane) {
    lane.reading = qav.html("dl", { class: "reading" });
    lane.body = qav.html("div", { class: "planes" });
    const name = qav.html("div", { class: "lane-name" });
    name.append(qav.html("h3", null, lane.title), qav.html("p", { class: "unit" }, lane.unit));
    name.append(qav.legend(lane.legend) ?? "");
    lane.element = qav.html("div", { class: "lane", id: "lane-" + lane.id, role: "group", "aria-label": lane.title });
    lane.element.append(name, lane.body, lane.reading);
    buildPlanes(lane);
    return lane.element;
  }

  const row = (name, plot) =>
    qav.html(
      "div",
      { class: "row" },
      qav.html("div", { class: "row-name" }, name),
      qav.html("div", { class: "row-plot" }, plot),
    );

  qav.makeTimeline = (section, report, view, showFrame) => {
    const { columns, findings } = report;
    const lanes = qav.makeLanes(report, view);
    const single = columns.framesPerColumn === 1;
    const acts = { stepCursor, toFinding, openFrame: () => toFrame(true) };

    const toolbar = qav.makeToolbar(report, view, lanes, acts);
    const overview = qav.makeOverview(report, view);
    const ruler = qav.svg("svg", { class: "ruler", "aria-hidden": "true" });
    const slider = qav.html("div", {
      class: "slider",
      role: "slider",
      tabindex: 0,
      id: "cursor",
      "aria-label": "Cursor",
      "aria-valuemin": columns.firstFrame,
      "aria-valuemax": columns.endFrame - 1,
      "aria-describedby": "keys-told",
    });
    slider.append(ruler);
    const markers = qav.html("div", { class: "markers", role: "group", "aria-label": "Findings in view" });
    const cursorLine = qav.html("div", { class: "cursor", hidden: true });
    const chosenLine = qav.html("div", { class: "chosen", hidden: true });
    const field = qav.html("div", { class: "lanes" }, lanes.map(buildLane), cursorLine, chosenLine);
    const top = qav.html("div", { class: "top" }, row("", slider), findings.length ? row("Findings", markers) : null);
    section.append(...introduction(report), toolbar.bar, row("Overview", overview.strip), top, field);

    // ---- drawing
    let plot = { left: 0, width: 1 }; // of the pictures, within the field
    function measure() {
      const lane = lanes.find(({ element }) => !element.hidden);
      if (!lane) return;
      const box = lane.drawn[0].canvas.getBoundingClientRect();
      plot = { left: box.left - field.getBoundingClientRect().left, width: Math.max(box.width, 1) };
    }
    function draw() {
      measure();
      for (const lane of lanes.filter(({ element }) => !element.hidden)) {
        for (const plane of lane.drawn) {
          plane.draw(qav.plots.picture(plane.canvas, view));
          qav.valueAxis(plane.axis, plane.scale, plane.ticks);
        }
      }
      overview.draw();
      qav.timeAxis(ruler, report, view);
      qav.drawMarkers(markers, report, view, chooseMarker);
      for (const bar of section.querySelectorAll(".ramp")) bar.style.backgroundImage = qav.gradient(bar.dataset.ramp);
    }
    const placeOf = (column) => plot.left + ((column - view.from) / view.span) * plot.width;

    function drawCursorLine() {
      const { cursor } = view;
      cursorLine.hidden = cursor === null || cursor < view.from || cursor > view.to;
      if (cursorLine.hidden) return;
      const wide = plot.width / view.span; // of a column
      cursorLine.style.left = placeOf(wide > 3 ? Math.floor(cursor) : cursor) + "px";
      cursorLine.style.width = (wide > 3 ? wide : 1) + "px";
    }
    function drawChosenLine() {
      const column = view.frame === null ? -1 : report.columnOf(view.frame);
      chosenLine.hidden = column < view.from - 1 || column > view.to;
      if (chosenLine.hidden) return;
      chosenLine.style.left = placeOf(qav.clamp(column, view.from, view.to)) + "px";
      chosenLine.style.width = plot.width / view.span / columns.framesPerColumn + "px";
    }
    function tellWhere() {
      const column = Math.floor(view.cursor ?? (view.from + view.to) / 2);
      const frame = report.frameAt(column);
      const last = Math.min(frame + columns.framesPerColumn, columns.endFrame) - 1;
      const frames = single ? `frame ${qav.number(frame)}` : `frames ${qav.number(frame)} to ${qav.number(last)}`;
      const time = qav.time(report.secondsAt(column));
      toolbar.here.textContent = view.cursor === null ? "" : `${time} · ${frames}`;
      toolbar.open.disabled = view.cursor === null;
      slider.setAttribute("aria-valuenow", frame);
      slider.setAttribute("aria-valuetext", view.cursor === null ? "nowhere" : `${time}, ${frames}`);
    }
    function tellValues() {
      const { cursor, subband } = view;
      for (const lane of lanes) {
        lane.reading.replaceChildren(...(cursor === null ? [] : qav.reading(lane.read(cursor, subband))));
        for (const { place } of lane.map ? lane.drawn : []) {
          place.classList.toggle("at-subband", subband !== null && cursor !== null);
          place.style.setProperty("--subband", (subband + 0.5) / report.subbands);
        }
      }
    }
    function drawCursor() {
      drawCursorLine();
      drawChosenLine();
      tellWhere();
      tellValues();
    }

    // ---- moving
    const frameAtCursor = () => report.frameAt(single ? Math.floor(view.cursor) : view.cursor);

    function toFrame(scroll) {
      if (view.cursor !== null) showFrame(frameAtCursor(), scroll);
    }
    function chooseFinding(finding) {
      const column = qav.clamp(report.columnOf(finding.frame), 0, columns.count - INSIDE);
      view.reveal(column);
      view.moveCursor(column);
      showFrame(finding.frame, false);
    }
    /** A sign that stands for several findings opens up. */
    function chooseMarker(marked) {
      if (marked.length > 1) {
        const [first, last] = [marked[0], marked.at(-1)].map(({ finding }) => report.columnOf(finding.frame));
        view.show(first - 4, last + 4);
      }
      chooseFinding(marked[0].finding);
    }
    function toFinding(step) {
      const at = view.cursor === null ? -1 : frameAtCursor();
      const inside = findings.filter(({ frame }) => frame >= columns.firstFrame && frame <= columns.endFrame);
      const ahead = inside.filter(({ frame }) => (step > 0 ? frame > at : frame < at));
      const next = step > 0 ? ahead[0] : ahead.at(-1);
      if (next) chooseFinding(next);
    }
    function stepCursor(columnsBy, subbandsBy = 0) {
      const from = view.cursor === null ? view.from - columnsBy : view.cursor;
      const to = qav.clamp(Math.floor(from) + columnsBy + INSIDE, 0, columns.count - INSIDE);
      const outside = subbandsBy > 0 ? -1 : report.subbands;
      view.moveCursor(to, subbandsBy ? (view.subband ?? outside) + subbandsBy : view.subband);
      view.reveal(to);
    }

    qav.listenToKeys(slider, report, view, { ...acts, openFrame: toFrame });
    const places = qav.listenToPointers(field, view, {
      plot: () => plot,
      subbandAt(event) {
        const lane = lanes.find(({ map, drawn }) => map && drawn.some(({ canvas }) => canvas === event.target));
        if (!lane) return null;
        const box = event.target.getBoundingClientRect();
        return Math.floor((1 - (event.clientY - box.top) / box.height) * report.subbands);
      },
      click() {
        slider.focus({ preventScroll: true });
        toFrame(false);
      },
    });
    qav.listenToWheel(section, view, places, () => plot);
    slider.addEventListener("pointerdown", (event) => {
      if (places.inPicture(event)) view.moveCursor(places.columnAt(event.clientX));
    });

    view.on("zoom", draw);
    view.on("cursor", drawCursor);
    view.on("frame", drawChosenLine);
    view.on("channel", () => {
      lanes.forEach(buildPlanes);
      view.refresh();
    });
    new ResizeObserver(() => view.refresh()).observe(field);
    return { draw, drawCursor, chooseFinding };
  };
})();
