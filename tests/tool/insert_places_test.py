"""Tests of the places at which h264tool insert inserts, run as: insert_places_test.py H264TOOL [unittest arguments]"""

import tempfile

import runner
from h264_writer import split
from insert_support import AFD, PRECISION, TIMING, USER_DATA, UUID, InsertTestCase, Stream, kind_of, kind_of_header
from insert_support import payload
from picture_builder import Pps, Slice
from runner import feed
from stream_builder import nal_unit


class Places(InsertTestCase):
    ALL = ("--timecode", "10:00:00:00", "--afd", "8", "--precision-time", "0", "--user-data", UUID + ":text")
    INSERTED = [TIMING, PRECISION, AFD, USER_DATA]

    def inserted_kinds(self, stream, *options):
        """The kinds of the units; those of other SEI units are not told apart."""
        output = self.insert(stream, *options)
        return [6 if unit in split(stream) and kind_of_header(unit) == 6 else kind_of(unit) for unit in split(output)]

    def test_in_front_of_the_first_slice_of_each_picture(self):
        stream = Stream(redundant=1)
        recovery = nal_unit(6, b"\x06\x01\xc4\x80", nal_ref_idc=0)
        units = [nal_unit(9, b"\x10", nal_ref_idc=0), stream.sps.unit(), stream.pps.unit(), recovery,
                 stream.slice("I", 0), stream.slice("I", 0, first_mb=8), stream.slice("I", 0, redundant_pic_cnt=1),
                 nal_unit(12, b"\xff\x80", nal_ref_idc=0), stream.slice("P", 2, frame_num=1),
                 stream.slice("P", 2, frame_num=1, first_mb=8)]
        self.assertEqual(self.inserted_kinds(b"".join(units), *self.ALL),
                         [9, 7, 8, 6] + self.INSERTED + [5, 5, 5, 12] + self.INSERTED + [1, 1])

    def test_in_front_of_a_prefix_unit(self):
        stream = Stream()
        prefix = nal_unit(14, b"\x80\x00\x01\x40")
        units = [stream.sets(), prefix, stream.slice("I", 0), prefix, stream.slice("I", 0, first_mb=8), prefix,
                 stream.slice("P", 2, frame_num=1)]
        self.assertEqual(self.inserted_kinds(b"".join(units), "--afd", "8", "--aud"),
                         [9, 7, 8, AFD, 14, 5, 14, 5, 9, AFD, 14, 1])

    def test_everything_else_is_copied_as_it_is(self):
        stream = Stream()
        pieces = [b"\x00\x00"] + split(stream.plain(3))
        pieces.insert(4, b"\x00\x00\x00")  # trailing zero bytes
        pieces.insert(5, nal_unit(1, b"\xcb" * 400000, start_code_length=3))
        pieces += [b"\x00\x00\x01", nal_unit(6, b"\x05\x40abc"), b"\x00\x00"]
        before = b"".join(pieces)
        result = feed("insert", before, "-o", "-", "--aud", "--end-of-sequence", "--afd", "8", "--user-data",
                      UUID + ":text")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr.decode(), r"\Ah264tool: standard input: 3 units could not be parsed, first unit "
                                                 r"4 at offset \d+\n\Z")
        after = result.stdout
        for unit in split(after):
            if len(unit) == 3 or unit in before:
                continue
            length = {9: 8, 10: 5}.get(kind_of_header(unit), len(unit))  # without zero bytes of the input behind it
            at = after.index(unit)
            after = after[:at] + after[at + length:]
        self.assertEqual(after, before)

    def test_damaged_slice_gets_nothing(self):
        stream = Stream()
        missing = Slice(Pps(stream.sps, pps_id=5), 7, unit_type=5).unit()
        before = stream.sets() + missing + stream.slice("I", 0)
        output = self.insert(before, "--afd", "8", status=1,
                             stderr="h264tool: standard input: 1 unit could not be parsed, first unit 3 at offset %d\n"
                             % len(stream.sets()))
        self.assertEqual(self.kinds(output), [7, 8, 5, AFD, 5])

    def test_damaged_slice_ends_counting(self):
        stream = Stream(timing=(1001, 60000))
        missing = Slice(Pps(stream.sps, pps_id=5), 7, unit_type=5).unit()
        before = stream.sets() + stream.slice("I", 0) + missing + stream.slice("P", 2, frame_num=1)
        with tempfile.NamedTemporaryFile("w", suffix=".scc") as scc:
            scc.write("Scenarist_SCC V1.0\n")
            scc.flush()
            for options in (("--timecode", "10:00:00:00"), ("--captions", scc.name), ("--precision-time", "0")):
                self.refuse(before, "IN: unit 4 at offset %d: picture parameter set 5, to which it refers, is missing: "
                                    "it cannot be read, so that frames cannot be counted" %
                            (len(stream.sets()) + len(stream.slice("I", 0))), *options)

    def test_data_before_the_first_start_code(self):
        stream = Stream().plain(1)
        output = self.insert(b"\x00stray" + stream, "--end-of-sequence", status=1,
                             stderr="h264tool: standard input: 5 bytes before the first start code\n")
        self.assertEqual(output, b"\x00stray" + stream + bytes.fromhex("000000010a"))

    def test_stream_without_pictures(self):
        for stream in (Stream().sets(), nal_unit(9, b"\x10")):
            self.refuse(stream, "IN: there is no picture into which something can be inserted", "--end-of-sequence")


class Delimiters(InsertTestCase):
    def primary_pic_types(self, stream):
        return [payload(unit)[0] >> 5 for unit in split(self.insert(stream, "--aud")) if kind_of_header(unit) == 9]

    def test_bytes(self):
        stream = Stream()
        slices = stream.frames(2)
        self.assertEqual(self.insert(stream.sets() + b"".join(slices), "--aud"),
                         bytes.fromhex("0000000109100000") + stream.sets() + slices[0] +
                         bytes.fromhex("0000000109300000") + slices[1])

    def test_types_of_slices(self):
        stream = Stream()
        kinds = {"I": 0, "P": 1, "B": 2, "IP": 1, "PI": 1, "IPB": 2, "IB": 2}
        pictures = b"".join(stream.slice(kind, 2 + 2 * i, first_mb=8 * j, frame_num=i, ref_idc=1)
                            for i, text in enumerate(kinds) for j, kind in enumerate(text))
        self.assertEqual(self.primary_pic_types(stream.sets() + pictures), list(kinds.values()))
        for slice_types, expected in (((9,), 3), ((9, 8), 4), ((7, 9), 5), ((7, 9, 8), 6), ((6, 8), 7), ((5, 9), 6)):
            slices = b"".join(Slice(stream.pps, kind, unit_type=1, poc_lsb=4, first_mb=8 * i).unit()
                              for i, kind in enumerate(slice_types))
            self.assertEqual(self.primary_pic_types(stream.sets() + slices), [expected])

    def test_unknown_slices(self):
        stream = Stream()
        missing = Slice(Pps(stream.sps, pps_id=5), 7, unit_type=5, first_mb=3).unit()
        for slices in (missing + stream.slice("I", 0), stream.slice("I", 0) + missing):
            result = feed("insert", stream.sets() + slices, "-o", "-", "--aud")
            self.assertEqual((result.returncode, result.stdout), (1, bytes.fromhex("0000000109f00000") + stream.sets() +
                                                                  slices))

    def test_in_front_of_what_belongs_to_the_access_unit(self):
        stream = Stream()
        first, second, third = stream.frames(3)
        sei = nal_unit(6, b"\x06\x01\xc4\x80", nal_ref_idc=0)
        filler = nal_unit(12, b"\xff\x80", nal_ref_idc=0)
        before = [stream.sets(), first, filler, sei, stream.pps.unit(), second, nal_unit(9, b"\x30"), sei, third]
        after = split(self.insert(b"".join(before), "--aud"))
        self.assertEqual([kind_of_header(unit) for unit in after], [9, 7, 8, 5, 12, 9, 6, 8, 1, 9, 6, 1])

    def test_each_field_has_one(self):
        stream = Stream(fields=0)
        fields = stream.slice("I", 0, field=0) + stream.slice("P", 1, field=1)
        self.assertEqual(self.primary_pic_types(stream.sets() + fields), [0, 1])

    def test_second_run_changes_nothing(self):
        once = self.insert(Stream().plain(5), "--aud", "--end-of-sequence")
        self.assertEqual(self.insert(once, "--aud", "--end-of-sequence"), once)

    def test_with_a_changed_parameter_set(self):
        stream = Stream(pic_struct=0)
        output = self.insert(stream.plain(1), "--aud", "--timecode", "10:00:00:00")
        self.assertEqual(self.kinds(output), [9, 7, 8, TIMING, 5])
        self.assertIn(Stream(pic_struct=1).sps.unit(), output)


class EndOfSequence(InsertTestCase):
    END = bytes.fromhex("000000010a")

    def test_at_the_end(self):
        stream = Stream().plain(2)
        for behind in (b"", b"\x00\x00", nal_unit(12, b"\xff\x80"), Stream().sets()):
            self.assertEqual(self.insert(stream + behind, "--end-of-sequence"), stream + behind + self.END)

    def test_before_the_end_of_the_stream(self):
        stream, end_of_stream = Stream().plain(2), nal_unit(11, b"", nal_ref_idc=0)
        self.assertEqual(self.insert(stream + end_of_stream + b"\x00", "--end-of-sequence"),
                         stream + self.END + end_of_stream + b"\x00")
        self.assertEqual(self.insert(stream + end_of_stream + stream, "--end-of-sequence"),
                         stream + end_of_stream + stream + self.END)

    def test_not_twice(self):
        stream, end_of_stream = Stream().plain(2), nal_unit(11, b"", nal_ref_idc=0)
        for end in (self.END, self.END + end_of_stream, b"\x00\x00\x01\x6a"):
            self.assertEqual(self.insert(stream + end, "--end-of-sequence"), stream + end)
        self.assertEqual(self.insert(stream + self.END + stream, "--end-of-sequence"),
                         stream + self.END + stream + self.END)


if __name__ == "__main__":
    runner.main()
