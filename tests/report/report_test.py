"""The page that qav inspect writes, as a reader meets it: what it says, and how it moves."""

import base64
import re
import unittest

import layer2
from browser import ReportTest, data

STEREO = data("l2_stereo_44k_192_crc.mp2")
FRAMES = list(layer2.frames(STEREO))
JOINT = data("l2_joint_48k_64_crc.mp2")
MONO = data("l2_mono_lsf_22k_56.mp2")
FRAMES_OF_MONO = list(layer2.frames(MONO))
SECONDS = 1152 / 44100  # of a frame of STEREO


def decibel(index):
    return 6.0206 * (1 - index / 3)


def subband_bits(frame, channel, subband):
    """All that a subband of a channel takes; what two channels share counts half."""
    joint = frame.channels == 2 and subband >= frame.bound
    width = frame.rows[subband][0]
    if not frame.allocation[channel][subband]:
        return width / 2 if joint else width
    samples = 12 * layer2.tripleBits(frame.levels[channel][subband])
    own = 2 + 6 * layer2.SCALE_FACTORS[frame.selection[subband, channel]]
    return own + (width + samples) / (2 if joint else 1)


class Numbers(ReportTest):
    """The page agrees with what an independent reading finds in the stream."""

    def show_frame(self, number):
        self.choose("frame-number", number)
        self.assertEqual(self.text("#frame-title"), f"Frame {number}")

    def check_frame(self, frame):
        self.assertEqual(self.stored_bytes(), self.stream[frame.offset : frame.offset + frame.bytes])
        bits = [int(re.match(r"\d+", text).group()) for text in self.texts(".budget-list dd")]
        self.assertEqual(bits, frame.bits)
        rows = self.rows(".subband-table")
        self.assertEqual(len(rows), frame.sblimit)
        for subband, row in enumerate(rows):
            cells = iter(row[2:])
            for channel in range(frame.channels):
                levels = frame.levels[channel][subband]
                where = f"subband {subband}, channel {channel}"
                first = next(cells)
                if not levels:
                    self.assertEqual(first, "nothing coded", where)
                else:
                    self.assertEqual(first, str(levels), where)
                    self.assertEqual(re.match(r"\d+", next(cells)).group(), str(12 * layer2.tripleBits(levels)), where)
                    self.assertEqual(next(cells), str(frame.selection[subband, channel]), where)
                    shown = [float(text) for text in next(cells).split(" ")]
                    wanted = [decibel(index) for index in frame.scaleFactor[subband, channel]]
                    for n, level in enumerate(wanted):
                        self.assertAlmostEqual(shown[n if len(shown) == 3 else 0], level, delta=0.051, msg=where)
                    self.assertIn(len(shown), (1, 3), where)
                if self.model:
                    next(cells), next(cells)
            self.assertEqual(list(cells), [])

    def each_frame(self, stream, model):
        self.stream, self.model = stream, model
        self.open(stream)
        frames = list(layer2.frames(stream))
        for number in sorted({0, 1, len(frames) // 2, len(frames) - 1}):
            with self.subTest(frame=number):
                self.show_frame(number)
                self.check_frame(frames[number])
        return frames

    def test_frames_of_two_channels(self):
        self.each_frame(STEREO, True)

    def test_frames_in_joint_stereo(self):
        self.assertTrue(any(frame.bound < frame.sblimit for frame in layer2.frames(JOINT)))
        self.each_frame(JOINT, True)

    def test_frames_of_a_low_sampling_frequency_have_no_model(self):
        self.each_frame(MONO, False)
        self.assertEqual(self.texts("#lane-map-nmr"), [])
        self.assertTrue(any("knows MPEG-1 Layer II alone" in text for text in self.texts("#timeline .note")))
        self.assertEqual(self.fact("Mode"), "single channel")

    def test_the_head(self):
        self.open(STEREO, name="some name.mp2")
        self.assertEqual(self.driver.title, "some name.mp2: qav inspect")
        self.assertEqual(self.text("h1"), "some name.mp2")
        self.assertIn("good", self.text("#verdict").lower())
        self.assertEqual(self.fact("Format"), "MPEG-1 Layer II, 44100 Hz, 2 channels")
        self.assertEqual(self.fact("Bitrate"), "192 kbit/s")
        self.assertEqual(self.fact("Mode"), "stereo")
        self.assertEqual(self.fact("Check words"), "in every frame")
        self.assertTrue(self.fact("Duration").startswith(f"0:0{30 * SECONDS:.3f}"), self.fact("Duration"))
        self.assertIn(f"{len(STEREO)} bytes", self.fact("Size"))
        self.assertIn(f"{sum(frame.padding for frame in FRAMES)} of 30 frames", self.fact("Padded"))
        unused = sum(frame.bits[6] for frame in FRAMES) / 30
        self.assertTrue(self.fact("Unused bits").startswith(f"{unused:.1f} a frame"), self.fact("Unused bits"))

    def test_the_header_field_by_field(self):
        self.open(STEREO)
        self.show_frame(1)
        rows = self.rows(".header-table")
        head = "".join(f"{byte:08b}" for byte in STEREO[FRAMES[1].offset : FRAMES[1].offset + 4])
        self.assertEqual("".join(row[2] for row in rows), head)
        meanings = {row[0]: row[3] for row in rows}
        self.assertEqual(meanings["Layer"], "II")
        self.assertEqual(meanings["Bitrate index"], "192 kbit/s")
        self.assertEqual(meanings["Sampling frequency"], "44100 Hz")
        self.assertEqual(meanings["Mode"], "stereo")

    def test_values_at_the_cursor(self):
        self.open(STEREO)
        for number, subband in ((0, 0), (12, 3), (29, 17)):
            self.keys("Home", *["ArrowRight"] * number, *["ArrowDown"] * 32, *["ArrowUp"] * subband)
            self.assertIn(f"frame {number}", self.text(".here"))
            shown = self.texts("#lane-map-bits .reading dd")[1:]
            wanted = [subband_bits(FRAMES[number], channel, subband) for channel in (0, 1)]
            for text, bits in zip(shown, wanted, strict=True):
                # The map holds steps of three bits.
                self.assertAlmostEqual(float(text.removesuffix(" bit")), bits, delta=2.01, msg=f"frame {number}")
            levels = self.texts("#lane-map-scale .reading dd")[1:]
            for channel, text in enumerate(levels):
                if (subband, channel) in FRAMES[number].scaleFactor:
                    loudest = decibel(min(FRAMES[number].scaleFactor[subband, channel]))
                    self.assertAlmostEqual(float(text.removesuffix(" dB")), loudest, delta=1.01)
                else:
                    self.assertEqual(text, "–")
            bits = {name: int(text.removesuffix(" bit")) for name, text in zip(
                self.texts("#lane-bits .reading dt"), self.texts("#lane-bits .reading dd"), strict=True)}
            header, check, allocation, selection, scale, samples, unused = FRAMES[number].bits
            self.assertEqual(bits, {"header": header + check, "allocation": allocation, "selection": selection,
                                    "scale": scale, "samples": samples, "unused": unused})

    def test_distributions(self):
        self.open(STEREO)
        tables = self.run_script(
            "const rows = (figure) => [...figure.querySelectorAll('tbody tr')]"
            ".map((row) => [...row.children].map((cell) => cell.textContent));"
            "return Object.fromEntries([...document.querySelectorAll('.distribution')]"
            ".map((figure) => [figure.querySelector('h3').textContent, rows(figure)]))")
        for subband, row in enumerate(tables["Bits by subband"]):
            for channel in (0, 1):
                mean = sum(subband_bits(frame, channel, subband) for frame in FRAMES) / 30
                self.assertAlmostEqual(float(row[1 + channel]), mean, delta=0.051, msg=f"subband {subband}")
        for subband, row in enumerate(tables["Allocation by subband"]):
            for channel in (0, 1):
                coded = sum(frame.allocation[channel][subband] > 0 for frame in FRAMES)
                self.assertEqual(row[2 + 2 * channel], f"{100 * coded / 30:.1f} %", f"subband {subband}")
        self.assertIn("192 kbit/s in all 30 frames.", self.texts(".distribution figcaption p"))

    def test_a_byte_tells_its_bits(self):
        self.open(STEREO)
        self.show_frame(0)
        self.keys("Home", *["ArrowRight"] * 6, on=".hex")
        said = self.text(".byte-reading")
        self.assertIn(f"Byte 6: 0x{STEREO[6]:02x}", said)
        self.assertIn(f"allocation, subband 0, left (bits 48–51) = {FRAMES[0].allocation[0][0]}", said)
        self.assertIn(f"allocation, subband 0, right (bits 52–55) = {FRAMES[0].allocation[1][0]}", said)
        self.keys("End", on=".hex")
        self.assertIn(f"Byte {FRAMES[0].bytes - 1}:", self.text(".byte-reading"))

    def test_every_bit_has_its_name(self):
        for stream in (STEREO, JOINT, MONO):
            frame = list(layer2.frames(stream))[5]
            self.open(stream)
            self.show_frame(5)
            readings = self.run_script(
                "return [...document.querySelectorAll('.hex .byte')].map((byte) => {"
                "byte.dispatchEvent(new PointerEvent('pointerover', {bubbles: true}));"
                "return document.querySelector('.byte-reading').textContent})")
            told = set()
            for first, last, value in re.findall(r"\(bits? (\d+)(?:–(\d+))?\) = (\d+)", "; ".join(readings)):
                told.add((int(first), int(last or first) - int(first) + 1, int(value)))
            unused = 8 * frame.bytes - frame.bits[6]
            self.assertEqual(sorted(field for field in told if field[0] < unused), frame.fields)

    def test_maps_are_coloured_where_something_is_coded(self):
        self.open(STEREO)
        for channel in (0, 1):
            coloured = self.run_script(
                "const canvas = document.querySelectorAll('#lane-map-scale canvas')[arguments[0]];"
                "const { width, height } = canvas;"
                "const { data } = canvas.getContext('2d').getImageData(0, 0, width, height);"
                "const at = (frame, subband) => data[4 * (Math.floor((frame + 0.5) / 30 * width)"
                " + width * Math.floor((29.5 - subband) / 30 * height)) + 3] === 255;"
                "const all = [...Array(30).keys()];"
                "return all.map((frame) => all.map((subband) => at(frame, subband)))", channel)
            coded = [[(subband, channel) in frame.scaleFactor for subband in range(30)] for frame in FRAMES]
            self.assertEqual(coloured, coded)

    def test_broadcasters_bytes_are_shown(self):
        # Bytes put where the samples of the last frame left room, as broadcasters do.
        stream = bytearray(STEREO)
        at, frame = max(((f.bits[6] // 8, f) for f in FRAMES), key=lambda pair: pair[0])
        self.assertGreater(at, 1, "no frame of the example has room")
        text = b"RDS data for the transmitter"[:at]
        end = frame.offset + frame.bytes
        stream[end - len(text) : end] = text
        self.open(bytes(stream))
        self.show_frame(FRAMES.index(frame))
        self.assertTrue(self.text("#ancillary").endswith(text.hex(" ")))


class Explained(ReportTest):
    """The page that is written while encoding: the model saw the original."""

    def test_what_the_encoder_knew(self):
        self.put("x.s16", data("enc_stereo_44k_192_crc.s16"))
        self.encode("x.s16", "--raw", "s16le,44100,2", "-o", "x.mp2", "--explain", "report.html")
        self.show("report.html")
        told = " ".join(self.texts("#timeline .note"))
        self.assertIn("the encoder's psychoacoustic model saw the original", told)
        self.assertNotIn("stimate", told)
        seen = self.ratios(3)
        self.open(self.get("x.mp2"))
        self.assertIn("Estimate", " ".join(self.texts("#timeline .note")))
        guessed = self.ratios(3)
        # Of what was loud enough to be coded well, both say nearly the same; of what was left out, only one knows.
        self.assertEqual(len(seen), len(guessed))
        self.assertNotEqual(seen, guessed)
        self.assertLess(sum(abs(a - b) for a, b in zip(seen[:8], guessed[:8])) / 8, 3.0)

    def ratios(self, number):
        """The signal-to-mask ratios of a frame's left channel, as its table shows them."""
        self.choose("frame-number", number)
        self.assertEqual(self.text("#frame-title"), f"Frame {number}")
        coded = [row for row in self.rows(".subband-table") if row[2] != "nothing coded"]
        return [float(row[6]) for row in coded]


class Faults(ReportTest):
    """Each planted fault has its marker at its frame."""

    def markers(self):
        return self.run_script("return [...document.querySelectorAll('.marker')]"
                               ".map((m) => [m.dataset.kind, Number(m.dataset.frame)])")

    def test_three_faults(self):
        stream = bytearray(STEREO[:-50])            # the last frame is cut
        stream[FRAMES[7].offset + 6] ^= 0x40        # the check word of frame 7 no longer fits
        noise = bytes(range(50, 110))
        stream[FRAMES[15].offset : FRAMES[15].offset] = noise  # and before frame 15 stand strange bytes
        self.open(bytes(stream), status=3)
        self.assertEqual(self.markers(), [["check word", 7], ["lost sync", 15], ["truncated", 29]])
        self.assertEqual([(kind, int(frame)) for kind, frame in self.run_script(
            "return [...document.querySelectorAll('.finding')].map((f) => [f.dataset.kind, f.dataset.frame])")],
            [("check word", 7), ("lost sync", 15), ("truncated", 29)])
        dumps = self.texts(".finding .dump")
        shown = re.sub(r"[^0-9a-f]", "", "".join(re.findall(r"(?:[ ▸]+[0-9a-f]{2})+", dumps[1])))
        self.assertIn(noise[:48].hex(), shown)

        # A marker stands over its frame: where the cursor is when it is there.
        for name, frame in self.markers()[:2]:
            with self.subTest(marker=name):
                self.keys("Home", *["ArrowRight"] * frame)
                marker, cursor = self.box(f'.marker[data-frame="{frame}"]'), self.box(".lanes .cursor")
                middles = [box["left"] + box["width"] / 2 for box in (marker, cursor)]
                self.assertAlmostEqual(*middles, delta=2)

        self.click_on('.marker[data-kind="check word"]')
        self.assertEqual(self.text("#frame-title"), "Frame 7")
        self.assertIn("check word is wrong", self.text("#frame-status"))
        self.click_on('.marker[data-kind="lost sync"]')
        self.assertEqual(self.text("#frame-title"), "Frame 15")
        self.assertIn("damaged", self.text("#verdict").lower())

    def test_from_finding_to_finding(self):
        stream = bytearray(STEREO)
        for number in (3, 11, 20):
            stream[FRAMES[number].offset + 6] ^= 0x40
        self.open(bytes(stream), status=3)
        self.keys("Home")
        seen = []
        for key in "nnnnpp":
            self.keys(key)
            seen.append(self.text("#frame-title"))
        self.assertEqual(seen, ["Frame 3", "Frame 11", "Frame 20", "Frame 20", "Frame 11", "Frame 3"])
        self.click_on(".finding:nth-child(2) .go")
        self.assertEqual(self.text("#frame-title"), "Frame 11")

    def test_close_markers_become_one(self):
        stream = bytearray(STEREO)
        for number in (10, 11):
            stream[FRAMES[number].offset + 6] ^= 0x40
        self.screen(400, 900)
        self.open(bytes(stream), status=3)
        counts = self.run_script("return [...document.querySelectorAll('.marker')].map((m) => m.dataset.count)")
        self.assertEqual(counts, ["2"])
        self.keys(*"++")
        self.assertEqual(self.markers(), [["check word", 10], ["check word", 11]])

    def test_a_change_of_format(self):
        self.open(STEREO + MONO, status=3)
        self.assertEqual(self.markers(), [["format change", 30]])
        self.assertIn("becomes MPEG-2 Layer II, 22050 Hz, 1 channel", self.text(".finding-text p"))
        self.click_on(".marker")
        self.assertEqual(self.text("#frame-title"), "Frame 30")
        self.assertEqual(len(self.rows(".subband-table")), 30)
        self.assertEqual(dict(row[:4:3] for row in self.rows(".header-table"))["Sampling frequency"], "22050 Hz")


class Moving(ReportTest):
    """One zoom and one cursor for all lanes, with the mouse and with the keyboard."""

    def setUp(self):
        super().setUp()
        self.open(STEREO)

    def here(self):
        return int(re.search(r"frame (\d+)", self.text(".here")).group(1))

    def times(self):
        return self.texts(".ruler text")

    def lens(self):
        """The part of the whole that is in view."""
        return self.run_script("const s = document.querySelector('.lens').style;"
                               "return [parseFloat(s.left), parseFloat(s.width)]")

    def test_the_cursor_follows_the_mouse(self):
        box = self.box("#lane-bits canvas")
        for frame in (2, 17, 29):
            self.mouse("Moved", box["left"] + (frame + 0.5) / 30 * box["width"], box["top"] + 10)
            self.settle()
            self.assertEqual(self.here(), frame)
        told = self.run_script("return document.getElementById('cursor').getAttribute('aria-valuenow')")
        self.assertEqual(told, "29")
        # It stands in one place for all lanes, whose pictures begin and end together.
        edges = self.run_script("return [...document.querySelectorAll('.plane canvas')].map((c) => {"
                                "const b = c.getBoundingClientRect(); return [b.left, b.right].join() })")
        self.assertEqual(len(set(edges)), 1)

    def test_the_cursor_reads_the_subband_under_it(self):
        box = self.box("#lane-map-bits canvas")
        self.mouse("Moved", box["left"] + 5, box["top"] + box["height"] * (1 - 4.5 / 30))
        self.settle()
        for lane in ("map-bits", "map-scale", "map-nmr"):
            self.assertTrue(self.text(f"#lane-{lane} .reading dt").startswith("Subband 4 "), lane)

    def test_a_click_shows_the_frame(self):
        box = self.box("#lane-map-scale canvas")
        self.click(box["left"] + 12.5 / 30 * box["width"], box["top"] + 5)
        self.assertEqual(self.text("#frame-title"), "Frame 12")
        self.click(box["left"] + 21.5 / 30 * box["width"], box["top"] + 5)
        self.assertEqual(self.text("#frame-title"), "Frame 21")

    def test_the_keyboard(self):
        self.keys("Home", "ArrowRight", "ArrowRight")
        self.assertEqual(self.here(), 2)
        self.keys("Shift+ArrowRight", "ArrowLeft")
        self.assertEqual(self.here(), 4)
        self.keys("End")
        self.assertEqual(self.here(), 29)
        self.keys("Enter")
        self.assertEqual(self.text("#frame-title"), "Frame 29")
        self.assertEqual(self.run_script("return document.activeElement.id"), "frame-title")

    def test_zoom(self):
        self.assertEqual(self.lens(), [0, 100])
        before = self.picture("#lane-bits canvas")
        whole = self.times()
        self.keys("Home", *["ArrowRight"] * 14, "+")
        left, width = self.lens()
        self.assertAlmostEqual(width, 50, delta=0.1)
        # The frame under the cursor stays where it was.
        self.assertAlmostEqual((14 / 30 - left / 100) / (width / 100), 14 / 30, delta=0.02)
        self.assertNotEqual(self.times(), whole)
        self.assertNotEqual(self.picture("#lane-bits canvas"), before)
        self.keys("0")
        self.assertEqual(self.lens(), [0, 100])
        self.assertEqual(self.picture("#lane-bits canvas"), before)

    def test_zoom_with_wheel_and_buttons(self):
        box = self.box("#lane-bits canvas")
        self.mouse("Wheel", box["left"] + box["width"] / 2, box["top"] + 20, deltaX=0, deltaY=-200, modifiers=2)
        self.wait_for(lambda: self.lens()[1] < 60, "the wheel with Ctrl does not zoom")
        self.click_on('[aria-label="Show everything"]')
        self.assertEqual(self.lens()[1], 100)
        self.click_on('[aria-label="Zoom in"]')
        self.assertAlmostEqual(self.lens()[1], 50, delta=0.1)
        self.click_on('[aria-label="Zoom out"]')
        self.assertEqual(self.lens()[1], 100)

    def test_dragging(self):
        self.keys("Home", "+")
        self.assertAlmostEqual(self.lens()[0], 0, delta=0.1)
        shown = self.text("#frame-title")
        box = self.box("#lane-bits canvas")
        x, y = box["left"] + box["width"] * 0.75, box["top"] + 30
        self.mouse("Moved", x, y)
        self.mouse("Pressed", x, y, button="left", clickCount=1)
        for step in range(1, 6):
            self.mouse("Moved", x - step * box["width"] / 10, y, button="left", buttons=1)
        self.mouse("Released", x - box["width"] / 2, y, button="left", clickCount=1)
        self.settle()
        self.assertAlmostEqual(self.lens()[0], 25, delta=1)
        self.assertEqual(self.text("#frame-title"), shown, "a drag is no click")

    def test_channels_and_lanes_can_be_chosen(self):
        self.assertEqual(len(self.texts("#lane-map-bits canvas")), 2)
        self.choose("channel-choice", "1")
        self.assertEqual(self.texts("#lane-map-bits .channel"), ["R"])
        self.run_script("document.querySelector('.menu input').click()")
        self.settle()
        self.assertTrue(self.run_script("return document.getElementById('lane-wave').hidden"))


class Page(ReportTest):
    """The page as a whole: its sizes, its colours, paper, and readers who do not see it."""

    def test_nothing_is_loaded(self):
        page = self.write(STEREO)
        with open(page, encoding="utf-8") as f:
            content = f.read()
        self.assertIsNone(re.search(r"""(?:src|href|url)\s*[=(]\s*["']?(?:https?:)?//""", content))
        self.driver.get("file://" + page)
        self.assertEqual(self.run_script("return performance.getEntriesByType('resource').map((e) => e.name)"), [])

    def test_it_fits_every_width(self):
        for width in (320, 400, 700, 1024, 1600):
            with self.subTest(width=width):
                self.screen(width, 900)
                self.open(STEREO)
                self.assertLessEqual(self.run_script("return document.documentElement.scrollWidth"), width)
                box = self.box("#lane-map-bits canvas")
                self.assertGreater(box["width"], width * 0.45)

    def test_texts_of_charts_are_as_large_as_those_of_the_page(self):
        self.open(STEREO)
        script = "return [...document.querySelectorAll('svg.chart')].map((c) => [c.viewBox.baseVal.width, c.clientWidth])"
        for width in (1280, 400):
            self.screen(width, 900)
            self.settle()
            charts = self.run_script(script)
            self.assertGreater(len(charts), 8)
            for drawn, shown in charts:
                self.assertAlmostEqual(drawn, shown, delta=1, msg=width)

    def test_light_and_dark(self):
        seen = {}
        for scheme in ("light", "dark"):
            self.cdp("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
            self.open(STEREO)
            seen[scheme] = self.picture("#lane-map-bits canvas"), self.background()
        self.assertNotEqual(seen["light"][0], seen["dark"][0])
        self.assertEqual(seen["light"][1], "rgb(255, 255, 255)")
        self.choose("theme-choice", "light")
        self.assertEqual(self.background(), "rgb(255, 255, 255)")
        self.assertEqual(self.picture("#lane-map-bits canvas"), seen["light"][0])
        self.cdp("Emulation.setEmulatedMedia", features=[])

    def test_paper(self):
        self.cdp("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark"}])
        self.open(STEREO)
        self.run_script("window.seen = [];"
                        "addEventListener('beforeprint', () => seen.push(document.documentElement.dataset.theme))")
        printed = base64.b64decode(self.cdp("Page.printToPDF", paperWidth=8.27, paperHeight=11.69)["data"])
        self.assertTrue(printed.startswith(b"%PDF"))
        self.assertEqual(self.run_script("return seen"), ["light"], "paper is light")
        self.assertEqual(self.run_script("return document.documentElement.dataset.theme"), "dark")
        self.cdp("Emulation.setEmulatedMedia", media="print")
        for gone in (".tools", ".frame-body .byte-reading", "#contents"):
            display = self.run_script("return getComputedStyle(document.querySelector(arguments[0])).display", gone)
            self.assertEqual(display, "none", gone)
        self.cdp("Emulation.setEmulatedMedia", media="", features=[])

    def test_everything_has_a_name(self):
        stream = bytearray(STEREO)
        stream[FRAMES[7].offset + 6] ^= 0x40
        self.open(bytes(stream), status=3)
        tree = self.cdp("Accessibility.getFullAXTree")["nodes"]
        wanted = {"button", "slider", "combobox", "image", "listbox", "checkbox", "spinbutton", "DisclosureTriangle"}
        told = [(node["role"]["value"], node.get("name", {}).get("value")) for node in tree if not node.get("ignored")]
        self.assertEqual([role for role, name in told if role in wanted and not name], [])
        said = [name for role, name in told if role == "image"]
        self.assertTrue(any("Bits by subband. Left" in name for name in said), said)

    def test_the_keyboard_reaches_all(self):
        self.open(STEREO)
        reached = []
        for _ in range(40):
            self.cdp("Input.dispatchKeyEvent", type="keyDown", key="Tab", code="Tab", windowsVirtualKeyCode=9)
            self.cdp("Input.dispatchKeyEvent", type="keyUp", key="Tab", code="Tab", windowsVirtualKeyCode=9)
            script = "const e = document.activeElement; return e.id || e.className || e.textContent"
            reached.append(self.run_script(script))
        for wanted in ("skip", "theme-choice", "channel-choice", "cursor", "frame-number", "hex"):
            self.assertIn(wanted, reached)

    def test_a_stream_from_a_pipe(self):
        self.open(STEREO, piped=True)
        self.assertEqual(self.text("h1"), "standard input")
        self.assertEqual(self.texts(".path"), [])

    def test_text_of_a_stream_is_no_markup(self):
        self.open(STEREO, name="<b>&amp;<script>alert(1)<\u2215script>.mp2")
        self.assertEqual(self.text("h1"), "<b>&amp;<script>alert(1)<\u2215script>.mp2")


class Long(ReportTest):
    """More frames than columns."""

    def test_columns_of_seconds(self):
        copies = 10001 // 30 + 1
        self.open(STEREO * copies)
        frames = 30 * copies
        verdict = self.run_script("return document.querySelector('#verdict').textContent")
        self.assertEqual(verdict, f"Good: {frames:,} frames without damage.".replace(",", "\u202f"))
        self.assertTrue(self.text("#timeline .note").startswith("Each column is 38 frames, about a second."))
        self.keys("Home", "ArrowRight")
        self.assertIn("frames 38 to 75", self.text(".here"))
        self.keys("End")
        self.assertIn(f"to {frames - 1}", self.text(".here"))
        # Not every frame's bytes are in the page; it says which frame it shows instead, and how to see the other.
        self.choose("frame-number", 5001)
        shown = int(self.text("#frame-title").split()[1])
        self.assertLess(shown, 5001)
        self.assertIn("frame 5001 are not in this report", self.text("#frame-notice"))
        self.assertIn("qav inspect --from", self.text("#frame-notice"))
        frame = FRAMES[shown % 30]
        self.assertEqual(self.stored_bytes(), STEREO[frame.offset : frame.offset + frame.bytes])


class Against(ReportTest):
    """Two streams of the same programme."""

    def test_the_same(self):
        self.open(STEREO, "--against", self.put("b.mp2", STEREO))
        self.assertEqual(self.text("#against-verdict"), "Every frame is the same, bit for bit.")

    def test_the_first_difference(self):
        frames = list(layer2.frames(MONO))  # without check words, so that a changed bit is a difference and no damage
        other = bytearray(MONO)
        other[frames[12].offset + 3] ^= 0x04  # the original bit
        sample = sum(frames[20].bits[:5]) + 100
        other[frames[20].offset + sample // 8] ^= 1
        self.open(MONO, "--against", self.put("b.mp2", bytes(other)))
        self.assertIn("2 of 30 frames compared differ", self.text("#against-verdict"))
        self.assertIn("frame 12", self.text(".first-difference p"))
        self.assertEqual([row[0] for row in self.rows(".first-difference table")], ["original"])
        self.keys("Home", *["ArrowRight"] * 12)
        self.assertEqual(self.texts("#lane-against-parts .reading dt"), ["header"])
        self.assertIn("no difference", self.text("#lane-against-snr .reading"))
        self.keys(*["ArrowRight"] * 8)
        self.assertEqual(self.texts("#lane-against-parts .reading dt"), ["samples"])
        self.assertRegex(self.text("#lane-against-snr .reading"), r"^\d+ dB$")
        self.click_on(".first-difference button")
        self.assertEqual(self.text("#frame-title"), "Frame 12")

    def test_a_cut_copy(self):
        self.open(MONO, "--against", self.put("b.mp2", MONO[FRAMES_OF_MONO[5].offset :]))
        self.assertEqual(self.text("#against-verdict"), "None of 25 frames compared differs; 5 frames only in this stream.")
        self.assertEqual(
            self.text("#against-shift"),
            "The other stream begins 5 frames later: its frame 0 is compared with frame 5 of this one.",
        )


if __name__ == "__main__":
    unittest.main()
