"use strict";
// The data of the report: arrays unpacked into numbers, and the questions that every view asks of them.
(() => {
  const TYPES = {
    u8: [1, "getUint8", Float32Array],
    i8: [1, "getInt8", Float32Array],
    u16: [2, "getUint16", Float32Array],
    i16: [2, "getInt16", Float32Array],
    u32: [4, "getUint32", Float64Array],
    f32: [4, "getFloat32", Float64Array],
  };

  qav.bytes = (base64) => {
    const text = atob(base64);
    const bytes = new Uint8Array(text.length);
    for (let i = 0; i < text.length; i++) bytes[i] = text.charCodeAt(i);
    return bytes;
  };

  /** The values of an array as stored, row-major; NaN where there is none. Null for an array that is not there. */
  qav.decode = (array) => {
    if (!array) return null;
    const [size, read, Values] = TYPES[array.type];
    const { scale = 1, offset = 0 } = array;
    const bytes = qav.bytes(array.data);
    const stored = new DataView(bytes.buffer);
    const values = new Values(bytes.length / size);
    for (let i = 0; i < values.length; i++) {
      const raw = stored[read](i * size, true);
      values[i] = raw === array.none ? NaN : raw * scale + offset;
    }
    return values;
  };

  const decodeAll = (arrays) =>
    Object.fromEntries(
      Object.entries(arrays).map(([name, value]) => [
        name,
        value && typeof value === "object" && "type" in value ? qav.decode(value) : value,
      ]),
    );

  const CHANNEL_NAMES = {
    stereo: ["Left", "Right"],
    "joint stereo": ["Left", "Right"],
    "dual channel": ["Channel 1", "Channel 2"],
  };

  function channelNames(channels, modes) {
    if (channels === 1) return ["Mono"];
    const names = modes.map((mode) => CHANNEL_NAMES[mode]).filter(Boolean);
    return names.length && names.every((pair) => pair[0] === names[0][0]) ? names[0] : ["Channel 1", "Channel 2"];
  }

  // Sections of a frame in their order, as `details.bits` counts them.
  qav.SECTIONS = [
    { id: "header", name: "Header", letter: "H" },
    { id: "check", name: "Check word", letter: "C" },
    { id: "allocation", name: "Allocation", letter: "A" },
    { id: "selection", name: "Selection information", letter: "I" },
    { id: "scale", name: "Scale factors", letter: "F" },
    { id: "samples", name: "Samples", letter: "S" },
    { id: "unused", name: "Unused or ancillary", letter: "U" },
  ];
  qav.MODES = ["stereo", "joint stereo", "dual channel", "single channel"];
  // How the kinds of selection information are drawn: the more scale factors are sent, the lower and the stronger.
  qav.SELECTION_ORDER = [
    { kind: 0, name: "three", ink: "select-3" },
    { kind: 1, name: "two, first shared", ink: "select-2a" },
    { kind: 3, name: "two, last shared", ink: "select-2b" },
    { kind: 2, name: "one", ink: "select-1" },
  ];
  // What selection information says of the three scale factors of a subband.
  qav.SELECTIONS = [
    "three sent",
    "two sent, the first for thirds 1 and 2",
    "one sent for all thirds",
    "two sent, the second for thirds 2 and 3",
  ];

  function readDetails(raw) {
    if (!raw || !raw.count) return null;
    const details = decodeAll(raw);
    details.content = qav.bytes(raw.data);
    details.at = new Uint32Array(raw.count + 1);
    for (let i = 0; i < raw.count; i++) details.at[i + 1] = details.at[i] + details.bytes[i];
    return details;
  }

  /** The report that the page holds. */
  qav.readReport = (text) => {
    const raw = JSON.parse(text);
    const columns = { ...raw.columns, seconds: qav.decode(raw.columns.seconds) };
    const { count, firstFrame, endFrame, framesPerColumn } = columns;
    const details = readDetails(raw.details);
    const rates = [...new Set(raw.stream.stretches.map((stretch) => stretch.freqHz))];

    return {
      ...raw,
      columns,
      details,
      wave: raw.wave && decodeAll(raw.wave),
      lanes: decodeAll(raw.lanes),
      maps: decodeAll(raw.maps),
      channels: columns.channels,
      subbands: columns.subbands,
      channelNames: channelNames(columns.channels, raw.stream.modes),
      /** The width of a subband in Hz; null where the stream changes its sampling rate. */
      subbandHz: rates.length === 1 ? rates[0] / 64 : null,

      secondsAt(column) {
        const at = qav.clamp(column, 0, count);
        const i = Math.min(Math.floor(at), count - 1);
        return columns.seconds[i] + (at - i) * (columns.seconds[i + 1] - columns.seconds[i]);
      },
      columnAt(seconds) {
        const i = qav.clamp(qav.rank(columns.seconds, seconds) - 1, 0, count - 1);
        const width = columns.seconds[i + 1] - columns.seconds[i];
        return i + (width > 0 ? qav.clamp((seconds - columns.seconds[i]) / width, 0, 1) : 0);
      },
      /** The frame drawn at a place of the time line. */
      frameAt(column) {
        const frame = firstFrame + Math.floor(column * framesPerColumn + 1e-6);
        return qav.clamp(frame, firstFrame, Math.max(endFrame - 1, firstFrame));
      },
      columnOf: (frame) => (frame - firstFrame) / framesPerColumn,
      /** The place in `details` of the last frame whose bytes are here at or before `frame`, or of the first one. */
      detailOf: (frame) => (details ? Math.max(qav.rank(details.frame, frame) - 1, 0) : -1),
    };
  };
})();
