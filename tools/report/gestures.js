"use strict";
// Keyboard, mouse and fingers on the time line.
(() => {
  const DRAG = 4; // pixels from which on a press is no click
  const LINE = 16; // pixels of a wheel that counts lines

  /** `acts` are stepCursor(columns, subbands), toFinding(step), openFrame(scroll). */
  qav.listenToKeys = (slider, report, view, acts) => {
    slider.addEventListener("keydown", (event) => {
      if (event.ctrlKey || event.metaKey || event.altKey) return;
      const far = Math.max(Math.round(view.span / 10), 1);
      const by = event.shiftKey ? far : 1;
      const all = report.columns.count;
      const act = {
        ArrowLeft: () => acts.stepCursor(-by),
        ArrowRight: () => acts.stepCursor(by),
        ArrowUp: () => acts.stepCursor(0, 1),
        ArrowDown: () => acts.stepCursor(0, -1),
        PageUp: () => acts.stepCursor(-far),
        PageDown: () => acts.stepCursor(far),
        Home: () => acts.stepCursor(-all),
        End: () => acts.stepCursor(all),
        "+": () => view.zoom(0.5),
        "=": () => view.zoom(0.5),
        "-": () => view.zoom(2),
        0: () => view.fit(),
        n: () => acts.toFinding(1),
        p: () => acts.toFinding(-1),
        Enter: () => acts.openFrame(true),
        Escape: () => view.moveCursor(null, null),
      }[event.key.length === 1 ? event.key.toLowerCase() : event.key];
      if (!act) return;
      event.preventDefault();
      act();
    });
  };

  /** `plot()` gives left edge and width of the pictures in `field`, `subbandAt(event)` the subband pointed at. */
  qav.listenToPointers = (field, view, { plot, subbandAt, click }) => {
    const down = new Map(); // pointers that are down: where they were last
    let dragged = 0;

    const placeOf = (clientX) => clientX - field.getBoundingClientRect().left - plot().left;
    const columnAt = (clientX) => view.from + (placeOf(clientX) / plot().width) * view.span;
    const inPicture = (event) => placeOf(event.clientX) >= 0 && placeOf(event.clientX) <= plot().width;

    /** Two fingers: their distance is the zoom. */
    function pinch(before, now, other) {
      const [old, wide] = [Math.abs(before - other), Math.abs(now - other)];
      if (old > 2 * DRAG && wide > 2 * DRAG) view.zoom(old / wide, columnAt((now + other) / 2));
    }
    function drag(event, before) {
      dragged += Math.abs(event.clientX - before);
      if (dragged <= DRAG) return;
      if (!field.hasPointerCapture(event.pointerId)) field.setPointerCapture(event.pointerId);
      const other = [...down.keys()].find((id) => id !== event.pointerId);
      if (other !== undefined) pinch(before, event.clientX, down.get(other));
      else view.pan(((before - event.clientX) / plot().width) * view.span);
      down.set(event.pointerId, event.clientX);
    }

    field.addEventListener("pointerdown", (event) => {
      if (!inPicture(event) || event.button > 0) return;
      down.set(event.pointerId, event.clientX);
      dragged = 0;
    });
    field.addEventListener("pointermove", (event) => {
      const before = down.get(event.pointerId);
      if (before !== undefined) drag(event, before);
      else if (inPicture(event)) view.moveCursor(columnAt(event.clientX), subbandAt(event));
    });
    field.addEventListener("pointerup", (event) => {
      const pressed = down.delete(event.pointerId);
      if (!pressed || dragged > DRAG || !inPicture(event)) return;
      view.moveCursor(columnAt(event.clientX), subbandAt(event));
      click();
    });
    field.addEventListener("pointercancel", (event) => down.delete(event.pointerId));
    field.addEventListener("dblclick", (event) => {
      if (inPicture(event)) view.zoom(0.25, columnAt(event.clientX));
    });
    return { columnAt, inPicture };
  };

  /** The wheel zooms with Ctrl and moves sideways with Shift; alone it is the page's. */
  qav.listenToWheel = (section, view, { columnAt, inPicture }, plot) => {
    const onWheel = (event) => {
      if (!inPicture(event)) return;
      const unit = event.deltaMode === WheelEvent.DOM_DELTA_LINE ? LINE : 1;
      const sideways = event.deltaX || (event.shiftKey ? event.deltaY : 0);
      if (event.ctrlKey || event.metaKey) {
        view.zoom(Math.exp(event.deltaY * unit * 0.004), columnAt(event.clientX));
      } else if (sideways) {
        view.pan(((sideways * unit) / plot().width) * view.span);
      } else return;
      event.preventDefault();
    };
    section.addEventListener("wheel", onWheel, { passive: false });
  };
})();
