"use strict";
// Keys to the colours, and the values at the cursor: small lists with a swatch before each entry.
(() => {
  /** How something is drawn ("area", "line", "dash", "tick", "letter"), in little and in its colour. */
  qav.swatch = (kind, ink, text = "") => {
    const mark = qav.html("span", { class: "mark " + kind }, text);
    mark.style.setProperty("--mark", `var(--${ink})`);
    return mark;
  };

  function rampEntry({ ramp, from, to }) {
    const bar = qav.html("span", { class: "ramp", "data-ramp": ramp });
    bar.style.backgroundImage = qav.gradient(ramp);
    return qav.html("li", { class: "scale" }, qav.html("span", null, from), bar, qav.html("span", null, to));
  }

  /** Entries are {ink, name, mark} or, for a map, {ramp, from, to}. */
  qav.legend = (entries) => {
    if (!entries.length) return null;
    const items = entries.map((entry) =>
      entry.ramp ? rampEntry(entry) : qav.html("li", null, qav.swatch(entry.mark ?? "area", entry.ink), entry.name),
    );
    return qav.html("ul", { class: "legend" }, items);
  };

  /** Rows are [name, text] or [name, text, ink]. */
  qav.reading = (rows) =>
    rows.map(([name, text, ink]) => {
      const label = qav.html("dt", null, ink ? qav.swatch("area", ink) : null, name);
      return qav.html("div", null, label, qav.html("dd", null, text));
    });
})();
