"""Layer II frames taken apart once more, in a few lines and apart from the library: what a report is held against.

Bits are read as text, a character each. That is slow, and hard to get wrong.
"""

KBPS = {1: [0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384],
        0: [0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160]}
FREQ_HZ = {1: [44100, 48000, 32000], 0: [22050, 24000, 16000]}
BOUNDS = [4, 8, 12, 16]
SCALE_FACTORS = [3, 2, 1, 2]  # sent for each value of the selection information


def upTo(first, last):
    return [2**n - 1 for n in range(first, last + 1)]


# (subbands, width of the allocation, levels by index) of ISO/IEC 11172-3 tables B.2a to B.2d and 13818-3 table B.1.
WIDE = [(3, 4, [3, 7, *upTo(4, 16)]), (8, 4, [3, 5, 7, 9, *upTo(4, 13), 65535]), (12, 3, [3, 5, 7, 9, 15, 31, 65535])]
NARROW = [(2, 4, [3, 5, 9, *upTo(4, 15)])]
TABLES = {"B.2a": [*WIDE, (4, 2, [3, 5, 65535])], "B.2b": [*WIDE, (7, 2, [3, 5, 65535])],
          "B.2c": [*NARROW, (6, 3, [3, 5, 9, 15, 31, 63, 127])], "B.2d": [*NARROW, (10, 3, [3, 5, 9, 15, 31, 63, 127])],
          "B.1": [(4, 4, [3, 5, 7, 9, *upTo(4, 14)]), (7, 3, [3, 5, 9, 15, 31, 63, 127]), (19, 2, [3, 5, 9])]}


def rows(name):
    """The width and the levels of each subband of a table."""
    return [(width, [0, *levels]) for count, width, levels in TABLES[name] for _ in range(count)]


def tableName(mpeg1, freqHz, kbpsPerChannel):
    if not mpeg1:
        return "B.1"
    if (freqHz == 48000 and kbpsPerChannel >= 56) or 56 <= kbpsPerChannel <= 80:
        return "B.2a"
    if freqHz != 48000 and kbpsPerChannel >= 96:
        return "B.2b"
    return "B.2c" if freqHz != 32000 and kbpsPerChannel <= 48 else "B.2d"


def tripleBits(levels):
    """What three samples of a subband take."""
    return {0: 0, 3: 5, 5: 7, 9: 10}.get(levels, 3 * levels.bit_length())


class Frame:
    """One frame; `bits` are the sizes of its sections in their order, `fields` all fields as (first bit, width, value)."""

    def __init__(self, data, offset):
        head = int.from_bytes(data[offset:offset + 4], "big")
        self.offset = offset
        self.mpeg1 = head >> 19 & 1
        self.layer = 4 - (head >> 17 & 3)
        self.protected = not head >> 16 & 1
        self.padding = head >> 9 & 1
        self.mode = head >> 6 & 3
        self.valid = head >> 20 == 0xFFF and self.layer == 2 and 0 < head >> 12 & 15 < 15 and head >> 10 & 3 != 3
        if not self.valid:
            return
        self.kbps = KBPS[self.mpeg1][head >> 12 & 15]
        self.freqHz = FREQ_HZ[self.mpeg1][head >> 10 & 3]
        self.bytes = 144000 * self.kbps // self.freqHz + self.padding
        self.channels = 1 if self.mode == 3 else 2
        self.table = tableName(self.mpeg1, self.freqHz, self.kbps // self.channels)
        self.rows = rows(self.table)
        self.sblimit = len(self.rows)
        self.bound = min(BOUNDS[head >> 4 & 3], self.sblimit) if self.mode == 1 else self.sblimit
        self.body(data[offset:offset + self.bytes])

    def body(self, frame):
        text = "".join(f"{byte:08b}" for byte in frame)
        at = 0
        self.fields = []

        def take(width):
            nonlocal at
            at += width
            value = int(text[at - width:at] or "0", 2)
            if width:
                self.fields.append((at - width, width, value))
            return value

        for width in (12, 1, 2, 1, 4, 2, 1, 1, 2, 2, 1, 1, 2, 16 if self.protected else 0):
            take(width)

        pairs = [(sb, ch) for sb in range(self.sblimit) for ch in range(self.channels)]
        sent = [(sb, ch) for sb, ch in pairs if ch == 0 or sb < self.bound]  # allocation and samples
        self.bits = [32, at - 32]
        self.allocation = [[0] * self.sblimit for _ in range(self.channels)]
        for sb, ch in sent:
            index = take(self.rows[sb][0])
            for other in range(ch, self.channels if sb >= self.bound else ch + 1):
                self.allocation[other][sb] = index
        self.bits.append(at - sum(self.bits))
        coded = [(sb, ch) for sb, ch in pairs if self.allocation[ch][sb]]
        self.selection = {pair: take(2) for pair in coded}
        self.bits.append(at - sum(self.bits))
        self.scaleFactor = {}
        for pair in coded:
            kind = self.selection[pair]
            values = [take(6) for _ in range(SCALE_FACTORS[kind])]
            self.scaleFactor[pair] = [values[n] for n in ([0, 1, 2], [0, 0, 1], [0, 0, 0], [0, 1, 1])[kind]]
        self.bits.append(at - sum(self.bits))
        self.levels = [[self.rows[sb][1][self.allocation[ch][sb]] for sb in range(self.sblimit)]
                       for ch in range(self.channels)]
        for _ in range(12):
            for levels in (self.levels[ch][sb] for sb, ch in sent):
                codewords = 1 if levels in (3, 5, 9) else 3
                for _ in range(codewords):
                    take(tripleBits(levels) // codewords)
        self.bits.append(at - sum(self.bits))
        self.bits.append(8 * self.bytes - at)


def frames(data):
    """The frames that follow each other from the first byte on."""
    offset = 0
    while offset + 4 <= len(data):
        frame = Frame(data, offset)
        if not frame.valid or offset + frame.bytes > len(data):
            return
        yield frame
        offset += frame.bytes
