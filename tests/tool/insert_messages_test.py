"""Tests of the messages of h264tool insert other than timecodes, run as: insert_messages_test.py H264TOOL [unittest
arguments]"""

import tempfile

import runner
from h264_writer import split
from insert_support import AFD, CAPTIONS, PLACES, PRECISION, TIMING, USER_DATA, UUID, InsertTestCase, Stream, messages
from insert_support import reordered
from stream_builder import nal_unit


class OtherMessages(InsertTestCase):
    def test_afd(self):
        for code in range(16):
            output = self.insert(Stream().plain(2), "--afd", str(code))
            self.assertEqual(messages(output, AFD), 2 * [bytes.fromhex("0409b50031445447 3141") + bytes([0xF0 | code])
                                                         + b"\x80"])

    def test_afd_codes_of_two_digits(self):
        for code in range(10):
            self.assertEqual(self.insert(Stream().plain(1), "--afd", "%02d" % code),
                             self.insert(Stream().plain(1), "--afd", str(code)))

    def test_user_data(self):
        for text in ("x", "two words", "x" * 238, "\u00e9:\u00fc"):
            for uuid in (UUID, UUID.replace("-", ""), UUID.upper()):
                output = self.insert(Stream().plain(2), "--user-data", uuid + ":" + text)
                data = bytes.fromhex(UUID.replace("-", "")) + text.encode()
                self.assertEqual(messages(output, USER_DATA), 2 * [bytes([5, len(data)]) + data + b"\x80"])

    @staticmethod
    def precision_time(data):
        octets = data[19:28]
        return int.from_bytes(octets[0:2] + octets[3:5] + octets[6:8] + data[28:30], "big")

    def test_precision_time(self):
        stream = Stream(timing=(1001, 60000))
        output = self.insert(stream.sets() + b"".join(reordered(stream)), "--precision-time", "1700000000000000")
        found = messages(output, PRECISION)
        self.assertEqual({(len(data), data[:2], data[18], data[21], data[24], data[27]) for data in found},
                         {(31, b"\x05\x1c", 0x9F, 0xFF, 0xFF, 0xFF)})
        self.assertEqual([self.precision_time(data) for data in found],
                         [1700000000000000 + place * 1001000000 // 30000 for place in PLACES])

    def test_precision_time_of_fields(self):
        stream = Stream(fields=0)
        fields = [stream.slice("I", 0, field=0), stream.slice("P", 1, field=1),
                  stream.slice("P", 3, field=1, frame_num=1), stream.slice("P", 2, field=0, frame_num=1)]
        found = messages(self.insert(stream.sets() + b"".join(fields), "--precision-time", "0"), PRECISION)
        self.assertEqual([self.precision_time(data) for data in found], [0, 20000, 60000, 40000])

    def test_precision_time_that_does_not_fit(self):
        last = (1 << 63) - 1
        self.insert(Stream().plain(2), "--precision-time", str(last - 80000))
        self.refuse(Stream().plain(2), "--precision-time: the last frame's is above %d" % last,
                    "--precision-time", str(last - 79999))

    def test_streams_that_have_the_messages_already(self):
        options = {TIMING: ("--timecode", "10:00:00:00"), AFD: ("--afd", "8"), PRECISION: ("--precision-time", "0")}
        names = {TIMING: "picture timing messages", AFD: "an active format description", PRECISION: "precision time"}
        hints = {TIMING: ", rewrite --timecode changes those that are there"}
        stream = Stream().plain(1)
        for kind, option in options.items():
            once = self.insert(stream, *option)
            self.refuse(once, "IN: unit 3 at offset %d: the stream has %s already: %s cannot be inserted%s" %
                        (len(Stream().sets()), names[kind], option[0], hints.get(kind, "")), *option)
            for other in options.values():
                if other != option:
                    self.assertEqual(len(split(self.insert(once, *other))), 5)
        self.assertEqual(len(split(self.insert(self.insert(stream, "--user-data", UUID + ":a"), "--user-data",
                                               UUID + ":b"))), 5)


class Captions(InsertTestCase):
    def captions(self, stream, scc, *options):
        with tempfile.NamedTemporaryFile("w", suffix=".scc") as file:
            file.write("Scenarist_SCC V1.0\n\n" + scc)
            file.flush()
            return self.insert(stream, "--captions", file.name, *options)

    def triples(self, stream):
        """The caption triples of each message."""
        found = []
        for data in messages(stream, CAPTIONS):
            count = data[10] & 31
            self.assertEqual(data[:10] + data[11:12], bytes([4, 11 + 3 * count]) +
                             bytes.fromhex("b5003147413934 03 ff"))
            self.assertEqual((data[10] & 0xE0, data[-2:], len(data)), (0xC0, b"\xff\x80", 14 + 3 * count))
            found.append([data[i:i + 3].hex() for i in range(12, 12 + 3 * count, 3)])
        return found

    def pairs(self, stream):
        return [[triple[2:] for triple in triples if triple[:2] == "fc"] for triples in self.triples(stream)]

    def test_at_the_rate_of_the_file(self):
        found = self.triples(self.captions(Stream(timing=(1001, 60000)).plain(5), "00:00:00:01\t9420 9420 942f\n"))
        self.assertEqual(found, [["fc" + pair] + 19 * ["fa0000"] for pair in ("8080", "9420", "9420", "942f", "8080")])

    def test_output_order(self):
        stream = Stream(timing=(1001, 60000))
        pairs = ["94%02x" % i for i in range(len(PLACES))]
        output = self.captions(stream.sets() + b"".join(reordered(stream)), "00:00:00:00\t" + " ".join(pairs))
        self.assertEqual(self.pairs(output), [[pairs[place]] for place in PLACES])

    def test_other_rates_carry_each_pair_once(self):
        pairs = ["%04x" % (0x9400 + i) for i in range(59)]
        for timing, rate, triples in (((1, 48), 24, 25), ((1001, 48000), 24 / 1.001, 25), ((1, 50), 25, 24),
                                      ((1, 60), 30, 20), ((1, 100), 50, 12), ((1001, 120000), 60 / 1.001, 10),
                                      ((1, 120), 60, 10), ((1, 30), 15, 31), ((1, 2), 1, 31)):
            frames = int(rate * 2) + 1
            output = self.captions(Stream(timing=timing).plain(frames), "00:00:00:00\t" + " ".join(pairs))
            found = self.triples(output)
            self.assertEqual({len(message) for message in found}, {triples})
            carried = self.pairs(output)
            self.assertEqual([pair for message in carried for pair in message][:59], pairs)
            self.assertEqual({pair for message in carried for pair in message} - set(pairs), {"8080"})
            begins = [next(i for i, message in enumerate(carried) if pair in message) for pair in pairs]
            self.assertEqual(begins, [int(i * 1001 / 30000 * rate + 1e-9) for i in range(59)])
            self.assertLessEqual({triple for message in found for triple in message if triple[:2] != "fc"},
                                 {"fa0000", "f80000"})

    def test_fields_carry_them_with_the_first(self):
        stream = Stream(timing=(1001, 60000), fields=0)
        fields = [stream.slice("I", 0, field=0), stream.slice("P", 1, field=1),
                  stream.slice("P", 3, field=1, frame_num=1), stream.slice("P", 2, field=0, frame_num=1)]
        output = self.captions(stream.sets() + b"".join(fields), "00:00:00:00\t9420 942f\n")
        self.assertEqual(self.kinds(output), [7, 8, CAPTIONS, 5, 1, 1, CAPTIONS, 1])
        self.assertEqual(self.pairs(output), [["9420"], ["942f"]])

    def test_timecodes_are_relative_to_the_first(self):
        for timing, start, scc in (((1001, 60000), "10:00:00:00", "10:00:00:02"),
                                   ((1001, 60000), "10:00:59;29", "10:01:00;03"),
                                   ((1001, 60000), "23:59:59:29", "00:00:00:01"),
                                   ((1001, 120000), "10:00:00:58", "10:00:01:01"),
                                   ((1001, 48000), "10:00:00:20", "10:00:00:27")):
            output = self.captions(Stream(timing=timing).plain(8), scc + "\t9420\n", "--timecode", start)
            carried = [pair for message in self.pairs(output) for pair in message]
            self.assertEqual(carried.index("9420"), 2, start)

    def refuse_captions(self, stream, scc, reason, *options):
        with tempfile.NamedTemporaryFile("w", suffix=".scc") as file:
            file.write(scc)
            file.flush()
            self.refuse(stream, file.name + ": " + reason, "--captions", file.name, *options)

    def test_captions_that_are_refused(self):
        header = "Scenarist_SCC V1.0\n\n"
        stream = Stream(timing=(1001, 60000)).plain(10)
        self.refuse_captions(stream, "text", "line 1: is not 'Scenarist_SCC V1.0'")
        self.refuse_captions(stream, header + "00:00:00:00\t942\n",
                             "line 3: '942' is no byte pair of four hexadecimal digits")
        self.captions(stream, "00:00:00:08\t9420 942f\n")
        for line in ("00:00:00:08\t9420 9420 942f", "00:00:00:10\t9420", "01:00:00:00\t9420"):
            self.refuse_captions(stream, header + line + "\n",
                                 "line 3 at %s does not end before the stream does, 10 caption frames from its "
                                 "beginning" % line[:11])
        self.captions(stream, "00:00:00:00\t9420 942f\n00:00:00:02\t9420\n")
        for second in ("00:00:00:01", "00:00:00:00"):
            self.refuse_captions(stream, header + "00:00:00:00\t9420 942f\n%s\t9420\n" % second,
                                 "line 4 at %s begins before the end of the line in front of it: lines must be in "
                                 "order and must not overlap" % second)
        self.refuse_captions(stream, header + "10:00:00:01\t9420\n09:59:59:29\t9420\n",
                             "line 4 at 09:59:59:29 begins before the stream (10:00:00:00)", "--timecode",
                             "10:00:00:00")
        self.refuse_captions(stream, header + "10:00:00;01\t9420\n",
                             "line 3 at 10:00:00;01 counts with drop frame, --timecode without: they must count in the "
                             "same way", "--timecode", "10:00:00:00")
        self.refuse_captions(Stream(timing=(10, 6)).plain(1), header + "00:00:00:00\t9420\n",
                             "frames of less than one a second are too long to carry their captions")

    def test_streams_with_captions(self):
        stream = Stream(timing=(1001, 60000))
        once = self.captions(stream.plain(2), "00:00:00:00\t9420\n")
        with tempfile.NamedTemporaryFile("w", suffix=".scc") as file:
            file.write("Scenarist_SCC V1.0\n")
            file.flush()
            self.refuse(once, "IN: unit 3 at offset %d: the stream has captions already: --captions cannot be inserted"
                        % len(stream.sets()), "--captions", file.name)
            bar_data = nal_unit(6, bytes.fromhex("0409b5003147413934 0600 80"), nal_ref_idc=0)
            self.insert(stream.sets() + bar_data + stream.frames(1)[0], "--captions", file.name)


if __name__ == "__main__":
    runner.main()
