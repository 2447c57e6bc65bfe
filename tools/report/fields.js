"use strict";
// One frame: its stored fields, and every bit of it by name.
(() => {
  const EMPHASIS = ["none", "50/15 µs", "reserved", "CCITT J.17"];

  const SCALE_FACTORS_SENT = [[[0], [1], [2]], [[0, 1], [2]], [[0, 1, 2]], [[0], [1, 2]]];

  const decibelOfIndex = (index) => 20 * Math.log10(2) * (1 - index / 3);
  qav.scaleFactorDb = (index) => (index < 63 ? decibelOfIndex(index) : NaN);

  /** The frame at place `i` of the details. */
  qav.readFrame = (report, i) => {
    const { details, channels, subbands } = report;
    const [
      id,
      layer,
      isProtected,
      bitrateIndex,
      samplingIndex,
      padding,
      privateBit,
      mode,
      modeExt,
      copyright,
      original,
      emphasis,
    ] = details.header.subarray(i * 12, i * 12 + 12);
    const at = (array, ...places) =>
      array ? array[places.reduce((sum, [place, size]) => sum * size + place, i)] : NaN;
    return {
      number: details.frame[i],
      offset: details.offset[i],
      status: details.status[i],
      content: details.content.subarray(details.at[i], details.at[i + 1]),
      id,
      layer,
      isProtected,
      bitrateIndex,
      samplingIndex,
      padding,
      privateBit,
      mode,
      modeExt,
      copyright,
      original,
      emphasis,
      table: report.tables[details.table[i]],
      channels: details.channels[i],
      sblimit: details.sblimit[i],
      bound: Math.min(details.bound[i], details.sblimit[i]),
      kbps: details.kbps[i],
      freqHz: details.freqHz[i],
      checkGiven: details.checkGiven[i],
      checkComputed: details.checkComputed[i],
      bits: Array.from(details.bits.subarray(i * 7, i * 7 + 7)),
      allocation: (ch, sb) => at(details.allocation, [ch, channels], [sb, subbands]),
      selection: (ch, sb) => at(details.selection, [ch, channels], [sb, subbands]),
      scaleFactor: (ch, third, sb) => at(details.scaleFactor, [ch, channels], [third, 3], [sb, subbands]),
      smr: (ch, sb) => at(details.smr, [ch, channels], [sb, subbands]),
      nmr: (ch, sb) => at(details.nmr, [ch, channels], [sb, subbands]),
    };
  };

  qav.levelsOf = (frame, ch, sb) => frame.table.levels[sb]?.[frame.allocation(ch, sb)] ?? 0;

  /** Bits of the samples of one subband and channel, in the whole frame. */
  qav.sampleBits = (frame, ch, sb) => {
    const index = frame.allocation(ch, sb);
    if (!index) return 0;
    const width = frame.table.codewordBits[sb][index];
    return 12 * width * (frame.layer === 1 || frame.table.grouped[sb][index] === 1 ? 1 : 3);
  };

  qav.bitsAt = (content, start, width) => {
    let value = 0;
    for (let bit = start; bit < start + width; bit++) {
      value = value * 2 + (((content[bit >> 3] ?? 0) >> (7 - (bit & 7))) & 1);
    }
    return value;
  };

  /** The header, a row a field: [name, bits as stored, meaning]. */
  qav.headerRows = (frame) => {
    const fields = [
      ["Sync word", 12, ""],
      ["ID", 1, frame.id ? "MPEG-1" : "MPEG-2, low sampling frequencies"],
      ["Layer", 2, frame.layer === 1 ? "I" : "II"],
      ["Protection bit", 1, frame.isProtected ? "a check word follows" : "no check word"],
      ["Bitrate index", 4, frame.kbps + " kbit/s"],
      ["Sampling frequency", 2, qav.number(frame.freqHz) + " Hz"],
      ["Padding bit", 1, frame.padding ? "one slot more" : "no padding"],
      ["Private bit", 1, ""],
      ["Mode", 2, qav.MODES[frame.mode]],
      [
        "Mode extension",
        2,
        frame.mode === 1 ? `joint from subband ${[4, 8, 12, 16][frame.modeExt]}` : "not used in this mode",
      ],
      ["Copyright", 1, frame.copyright ? "protected" : "not protected"],
      ["Original", 1, frame.original ? "original" : "copy"],
      ["Emphasis", 2, EMPHASIS[frame.emphasis]],
    ];
    let start = 0;
    return fields.map(([name, width, meaning]) => {
      const stored = qav.bitsAt(frame.content, start, width).toString(2).padStart(width, "0");
      const place = width > 1 ? `${start}–${start + width - 1}` : String(start);
      start += width;
      return { name, place, stored, meaning, start: start - width, width };
    });
  };

  /** All fields of a frame in their order: {start, width, section, name}; positions in bits from the header's first. */
  qav.fieldsOf = (frame, channelNames) => {
    const fields = [];
    const starts = [0];
    for (const size of frame.bits) starts.push(starts.at(-1) + size);
    let at = 0;
    const add = (section, width, name) => {
      fields.push({ start: at, width, section, name });
      at += width;
    };
    const of = (sb, ch) =>
      `subband ${sb}` +
      (frame.channels === 1 ? "" : ch === null ? ", both channels" : ", " + channelNames[ch].toLowerCase());
    const pairs = []; // (subband, channel) in the order of the stream; a joint subband is stored once, for both
    for (let sb = 0; sb < frame.sblimit; sb++) {
      for (let ch = 0; ch < frame.channels; ch++)
        pairs.push({ sb, ch, joint: frame.channels === 2 && sb >= frame.bound });
    }
    const once = pairs.filter(({ ch, joint }) => ch === 0 || !joint);
    const coded = ({ sb, ch }) => frame.allocation(ch, sb) > 0;

    for (const row of qav.headerRows(frame)) add(0, row.width, row.name.toLowerCase());
    if (frame.bits[1]) add(1, 16, "check word");
    for (const { sb, ch, joint } of once) {
      if (frame.table.allocationBits[sb])
        add(2, frame.table.allocationBits[sb], "allocation, " + of(sb, joint ? null : ch));
    }
    if (frame.layer === 2) {
      for (const { sb, ch } of pairs.filter(coded)) add(3, 2, "selection information, " + of(sb, ch));
    }
    for (const { sb, ch } of pairs.filter(coded)) {
      const sent = frame.layer === 1 ? [[]] : (SCALE_FACTORS_SENT[frame.selection(ch, sb)] ?? []);
      for (const thirds of sent) {
        const which =
          thirds.length === 1
            ? `, third ${thirds[0] + 1}`
            : thirds.length === 2
              ? `, thirds ${thirds[0] + 1} and ${thirds[1] + 1}`
              : "";
        add(4, 6, "scale factor, " + of(sb, ch) + which);
      }
    }
    for (let granule = 0; granule < 12; granule++) {
      for (const { sb, ch, joint } of once.filter(coded)) {
        const index = frame.allocation(ch, sb);
        const name = `, ${of(sb, joint ? null : ch)}, ${frame.layer === 1 ? "block" : "granule"} ${granule + 1}`;
        const width = frame.table.codewordBits[sb][index];
        if (frame.layer === 1) add(5, width, "sample" + name);
        else if (frame.table.grouped[sb][index] === 1) add(5, width, "three samples in one" + name);
        else for (let k = 1; k <= 3; k++) add(5, width, `sample ${k}` + name);
      }
    }
    if (frame.bits[6]) add(6, frame.bits[6], "unused or ancillary");
    return { fields, starts };
  };
})();
