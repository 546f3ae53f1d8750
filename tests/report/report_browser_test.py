"""Looks at pages of h264tool report in headless Chromium, run as:

    report_browser_test.py H264TOOL [unittest arguments]

Needs chromium and chromedriver (Debian: chromium, chromium-driver).
"""

import os
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tool"))

import runner  # noqa: E402
import stream_builder as build  # noqa: E402
from browser import Browser  # noqa: E402
from long_stream import CPB_SIZE, long_stream  # noqa: E402
from picture_builder import Pps, Slice  # noqa: E402
from report_reader import pictures_of  # noqa: E402
from runner import TestCase, dump, feed, json_lines, run  # noqa: E402
from stream_builder import nal_unit  # noqa: E402

FEW_SECONDS = 10.0  # Far above what is measured, for slow and busy machines.

# The middle of a picture's bar in the first chart, in the window.
POSITION = """
    const u = charts[0], place = shownOrder.places[arguments[0]];
    u.root.scrollIntoView({block: "center"});
    const box = u.over.getBoundingClientRect();
    return [box.left + u.valToPos(shownOrder.begins[place] + durations[arguments[0]] / 2, "x"), box.top + box.height / 2];
"""
DETAILS = """
    const details = document.getElementById("details");
    if (details.hidden) return null;
    const values = Object.fromEntries([...details.querySelectorAll("dd")].map(one => [one.dataset.key, one.textContent]));
    return {picture: +details.dataset.picture, count: +details.dataset.count, text: details.textContent, values};
"""
# How many pixels of each colour of picture types the first chart has.
COLOURS = """
    const {left, top, width, height} = charts[arguments[0]].bbox;
    const pixels = charts[arguments[0]].ctx.getImageData(left, top, width, height).data;
    const probe = document.createElement("canvas").getContext("2d");
    return arguments[1].map(name => {
        probe.fillStyle = colour(name);
        const hex = probe.fillStyle;
        const [r, g, b] = [1, 3, 5].map(i => parseInt(hex.slice(i, i + 2), 16));
        let count = 0;
        for (let i = 0; i < pixels.length; i += 4)
            count += pixels[i] === r && pixels[i + 1] === g && pixels[i + 2] === b;
        return count;
    });
"""
SETTLED = "return new Promise(done => requestAnimationFrame(() => requestAnimationFrame(() => done(true))));"


def sample(name):
    with open(os.path.join(build.HERE, "..", "..", "samples", name), "rb") as file:
        return file.read()


def grouped(number):
    return "{:,}".format(number)


def timecode_text(number, drop_frame):
    seconds = number // 256
    return "%02d:%02d:%02d%s%02d" % (seconds // 3600, seconds // 60 % 60, seconds % 60, ";" if drop_frame else ":",
                                     number % 256)


class BrowserTestCase(TestCase):
    dark = False

    @classmethod
    def setUpClass(cls):
        cls.browser = Browser(dark=cls.dark)
        cls.addClassCleanup(cls.browser.close)
        cls.directory = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.directory.cleanup)

    def tearDown(self):
        self.assertEqual(self.browser.log(), [])
        self.assertEqual(self.browser.run("return performance.getEntriesByType('resource').map(one => one.name);"), [])

    def open(self, stream):
        """Returns the seconds until the page can be used."""
        path = os.path.join(self.directory.name, "page.html")
        result = feed("report", stream, "-o", path)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.browser.move(1, 1)
        begin = time.monotonic()
        self.browser.open(path)
        self.browser.run(SETTLED)
        self.assertEqual(self.browser.run("return document.body.dataset.ready;"), "true")
        return time.monotonic() - begin

    def hover(self, picture):
        self.browser.move(*self.browser.run(POSITION, picture))
        return self.browser.run(DETAILS)

    def assert_details(self, details, number, picture):
        """What is shown of a picture equals what a dump tells of it."""
        self.assertEqual(details["picture"], number)
        values = details["values"]
        self.assertEqual(values["bytes"], grouped(picture["bytes"]) + " bytes")
        self.assertEqual(values["unit"], grouped(picture["unit"]))
        self.assertEqual(values["offset"], grouped(picture["offset"]))
        self.assertEqual(values["slice_type"].split(",")[0], {"D": "IDR"}.get(picture["type"], picture["type"]))
        for name in ("cpb_removal_delay", "dpb_output_delay"):
            self.assertEqual(values.get(name), None if name not in picture else grouped(picture[name]))
        self.assertEqual(values.get("timecode"), None if "timecode" not in picture else
                         timecode_text(picture["timecode"], picture["drop_frame"]))
        self.assertEqual(values.get("cc_count", "").split(",")[0], str(picture.get("cc_count", "")))
        self.assertEqual(values.get("active_format", "").split(",")[0], str(picture.get("active_format", "")))
        self.assertEqual("microseconds" in values, "microseconds" in picture)
        if "microseconds" in picture:
            self.assertEqual(values["microseconds"][-6:], "%06d" % (picture["microseconds"] % 1000000))


class Pages(BrowserTestCase):
    def test_everything_is_drawn(self):
        self.open(long_stream(10, jump_at=5))
        self.assertEqual(self.browser.run("return [...document.querySelectorAll('.chart')].map(one => one.id);"),
                         ["sizes", "lanes", "rate", "cpb-nal", "cpb-vcl"])
        for chart, names in ((0, ["idr", "p", "b"]), (1, ["idr", "p", "b", "lane", "lane-2", "bad"]), (2, ["rate"]),
                             (3, ["nal"]), (4, ["vcl"])):
            for name, count in zip(names, self.browser.run(COLOURS, chart, names)):
                self.assertGreater(count, 5, (chart, name))
        self.assertIn("1 jump of timecodes", self.browser.run("return document.getElementById('problems').innerText;"))

    def test_hover_equals_dump(self):
        plain = sample("progressive_422.h264")
        captions = nal_unit(6, b"\x04\x0e\xb5\x00\x31GA94\x03\x41\xff\xfc\x94\x2c\xff\x80", nal_ref_idc=0)
        lanes = captions + feed("insert", plain, "-o", "-", "--timecode", "01:02:03:04", "--afd", "10",
                                "--precision-time", "1700000000000000").stdout
        for stream in (sample("interlaced_hrd.h264"), lanes, long_stream(3)):
            self.open(stream)
            pictures = pictures_of(json_lines(dump(stream, "--json")))
            for order in ("output", "decoding"):
                self.browser.run("document.getElementById('order-' + arguments[0]).click();", order)
                self.browser.run(SETTLED)
                for number in (0, 1, 5, len(pictures) // 2, len(pictures) - 1):
                    self.assert_details(self.hover(number), number, pictures[number])

    def test_buffer_values(self):
        self.open(long_stream(2))
        values = self.hover(60)["values"]
        self.assertEqual(values["nal-removal"], "0:02.000000")
        before, after = (int(values[name].split()[0].replace(",", "")) for name in ("nal-fullness", "nal-after"))
        self.assertEqual(before - after, 8 * int(values["bytes"].split()[0].replace(",", "")))
        self.assertLessEqual(before, CPB_SIZE)

    def test_zoom(self):
        stream = long_stream(60)
        pictures = pictures_of(json_lines(dump(stream, "--json")))
        self.open(stream)
        self.assertGreater(self.hover(1800)["count"], 1)
        # The largest of those at the place, which is the IDR picture.
        self.assert_details(self.hover(1800), 1800, pictures[1800])
        x, y = self.browser.run(POSITION, 1700)
        self.browser.drag(x, y, self.browser.run(POSITION, 1900)[0])
        self.browser.run(SETTLED)
        shown = self.browser.run("return charts.map(one => [one.scales.x.min, one.scales.x.max]);")
        self.assertEqual(shown, [shown[0]] * len(shown))
        self.assertLess(shown[0][1] - shown[0][0], 6)
        details = self.hover(1801)
        self.assertEqual(details["count"], 1)
        self.assert_details(details, 1801, pictures[1801])
        self.browser.run("document.querySelector('[data-zoom=all]').click();")
        self.browser.run(SETTLED)
        self.assertGreater(self.hover(1801)["count"], 1)

    def test_problems_lead_to_their_places(self):
        self.open(long_stream(60, jump_at=30, cpb_size=16 * 10000))
        text = self.browser.run("return document.getElementById('problems').innerText;")
        self.assertIn("jump of timecodes", text)
        self.assertIn("overflow", text)
        self.assertGreater(self.browser.run(COLOURS, 3, ["bad"])[0], 5)
        self.browser.run("""[...document.querySelectorAll('#problems button')].find(
            one => one.textContent.startsWith('Timecode')).click();""")
        self.browser.run(SETTLED)
        self.assertEqual(self.browser.run("return [view.min, view.max];"), [29, 31])
        details = self.hover(1800)
        self.assertEqual(details["values"]["jump"], "+600 frames")
        self.assertEqual(details["values"]["timecode"], "00:00:40:00")

    def test_changes_of_parameter_sets(self):
        self.open(sample("interlaced_hrd.h264"))
        cells = """return [...document.querySelectorAll('#sps-0 tr')].filter(one => one.firstChild.textContent ===
            arguments[0]).map(one => [...one.querySelectorAll('td')].map(cell => [cell.textContent, cell.className]))[0];"""
        self.assertEqual(self.browser.run(cells, "level_idc"), [["21", ""], ["30", "changed"]])
        self.assertEqual(self.browser.run(cells, "profile_idc"), [["100", ""], ["100", ""]])

    def test_streams_of_which_little_is_known(self):
        sps = build.Sps({}, 77)
        self.open(sps.unit())
        self.assertIn("no picture", self.browser.run("return document.body.innerText;"))
        pps = Pps(sps)
        one = Slice(pps, 7, unit_type=5)
        self.open(sps.unit() + pps.unit() + one.unit())
        self.assertEqual(self.hover(0)["values"]["slice_type"], "IDR")

    def test_buffers_that_cannot_be_checked(self):
        stream = long_stream(2)
        units = json_lines(dump(stream, "--json"))
        begin = next(unit["offset"] for unit in units if unit["nal_unit_type"] == 6)
        without_messages = stream[:begin] + b"".join(
            stream[unit["offset"]:unit["offset"] + unit["length"]] for unit in units if unit["nal_unit_type"] in (1, 5))
        problems = "return document.getElementById('problems').innerText;"
        self.open(without_messages)
        text = self.browser.run(problems)
        self.assertNotIn("Nothing amiss", text)
        self.assertIn("NAL buffer not checked", text)
        self.open(stream + without_messages)
        self.assertIn("VCL buffer checked at 120 of 240 pictures", self.browser.run(problems))
        self.open(stream)
        self.assertEqual(self.browser.run(problems), "Nothing amiss: NAL buffer, VCL buffer, timecodes")

    def test_a_stretch_without_frame_rate(self):
        sps = build.Sps({}, 77, poc=build.poc_type(0))
        pps = Pps(sps)
        self.open(long_stream(2) + sps.unit() + pps.unit() + Slice(pps, 7, unit_type=5).unit() + long_stream(2))
        text = self.browser.run("return document.getElementById('problems').innerText;")
        self.assertIn("1 of 241 pictures without a frame rate", text)
        self.assertIn("rate", self.browser.run("return [...document.querySelectorAll('.chart')].map(one => one.id);"))
        known = self.browser.run("return Array.from(rates, rate => !isNaN(rate));")
        # After a second, but not in the second that follows the picture.
        self.assertEqual(known, [False] * 59 + [True] * 61 + [False] * 60 + [True] * 61)

    def test_an_hour(self):
        stream = long_stream(3600)
        path = os.path.join(self.directory.name, "hour.h264")
        with open(path, "wb") as file:
            file.write(stream)
        page = os.path.join(self.directory.name, "hour.html")
        begin = time.monotonic()
        self.assertEqual(run("report", path, "-o", page).returncode, 0)
        made = time.monotonic() - begin
        size = os.path.getsize(page)
        begin = time.monotonic()
        self.browser.open(page)
        self.browser.run(SETTLED)
        loaded = time.monotonic() - begin
        self.assertEqual(self.browser.run("return pictureCount;"), 216000)
        self.assertGreater(self.hover(108000)["count"], 100)
        begin = time.monotonic()
        zooms = 0
        while self.hover(108000)["count"] > 1:
            x, _ = self.browser.run(POSITION, 108000)
            self.browser.run("const box = charts[0].over.getBoundingClientRect();"
                             "const at = charts[0].posToVal(arguments[0] - box.left, 'x');"
                             "const length = (view.max - view.min) / 8; setView(at - length, at + length);", x)
            self.browser.run(SETTLED)
            zooms += 1
        zoomed = (time.monotonic() - begin) / zooms
        self.assertEqual(self.hover(108000)["values"]["timecode"], "00:30:00:00")
        print("\nAn hour: page of %d bytes made in %.1f s, loaded in %.1f s, %d zooms of %.2f s" %
              (size, made, loaded, zooms, zoomed), file=sys.stderr)
        self.assertLess(size, 10000000)
        self.assertLess(loaded, FEW_SECONDS)
        self.assertLess(zoomed, FEW_SECONDS)


class DarkTheme(BrowserTestCase):
    dark = True

    def test_colours(self):
        self.open(long_stream(2))
        self.assertEqual(self.browser.run("return getComputedStyle(document.body).backgroundColor;"), "rgb(20, 24, 29)")
        self.assertGreater(min(self.browser.run(COLOURS, 0, ["idr", "p", "b"])), 5)


if __name__ == "__main__":
    runner.main()
