// For which sequence parameter set units a rewritten VUI has room.
#include "sps_rewrite_check.h"

namespace {

using test::behind_start_code;
using test::bits_of;
using test::Bytes;
using test::Log;
using test::record_of;
using test::Rewritten;
using test::SpsSyntax;
using test::with_vui;
using Texts = std::vector<std::string>;

constexpr const char* kName = "H264Lib_Set_sps_vui_parameters_NAL";

using SpsRewriteRoom = test::SpsRewriteTest;

// An SPS that grows by 7 bits with each of its offset_for_ref_frame, with a VUI in which nothing is present.
SpsSyntax growing_sps() {
    SpsSyntax sps = with_vui();
    sps.pic_order_cnt_type = 1;
    return sps;
}
constexpr std::int64_t kSevenBits = -7;

// The same with the longest head, full of zeros.
SpsSyntax with_longest_head(const SpsSyntax& sps, std::uint64_t chroma_sample_loc_type) {
    SpsSyntax longest = sps;
    test::VuiSyntax& vui = longest.vui;
    test::Random random(0);
    test::set_head_shape(vui, test::kHeadShapes - 1, random);
    vui.sar_width = vui.sar_height = 0;
    vui.colour_primaries = vui.transfer_characteristics = vui.matrix_coefficients = 0;
    vui.chroma_sample_loc_type_top_field = vui.chroma_sample_loc_type_bottom_field = chroma_sample_loc_type;
    vui.num_units_in_tick = vui.time_scale = 0;
    return longest;
}

// The longest run of zeros in an Exp-Golomb code, and all ones behind such a run.
constexpr std::uint64_t kLongCodes[] = {0x7FFFFFFF, 0xFFFFFFFE};

// An HRD whose codes are a single one among zeros, so that the tail has runs of about 2 * zeros of them. Where these
// are 22 to 29 bits long they need emulation prevention in some places and none in others.
test::HrdSyntax hrd_of_zeros(std::size_t schedules, unsigned zeros, bool cbr) {
    test::HrdSyntax hrd;
    const std::uint64_t value = (std::uint64_t{1} << zeros) - 1;
    hrd.schedules.assign(schedules, {value, value, cbr});
    return hrd;
}

// From 225 bytes of payload on the destination's capacity is asserted, and the call goes on. Longer payloads do not
// find the room that the encapsulation wants: the unit has its header alone then.
TEST_F(SpsRewriteRoom, LongUnits) {
    unsigned complete = 0;
    unsigned header_only = 0;
    unsigned refused = 0;
    unsigned of_256_bytes = 0;
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
                EXPECT_NE(payload, 199U);
                ++complete;
            } else {
                EXPECT_GT(behind_start_code(unit).size(), 64U);
                EXPECT_TRUE(adds_timing || payload > 198);
                ASSERT_EQ(rewritten.log.size(), 1U);
                EXPECT_EQ(rewritten.log[0].func, "RBSP_encapsulation_within_NAL");
                ++header_only;
                of_256_bytes += made == 256 ? 1 : 0;
            }
        }
        sps.offset_for_ref_frame.push_back(kSevenBits);
    }
    EXPECT_GT(complete, 100U);
    EXPECT_GT(header_only, 50U);
    EXPECT_GT(refused, 3U);
    EXPECT_GT(of_256_bytes, 0U);
}

// The longest head for the shortest one, in units of up to 64 bytes.
TEST_F(SpsRewriteRoom, UnitsOfUpTo64BytesAlwaysHaveRoom) {
    for (SpsSyntax sps = growing_sps(); behind_start_code(sps.unit()).size() <= 64;
         sps.offset_for_ref_frame.push_back(kSevenBits))
        for (const std::uint64_t code : kLongCodes)
            for (const int start_code : {3, 4}) expect_rewritten(sps, with_longest_head(sps, code), start_code);
}

TEST_F(SpsRewriteRoom, UnitsOfUpTo64BytesWithAnHrdOfZerosHaveRoom) {
    unsigned long_units = 0;
    for (const unsigned zeros : {8U, 10U, 11U, 12U, 13U, 14U, 15U, 19U, 31U})
        for (const bool cbr : {false, true})
            for (std::size_t schedules = 1; schedules <= 20 && !HasFailure(); ++schedules) {
                SpsSyntax sps = growing_sps();
                sps.vui.nal_hrd_parameters_present_flag = true;
                sps.vui.nal_hrd = hrd_of_zeros(schedules, zeros, cbr);
                // Every place of the tail in a byte.
                for (unsigned step = 0; step < 8; ++step, sps.offset_for_ref_frame.push_back(kSevenBits)) {
                    const std::size_t size = behind_start_code(sps.unit()).size();
                    if (size > 64) break;
                    expect_rewritten(sps, with_longest_head(sps, kLongCodes[step % 2]), 3 + step % 2);
                    long_units += size > 55 ? 1 : 0;
                }
            }
    EXPECT_GT(long_units, 100U);
}

// Zeros behind the stop bit, which have no emulation prevention, get one now.
TEST_F(SpsRewriteRoom, ZeroBytesBehindTheStopBitMayTakeTheRoom) {
    const SpsSyntax sps = growing_sps();
    for (const bool has_room : {true, false}) {
        Bytes unit = sps.unit();
        Bytes payload = sps.rbsp();
        const std::size_t zeros = has_room ? 1 : 64 - behind_start_code(unit).size();
        unit.insert(unit.end(), zeros, 0);
        payload.insert(payload.end(), zeros, 0);
        const auto record = record_of(sps);
        set_head(record->vui, with_longest_head(sps, kLongCodes[0]).vui);
        const Rewritten rewritten(unit, record.get());
        EXPECT_EQ(rewritten.result, TRUE);
        EXPECT_EQ(rewritten.made, test::rewritten_unit(unit, payload, *record));
        EXPECT_EQ(rewritten.made.size() > 5, has_room);
    }
}

// Nothing is added; what is taken away moves the tail to places where it needs more emulation prevention.
TEST_F(SpsRewriteRoom, PayloadsOfUpTo198BytesKeepTheirRoom) {
    unsigned long_payloads = 0;
    for (const unsigned zeros : {11U, 12U, 13U, 14U})
        for (std::size_t schedules = 20; schedules <= 32 && !HasFailure(); ++schedules) {
            SpsSyntax sps = growing_sps();
            sps.vui.overscan_info_present_flag = true;
            sps.vui.nal_hrd_parameters_present_flag = true;
            sps.vui.nal_hrd = hrd_of_zeros(schedules, zeros, true);
            for (unsigned step = 0; step < 8; ++step, sps.offset_for_ref_frame.push_back(kSevenBits)) {
                const std::size_t payload = sps.rbsp().size();
                if (payload > 198 || behind_start_code(sps.unit()).size() > 256) break;
                expect_rewritten(sps, sps, 4);
                SpsSyntax shorter = sps;
                shorter.vui.overscan_info_present_flag = false;
                expect_rewritten(sps, shorter, 4);
                long_payloads += payload > 190 ? 1 : 0;
            }
        }
    EXPECT_GT(long_payloads, 10U);
}

}  // namespace
