"""Tests of what h264tool dump shows of SEI messages, run as: dump_sei_test.py H264TOOL [unittest arguments]"""

import runner
import sei_streams
import stream_builder as build
from picture_builder import Pps, Slice
from runner import HEADER, TestCase, dump, in_order, json_lines
from sei_streams import HRD, TIMING, Stream
from stream_builder import nal_unit

import sei_writer as sei


class SeiTestCase(TestCase):
    def units(self, stream, status=0, options=()):
        """The SEI units of a stream."""
        result = dump(stream, "--json", *options)
        self.assertEqual(result.returncode, status, result.stderr)
        return [line for line in json_lines(result) if line.get("nal_unit_type") == 6]

    def messages(self, *units, sps=TIMING):
        """The messages of units in front of a picture."""
        return [message for unit in self.units(Stream(sps).idr(*units).bytes) for message in unit["sei_messages"]]

    def text(self, stream, level=6):
        result = dump(stream, "--types", "sei", "--level", str(level))
        self.assertTrue(result.stdout.decode().startswith(HEADER))
        return [line[8:] for line in result.stdout.decode().splitlines()[2:]]


class Records(SeiTestCase):
    def test_picture_timing_with_delays(self):
        timestamps = [sei.full_timestamp(23, 59, 58, 7, ct_type=1, counting_type=4, cnt_dropped_flag=1, time_offset=-3),
                      {"n_frames": 9, "seconds_value": 5, "minutes_value": 6, "nuit_field_based_flag": 1},
                      None]
        message, = self.messages(sei.unit(sei.pic_timing([(23, 1234567), (22, 7)], 5, timestamps)), sps=HRD)
        self.assertEqual(in_order(message), in_order({
            "payload_type": 1, "payload_type_name": "pic_timing", "payload_size": 22, "payload_index": 2,
            "classification": "SEI_SUID_PIC_TIMING",
            "pic_timing": {
                "cpb_removal_delay": 1234567, "dpb_output_delay": 7, "pic_struct": 5, "clock_timestamp_info": [
                    {"clock_timestamp_flag": 1, "ct_type": 1, "nuit_field_based_flag": 0, "counting_type": 4,
                     "full_timestamp_flag": 1, "discontinuity_flag": 0, "cnt_dropped_flag": 1, "n_frames": 7,
                     "seconds_value": 58, "minutes_value": 59, "hours_value": 23, "time_offset": -3},
                    {"clock_timestamp_flag": 1, "ct_type": 0, "nuit_field_based_flag": 1, "counting_type": 0,
                     "full_timestamp_flag": 0, "discontinuity_flag": 0, "cnt_dropped_flag": 0, "n_frames": 9,
                     "seconds_flag": 1, "seconds_value": 5, "minutes_flag": 1, "minutes_value": 6, "hours_flag": 0,
                     "time_offset": 0},
                    {"clock_timestamp_flag": 0}]}}))

    def test_picture_timing_without_hrd_or_structure(self):
        message, = self.messages(sei.unit(sei.pic_timing((), 0, [{"discontinuity_flag": 1}])))
        self.assertEqual(message["pic_timing"], {"pic_struct": 0, "clock_timestamp_info": [
            {"clock_timestamp_flag": 1, "ct_type": 0, "nuit_field_based_flag": 0, "counting_type": 0,
             "full_timestamp_flag": 0, "discontinuity_flag": 1, "cnt_dropped_flag": 0, "n_frames": 0,
             "seconds_flag": 0, "time_offset": 0}]})
        plain = sei_streams.sps(sei_streams.timing_vui(pic_struct=0))
        message, = self.messages(sei.unit(sei.message(1, b"")), sps=plain)
        self.assertEqual(message["pic_timing"], {})

    def test_buffering_period(self):
        schedules = [(1, 2), (16777215, 0), (5, 6)]
        message, = self.messages(sei.unit(sei.buffering_period(0, schedules)), sps=HRD)
        self.assertEqual(in_order(message["buffering_period"]), in_order({
            "seq_parameter_set_id": 0,
            "nal_hrd_parameters": {"initial_cpb_removal_delay": [1, 16777215],
                                   "initial_cpb_removal_delay_offset": [2, 0]},
            "vcl_hrd_parameters": {"initial_cpb_removal_delay": [5], "initial_cpb_removal_delay_offset": [6]}}))
        message, = self.messages(sei.unit(sei.buffering_period(0, [])))
        self.assertEqual(message["buffering_period"], {"seq_parameter_set_id": 0})

    def test_warning_about_a_buffering_period_of_another_set(self):
        unit, = self.units(Stream().idr(sei.unit(sei.buffering_period(3, []))).bytes)
        self.assertEqual(unit["warnings"], ["buffering_period refers to sequence parameter set 3, its picture to 0"])

    def test_captions(self):
        triples = [(1, 0, 0x94, 0x20), (0, 3, 0, 255), (1, 2, 1, 2)]
        message, = self.messages(sei.unit(sei.captions(triples)))
        self.assertEqual(message["classification"], "SEI_SUID_CLOSED_CAPTION")
        self.assertEqual(in_order(message["closed_captions"]), in_order({
            "itu_t_t35_country_code": 0xB5, "itu_t_t35_provider_code": 0x31, "user_identifier": 0x47413934,
            "user_data_type_code": 3, "process_cc_data_flag": 1, "cc_count": 3,
            "cc_data_pkts": [{"cc_valid": valid, "cc_type": kind, "cc_data_1": first, "cc_data_2": second}
                             for valid, kind, first, second in triples]}))

    def test_most_captions_and_other_messages_in_a_unit(self):
        """More than the library reads at a time when they are in one unit."""
        triples = [(1, 0, 0, i) for i in range(31)]
        unit, = self.units(Stream().idr(sei.unit(sei.captions(triples), sei.captions(triples[:1]), sei.afd(9),
                                                 sei.pic_timing((), 3, [None, None]))).bytes)
        captions, more, afd, timing = unit["sei_messages"]
        self.assertEqual(captions["closed_captions"]["cc_count"], 31)
        self.assertEqual(more["closed_captions"]["cc_count"], 1)
        self.assertEqual(afd["active_format_description"]["active_format"], 9)
        self.assertEqual(timing["pic_timing"]["pic_struct"], 3)
        self.assertNotIn("sei_rest", unit)

    def test_active_format(self):
        with_format, without = self.messages(sei.unit(sei.afd(10)), sei.unit(sei.afd(None)))
        self.assertEqual(with_format["classification"], "SEI_SUID_AFD")
        common = {"itu_t_t35_country_code": 0xB5, "itu_t_t35_provider_code": 0x31, "user_identifier": 0x44544731}
        self.assertEqual(in_order(with_format["active_format_description"]),
                         in_order(dict(common, active_format_flag=1, active_format=10)))
        self.assertEqual(without["active_format_description"], dict(common, active_format_flag=0))

    def test_unregistered_user_data(self):
        time, other, short = self.messages(sei.unit(sei.precision_time(1700000000123456, 0x9F)),
                                           sei.unit(sei.message(5, bytes(range(16)) + b"text")),
                                           sei.unit(sei.message(5, bytes(range(15)))))
        self.assertEqual(time["user_data_unregistered"],
                         {"uuid_iso_iec_11578": "4d495350-6d69-6372-6f73-656374696d65",
                          "precision_time_stamp": {"status": 0x9F, "microseconds": 1700000000123456,
                                                   "utc": "2023-11-14T22:13:20.123456Z"}})
        self.assertEqual(other["user_data_unregistered"],
                         {"uuid_iso_iec_11578": "00010203-0405-0607-0809-0a0b0c0d0e0f"})
        self.assertNotIn("user_data_unregistered", short)

    def test_messages_without_record(self):
        self.assertEqual(self.messages(sei.unit(sei.message(6, b"\x84"), sei.message(45, b"\x01\x02"))), [
            {"payload_type": 6, "payload_type_name": "recovery_point", "payload_size": 1, "payload_index": 2,
             "classification": "SEI_SUID_NONE"},
            {"payload_type": 45, "payload_type_name": "frame_packing_arrangement", "payload_size": 2,
             "payload_index": 5, "classification": "SEI_SUID_NONE"}])

    def test_emulation_prevention(self):
        message, = self.messages(sei.unit(sei.precision_time(0)))
        self.assertEqual(message["user_data_unregistered"]["precision_time_stamp"]["microseconds"], 0)
        message, = self.messages(sei.unit(sei.captions([(1, 0, 0, 0)] * 9 + [(1, 1, 0, 3)])))
        self.assertEqual(message["closed_captions"]["cc_data_pkts"][9]["cc_data_2"], 3)

    def test_text(self):
        lines = self.text(Stream().idr(sei.unit(sei.pic_timing((), 1, [None]), sei.afd(8))).bytes)
        self.assertEqual(lines, [
            "SEI pic_timing: payload_type=1, payload_size=1, payload_index=2, SEI_SUID_PIC_TIMING.",
            "pic_struct=1.", "clock_timestamp_info[0].clock_timestamp_flag=0.",
            "SEI user_data_registered_itu_t_t35: payload_type=4, payload_size=9, payload_index=5, SEI_SUID_AFD.",
            "itu_t_t35_country_code=181.", "itu_t_t35_provider_code=49.", "user_identifier=1146373937.",
            "active_format_flag=1.", "active_format=8."])

    def test_levels(self):
        stream = Stream().idr(sei.unit(sei.afd(8))).bytes
        self.assertEqual(self.text(stream, 4), [])
        self.assertEqual(len(self.text(stream, 5)), 1)
        self.assertIn("DetermineSEIType: We are at the end of SODB, there are no more \"sei_message\".",
                      self.text(stream, 7))


class Rest(SeiTestCase):
    def assert_rest(self, messages, found, reason, names):
        """The first messages are found; reason: why others are not."""
        unit, = self.units(Stream().idr(sei.unit(*messages)).bytes)
        self.assertEqual([message["payload_type_name"] for message in unit["sei_messages"]], names)
        self.assertEqual(["classification" in message for message in unit["sei_messages"]],
                         [i < found for i in range(len(names))])
        offset = sum(map(len, messages[:found]))
        self.assertEqual(unit["sei_rest"], {"offset": offset, "length": sum(map(len, messages)) + 1 - offset,
                                            "reason": reason})
        self.assertNotIn("warnings", unit)
        return unit["sei_messages"]

    def test_messages_of_255_bytes(self):
        long = sei.message(5, bytes(range(256)))
        for size in (255, 256, 509, 510, 511, 3000):
            self.assert_rest([sei.message(5, bytes([7] * size))], 0, "messages of 255 bytes and more are not found",
                             ["user_data_unregistered"])
        messages = self.assert_rest([sei.afd(1), long, sei.pic_timing((), 0, [None])], 1,
                                    "messages of 255 bytes and more are not found",
                                    ["user_data_registered_itu_t_t35", "user_data_unregistered", "pic_timing"])
        self.assertEqual(messages[1]["user_data_unregistered"]["uuid_iso_iec_11578"],
                         "00010203-0405-0607-0809-0a0b0c0d0e0f")
        self.assertEqual(messages[2]["pic_timing"]["pic_struct"], 0)

    def test_payload_that_begins_with_255(self):
        self.assert_rest([sei.message(2, b"\xff\x00\x00")], 0,
                         "the first byte of the payload, 255, is taken for a part of payload_size", ["pan_scan_rect"])

    def test_types_above_45(self):
        self.assert_rest([sei.message(45, b"\x00"), sei.message(47, b"\x00"), sei.message(137, b"\x01" * 24)], 1,
                         "payload_type 47 is above 45",
                         ["frame_packing_arrangement", "display_orientation", "mastering_display_colour_volume"])
        self.assert_rest([sei.message(300, b"\x01")], 0, "payload_type 300 is above 45", ["reserved_sei_message"])

    def test_other_registered_user_data(self):
        self.assert_rest([sei.message(4, b"\xb5\x00\x3c\x00\x01\x02\x03\x04\x05"), sei.afd(2)], 0,
                         "the kind of registered user data is unknown", ["user_data_registered_itu_t_t35"] * 2)

    def test_two_bytes_are_not_taken_for_a_message(self):
        self.assert_rest([sei.message(6, b"\x84"), sei.message(14, b"")], 1,
                         "two bytes and less are not taken for a message",
                         ["recovery_point", "full_frame_freeze_release"])

    def test_text(self):
        stream = Stream().idr(sei.unit(sei.message(6, b"\x84"), sei.message(47, b"\x01"))).bytes
        self.assertEqual(self.text(stream, 5), [
            "SEI recovery_point: payload_type=6, payload_size=1, payload_index=2, SEI_SUID_NONE.",
            "SEI rest: 4 bytes at 3: payload_type 47 is above 45.",
            "SEI display_orientation: payload_type=47, payload_size=1, payload_index=5."])

    def test_unit_longer_than_what_is_looked_at(self):
        unit, = self.units(Stream().idr(sei.unit(sei.afd(3), sei.message(5, bytes([7] * 70000)))).bytes)
        self.assertEqual([message["payload_size"] for message in unit["sei_messages"]], [9, 70000])
        self.assertEqual(unit["sei_rest"]["offset"], 11)


class ParameterSets(SeiTestCase):
    TIMING_MESSAGE = sei.unit(sei.pic_timing([(23, 5), (22, 6)], 0, [None]))

    def pic_timings(self, stream, status=0, options=()):
        return [unit["sei_messages"][0].get("pic_timing") for unit in self.units(stream, status, options)]

    def test_set_of_the_picture_that_follows(self):
        other = sei_streams.sps(sei_streams.timing_vui(pic_struct=0), sps_id=1)
        hrd, plain = Pps(HRD, pps_id=0), Pps(other, pps_id=1)
        sets = HRD.unit() + other.unit() + hrd.unit() + plain.unit()
        stream = (sets + self.TIMING_MESSAGE + Slice(hrd, 7, unit_type=5).unit() + self.TIMING_MESSAGE +
                  Slice(plain, 7, unit_type=5).unit() + self.TIMING_MESSAGE + Slice(hrd, 7, unit_type=5).unit())
        with_delays = {"cpb_removal_delay": 5, "dpb_output_delay": 6, "pic_struct": 0,
                       "clock_timestamp_info": [{"clock_timestamp_flag": 0}]}
        self.assertEqual(self.pic_timings(stream), [with_delays, {}, with_delays])
        self.assertEqual(self.pic_timings(stream, options=("--types", "sei")), [with_delays, {}, with_delays])

    def test_set_that_arrives_behind_the_message(self):
        stream = self.TIMING_MESSAGE + Stream(HRD).idr().bytes
        timing, = self.pic_timings(stream)
        self.assertEqual(timing["cpb_removal_delay"], 5)
        self.assertEqual([line["unit"] for line in json_lines(dump(stream, "--json"))], [1, 2, 3, 4])
        text = dump(stream).stdout.decode()
        self.assertLess(text.index("cpb_removal_delay=5."), text.index("SPS structure"))

    def test_last_or_only_set_where_no_picture_follows(self):
        timing, = self.pic_timings(HRD.unit() + self.TIMING_MESSAGE)
        self.assertEqual(timing["cpb_removal_delay"], 5)
        other = sei_streams.sps(sei_streams.timing_vui(pic_struct=0), sps_id=1)
        timing, = self.pic_timings(other.unit() + Stream(HRD).idr().bytes + self.TIMING_MESSAGE)
        self.assertEqual(timing["cpb_removal_delay"], 5)
        self.assertEqual(self.pic_timings(HRD.unit() + other.unit() + self.TIMING_MESSAGE, status=1), [None])

    def test_missing_set(self):
        for message, name in ((sei.pic_timing((), 0, [None]), "pic_timing"),
                              (sei.buffering_period(0, []), "buffering_period")):
            unit, = self.units(sei.unit(message), status=1)
            self.assertEqual(unit["error"], name + " message cannot be parsed: its sequence parameter set is missing")
        self.units(sei.unit(sei.afd(1)))

    def test_what_is_held_back_is_bounded(self):
        filler = nal_unit(12, b"\xff" * 10 + b"\x80", nal_ref_idc=0)
        stream = HRD.unit() + self.TIMING_MESSAGE + filler * 5000 + Pps(HRD).unit()
        result = dump(stream, "--json")
        self.assert_result(result, 0, "")
        self.assertEqual([line["unit"] for line in json_lines(result)], list(range(1, 5004)))
        units = self.units(HRD.unit() + sei.unit(sei.message(5, bytes([7] * 60000))) * 50)
        self.assertEqual(len(units), 50)


class Damage(SeiTestCase):
    def damage(self, unit, sps=TIMING):
        """The last line of a dump; the unit alone must be damaged."""
        result = dump(Stream(sps).idr(unit).bytes, "--json")
        self.assertEqual(result.returncode, 1)
        lines = json_lines(result)
        self.assertEqual([line["nal_unit_type"] for line in lines if "error" in line], [6])
        self.assertIn(b"1 unit could not be parsed, first unit 3 at offset", result.stderr)
        return lines[2]

    def test_message_that_runs_past_the_end(self):
        shown = self.damage(sei.unit(sei.afd(4), b"\x06\x05\x84"))
        self.assertEqual(shown["error"], "SEI message at 11 runs past the end of the unit")
        self.assertEqual(shown["sei_messages"][0]["active_format_description"]["active_format"], 4)
        self.assertEqual(shown["sei_rest"], {"offset": 11, "length": 4})

    def test_unit_without_message(self):
        self.assertEqual(self.damage(nal_unit(6, b"\x80", nal_ref_idc=0))["error"], "SEI unit without a message")
        self.assertEqual(self.damage(nal_unit(6, b"", nal_ref_idc=0))["error"], "SEI unit without a message")

    def test_records_that_cannot_be_parsed(self):
        shown = self.damage(sei.unit(sei.pic_timing((), 9)))
        self.assertEqual(shown["error"], "pic_timing message cannot be parsed")
        shown = self.damage(sei.unit(sei.pic_timing([(23, 1)])), sps=HRD)
        self.assertEqual(shown["messages"][0], "cannot parse dpb_output_delay.")
        shown = self.damage(sei.unit(sei.buffering_period(0, [(1, 2)])), sps=HRD)
        self.assertEqual(shown["error"], "buffering_period message cannot be parsed")
        shown = self.damage(sei.unit(sei.message(4, sei.ATSC + b"GA94\x03\xc3\xff\xfc")))
        self.assertEqual(shown["error"], "closed_captions message cannot be parsed")
        shown = self.damage(sei.unit(sei.message(4, sei.ATSC + b"DTG1\x41")))
        self.assertEqual(shown["error"], "active_format_description message cannot be parsed")
        shown = self.damage(sei.unit(sei.message(5, sei.PRECISION_TIME + bytes(11))))
        self.assertEqual(shown["error"], "precision time stamp ends inside its time")

    def test_record_longer_than_can_be_parsed(self):
        shown = self.damage(sei.unit(sei.message(1, b"\x90" + b"\x55" * 300)), sps=TIMING)
        self.assertEqual(shown["error"], "pic_timing message too long: a unit of 306 bytes, 256 can be parsed")

    def test_damage_before_a_damaged_unit_of_its_picture_comes_first(self):
        stream = Stream()
        stream.bytes += sei.unit(b"\x06\x05\x84") + b"\x00\x00\x01\x67"
        result = dump(stream.idr().bytes)
        self.assert_result(result, 1, "h264tool: standard input: 2 units could not be parsed, first unit 3 at offset "
                                      "%d\n" % len(Stream().bytes))

    def test_every_start_of_a_unit(self):
        unit = sei.unit(sei.pic_timing([(23, 5), (22, 6)], 5, [sei.full_timestamp(1, 2, 3, 4)] * 3),
                        sei.captions([(1, 0, 1, 2)] * 20), sei.afd(3), sei.precision_time(77),
                        sei.message(5, bytes(300)))
        for size in range(4, len(unit)):
            stream = Stream(HRD)
            stream.bytes += unit[:size]
            self.assertIn(dump(stream.idr().bytes, "--json").returncode, (0, 1), size)


if __name__ == "__main__":
    runner.main()
