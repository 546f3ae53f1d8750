// Rewriting the VUI of whole sequence parameter set units.
#include "sps_rewrite_check.h"

namespace {

using test::behind_start_code;
using test::Bits;
using test::bits_of;
using test::Bytes;
using test::Log;
using test::part;
using test::record_of;
using test::Rewritten;
using test::SpsSyntax;
using test::with_vui;
using Texts = std::vector<std::string>;

constexpr const char* kName = "H264Lib_Set_sps_vui_parameters_NAL";

using SpsRewrite = test::SpsRewriteTest;

// Every shape of VUI behind both start codes. Scaling lists would make units for which there may be no room.
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
        EXPECT_EQ(wanted.script().bits().bits(), sps.script().bits().bits() + 65);
        const auto read = record_of(wanted);
        EXPECT_EQ(read->vui.MaxFPS, 30);
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
    EXPECT_EQ(test::assertions(), Texts{"StopBitPos >= 0"});
}

// An SPS that grows by 7 bits with each of its offset_for_ref_frame, with a VUI in which nothing is present.
SpsSyntax growing_sps() {
    SpsSyntax sps = with_vui();
    sps.pic_order_cnt_type = 1;
    return sps;
}
constexpr std::int64_t kSevenBits = -7;

// From 225 bytes of payload on the destination's capacity is asserted, and the call goes on. Longer payloads do not
// find the room that the encapsulation wants: the unit has its header alone then.
TEST_F(SpsRewrite, LongUnits) {
    unsigned complete = 0;
    unsigned header_only = 0;
    unsigned refused = 0;
    SpsSyntax sps = growing_sps();
    for (Bytes unit = sps.unit(); behind_start_code(unit).size() <= 256; unit = sps.unit()) {
        for (const bool adds_timing : {false, true}) {
            const auto record = record_of(sps);
            SpsSyntax wanted = sps;
            wanted.vui.timing_info_present_flag = adds_timing;
            set_head(record->vui, wanted.vui);
            const std::size_t payload = sps.rbsp().size();
            const std::size_t made = test::rewritten(bits_of(sps.rbsp()), *record).size() / 8;
            const Rewritten rewritten(unit, record.get());
            EXPECT_EQ(
                test::assertions(),
                payload > 224 ? Texts{"NewSpsSodbLength >= (SpsSodbLength + MIN_VUI_PARAMETERS_SIZE_BYTES)"} : Texts{});
            if (made > 256) {
                EXPECT_EQ(rewritten.result, FALSE);
                EXPECT_TRUE(rewritten.outputs_cleared());
                ASSERT_EQ(rewritten.log.size(), 2U);
                EXPECT_EQ(rewritten.log[0].func, "_set_sps_vui_parameters");
                EXPECT_EQ(rewritten.log[1], (test::LogLine{3, kName, "Failed to set vui parameters SPS NAL!"}));
                ++refused;
                continue;
            }
            EXPECT_EQ(rewritten.result, TRUE);
            EXPECT_EQ(rewritten.made, test::rewritten_unit(unit, sps.rbsp(), *record));
            if (rewritten.made.size() > 5) {
                EXPECT_EQ(rewritten.log, Log{});
                ++complete;
            } else {
                EXPECT_GT(behind_start_code(unit).size(), 64U);
                ASSERT_EQ(rewritten.log.size(), 1U);
                EXPECT_EQ(rewritten.log[0].func, "RBSP_encapsulation_within_NAL");
                ++header_only;
            }
        }
        sps.offset_for_ref_frame.push_back(kSevenBits);
    }
    EXPECT_GT(complete, 100U);
    EXPECT_GT(header_only, 50U);
    EXPECT_GT(refused, 3U);
}

// The longest head for the shortest one, in units of up to 64 bytes.
TEST_F(SpsRewrite, UnitsOfUpTo64BytesAlwaysHaveRoom) {
    for (SpsSyntax sps = growing_sps(); behind_start_code(sps.unit()).size() <= 64;
         sps.offset_for_ref_frame.push_back(kSevenBits)) {
        for (const std::uint64_t value : {0x7FFFFFFFULL, 0xFFFFFFFEULL}) {
            SpsSyntax wanted = sps;
            wanted.vui = test::full_vui();
            wanted.vui.nal_hrd_parameters_present_flag = wanted.vui.vcl_hrd_parameters_present_flag = false;
            wanted.vui.pic_struct_present_flag = wanted.vui.bitstream_restriction_flag = false;
            wanted.vui.chroma_sample_loc_type_top_field = value;
            wanted.vui.chroma_sample_loc_type_bottom_field = value;
            wanted.vui.num_units_in_tick = wanted.vui.time_scale = 0;
            for (const int start_code : {3, 4}) expect_rewritten(sps, wanted, start_code);
        }
    }
}

}  // namespace
