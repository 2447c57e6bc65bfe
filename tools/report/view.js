"use strict";
// What the time line shows, in columns: one zoom, one cursor and one chosen frame for all lanes. Views subscribe; each
// is told at most once a picture of the screen.
(() => {
  qav.makeView = (report) => {
    const { count } = report.columns;
    const least = Math.min(8, count);
    const listeners = { zoom: [], cursor: [], frame: [], channel: [] };
    const pending = new Set();

    function tell(what) {
      if (!pending.size) requestAnimationFrame(flush);
      pending.add(what);
    }
    function flush() {
      const due = [...pending];
      pending.clear();
      for (const what of due) for (const listener of listeners[what]) listener();
    }

    const view = {
      from: 0,
      to: count, // columns, not whole
      cursor: null, // column, not whole; null: no cursor
      subband: null, // the cursor's other coordinate
      frame: null, // the chosen frame
      channel: "both", // or 0, 1: what the maps show

      on(what, listener) {
        listeners[what].push(listener);
      },
      get span() {
        return view.to - view.from;
      },

      show(from, to) {
        const span = qav.clamp(to - from, least, count);
        const middle = (from + to) / 2;
        view.from = qav.clamp(to - from === span ? from : middle - span / 2, 0, count - span);
        view.to = view.from + span;
        tell("zoom");
        tell("cursor");
      },
      zoom(factor, around = view.cursor ?? (view.from + view.to) / 2) {
        const span = qav.clamp(view.span * factor, least, count);
        const share = (qav.clamp(around, view.from, view.to) - view.from) / view.span;
        view.from = qav.clamp(around - share * span, 0, count - span);
        view.to = view.from + span;
        tell("zoom");
        tell("cursor");
      },
      pan(columns) {
        view.show(view.from + columns, view.to + columns);
      },
      fit() {
        view.show(0, count);
      },

      moveCursor(column, subband = view.subband) {
        view.cursor = column === null ? null : qav.clamp(column, 0, count - 1e-3);
        view.subband = subband === null ? null : qav.clamp(subband, 0, report.subbands - 1);
        tell("cursor");
      },
      /** Bring a column into view, in the middle if it was outside. */
      reveal(column) {
        if (column < view.from || column >= view.to) {
          view.show(column - view.span / 2, column + view.span / 2);
        }
      },
      choose(frame) {
        view.frame = frame;
        tell("frame");
      },
      chooseChannel(channel) {
        view.channel = channel;
        tell("channel");
      },
      /** Draw everything again, as after a change of theme or size. */
      refresh() {
        for (const what of ["zoom", "cursor"]) tell(what);
      },
      flush,
    };
    return view;
  };
})();
