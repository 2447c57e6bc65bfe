"use strict";
// The bytes of a frame in hex, the sections told apart by colour and by a letter at the start of each; a reading says
// what the bits of a byte mean.
(() => {
  const printable = (byte) => (byte > 32 && byte < 127 ? String.fromCharCode(byte) : "·");

  /** The section of each bit boundary within a byte: [[section, from bit, to bit], ...]. */
  function partsOf(starts, byte) {
    const parts = [];
    for (let section = 0; section < 7; section++) {
      const from = Math.max(starts[section], byte * 8);
      const to = Math.min(starts[section + 1], byte * 8 + 8);
      if (from < to) parts.push([section, from - byte * 8, to - byte * 8]);
    }
    return parts;
  }

  const inkOf = (section) => `var(--${qav.SECTIONS[section].id}-soft)`;

  function paint(cell, parts) {
    if (parts.length === 1) cell.style.background = inkOf(parts[0][0]);
    else {
      cell.style.background =
        "linear-gradient(to right, " +
        parts.map(([section, from, to]) => `${inkOf(section)} ${from * 12.5}% ${to * 12.5}%`).join(", ") +
        ")";
    }
  }

  qav.makeHex = (frame, channelNames) => {
    const { fields, starts } = qav.fieldsOf(frame, channelNames);
    const fieldStarts = fields.map(({ start }) => start);
    const cells = [];
    const lines = [];
    for (let at = 0; at < frame.content.length; at += 16) {
      const bytes = frame.content.subarray(at, at + 16);
      const line = qav.html("div", { class: "hex-line" }, qav.html("span", { class: "at" }, String(at)));
      bytes.forEach((byte, i) => {
        const parts = partsOf(starts, at + i);
        const first = parts.find(([section]) => Math.floor(starts[section] / 8) === at + i && frame.bits[section]);
        const cell = qav.html(
          "span",
          {
            class: "byte" + (first ? " first" : ""),
            id: "byte-" + (at + i),
            "data-byte": at + i,
            "data-letter": first
              ? parts
                  .filter(([section, from]) => starts[section] === (at + i) * 8 + from)
                  .map(([section]) => qav.SECTIONS[section].letter)
                  .join("")
              : null,
          },
          byte.toString(16).padStart(2, "0"),
        );
        paint(cell, parts);
        cells.push(cell);
        line.append(cell);
      });
      line.append(qav.html("span", { class: "ascii", "aria-hidden": "true" }, [...bytes].map(printable).join("")));
      lines.push(line);
    }

    const reading = qav.html(
      "p",
      { class: "byte-reading", role: "status" },
      "Point at a byte, or move over the bytes with the arrow keys, to read its bits.",
    );
    let current = -1;
    function read(byte) {
      if (byte < 0 || byte >= cells.length || byte === current) return;
      cells[current]?.classList.remove("current");
      current = byte;
      cells[byte].classList.add("current");
      grid.setAttribute("aria-activedescendant", "byte-" + byte);
      const value = frame.content[byte];
      const names = [];
      for (
        let i = Math.max(qav.rank(fieldStarts, byte * 8) - 1, 0);
        i < fields.length && fields[i].start < byte * 8 + 8;
        i++
      ) {
        const { start, width, name } = fields[i];
        const stored = width <= 32 ? " = " + qav.bitsAt(frame.content, start, width) : "";
        names.push(`${name} (${width === 1 ? "bit " + start : `bits ${start}–${start + width - 1}`})${stored}`);
      }
      reading.replaceChildren(
        qav.html(
          "strong",
          null,
          `Byte ${byte}: 0x${value.toString(16).padStart(2, "0")}, ${value.toString(2).padStart(8, "0")}`,
        ),
        qav.html("br"),
        names.join("; ") || "past the last field",
      );
    }
    const grid = qav.html(
      "div",
      {
        class: "hex",
        tabindex: 0,
        role: "listbox",
        "aria-label": `The ${frame.content.length} bytes of the frame in hex`,
      },
      lines,
    );
    for (const cell of cells) cell.setAttribute("role", "option");
    for (const line of lines) line.setAttribute("role", "presentation");
    grid.addEventListener("pointerover", (event) => {
      if (event.target.dataset.byte) read(Number(event.target.dataset.byte));
    });
    grid.addEventListener("keydown", (event) => {
      const step = {
        ArrowLeft: -1,
        ArrowRight: 1,
        ArrowUp: -16,
        ArrowDown: 16,
        Home: -cells.length,
        End: cells.length,
      }[event.key];
      if (!step || event.ctrlKey || event.metaKey || event.altKey) return;
      event.preventDefault();
      read(current < 0 ? 0 : qav.clamp(current + step, 0, cells.length - 1));
      const [cell, box] = [cells[current].getBoundingClientRect(), grid.getBoundingClientRect()];
      if (cell.top < box.top || cell.bottom > box.bottom) grid.scrollTop += cell.top - box.top - box.height / 2;
    });

    const legend = qav.html("ul", { class: "legend" });
    qav.SECTIONS.forEach(({ id, name, letter }, section) => {
      if (!frame.bits[section]) return;
      const range = `${name} (bits ${starts[section]}–${starts[section + 1] - 1})`;
      legend.append(qav.html("li", null, qav.swatch("letter", id + "-soft", letter), range));
    });
    return qav.html("div", { class: "hex-block" }, legend, grid, reading);
  };

  /** The unused tail by itself: whole bytes in hex and as text. */
  qav.unusedTail = (frame) => {
    const unused = frame.bits[6];
    if (!unused) return qav.html("p", { class: "note" }, "No bit of this frame is left over.");
    const whole = frame.content.subarray(frame.content.length - Math.floor(unused / 8));
    const zero =
      qav.bitsAt(frame.content, frame.content.length * 8 - unused, unused % 8) === 0 &&
      whole.every((byte) => byte === 0);
    if (zero) return qav.html("p", { class: "note" }, `${qav.count(unused, "bit")} are left over, all zero: stuffing.`);
    return qav.html(
      "div",
      null,
      qav.html(
        "p",
        { class: "note" },
        `${qav.count(unused, "bit")} are left over and hold data; the last ${whole.length} whole bytes:`,
      ),
      qav.html(
        "p",
        { class: "dump wrap", id: "ancillary" },
        [...whole].map((byte) => byte.toString(16).padStart(2, "0")).join(" "),
      ),
      qav.html("p", { class: "dump wrap text" }, [...whole].map(printable).join("")),
    );
  };
})();
