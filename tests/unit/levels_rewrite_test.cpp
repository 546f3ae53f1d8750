// What the library is told to report never changes what it rewrites.
#include <optional>
#include <tuple>

#include "fake_clock.h"
#include "h264d/h264d.h"
#include "sps_rewrite_model.h"
#include "sps_shapes.h"
#include "test_clock.h"

namespace {

using test::Bytes;

constexpr int kNoHandle = -1;

// Everything that a caller sees of one call.
struct Seen {
    int result = 0;
    unsigned bit_offset = 0;
    std::string outputs{};  // pointer and length
    Bytes bytes{};
    std::unique_ptr<sps_t> record{};
};

using Rewriter = int (*)(bitbuffer_t& bb, int length, sps_t& record);

int set_level(bitbuffer_t& bb, int, sps_t& record) { return set_sps_level_idc(&bb, &record); }
int set_timing(bitbuffer_t& bb, int, sps_t& record) { return set_vui_timing_info(&bb, &record.vui); }
int set_pic_struct(bitbuffer_t& bb, int, sps_t& record) { return set_vui_pic_struct_present_flag(&bb, &record.vui); }
int set_crop(bitbuffer_t& bb, int length, sps_t& record) { return set_sps_crop(&bb, length, &record); }

class Level {
public:
    explicit Level(int level) {
        if (level == kNoHandle) silent_.emplace();
        test::reset(level == kNoHandle ? 8 : level);
    }
    ~Level() {
        EXPECT_EQ(test::records().not_allowed, 0);
        if (silent_.has_value()) {
            EXPECT_TRUE(test::records().messages.empty());
        }
    }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;

private:
    std::optional<test::WithoutHandle> silent_;
};

Seen rewrite_at(int level, Rewriter rewriter, const Bytes& payload, std::size_t room, const sps_t& record) {
    const Level at(level);
    Bytes area = payload;
    area.resize(payload.size() + room, 0xC3);
    test::GuardedBuffer memory(area);
    bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(8 * area.size())};
    Seen seen;
    seen.record = std::make_unique<sps_t>(record);
    seen.result = rewriter(bb, static_cast<int>(payload.size()), *seen.record);
    seen.bit_offset = bb.bit_offset;
    seen.bytes = memory.bytes();
    return seen;
}

Seen rewrite_unit_at(int level, const Bytes& unit, const sps_t& record) {
    const Level at(level);
    test::GuardedBuffer memory(unit);
    unsigned char untouched = 0;
    unsigned char* out = &untouched;
    UINT length = 4711;
    Seen seen;
    seen.record = std::make_unique<sps_t>(record);
    seen.result = H264Lib_Set_sps_vui_parameters_NAL(memory.data(), static_cast<unsigned>(unit.size()),
                                                     seen.record.get(), &out, &length);
    seen.outputs = test::text("%s %u", out == &untouched ? "untouched" : out == nullptr ? "null" : "set", length);
    if (seen.result) {
        seen.bytes.assign(out, out + length);
        H26XLib_Release_sps_buffer(out);
    }
    return seen;
}

void expect_equal(const Seen& seen, const Seen& quiet) {
    EXPECT_EQ(seen.result, quiet.result);
    EXPECT_EQ(seen.bit_offset, quiet.bit_offset);
    EXPECT_EQ(seen.outputs, quiet.outputs);
    EXPECT_EQ(seen.bytes, quiet.bytes);
    EXPECT_EQ(test::difference(*seen.record, *quiet.record), "");
}

// Good records, and some whose positions are wrong.
TEST(LevelsRewrite, AnyShape) {
    test::set_time(test::later_than_all_tests());
    test::Random random(7);
    for (unsigned round = 0; round < test::kHeadShapes * test::kTailShapes && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        test::SpsSyntax sps = test::shaped_sps(round, round, round / test::kHeadShapes, random);
        sps.frame_cropping_flag = test::coin(random);
        const auto record = test::record_of(sps);
        test::SpsSyntax other = sps;
        test::set_head_shape(other.vui, random() % test::kHeadShapes, random);
        set_head(record->vui, other.vui);
        record->level_idc = static_cast<unsigned char>(random());
        record->frame_crop_left_offset = test::some_value(random);
        record->frame_crop_top_offset = test::some_value(random, 8);
        if (round % 4 == 0) {
            const auto wrong = [&] { return static_cast<int>(random() % 600) - 100; };
            record->frame_cropping_offset = wrong();
            record->vui_parameters_present_offset = wrong();
            record->vui.timing_info_offset = wrong();
            record->vui.pic_struct_present_offset = wrong();
            record->vui.nal_hrd_parameters_present_offset = wrong();
        }
        for (const Rewriter rewriter : {set_level, set_timing, set_pic_struct, set_crop}) {
            const std::size_t room = random() % 20;
            const Seen quiet = rewrite_at(0, rewriter, sps.rbsp(), room, *record);
            for (const int level : {3, 6, 7, 8, kNoHandle})
                expect_equal(rewrite_at(level, rewriter, sps.rbsp(), room, *record), quiet);
        }
        const Bytes unit = sps.unit(round % 2 == 0 ? 3 : 4);
        const Seen quiet = rewrite_unit_at(0, unit, *record);
        for (const int level : {3, 6, 7, 8, kNoHandle}) expect_equal(rewrite_unit_at(level, unit, *record), quiet);
    }
    test::use_system_time();
}

// Units that are refused: the outputs are left or cleared whatever the level.
TEST(LevelsRewrite, OutputsAfterFalse) {
    test::set_time(test::later_than_all_tests());
    const auto record = test::record_of(test::SpsSyntax{});
    struct Case {
        Bytes unit;
        const char* outputs;
    };
    for (const Case& c : {Case{test::SpsSyntax{}.unit(), "null 0"},
                          {{0, 0, 2, 1, 0x67}, "null 0"},
                          {{0, 0, 1, 0x67}, "untouched 4711"},
                          {test::sps_unit_of_size(257, 3), "untouched 4711"}})
        for (const int level : {0, 3, 6, 7, 8, kNoHandle}) {
            const Seen seen = rewrite_unit_at(level, c.unit, *record);
            EXPECT_EQ(seen.result, FALSE);
            EXPECT_EQ(seen.outputs, c.outputs) << level;
        }
    test::use_system_time();
}

// Areas that end in each part of the new payload, which is a bit longer than the old one.
TEST(LevelsRewrite, NoRoomForTheNewPayload) {
    test::SpsSyntax sps;
    sps.vui_parameters_present_flag = true;
    const auto record = test::record_of(sps);
    record->vui.overscan_info_present_flag = 1;
    Bytes payload = sps.rbsp();
    const auto size = static_cast<unsigned>(payload.size());
    for (unsigned room = 0; room <= 8 * size + 8; ++room) {
        const auto rewritten = [&](int level) {
            test::reset(level);
            Bytes area(size + 2, 0xC3);
            bitbuffer_t bits{payload.data(), 0, 8 * size};
            bitbuffer_t made{area.data(), 0, room};
            const int result = _set_sps_vui_parameters(&bits, static_cast<int>(size), record.get(), &made, 256);
            EXPECT_EQ(result < 0, room < 8 * size + 8);
            return std::make_tuple(result, made.bit_offset, area);
        };
        const auto quiet = rewritten(0);
        for (const int level : {3, 6, 7, 8}) EXPECT_EQ(rewritten(level), quiet) << room;
    }
}

// Makes the payload anew in the same area.
int splice(bitbuffer_t& bb, int length, sps_t& record) {
    Bytes area(1000, 0xC3);
    bitbuffer_t made{area.data(), 0, static_cast<unsigned>(8 * area.size())};
    bb.bit_offset = 0;
    const int result = _set_sps_vui_parameters(&bb, length, &record, &made, static_cast<int>(area.size()));
    bb.bit_offset = made.bit_offset;
    for (std::size_t i = 0; i < 8 * area.size() && i < bb.num_bits; ++i) bb.bit_buffer[i / 8] = area[i / 8];
    return result;
}

// Stretches of bits that nearly fill what carries them, at every place in a byte.
TEST(LevelsRewrite, LongHeadsAndTails) {
    test::Random random(9);
    test::SpsSyntax sps;
    sps.vui_parameters_present_flag = true;
    const auto record = test::record_of(sps);
    for (int round = 0; round < 48 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        Bytes payload(500);
        for (unsigned char& byte : payload) byte = static_cast<unsigned char>(random());
        payload.back() |= 0x10;
        const int tail = 2048 - round;
        record->vui_parameters_present_offset = 2048 - static_cast<int>(random() % 17);
        record->vui.nal_hrd_parameters_present_offset = 8 * 500 - tail;
        const Seen made = rewrite_at(0, splice, payload, 500, *record);
        EXPECT_GT(made.result, 500);
        for (const int level : {3, 7, 8, kNoHandle})
            expect_equal(rewrite_at(level, splice, payload, 500, *record), made);

        record->frame_cropping_flag = round % 2;
        record->vui_parameters_present_offset = 8 * 500 - tail;
        record->frame_cropping_offset = 8 * 500 - tail - (round % 2 == 0 ? 1 : 20);
        const Seen cropped = rewrite_at(0, set_crop, payload, 30, *record);
        EXPECT_GT(cropped.result, 0);
        for (const int level : {3, 7, 8, kNoHandle})
            expect_equal(rewrite_at(level, set_crop, payload, 30, *record), cropped);
        record->frame_cropping_flag = 0;
    }
}

}  // namespace
