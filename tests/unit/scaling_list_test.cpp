#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <random>

#include "h264d/h264d.h"
#include "sps_builder.h"
#include "sps_check.h"

namespace {

using test::SyntaxScript;
using Deltas = std::vector<std::int64_t>;

// The syntax of one list and its reader, which stores into list 0 of the record.
SyntaxScript script_of(const Deltas& deltas, unsigned bits_before = 0) {
    SyntaxScript s(bits_before);
    const auto reaction = [](test::Outcome& outcome) { outcome.log.push_back({7, "_parse_scalingList", "Done."}); };
    s.call("_parse_scalingList", reaction, [&] { test::ScalingListSyntax{true, deltas}.write(s, 0); });
    return s;
}

test::SpsReader reader(int size) {
    return [size](bitbuffer_t& bb, sps_t& sps) { return _parse_scalingList(&bb, &sps.scaling_list[0], size); };
}

// The list is read and nothing behind it is.
void expect_deltas_read(const Deltas& deltas, int size) {
    SCOPED_TRACE(testing::PrintToString(deltas));
    const SyntaxScript script = script_of(deltas);
    test::expect_read(script, script.bits().bits(), 7, 0xA5, reader(size));
    test::expect_read(script, script.bits().bits(), 7, 0x00, reader(size));
    SyntaxScript longer = script_of(deltas);
    longer.u(8, "", 0xFF, [](sps_t&) { return static_cast<int*>(nullptr); });
    test::ScriptBits bits(longer, longer.bits().bits());
    const auto record = test::filled_record(0);
    EXPECT_EQ(reader(size)(bits.bb(), *record), 0);
    EXPECT_EQ(bits.bb().bit_offset, script.bits().bits());
}

TEST(ScalingList, AFullListHasOneDeltaACoefficient) {
    expect_deltas_read(Deltas(16, 0), 16);
    expect_deltas_read(Deltas(64, 0), 64);
    Deltas falling(64, -1);
    for (std::size_t j = 0; j < falling.size(); j += 2) falling[j] = 2;
    expect_deltas_read(falling, 64);
}

TEST(ScalingList, ADeltaThatMakesTheNextScaleZeroEndsTheList) {
    expect_deltas_read({-8}, 16);
    expect_deltas_read({-8}, 64);
    expect_deltas_read({248}, 16);
    expect_deltas_read({0, 0, -8}, 16);
    expect_deltas_read({1, -2, 3, -10}, 64);
    expect_deltas_read({-264}, 16);
}

TEST(ScalingList, ASumBelowMinus256KeepsItsSign) {
    // 8 - 300 + 256 = -36 is the next scale; -36 + 36 + 256 gives 0.
    expect_deltas_read({-300, 36}, 16);
    // -36 - 220 + 256 = 0.
    expect_deltas_read({-300, -220}, 16);
    // -36 - 300 + 256 = -80; -80 + 80 + 256 gives 0.
    expect_deltas_read({-300, -300, 80}, 16);
}

TEST(ScalingList, AListMayEndWithItsLastCoefficient) {
    Deltas deltas(16, 0);
    deltas[15] = -8;
    expect_deltas_read(deltas, 16);
}

TEST(ScalingList, DeltasOfAnySizeAreReadAndKept) {
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        const std::size_t size = round % 2 == 0 ? 16 : 64;
        Deltas deltas;
        std::int64_t last = 8;  // modulo 256, which decides when the list ends
        while (deltas.size() < size) {
            std::int64_t delta = static_cast<std::int64_t>(random()) - 2147483647;
            if (random() % 24 == 0) delta = -last;
            if (delta > 2147483647) delta = 2147483647;
            deltas.push_back(delta);
            last = (last + delta) % 256;
            if (last == 0) break;
        }
        expect_deltas_read(deltas, static_cast<int>(size));
        if (HasFailure()) return;
    }
    expect_deltas_read({2147483647, -2147483647, -8}, 16);
    expect_deltas_read({-2147483647, -2147483647, -2147483647, -11}, 16);
}

TEST(ScalingList, EndsAtEveryBit) {
    test::expect_reads_at_every_length(script_of({1, -2, 300, -400, 5, 88}), reader(16));
    test::expect_reads_at_every_length(script_of(Deltas(64, 0)), reader(64));
    test::expect_reads_at_every_length(script_of({12, -20}, 5), reader(16));
}

TEST(ScalingList, ItsMessagesNameFunctionAndFile) {
    const SyntaxScript script = script_of({1, 2});
    test::ScriptBits bits(script, script.bits().bits());
    const auto record = test::filled_record(0);
    test::reset(7);
    EXPECT_EQ(_parse_scalingList(&bits.bb(), &record->scaling_list[0], 16), -1);
    EXPECT_EQ(test::recorded_log(), (test::Log{{7, "_parse_scalingList", "Called.", "h264d.c"},
                                               {3, "_parse_scalingList", "cannot parse delta_scale[2].", "h264d.c"},
                                               {7, "_parse_scalingList", "Done.", "h264d.c"}}));
    EXPECT_EQ(record->scaling_list[0].delta_scale[0], 1);
    EXPECT_EQ(record->scaling_list[0].delta_scale[1], 2);
}

TEST(ScalingList, NullArgumentsAreAsserted) {
    const SyntaxScript script = script_of({-8});
    test::ScriptBits bits(script, script.bits().bits());
    scaling_list_t list{};
    test::reset(8);
    EXPECT_EQ(_parse_scalingList(nullptr, &list, 16), -1);
    ASSERT_FALSE(test::assertions().empty());
    EXPECT_EQ(test::assertions()[0], "sl_bb != NULL");
    EXPECT_EQ(test::records().assertions[0].func, "_parse_scalingList");
    EXPECT_EQ(test::records().assertions[0].file, "h264d.c");
    test::reset(8);
    EXPECT_EQ(_parse_scalingList(&bits.bb(), nullptr, 16), -1);
    ASSERT_FALSE(test::assertions().empty());
    EXPECT_EQ(test::assertions()[0], "sl != NULL");
}

TEST(ScalingList, MoreThan64CoefficientsAreAssertedAndNothingIsWrittenBehindTheRecord) {
    const SyntaxScript script = script_of(Deltas(80, 0));
    test::ScriptBits bits(script, script.bits().bits());
    test::GuardedBuffer memory(sizeof(scaling_list_t));
    auto* list = new (memory.data()) scaling_list_t{};
    test::reset(8);
    _parse_scalingList(&bits.bb(), list, 80);
    ASSERT_FALSE(test::assertions().empty());
    EXPECT_EQ(test::assertions()[0], "nSlSize <= SCALINGLIST_8X8_SIZE");
}

TEST(ScalingListDisplay, PrintsEveryDelta) {
    scaling_list_t list{};
    for (int j = 0; j < 64; ++j) list.delta_scale[j] = j % 2 == 0 ? j : -j * 1000;
    list.delta_scale[3] = 0x1FFFFFFFBL;  // its low 32 bits are -5
    for (const int size : {16, 64, 65}) {
        test::Log expected;
        for (int j = 0; j < std::min(size, 64); ++j) {
            const int value = j == 3 ? -5 : j % 2 == 0 ? j : -j * 1000;
            expected.push_back({6, "_display_scalingList", test::text("delta_scale[%d]=%d.", j, value), "h264d.c"});
        }
        test::reset(6);
        _display_scalingList(&list, size);
        EXPECT_EQ(test::recorded_log(), expected);
    }
    test::reset(5);
    _display_scalingList(&list, 16);
    EXPECT_EQ(test::recorded_log(), test::Log{});
}

TEST(ScalingListDisplay, ANullListIsAsserted) {
    test::reset(6);
    _display_scalingList(nullptr, 16);
    ASSERT_FALSE(test::assertions().empty());
    EXPECT_EQ(test::assertions()[0], "sl != NULL");
    EXPECT_EQ(test::records().assertions[0].func, "_display_scalingList");
    EXPECT_EQ(test::records().assertions[0].file, "h264d.c");
}

}  // namespace
