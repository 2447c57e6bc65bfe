"use strict";
// The head of the report: the verdict in words, and the facts that describe the whole stream.
(() => {
  const { number, count } = qav;

  function sizeText(bytes) {
    if (bytes === null) return "not known of a pipe";
    const units = [
      [1e9, "GB"],
      [1e6, "MB"],
      [1e3, "kB"],
    ];
    const [unit, name] = units.find(([least]) => bytes >= least) ?? [1, "bytes"];
    return unit === 1 ? count(bytes, "byte") : `${number(bytes / unit, 2)} ${name}, ${count(bytes, "byte")}`;
  }

  const paddingText = ({ padded, frames, pattern }) =>
    padded ? `${number(padded)} of ${count(frames, "frame")}: ${qav.counts(pattern)}` : "none";

  function unusedText({ bits, meanBits, share, zero, nonZeroFrames, constantByte }) {
    if (!bits) return "none";
    const content = zero
      ? "all zero"
      : constantByte !== null
        ? `all 0x${constantByte.toString(16).padStart(2, "0")}`
        : `not zero in ${count(nonZeroFrames, "frame")}`;
    return `${number(meanBits, 1)} a frame, ${number(100 * share, 1)}\u00a0% of all bits; ${content}`;
  }

  function flagsText(header, frames) {
    const part = (value, name) => (!value ? null : value === frames ? name : `${name} in ${count(value, "frame")}`);
    const emphasis = Object.entries(header.emphasis)
      .filter(([, n]) => n)
      .map(([name, n]) => (name === "none" ? null : part(n, name + " emphasis")));
    const parts = [
      part(header.original, "original"),
      part(header.copyright, "copyright"),
      part(header.privateBit, "private bit"),
      ...emphasis,
    ].filter(Boolean);
    return parts.join(", ") || "none set";
  }

  const chunksText = (chunks) =>
    chunks.length
      ? qav.html(
          "ul",
          { class: "plain" },
          chunks.map(({ kind, offset, bytes }) =>
            qav.html("li", null, `${kind}, ${count(bytes, "byte")} at ${number(offset)}`),
          ),
        )
      : "none";

  const measured = (value, unit) => (value === null ? "not measurable" : `${number(value, 1)} ${unit}`);

  const group = (title, facts) =>
    qav.html(
      "div",
      { class: "facts" },
      qav.html("h2", null, title),
      qav.html(
        "dl",
        null,
        facts.map(([name, value]) => qav.html("div", null, qav.html("dt", null, name), qav.html("dd", null, value))),
      ),
    );

  /** The facts of a stream, also of the one it is compared with. */
  qav.factGroups = (head, frames) => [
    group("Stream", [
      ["Format", head.formatText],
      ["Duration", head.durationText],
      ["Bitrate", head.bitrateText],
      ["Mode", head.modeText],
      ["Check words", head.checkText],
      ["Size", sizeText(head.bytes)],
    ]),
    head.loudness
      ? group("Sound", [
          ["Loudness", measured(head.loudness.integratedLufs, "LUFS")],
          ["Loudness range", measured(head.loudness.rangeLu, "LU")],
          ["True peak", measured(head.loudness.truePeakDbtp, "dBTP")],
          [
            "Clipped",
            head.clipped.samples
              ? `${count(head.clipped.samples, "sample")} in ${count(head.clipped.frames, "frame")}`
              : "no sample",
          ],
        ])
      : null,
    group("Frames", [
      ["Padded", paddingText(head.padding)],
      ["Unused bits", unusedText(head.unused)],
      ["Header flags", flagsText(head.header, frames)],
      ["Tags and chunks", chunksText(head.chunks)],
    ]),
  ];

  qav.makeHead = (header, report) => {
    const { stream, head } = report;
    const piped = stream.file === "-";
    const name = piped ? "standard input" : stream.file.split(/[\\/]/).at(-1) || stream.file;
    document.title = `${name}: qav inspect`;
    const good = stream.status === 0;
    const theme = qav.html(
      "label",
      { class: "choice theme" },
      "Colours ",
      qav.html(
        "select",
        {
          id: "theme-choice",
          onchange: (event) => qav.theme.choose(event.target.value),
        },
        ["auto", "light", "dark"].map((choice) => qav.html("option", { value: choice }, choice)),
      ),
    );
    header.append(
      qav.html("div", { class: "masthead" }, qav.html("span", { class: "mark-name" }, "qav inspect"), theme),
      qav.html("h1", null, name),
      piped || name === stream.file ? "" : qav.html("p", { class: "path" }, stream.file),
      qav.html(
        "p",
        { class: "verdict " + (good ? "good" : "bad"), id: "verdict" },
        qav.svg(
          "svg",
          { viewBox: "-12 -12 24 24", width: 24, height: 24, "aria-hidden": "true" },
          qav.svg("path", {
            class: "seal",
            d: good ? "M0-11A11 11 0 1 1 0 11 11 11 0 1 1 0-11Z" : "M0-11 11.5 10H-11.5Z",
          }),
          qav.svg("path", { class: "seal-sign", d: good ? "M-5 0-1.5 4 5-4" : "M0-4V3M0 6.2V6.8" }),
        ),
        qav.counts(head.verdictText),
      ),
      qav.html("div", { class: "fact-groups" }, qav.factGroups(head, stream.frames)),
      report.range.whole
        ? ""
        : qav.html(
            "p",
            { class: "notice" },
            `Below, the time line, the frames and the distributions show ${qav.time(report.range.fromSeconds)} to ` +
              `${qav.time(report.range.toSeconds)} of it only; the facts above are of the whole.`,
          ),
    );
  };
})();
