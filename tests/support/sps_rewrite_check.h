// What the tests of rewriting whole sequence parameter set units share.
#pragma once

#include "allocation_watch.h"
#include "dirty_stack.h"
#include "fake_clock.h"
#include "sps_rewrite_model.h"
#include "sps_shapes.h"
#include "test_clock.h"

namespace test {

constexpr UINT kNoLength = 4711;

// One call, nothing readable behind the unit. The new unit is released at once, and nothing else may stay allocated.
struct Rewritten {
    Rewritten(const Bytes& unit, const sps_t* sps, int level = 3) : memory(unit) {
        const std::unique_ptr<sps_t> before = sps != nullptr ? std::make_unique<sps_t>(*sps) : nullptr;
        reset(level);
        {
            const AllocationWatch watch;
            out = &untouched;
            dirty_stack();
            result = H264Lib_Set_sps_vui_parameters_NAL(memory.data(), static_cast<unsigned>(unit.size()), sps, &out,
                                                        &length);
            EXPECT_EQ(watch.sizes(), std::vector<std::size_t>{unit.size() + 68});
            EXPECT_EQ(watch.not_freed(), result ? 1U : 0U);
            log = recorded_log();
            if (result) {
                made.assign(out, out + length);
                H26XLib_Release_sps_buffer(out);
                EXPECT_EQ(watch.not_freed(), 0U);
            }
        }
        EXPECT_EQ(memory.bytes(), unit);
        if (before != nullptr) {
            EXPECT_EQ(difference(*sps, *before), "");
        }
    }
    bool outputs_untouched() const { return out == &untouched && length == kNoLength; }
    bool outputs_cleared() const { return out == nullptr && length == 0; }

    GuardedBuffer memory;
    unsigned char untouched = 0;
    unsigned char* out = nullptr;
    UINT length = kNoLength;
    BOOL result = -1;
    Bytes made;
    Log log;
};

inline SpsSyntax with_vui() {
    SpsSyntax sps;
    sps.vui_parameters_present_flag = true;
    return sps;
}

inline Bytes behind_start_code(const Bytes& unit) { return {unit.begin() + (unit[2] == 1 ? 3 : 4), unit.end()}; }

class SpsRewriteTest : public testing::Test {
protected:
    void SetUp() override { set_time(later_than_all_tests()); }
    void TearDown() override { use_system_time(); }

    // The whole new unit against the model, and what a reader makes of it against the parameter set that is wanted.
    // Returns the new payload.
    static Bytes expect_rewritten(const SpsSyntax& sps, const SpsSyntax& wanted, int start_code_length) {
        const Bytes unit = sps.unit(start_code_length);
        const auto record = filled_record(0);
        EXPECT_EQ(parse_sps_nal(unit.data(), static_cast<int>(unit.size()), record.get()), TRUE);
        EXPECT_EQ(difference(*record, *record_of(sps)), "");
        set_head(record->vui, wanted.vui);
        const Rewritten rewritten(unit, record.get());
        EXPECT_EQ(rewritten.result, TRUE);
        EXPECT_EQ(rewritten.log, Log{});
        EXPECT_EQ(assertions(), std::vector<std::string>{});
        EXPECT_EQ(rewritten.made, rewritten_unit(unit, sps.rbsp(), *record));
        const auto read = filled_record(0);
        EXPECT_EQ(parse_sps_nal(rewritten.made.data(), static_cast<int>(rewritten.made.size()), read.get()), TRUE);
        EXPECT_EQ(difference(*read, *record_of(wanted)), "");
        return payload_of(behind_start_code(rewritten.made));
    }
};

}  // namespace test
