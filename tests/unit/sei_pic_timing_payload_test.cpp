// The payload that the rewriter of picture timing messages writes.
#include <climits>
#include <set>

#include "pic_timing_rewrite_model.h"

#include "h264d/h264d.h"

namespace {

using test::BitWriter;
using test::Bytes;
using test::full_timing;
using test::GuardedBuffer;
using test::Lines;
using test::reader_lines;
using test::RewriteModel;
using test::RewriteSps;
using test::text;

constexpr unsigned kUntouched = 777;  // above every capacity

struct Written {
    int result;
    Bytes area;
    unsigned position;
    unsigned length = kUntouched;

    Written(const RewriteSps& shape, const sei_pic_timing_t& pt, const Bytes& before, std::size_t bits) {
        GuardedBuffer memory(before);
        bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(bits)};
        const std::unique_ptr<sps_t> sps = shape.sps();
        test::clear();
        result = _set_sei_pictiming_parameters(sps.get(), &pt, &bb, &length);
        area = memory.bytes();
        position = bb.bit_offset;
    }
};

class PicTimingPayload : public test::WriterTest {
protected:
    static void expect_written(const RewriteSps& shape, const sei_pic_timing_t& pt, std::size_t bits = 256) {
        const Bytes before((bits + 7) / 8, 0x5A);
        const RewriteModel model(shape, pt, bits);
        const Written written(shape, pt, before, bits);
        EXPECT_EQ(written.result, model.result);
        EXPECT_EQ(written.area, model.area(before));
        EXPECT_EQ(written.position, model.bits.size());
        EXPECT_EQ(written.length, model.payload_bytes < 0 ? kUntouched : static_cast<unsigned>(model.payload_bytes));
        EXPECT_EQ(test::assertions(), model.assertions);
        Lines lines = model.lines;
        if (g_hH264LibDbg->nMaxLevel < 8) lines = test::up_to(g_hH264LibDbg->nMaxLevel, lines);
        EXPECT_EQ(reader_lines(), lines);
    }
    // The payload and the byte behind it, without the rest of the area.
    static Bytes payload(const RewriteSps& shape, const sei_pic_timing_t& pt) {
        const Written written(shape, pt, Bytes(32, 0), 256);
        EXPECT_GT(written.result, 0);
        return {written.area.begin(), written.area.begin() + std::max(written.result, 0)};
    }
    static RewriteSps nal_and_vcl() {
        RewriteSps sps;
        sps.nal_present = sps.vcl_present = 1;
        sps.nal = {30, 16, 7};
        sps.vcl = {7, 25, 31};
        return sps;
    }
};

// A full timestamp of full_timing() behind its flag; time_offset is not written.
BitWriter& head_of_clock(BitWriter& bits, unsigned n_frames = 0xA7) {
    return bits.u(1, 1).u(2, 2).u(1, 0).u(5, 21).u(1, 1).u(1, 0).u(1, 1).u(8, n_frames);
}

TEST_F(PicTimingPayload, NothingToWrite) {
    RewriteSps sps;
    sps.pic_struct_present = 0;
    expect_written(sps, full_timing(3));
    EXPECT_EQ(payload(sps, full_timing(3)), Bytes{0x80});
    EXPECT_EQ(Written(sps, full_timing(3), Bytes(32, 0), 256).length, 0U);
}

TEST_F(PicTimingPayload, FullTimestampsHave17BitsAndNoFlags) {
    RewriteSps sps;
    sps.nal.time_offset = sps.vcl.time_offset = 0;
    BitWriter bits;
    head_of_clock(bits.u(4, 0)).u(6, 37).u(6, 42).u(5, 19).trailing();  // 41 bits
    EXPECT_EQ(payload(sps, full_timing()), test::join(bits.bytes(), {0x80}));
    sei_pic_timing_t pt = full_timing();
    // The flags of the record play no part.
    for (int flags = 0; flags < 8; ++flags) {
        pt.clock_timestamp_info[0].seconds_flag = flags & 1;
        pt.clock_timestamp_info[0].minutes_flag = flags >> 1 & 1;
        pt.clock_timestamp_info[0].hours_flag = flags >> 2;
        EXPECT_EQ(payload(sps, pt), test::join(bits.bytes(), {0x80}));
    }
}

TEST_F(PicTimingPayload, PartialTimestamps) {
    RewriteSps sps;
    sps.nal.time_offset = sps.vcl.time_offset = 0;
    sei_pic_timing_t pt = full_timing();
    clock_timestamp_info_t& clock = pt.clock_timestamp_info[0];
    clock.full_timestamp_flag = 0;
    const auto expected = [](const BitWriter& time) {
        BitWriter bits;
        bits.u(4, 0).u(1, 1).u(2, 2).u(1, 0).u(5, 21).u(1, 0).u(1, 0).u(1, 1).u(8, 0xA7);
        for (std::size_t k = 0; k < time.bits(); ++k) bits.u(1, time.bytes()[k / 8] >> (7 - k % 8) & 1U);
        if (bits.bits() % 8 != 0) bits.trailing();
        return test::join(bits.bytes(), {0x80});
    };
    EXPECT_EQ(payload(sps, pt), expected(BitWriter().u(1, 1).u(6, 37).u(1, 1).u(6, 42).u(1, 1).u(5, 19)));
    clock.hours_flag = 0;
    EXPECT_EQ(payload(sps, pt), expected(BitWriter().u(1, 1).u(6, 37).u(1, 1).u(6, 42).u(1, 0)));
    clock.minutes_flag = 0;
    EXPECT_EQ(payload(sps, pt), expected(BitWriter().u(1, 1).u(6, 37).u(1, 0)));
    clock.hours_flag = 1;
    EXPECT_EQ(payload(sps, pt), expected(BitWriter().u(1, 1).u(6, 37).u(1, 0)));
    clock.seconds_flag = 0;
    EXPECT_EQ(payload(sps, pt), expected(BitWriter().u(1, 0))) << "a single 0 bit";
    clock.minutes_flag = 1;
    EXPECT_EQ(payload(sps, pt), expected(BitWriter().u(1, 0)));
}

TEST_F(PicTimingPayload, TheTimeOffsetOfAnHrdThatIsNotThere) {
    RewriteSps sps;
    sps.nal_present = 1;
    sps.nal = {7, 7, 0};
    sps.vcl.time_offset = 24;
    BitWriter bits;
    head_of_clock(bits.u(8, 0xF1).u(8, 0x67).u(4, 0)).u(17, 37U << 11 | 42U << 5 | 19).u(24, 0xFFFFFD).trailing();
    EXPECT_EQ(payload(sps, full_timing()), test::join(bits.bytes(), {0x80}));
}

TEST_F(PicTimingPayload, AlignmentBelongsToThePayload) {
    RewriteSps sps = nal_and_vcl();
    sps.pic_struct_present = 0;
    for (unsigned extra = 0; extra < 8; ++extra) {
        sps.nal = {7, 8 + extra, 0};
        sei_pic_timing_t pt = full_timing();
        pt.cpb_removal_delay = pt.dpb_output_delay = 0;
        const Written written(sps, pt, Bytes(32, 0xFF), 256);
        // 17 bits and more: a one and zeros inside the payload, and none where it ends on a byte boundary.
        Bytes expected = {0, 0, static_cast<unsigned char>(extra == 7 ? 0 : 0x40 >> extra), 0x80};
        expected.resize(32, 0xFF);
        EXPECT_EQ(written.area, expected);
        EXPECT_EQ(written.length, 3U);
        EXPECT_EQ(written.result, 4);
    }
}

TEST_F(PicTimingPayload, WhenDelaysAreWritten) {
    for (const int vui : {0, 1, 2})
        for (const int nal : {0, 1, 2})
            for (const int vcl : {0, 1, 2})
                for (const int delays : {0, 1})
                    for (const int pic_struct : {0, 1, 2}) {
                        RewriteSps sps = nal_and_vcl();
                        sps.vui_present = vui;
                        sps.nal_present = nal;
                        sps.vcl_present = vcl;
                        sps.delays_present = delays;
                        sps.pic_struct_present = pic_struct;
                        expect_written(sps, full_timing());
                    }
}

TEST_F(PicTimingPayload, LengthsOfTheDelays) {
    for (unsigned minus1 = 0; minus1 < 256; ++minus1)
        for (const int nal : {0, 1}) {
            RewriteSps sps = nal_and_vcl();
            sps.nal_present = nal;
            sps.pic_struct_present = 0;
            (nal != 0 ? sps.nal : sps.vcl).cpb_minus1 = minus1;
            expect_written(sps, full_timing());
            (nal != 0 ? sps.nal : sps.vcl) = {11, minus1, 0};
            expect_written(sps, full_timing());
        }
}

TEST_F(PicTimingPayload, LengthsOfTheTimeOffset) {
    for (unsigned length = 0; length < 256; ++length)
        for (const unsigned other : {0U, 1U, 13U})
            for (const long offset : {-3L, 0L, LONG_MAX, LONG_MIN}) {
                RewriteSps sps;
                sps.nal.time_offset = length;
                sps.vcl.time_offset = other;
                sei_pic_timing_t pt = full_timing();
                pt.clock_timestamp_info[0].time_offset = offset;
                expect_written(sps, pt);
                std::swap(sps.nal, sps.vcl);
                expect_written(sps, pt);
            }
}

TEST_F(PicTimingPayload, AtMostThreeTimestamps) {
    RewriteSps sps;
    sps.nal.time_offset = 4;
    const Bytes three = payload(sps, full_timing(3));
    const Bytes none = payload(sps, full_timing(0));
    for (const int count : {4, 5, 1000, INT_MAX}) {
        sei_pic_timing_t pt = full_timing(3);
        pt.NumClockTS = count;
        expect_written(sps, pt);
        EXPECT_EQ(payload(sps, pt), three);
    }
    for (const int count : {0, -1, INT_MIN}) {
        sei_pic_timing_t pt = full_timing(0);
        pt.NumClockTS = count;
        expect_written(sps, pt);
        EXPECT_EQ(payload(sps, pt), none);
    }
    // The count is not that of the pic_struct.
    for (unsigned pic_struct = 0; pic_struct < 256; ++pic_struct)
        for (const int count : {1, 2, 3}) {
            sei_pic_timing_t pt = full_timing(count);
            pt.pic_struct = static_cast<unsigned char>(pic_struct);
            expect_written(sps, pt);
        }
}

TEST_F(PicTimingPayload, TimestampsThatAreNotThere) {
    for (int flags = 0; flags < 8; ++flags) {
        sei_pic_timing_t pt = full_timing(3);
        for (int i = 0; i < 3; ++i) pt.clock_timestamp_info[i].clock_timestamp_flag = flags >> i & 1;
        expect_written(RewriteSps(), pt);
    }
}

TEST_F(PicTimingPayload, ValuesLoseTheirHighBitsAndFlagsAreReported) {
    sei_pic_timing_t pt = full_timing(2);
    for (clock_timestamp_info_t& c : pt.clock_timestamp_info) {
        c.ct_type = c.counting_type = c.seconds_value = c.minutes_value = c.hours_value = 0xFE;
        c.full_timestamp_flag = 0;
    }
    expect_written(RewriteSps(), pt);
    EXPECT_EQ(test::assertions(), std::vector<std::string>{});
    using Flag = int clock_timestamp_info_t::*;
    for (const Flag flag :
         {&clock_timestamp_info_t::clock_timestamp_flag, &clock_timestamp_info_t::nuit_field_based_flag,
          &clock_timestamp_info_t::full_timestamp_flag, &clock_timestamp_info_t::discontinuity_flag,
          &clock_timestamp_info_t::cnt_dropped_flag, &clock_timestamp_info_t::seconds_flag,
          &clock_timestamp_info_t::minutes_flag, &clock_timestamp_info_t::hours_flag})
        for (const int value : {2, -1, INT_MIN}) {
            sei_pic_timing_t odd = pt;
            odd.clock_timestamp_info[1].*flag = value;
            expect_written(RewriteSps(), odd);
            ASSERT_EQ(test::records().assertions.size(), 1U);
            const test::Assertion& assertion = test::records().assertions[0];
            EXPECT_EQ(assertion.expression, "value < 2");
            EXPECT_EQ(assertion.caller_func, "_set_sei_pictiming_parameters");
            EXPECT_EQ(assertion.caller_file, "h264d.c");
        }
}

TEST_F(PicTimingPayload, EveryElementMayHaveNoRoom) {
    std::set<std::string> failures;
    for (const int level : {8, 3})
        for (const int full : {0, 1})
            for (const unsigned dpb_minus1 : {16U, 17U, 22U}) {
                test::set_level(level);
                RewriteSps sps = nal_and_vcl();
                sps.nal.dpb_minus1 = dpb_minus1;
                sei_pic_timing_t pt = full_timing(3);
                pt.clock_timestamp_info[2].full_timestamp_flag = full;
                pt.clock_timestamp_info[1].clock_timestamp_flag = 0;
                const std::size_t all = 8 * static_cast<std::size_t>(RewriteModel(sps, pt).result);
                for (std::size_t bits = 0; bits <= all && !HasFailure(); ++bits) {
                    expect_written(sps, pt, bits);
                    for (const std::string& line : test::up_to(3, reader_lines())) failures.insert(line);
                }
            }
    std::set<std::string> expected;
    for (const std::string element :
         {"cpb_removal_delay", "dpb_output_delay", "pic_struct", "clock_timestamp_flag", "ct_type",
          "nuit_field_based_flag", "counting_type", "full_timestamp_flag", "discontinuity_flag", "cnt_dropped_flag",
          "n_frames", "time_offset_length", "stop_bit", "padding bit", "rbsp trailing bits"})
        expected.insert("3 _set_sei_pictiming_parameters: Failed to set " + element + ".");
    EXPECT_EQ(failures, expected);
}

TEST_F(PicTimingPayload, TheTimeFailsUnderTwoNames) {
    RewriteSps sps;
    sps.nal.time_offset = 0;
    sps.vcl.time_offset = 0;
    sei_pic_timing_t pt = full_timing();
    const auto failure = [&](std::size_t bits) {
        EXPECT_EQ(Written(sps, pt, Bytes((bits + 7) / 8, 0), bits).result, -1);
        return test::up_to(3, reader_lines());
    };
    const Lines value = {"3 _set_sei_pictiming_parameters: Failed to set n_frames."};
    const Lines flag = {"3 _set_sei_pictiming_parameters: Failed to set cnt_dropped_flag."};
    for (const std::size_t bits : {24U, 30U, 36U}) EXPECT_EQ(failure(bits), value) << bits;
    pt.clock_timestamp_info[0].full_timestamp_flag = 0;
    for (const std::size_t bits : {25U, 32U, 39U}) EXPECT_EQ(failure(bits), value) << bits;
    for (const std::size_t bits : {24U, 31U, 38U}) EXPECT_EQ(failure(bits), flag) << bits;
}

TEST_F(PicTimingPayload, DisplaysWhatItWrote) {
    const Written written(nal_and_vcl(), full_timing(), Bytes(32, 0), 256);
    ASSERT_EQ(test::records().dumps.size(), 1U);
    const test::Dump& dump = test::records().dumps[0];
    EXPECT_EQ(dump.label, "Bitbuffer data");
    EXPECT_EQ(dump.level, 6);
    EXPECT_EQ(dump.bytes, written.area);
    const std::vector<std::string> shown = test::texts(5);
    ASSERT_EQ(shown.size(), 1U);
    EXPECT_EQ(shown[0].find("FINAL NEW SODB SEI BB Addr="), 0U);
    EXPECT_NE(shown[0].find(text(", NumBits=256 Current Bit Offset=%u (Byte=%u, BitOfByte=0).", written.position,
                                 written.position / 8)),
              std::string::npos);
    const test::Message* last = test::find(text("Final new SEI num_bits:%u, PayloadBytes:%d, TotalBytes:%d.",
                                                written.position, written.result - 1, written.result));
    ASSERT_NE(last, nullptr);
    EXPECT_LT(dump.order, last->order);
}

TEST_F(PicTimingPayload, Preconditions) {
    const std::unique_ptr<sps_t> sps = RewriteSps().sps();
    const sei_pic_timing_t pt = full_timing();
    for (unsigned missing = 0; missing < 16; ++missing)
        for (const unsigned capacity : {0U, 31U, 32U, UINT_MAX}) {
            GuardedBuffer memory(Bytes(32, 0x5A));
            bitbuffer_t bb{memory.data(), 0, 256};
            unsigned length = capacity;
            test::clear();
            const int result = _set_sei_pictiming_parameters(
                (missing & 1) != 0 ? nullptr : sps.get(), (missing & 2) != 0 ? nullptr : &pt,
                (missing & 4) != 0 ? nullptr : &bb, (missing & 8) != 0 ? nullptr : &length);
            // Too small a capacity is reported, and the area's own size holds.
            EXPECT_EQ(result, missing == 0 ? RewriteModel(RewriteSps(), pt).result : -1);
            std::vector<std::string> expected;
            if ((missing & 1) != 0) expected.emplace_back("sps != NULL");
            if ((missing & 2) != 0) expected.emplace_back("pt != NULL");
            if ((missing & 4) != 0) expected.emplace_back("new_sei_nalu_bb != NULL");
            if ((missing & 8) != 0) {
                expected.emplace_back("pNewSEISodbLength != NULL");
            } else if (capacity < 32) {
                expected.emplace_back("*pNewSEISodbLength >= H264_MAX_SEI_PICTIMING_SIZE_BYTES");
            }
            EXPECT_EQ(test::assertions(), expected);
            for (const test::Assertion& assertion : test::records().assertions) {
                EXPECT_EQ(assertion.func, "_set_sei_pictiming_parameters");
                EXPECT_EQ(assertion.file, "h264d.c");
            }
            if (missing != 0) {
                EXPECT_EQ(memory.bytes(), Bytes(32, 0x5A));
                EXPECT_EQ(length, capacity);
            }
        }
}

TEST_F(PicTimingPayload, LevelsChangeNothing) {
    for (const int count : {0, 1, 3})
        for (const unsigned offset : {0U, 1U, 24U, 33U})
            for (std::size_t bits = 0; bits <= 256; bits += 3) {
                RewriteSps shape = nal_and_vcl();
                shape.nal.time_offset = offset;
                const std::unique_ptr<sps_t> sps = shape.sps();
                const sei_pic_timing_t pt = full_timing(count);
                test::expect_same_at_all_levels([&] {
                    GuardedBuffer memory(Bytes((bits + 7) / 8, 0xC3));
                    bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(bits)};
                    unsigned length = 32;
                    const int result = _set_sei_pictiming_parameters(sps.get(), &pt, &bb, &length);
                    const Bytes after = memory.bytes();
                    return text("%d %u %u ", result, length, bb.bit_offset) + std::string(after.begin(), after.end());
                });
            }
}

}  // namespace
