"use strict";
// What all scripts of the report share: this object, the making of elements, and numbers in words.
const qav = {};

(() => {
  const SVG = "http://www.w3.org/2000/svg";

  function fill(node, attributes, children) {
    for (const [name, value] of Object.entries(attributes ?? {})) {
      if (value === null || value === undefined || value === false) continue;
      if (name.startsWith("on")) node.addEventListener(name.slice(2), value);
      else node.setAttribute(name, value === true ? "" : value);
    }
    node.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined));
    return node;
  }

  /** An HTML element; attributes that begin with "on" are listeners, null ones are left out. */
  qav.html = (name, attributes, ...children) => fill(document.createElement(name), attributes, children);
  qav.svg = (name, attributes, ...children) => fill(document.createElementNS(SVG, name), attributes, children);

  const grouped = (digits) => (digits.length > 4 ? digits.replace(/\B(?=(\d{3})+$)/g, "\u202f") : digits);

  /** 1234567.8 as "1 234 567.8", the blanks narrow and not to be broken. */
  qav.number = (value, digits = 0) => {
    if (!Number.isFinite(value)) return "–";
    const [whole, part] = Math.abs(value).toFixed(digits).split(".");
    const minus = value < 0 && Number(value.toFixed(digits)) !== 0 ? "−" : "";
    return minus + grouped(whole) + (part ? "." + part : "");
  };
  /** A text whose numbers are counts, these as above. */
  qav.counts = (text) => text.replace(/\d+/g, grouped);
  qav.decibel = (value, digits = 1) => (Number.isFinite(value) ? qav.number(value, digits) + " dB" : "–");
  qav.count = (number, one, many = one + "s") => qav.number(number) + " " + (number === 1 ? one : many);

  /** Seconds as 1:02:03.456; `digits` of the fraction. */
  qav.time = (seconds, digits = 3) => {
    const unit = 10 ** digits;
    const all = Math.round(Math.max(seconds, 0) * unit);
    const whole = Math.floor(all / unit);
    const [h, m, s] = [Math.floor(whole / 3600), Math.floor(whole / 60) % 60, whole % 60];
    const two = (n) => String(n).padStart(2, "0");
    const fraction = digits ? "." + String(all % unit).padStart(digits, "0") : "";
    return (h ? h + ":" + two(m) : m) + ":" + two(s) + fraction;
  };

  qav.clamp = (value, least, greatest) => Math.min(Math.max(value, least), greatest);

  /** The number of leading entries of the ascending `list` that are at most `value`. */
  qav.rank = (list, value) => {
    let [low, high] = [0, list.length];
    while (low < high) {
      const middle = (low + high) >> 1;
      if (list[middle] <= value) low = middle + 1;
      else high = middle;
    }
    return low;
  };

  /** A table; `head` and each row are lists of texts or nodes. */
  qav.table = (caption, head, rows, attributes) =>
    qav.html(
      "table",
      attributes,
      qav.html("caption", { class: "unseen" }, caption),
      qav.html(
        "thead",
        null,
        qav.html(
          "tr",
          null,
          head.map((cell) => qav.html("th", { scope: "col" }, cell)),
        ),
      ),
      qav.html(
        "tbody",
        null,
        rows.map((row) =>
          qav.html(
            "tr",
            null,
            row.map((cell, at) => qav.html(at ? "td" : "th", at ? null : { scope: "row" }, cell)),
          ),
        ),
      ),
    );

  /** What may be wider than the page scrolls by itself, by keyboard too. */
  qav.scrolled = (name, content) =>
    qav.html("div", { class: "wide-table", tabindex: 0, role: "group", "aria-label": name }, content);
})();
