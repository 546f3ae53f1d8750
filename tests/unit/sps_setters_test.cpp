#include <climits>

#include "sps_rewrite_model.h"
#include "sps_shapes.h"

namespace {

using test::append;
using test::AreaModel;
using test::Bytes;
using test::code_u;
using test::filled_record;
using test::Log;
using test::record_of;
using test::SpsSyntax;
using test::text;

// A payload without a readable byte behind it. The bit buffer's position does not matter.
struct Payload {
    explicit Payload(const Bytes& payload, unsigned position = 5)
        : before(payload), memory(payload), bb{memory.data(), position, static_cast<unsigned>(8 * payload.size())} {}

    // The payload as it must be when these bits have been overwritten.
    Bytes with(int position, const test::Bits& bits) const {
        AreaModel area{test::bits_of(before), static_cast<std::size_t>(position)};
        area.put(bits);
        return test::bytes_of(area.bits);
    }

    Bytes before;
    test::GuardedBuffer memory;
    bitbuffer_t bb;
};

SpsSyntax with_timing(bool timing = true) {
    SpsSyntax sps;
    sps.vui_parameters_present_flag = true;
    sps.vui.timing_info_present_flag = timing;
    return sps;
}

TEST(SetLevel, ChangesExactlyItsBits) {
    for (const test::SpsVariant& variant : test::sps_variants()) {
        SCOPED_TRACE(variant.name);
        const auto record = record_of(variant.sps);
        for (int level = 0; level < 256; ++level) {
            Payload payload(variant.sps.rbsp(), 77);
            record->level_idc = static_cast<unsigned char>(level);
            test::reset(3);
            ASSERT_EQ(set_sps_level_idc(&payload.bb, record.get()), 0);
            ASSERT_EQ(payload.memory.bytes(), payload.with(16, code_u(8, static_cast<unsigned>(level))));
            ASSERT_EQ(payload.bb.bit_offset, 24U);
            ASSERT_EQ(test::recorded_log(), Log{});
        }
    }
}

TEST(SetLevel, Level51) {
    Payload payload({77, 0, 30, 0xFF, 0x5A});
    const auto record = filled_record(0);
    record->level_idc = 51;
    EXPECT_EQ(set_sps_level_idc(&payload.bb, record.get()), 0);
    EXPECT_EQ(payload.memory.bytes(), (Bytes{77, 0, 51, 0xFF, 0x5A}));
}

TEST(SetLevel, Traces) {
    Payload payload(SpsSyntax{}.rbsp());
    const auto record = record_of(SpsSyntax{});
    record->level_idc = 41;
    test::reset(7);
    set_sps_level_idc(&payload.bb, record.get());
    EXPECT_EQ(test::recorded_log(), (Log{{7, "set_sps_level_idc", "SPS level_idc:41, bitoffset:16."},
                                         {7, "set_sps_level_idc", "After sps level_idc. Current offset in bb:24."}}));
}

TEST(SetLevel, APayloadThatIsTooShort) {
    const auto record = record_of(SpsSyntax{});
    record->level_idc = 51;
    for (unsigned bits = 0; bits < 24; ++bits) {
        Payload payload(Bytes((bits + 7) / 8, 0xFF));
        payload.bb.num_bits = bits;
        test::reset(7);
        EXPECT_EQ(set_sps_level_idc(&payload.bb, record.get()), 0) << "a write that fails is ignored";
        EXPECT_EQ(payload.memory.bytes(), payload.before);
        EXPECT_EQ(payload.bb.bit_offset, 16U);
        EXPECT_EQ(test::recorded_log(),
                  (Log{{7, "set_sps_level_idc", "SPS level_idc:51, bitoffset:16."},
                       {7, "set_sps_level_idc", "After sps level_idc. Current offset in bb:16."}}));
    }
}

TEST(SetLevel, NullArguments) {
    Payload payload(SpsSyntax{}.rbsp());
    const auto record = record_of(SpsSyntax{});
    test::reset(8);
    EXPECT_EQ(set_sps_level_idc(nullptr, record.get()), -1);
    EXPECT_EQ(set_sps_level_idc(&payload.bb, nullptr), -1);
    EXPECT_EQ(test::assertions(), (std::vector<std::string>{"sps_bb != NULL", "sps != NULL"}));
    EXPECT_EQ(test::records().assertions[0].func, "set_sps_level_idc");
    EXPECT_EQ(test::records().assertions[0].file, "h264d.c");
    EXPECT_EQ(payload.memory.bytes(), payload.before);
    EXPECT_EQ(test::recorded_log(), Log{});
}

TEST(SetTiming, ChangesExactlyItsBits) {
    test::Random random(1);
    for (unsigned shape = 0; shape < test::kHeadShapes * test::kTailShapes; ++shape) {
        SpsSyntax sps = test::shaped_sps(shape, shape, shape / test::kHeadShapes, random);
        sps.vui.timing_info_present_flag = true;
        const auto record = record_of(sps);
        Payload payload(sps.rbsp());
        vui_t& vui = record->vui;
        vui.num_units_in_tick = test::some_value(random, 32);
        vui.time_scale = test::some_value(random, 32);
        vui.fixed_frame_rate_flag = test::coin(random) ? 1 : 0;
        test::Bits timing = code_u(32, vui.num_units_in_tick);
        append(timing, code_u(32, vui.time_scale));
        append(timing, code_u(1, static_cast<unsigned>(vui.fixed_frame_rate_flag)));
        test::reset(3);
        ASSERT_EQ(set_vui_timing_info(&payload.bb, &vui), 0);
        ASSERT_EQ(payload.memory.bytes(), payload.with(vui.timing_info_offset, timing));
        ASSERT_EQ(payload.bb.bit_offset, static_cast<unsigned>(vui.timing_info_offset) + 65);
        ASSERT_EQ(test::recorded_log(), Log{});
        ASSERT_EQ(test::assertions(), std::vector<std::string>{});
    }
}

TEST(SetTiming, Traces) {
    Payload payload(with_timing().rbsp());
    const auto record = record_of(with_timing());
    record->vui.num_units_in_tick = 1;
    record->vui.time_scale = 0xFFFFFFFF;
    test::reset(7);
    EXPECT_EQ(set_vui_timing_info(&payload.bb, &record->vui), 0);
    const int offset = record->vui.timing_info_offset;
    EXPECT_EQ(test::recorded_log(),
              (Log{{7, "set_vui_timing_info", text("Vui num_units_in_ticks:1, timescale:-1, bitoffset:%d.", offset)},
                   {7, "set_vui_timing_info",
                    text("After modifying vui_timing_info. Current offset in bb:%d.", offset + 64)}}));
}

TEST(SetTiming, AVuiWithoutTimingStaysAsItIs) {
    const auto expect_refused = [](const vui_t& wanted) {
        Payload payload(with_timing(false).rbsp());
        vui_t vui = wanted;
        test::reset(8);
        EXPECT_EQ(set_vui_timing_info(&payload.bb, &vui), -1);
        EXPECT_EQ(payload.memory.bytes(), payload.before);
        EXPECT_EQ(payload.bb.bit_offset, 5U);
        EXPECT_EQ(test::recorded_log(), Log{});
    };
    vui_t vui = record_of(with_timing(false))->vui;
    ASSERT_EQ(vui.timing_info_offset, -1);
    expect_refused(vui);
    vui.timing_info_present_flag = 1;
    expect_refused(vui);
    vui.timing_info_offset = INT_MIN;
    expect_refused(vui);
    vui.timing_info_present_flag = 0;
    vui.timing_info_offset = 30;
    expect_refused(vui);
}

// Each of the three is written when it fits where the position then is, and a failure is ignored.
TEST(SetTiming, APositionNearOrBehindTheEnd) {
    const auto record = record_of(with_timing());
    vui_t& vui = record->vui;
    vui.fixed_frame_rate_flag = 1;
    for (unsigned bits = 0; bits <= 80; ++bits)
        for (int offset = 0; offset <= 80; ++offset) {
            Payload payload(Bytes((bits + 7) / 8, 0));
            payload.bb.num_bits = bits;
            vui.timing_info_offset = offset;
            AreaModel area{test::Bits(bits, false), static_cast<std::size_t>(offset)};
            area.put(code_u(32, vui.num_units_in_tick));
            area.put(code_u(32, vui.time_scale));
            // Where the position is when the flag is written.
            const std::size_t reached = area.position;
            area.put({true});
            test::reset(7);
            ASSERT_EQ(set_vui_timing_info(&payload.bb, &vui), 0);
            ASSERT_EQ(payload.memory.bytes(), test::bytes_of(area.bits)) << bits << ' ' << offset;
            ASSERT_EQ(payload.bb.bit_offset, area.position);
            const std::string before =
                text("Vui num_units_in_ticks:%d, timescale:%d, bitoffset:%d.", static_cast<int>(vui.num_units_in_tick),
                     static_cast<int>(vui.time_scale), offset);
            const std::string after = text("After modifying vui_timing_info. Current offset in bb:%zu.", reached);
            ASSERT_EQ(test::recorded_log(),
                      (Log{{7, "set_vui_timing_info", before}, {7, "set_vui_timing_info", after}}));
        }
    Payload payload(with_timing().rbsp());
    vui.timing_info_offset = INT_MAX;
    EXPECT_EQ(set_vui_timing_info(&payload.bb, &vui), 0);
    EXPECT_EQ(payload.memory.bytes(), payload.before);
}

TEST(SetTiming, AFlagThatIsNone) {
    Payload payload(with_timing().rbsp());
    const auto record = record_of(with_timing());
    ASSERT_EQ(record->vui.fixed_frame_rate_flag, 0);
    record->vui.fixed_frame_rate_flag = 2;
    test::reset(3);
    EXPECT_EQ(set_vui_timing_info(&payload.bb, &record->vui), 0);
    EXPECT_EQ(payload.memory.bytes(), payload.with(record->vui.timing_info_offset + 64, {true})) << "written as 1";
    EXPECT_EQ(test::assertions(), std::vector<std::string>{"value < 2"});
    ASSERT_EQ(test::records().assertions.size(), 1U);
    EXPECT_EQ(test::records().assertions[0].caller_func, "set_vui_timing_info");
    EXPECT_EQ(test::records().assertions[0].caller_file, "h264d.c");
}

TEST(SetTiming, NullArguments) {
    Payload payload(with_timing().rbsp());
    const auto record = record_of(with_timing());
    test::reset(8);
    EXPECT_EQ(set_vui_timing_info(nullptr, &record->vui), -1);
    EXPECT_EQ(set_vui_timing_info(&payload.bb, nullptr), -1);
    EXPECT_EQ(payload.memory.bytes(), payload.before);
    EXPECT_EQ(test::recorded_log(), Log{});
    EXPECT_EQ(test::assertions(), std::vector<std::string>{});
}

TEST(SetPicStruct, ChangesExactlyItsBit) {
    test::Random random(2);
    for (unsigned shape = 0; shape < test::kHeadShapes * test::kTailShapes; ++shape) {
        const SpsSyntax sps = test::shaped_sps(shape, shape, shape / test::kHeadShapes, random);
        const auto record = record_of(sps);
        SpsSyntax changed = sps;
        changed.vui.pic_struct_present_flag = true;
        const auto expected = record_of(changed);
        Payload payload(sps.rbsp());
        test::reset(3);
        ASSERT_EQ(set_vui_pic_struct_present_flag(&payload.bb, &record->vui), 0);
        const int offset = expected->vui.pic_struct_present_offset;
        ASSERT_EQ(payload.memory.bytes(), payload.with(offset, {true}));
        ASSERT_EQ(payload.memory.bytes(), changed.rbsp());
        ASSERT_EQ(payload.bb.bit_offset, static_cast<unsigned>(offset) + 1);
        ASSERT_EQ(test::difference(*record, *expected), "");
        ASSERT_EQ(test::recorded_log(), Log{});
    }
}

TEST(SetPicStruct, Traces) {
    for (const int flag : {0, 1}) {
        SpsSyntax sps = with_timing();
        sps.vui.pic_struct_present_flag = flag != 0;
        Payload payload(sps.rbsp());
        const auto record = record_of(sps);
        test::reset(7);
        EXPECT_EQ(set_vui_pic_struct_present_flag(&payload.bb, &record->vui), 0);
        EXPECT_EQ(test::recorded_log(), (Log{{7, "set_vui_pic_struct_present_flag",
                                              text("Original Vui pic_struct_present_flag:%d, bitoffset:%d.", flag,
                                                   record->vui.pic_struct_present_offset)}}));
    }
}

TEST(SetPicStruct, APositionOutsideThePayload) {
    const auto record = record_of(with_timing());
    Payload payload(with_timing().rbsp());
    const auto end = static_cast<int>(payload.bb.num_bits);
    for (const int offset : {end, end + 1, INT_MAX, -1, -8, INT_MIN}) {
        record->vui.pic_struct_present_flag = 0;
        record->vui.pic_struct_present_offset = offset;
        test::reset(3);
        EXPECT_EQ(set_vui_pic_struct_present_flag(&payload.bb, &record->vui), 0);
        EXPECT_EQ(record->vui.pic_struct_present_flag, 1);
        EXPECT_EQ(payload.memory.bytes(), payload.before);
        EXPECT_EQ(test::recorded_log(), Log{});
    }
}

// The position of an SPS without a VUI is that of profile_idc: callers look at vui_parameters_present_flag first.
TEST(SetPicStruct, WithoutAVuiTheFirstBitIsSet) {
    Payload payload(SpsSyntax{}.rbsp());
    const auto record = filled_record(0);
    bitbuffer_t whole{payload.memory.data(), 0, payload.bb.num_bits};
    ASSERT_EQ(parse_sps(&whole, record.get()), 0);
    ASSERT_EQ(record->vui_parameters_present_flag, 0);
    ASSERT_EQ(record->profile_idc, 77);
    EXPECT_EQ(set_vui_pic_struct_present_flag(&payload.bb, &record->vui), 0);
    EXPECT_EQ(payload.memory.bytes(), payload.with(0, {true}));
    EXPECT_EQ(payload.memory[0], 77 + 128);
    EXPECT_EQ(payload.bb.bit_offset, 1U);
}

TEST(SetPicStruct, NullArguments) {
    Payload payload(with_timing().rbsp());
    const auto record = record_of(with_timing());
    test::reset(8);
    EXPECT_EQ(set_vui_pic_struct_present_flag(nullptr, &record->vui), -1);
    EXPECT_EQ(record->vui.pic_struct_present_flag, 0);
    EXPECT_EQ(set_vui_pic_struct_present_flag(&payload.bb, nullptr), -1);
    EXPECT_EQ(payload.memory.bytes(), payload.before);
    EXPECT_EQ(test::recorded_log(), Log{});
    EXPECT_EQ(test::assertions(), std::vector<std::string>{});
}

}  // namespace
