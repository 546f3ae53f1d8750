// Rewriting the VUI of whole sequence parameter set units. What concerns their room: sps_rewrite_room_test.cpp.
#include "sps_rewrite_check.h"
#include "trace_text.h"

namespace {

using test::behind_start_code;
using test::Bits;
using test::bits_of;
using test::Bytes;
using test::part;
using test::record_of;
using test::Rewritten;
using test::SpsSyntax;
using test::with_vui;
using Texts = std::vector<std::string>;

using SpsRewrite = test::SpsRewriteTest;

// Every shape of VUI behind both start codes. For units with scaling lists there may be no room: they come next.
TEST_F(SpsRewrite, AnyShape) {
    test::Random random(6);
    unsigned escapes_in_tail = 0;
    unsigned zero_bytes_at_end = 0;
    for (unsigned round = 0; round < 2 * test::kHeadShapes * test::kTailShapes && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const std::size_t variant = test::sps_variants()[round % 13].sps.seq_scaling_matrix_present_flag ? 0 : round;
        const SpsSyntax sps = test::shaped_sps(variant, round, round / test::kHeadShapes, random);
        const int start_code = round < test::kHeadShapes * test::kTailShapes ? 3 : 4;
        const auto record = record_of(sps);
        const auto start = static_cast<std::size_t>(record->vui_parameters_present_offset);
        const auto tail = static_cast<std::size_t>(record->vui.nal_hrd_parameters_present_offset);
        const Bits source = bits_of(sps.rbsp());
        const auto expect_same_around = [&](const SpsSyntax& wanted, const Bytes& payload) {
            const Bits bits = bits_of(payload);
            const auto new_tail = static_cast<std::size_t>(record_of(wanted)->vui.nal_hrd_parameters_present_offset);
            EXPECT_EQ(part(bits, 0, start), part(source, 0, start));
            const std::size_t end = new_tail + source.size() - tail;
            EXPECT_EQ(part(bits, new_tail, end), part(source, tail));
            EXPECT_EQ(bits.size(), (end + 7) / 8 * 8);
            EXPECT_EQ(part(bits, end), Bits(bits.size() - end, false));
        };

        // Nothing changed.
        const Bytes same = expect_rewritten(sps, sps, start_code);
        EXPECT_EQ(same, sps.rbsp());

        // Timing alone.
        SpsSyntax timed = sps;
        timed.vui.timing_info_present_flag = random() % 3 != 0;
        timed.vui.num_units_in_tick = test::some_value(random, 32);
        timed.vui.time_scale = test::some_value(random, 32);
        timed.vui.fixed_frame_rate_flag = test::coin(random);
        expect_same_around(timed, expect_rewritten(sps, timed, start_code));

        // Any other head.
        SpsSyntax other = sps;
        test::set_head_shape(other.vui, random() % test::kHeadShapes, random);
        const Bytes payload = expect_rewritten(sps, other, start_code);
        expect_same_around(other, payload);

        const Bytes last_part(payload.begin() + record_of(other)->vui.nal_hrd_parameters_present_offset / 8,
                              payload.end());
        if (test::emulation_prevented(last_part) != last_part) ++escapes_in_tail;
        if (payload.back() == 0) ++zero_bytes_at_end;
    }
    EXPECT_GT(escapes_in_tail, 100U);
    EXPECT_GT(zero_bytes_at_end, 50U);
}

TEST_F(SpsRewrite, AnyShapeWithScalingLists) {
    test::Random random(8);
    unsigned complete = 0;
    unsigned header_only = 0;
    for (const unsigned variant : {6U, 7U})
        for (unsigned round = variant % 2; round < test::kHeadShapes * test::kTailShapes && !HasFailure(); round += 2) {
            SCOPED_TRACE(round);
            const SpsSyntax sps = test::shaped_sps(variant, round, round / test::kHeadShapes, random);
            ASSERT_TRUE(sps.seq_scaling_matrix_present_flag);
            SpsSyntax wanted = sps;
            test::set_head_shape(wanted.vui, random() % test::kHeadShapes, random);
            const auto record = record_of(sps);
            set_head(record->vui, wanted.vui);
            const Bytes unit = sps.unit(round / 2 % 2 == 0 ? 3 : 4);
            const Rewritten rewritten(unit, record.get());
            EXPECT_EQ(rewritten.result, TRUE);
            EXPECT_EQ(rewritten.made, test::rewritten_unit(unit, sps.rbsp(), *record));
            EXPECT_EQ(test::assertions(), Texts{});
            if (behind_start_code(rewritten.made).size() == 1) {
                ++header_only;
                continue;
            }
            ++complete;
            const auto read = test::filled_record(0);
            EXPECT_EQ(parse_sps_nal(rewritten.made.data(), static_cast<int>(rewritten.made.size()), read.get()), TRUE);
            EXPECT_EQ(test::difference(*read, *record_of(wanted)), "");
        }
    EXPECT_GT(complete, 500U);
    EXPECT_LT(header_only, 20U);
}

// The bits in front of the stop bit.
std::size_t bits_before_stop(const Bytes& payload) {
    Bits bits = bits_of(payload);
    while (!bits.back()) bits.pop_back();
    return bits.size() - 1;
}

TEST_F(SpsRewrite, AddedTimingTakes65Bits) {
    for (const bool hrd : {false, true}) {
        SpsSyntax sps = with_vui();
        if (hrd) {
            sps.vui = test::full_vui();
            sps.vui.timing_info_present_flag = false;
        }
        SpsSyntax wanted = sps;
        wanted.vui.timing_info_present_flag = true;
        wanted.vui.num_units_in_tick = 1001;
        wanted.vui.time_scale = 60000;
        const Bytes payload = expect_rewritten(sps, wanted, 4);
        EXPECT_EQ(bits_before_stop(payload), bits_before_stop(sps.rbsp()) + 65);
        // From nal_hrd_parameters_present_flag on, all bits are the input's.
        const auto from = static_cast<std::size_t>(record_of(sps)->vui.nal_hrd_parameters_present_offset);
        const Bits tail = part(bits_of(sps.rbsp()), from);
        EXPECT_EQ(part(bits_of(payload), from + 65, from + 65 + tail.size()), tail);
    }
}

// The stop bit may fall into the byte before the last one, and the next rewrite then misses it.
TEST_F(SpsRewrite, TheNewUnitMayEndInAZeroByte) {
    SpsSyntax sps = with_vui();
    sps.vui.bitstream_restriction_flag = true;
    while (sps.rbsp().back() != 0x80) sps.seq_parameter_set_id = 2 * sps.seq_parameter_set_id + 1;
    const auto record = record_of(sps);
    record->vui.overscan_info_present_flag = 1;
    const Rewritten rewritten(sps.unit(), record.get());
    ASSERT_EQ(rewritten.result, TRUE);
    EXPECT_EQ(rewritten.made.back(), 0);
    EXPECT_EQ(test::assertions(), Texts{});
    const auto read = test::filled_record(0);
    ASSERT_EQ(parse_sps_nal(rewritten.made.data(), static_cast<int>(rewritten.made.size()), read.get()), TRUE);
    const Rewritten again(rewritten.made, read.get());
    EXPECT_EQ(again.result, TRUE);
    EXPECT_EQ(again.made, rewritten.made);
    EXPECT_EQ(test::assertions(), Texts{"StopBitPos >= 0"});
}

// The destination is an area of 256 zeros before it is written.
TEST_F(SpsRewrite, TheWholeDestinationIsDumped) {
    for (unsigned shape = 0; shape < test::kHeadShapes; ++shape) {
        test::Random random(shape);
        const SpsSyntax sps = test::shaped_sps(0, shape, shape, random);
        const auto record = record_of(sps);
        const Rewritten rewritten(sps.unit(), record.get(), 6);
        EXPECT_EQ(rewritten.result, TRUE);
        Bytes area = sps.rbsp();
        ASSERT_EQ(rewritten.log.size(), 1U);
        EXPECT_EQ(rewritten.log[0].level, 5);
        EXPECT_EQ(rewritten.log[0].func, "_DisplayBitBuffer");
        void* address = nullptr;
        int bits = 0, offset = 0, byte = 0;
        EXPECT_TRUE(test::parse_trace(rewritten.log[0].text,
                                      "FINAL NEW SODB SPS BB Addr=%p, NumBits=%d Current Bit Offset=%d (Byte=%d, "
                                      "BitOfByte=0).",
                                      &address, &bits, &offset, &byte));
        EXPECT_EQ(bits, 2048);
        EXPECT_EQ(offset, static_cast<int>(8 * area.size()));
        area.resize(256, 0);
        ASSERT_EQ(test::records().dumps.size(), 1U);
        EXPECT_EQ(test::records().dumps[0].level, 6);
        EXPECT_EQ(test::records().dumps[0].label, "Bitbuffer data");
        EXPECT_EQ(test::records().dumps[0].bytes, area);
    }
}

}  // namespace
