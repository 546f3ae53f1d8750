"""What h264tool insert puts into a stream comes out of h264tool extract unchanged, run as: round_trip_test.py H264TOOL
[unittest arguments]"""

import csv
import os
import random
import tempfile

import runner
import sei_streams
from runner import TestCase, feed, run
from sei_streams import Stream

# Decoding order of the pictures of a group of four, as places in output order.
GROUP = (3, 1, 0, 2)


def stream_of(pictures, timing):
    """IDR pictures every 64; between them groups whose pictures are put out in another order."""
    stream = Stream(sei_streams.sps(sei_streams.timing_vui(timing)))
    for first in range(0, pictures, 64):
        stream.idr(idr_pic_id=first // 64 % 2)
        for group in range((min(64, pictures - first) - 1) // 4):
            for place in GROUP:
                stream.p(1 + 4 * group + place, 1, ref_idc=0) if place != 3 else stream.p(4 * group + 4, group % 63 + 1)
    return stream.bytes


class RoundTrip(TestCase):
    def insert(self, stream, *options):
        result = feed("insert", stream, "-o", "-", *options)
        self.assert_result(result, 0, "")
        return result.stdout

    def extract(self, stream, *options):
        result = feed("extract", stream, *options)
        self.assert_result(result, 0, "")
        return result.stdout.decode()

    def rows(self, stream, output):
        """The rows of a table in output order, which must be there for every picture."""
        rows = sorted(csv.DictReader(self.extract(stream, output, "-").splitlines()),
                      key=lambda row: int(row["output_picture"]))
        self.assertEqual([int(row["output_picture"]) for row in rows], list(range(len(rows))))
        return rows

    def test_timecodes_over_minute_boundaries(self):
        stream = stream_of(65 * 3, (1001, 60000))
        for start, expected in (("00:00:58;20", {39: "00:00:59;29", 40: "00:01:00;02"}),
                                ("00:09:58;20", {39: "00:09:59;29", 40: "00:10:00;00"}),
                                ("23:59:58;20", {39: "23:59:59;29", 40: "00:00:00;00"}),
                                ("00:00:58:20", {39: "00:00:59:29", 40: "00:01:00:00"})):
            rows = self.rows(self.insert(stream, "--timecode", start), "--timecodes")
            self.assertGreater(len(rows), 150)
            self.assertEqual(rows[0]["timecode"], start)
            for picture, timecode in expected.items():
                self.assertEqual(rows[picture]["timecode"], timecode)
            self.assertEqual(len({row["timecode"] for row in rows}), len(rows))

    def test_timecodes_of_sixty_frames_over_minute_boundaries(self):
        stream = stream_of(65 * 3, (1001, 120000))
        for start, expected in (("00:00:58;20", {99: "00:00:59;59", 100: "00:01:00;04"}),
                                ("00:09:58;20", {99: "00:09:59;59", 100: "00:10:00;00"}),
                                ("00:00:58:20", {99: "00:00:59:59", 100: "00:01:00:00"})):
            rows = self.rows(self.insert(stream, "--timecode", start), "--timecodes")
            self.assertEqual(rows[0]["timecode"], start)
            for picture, timecode in expected.items():
                self.assertEqual(rows[picture]["timecode"], timecode)
            self.assertEqual(len({row["timecode"] for row in rows}), len(rows))

    def test_active_formats_and_times(self):
        stream = self.insert(stream_of(64, (1, 50)), "--afd", "13", "--precision-time", "1600000000000007")
        self.assertEqual({row["active_format"] for row in self.rows(stream, "--afd")}, {"13"})
        times = [int(row["microseconds"]) for row in self.rows(stream, "--precision-time")]
        self.assertEqual(times, [1600000000000007 + 40000 * i for i in range(len(times))])

    def assert_captions(self, scc, timing, *options, start=None):
        stream = stream_of(64 * 8, timing)
        with tempfile.TemporaryDirectory() as directory:
            before, after, coded = (os.path.join(directory, name) for name in ("before.scc", "after.scc", "coded.h264"))
            with open(before, "w", encoding="ascii") as file:
                file.write(scc)
            with open(coded, "wb") as file:
                file.write(self.insert(stream, "--captions", before, *options))
            self.assert_result(run("extract", coded, "--captions", after,
                                   *(("--captions-start", start) if start else ())), 0, "")
            with open(after, encoding="ascii") as file:
                self.assertEqual(file.read(), scc)

    def test_captions(self):
        rng = random.Random(5)
        for timing in ((1001, 60000), (1, 50), (1001, 48000), (1001, 120000), (1, 60), (1, 24)):
            scc, frame = "Scenarist_SCC V1.0\n", 0
            while True:
                frame += rng.choice((1, 2, 3, 17))
                pairs = rng.choice((1, 1, 2, 8))
                if frame + pairs > 200:
                    break
                scc += "\n00:00:%02d;%02d\t%s\n" % (frame // 30, frame % 30, " ".join(
                    "%04x" % rng.randrange(0x0101, 0x7f7f) for _ in range(pairs)))
                frame += pairs
            with self.subTest(timing=timing):
                self.assert_captions(scc, timing)

    def test_captions_count_from_the_timecode(self):
        scc = "Scenarist_SCC V1.0\n\n00:01:00;02\t9420 94ad\n\n00:01:01;04\t1234\n"
        self.assert_captions(scc, (1001, 60000), "--timecode", "00:00:58;00")
        scc = scc.replace(";", ":")
        self.assert_captions(scc, (1001, 60000), "--timecode", "00:00:58:00")

    def test_captions_over_midnight(self):
        scc = "Scenarist_SCC V1.0\n\n23:59:59;10\t9420 94ad\n\n23:59:59;29\t1234 5678\n\n00:00:01;04\t1234\n"
        for timing in ((1001, 60000), (1001, 120000)):
            self.assert_captions(scc, timing, "--timecode", "23:59:58;00")
            self.assert_captions(scc.replace(";", ":"), timing, "--timecode", "23:59:58:00")

    def test_captions_without_drop_frame(self):
        scc = "Scenarist_SCC V1.0\n\n00:00:02:02\t9420 94ad\n"
        self.assert_captions(scc, (1001, 60000), start="00:00:00:00")


if __name__ == "__main__":
    runner.main()
