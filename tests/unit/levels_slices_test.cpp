// What the library is told to report never changes what it does. Below the level of the byte traces it de-encapsulates
// as much of a slice as its header needs, above it the whole unit: results, records and messages are the same.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <set>

#include "h264d/slice_header.h"
#include "pps_builder.h"
#include "script_check.h"
#include "slice_builder.h"

namespace {

using test::Bytes;
using test::Log;
using test::SliceSyntax;

constexpr int kNoHandle = -1;
constexpr int kWholeUnit = 7;

// Everything that a caller sees of both entries.
struct Seen {
    int result = 0;
    slice_header_t record;
    int type_result = 0;
    slice_header_t type_record;
    Log log{};
    std::vector<std::string> assertions{};
};

// All messages, also those that accessors make at low levels.
Log messages_up_to(int level) {
    Log log;
    for (const test::Message& message : test::records().messages)
        if (message.level <= level) log.push_back({message.level, message.func, message.text, message.file});
    return log;
}

Seen parse_at(int level, const SliceSyntax& sets, test::GuardedBuffer& memory) {
    std::optional<test::WithoutHandle> silent;
    if (level == kNoHandle) silent.emplace();
    test::reset(level == kNoHandle ? 8 : level);
    Seen seen{0, sets.record_before(0x3C), 0, sets.record_before(0x3C)};
    const int size = static_cast<int>(memory.size());
    seen.result = parse_slice_header_nal(memory.data(), size, &sets.sps, &sets.pps, &seen.record);
    seen.type_result = parse_slice_type_only_nal(memory.data(), size, &sets.sps, &seen.type_record);
    seen.log = messages_up_to(6);
    seen.assertions = test::assertions();
    EXPECT_EQ(test::records().not_allowed, 0);
    return seen;
}

void expect_the_same_at_all_levels(const SliceSyntax& sets, const Bytes& unit) {
    SCOPED_TRACE(test::text("%zu bytes", unit.size()));
    test::GuardedBuffer memory(unit);
    const Seen whole = parse_at(kWholeUnit, sets, memory);
    for (const int level : {0, 3, 6, kNoHandle}) {
        SCOPED_TRACE(test::text("level %d", level));
        const Seen seen = parse_at(level, sets, memory);
        ASSERT_EQ(seen.result, whole.result);
        ASSERT_EQ(seen.type_result, whole.type_result);
        ASSERT_EQ(test::difference(seen.record, whole.record), "");
        ASSERT_EQ(test::difference(seen.type_record, whole.type_record), "");
        ASSERT_EQ(seen.log, test::up_to_level(whole.log, level));
        ASSERT_EQ(seen.assertions, whole.assertions);
    }
    ASSERT_EQ(memory.bytes(), unit);
}

Bytes head(const Bytes& unit, std::size_t size) {
    return {unit.begin(), unit.begin() + static_cast<std::ptrdiff_t>(std::min(size, unit.size()))};
}

// Where emulation prevention bytes stand, counted from the NAL header byte.
std::vector<std::size_t> emulation_prevention(const Bytes& unit) {
    std::vector<std::size_t> places;
    for (std::size_t i = 7; i < unit.size(); ++i)
        if (unit[i] == 3 && unit[i - 1] == 0 && unit[i - 2] == 0) places.push_back(i - 4);
    return places;
}

// A P slice whose header goes on for some bytes in its list modification; few: so many of them are short.
SliceSyntax long_header(std::size_t bytes, std::uint64_t value, std::size_t few) {
    SliceSyntax slice;
    slice.slice_type = 5;
    slice.pps.weighted_pred_flag = 1;
    slice.pps.deblocking_filter_control_present_flag = 1;
    slice.pps.entropy_coding_mode_flag = 1;
    slice.nal_ref_idc = 1;
    slice.num_ref_idx_active_override_flag = true;
    slice.ref_pic_list_modification_flag_l0 = true;
    slice.weights_l0.assign(32, {true, -100, 100, false});
    slice.adaptive_ref_pic_marking_mode_flag = true;
    slice.marking = {{1, 1000}, {3, 70000, 5}, {6, 9}};
    slice.slice_alpha_c0_offset_div2 = -6;
    slice.modifications_l0.assign(few, {0, 0});
    if (few % 4 >= 2) slice.modifications_l0.push_back({4});  // a code alone, so that all positions are met
    test::BitWriter one;
    one.ue(1).ue(value);
    slice.modifications_l0.insert(slice.modifications_l0.end(), 8 * bytes / one.bits(), {1, value});
    return slice;
}

TEST(LevelsSlices, EveryVariantAndItsBeginnings) {
    for (const test::SliceVariant& variant : test::slice_variants()) {
        SCOPED_TRACE(variant.name);
        const Bytes unit = variant.slice.unit(3);
        for (std::size_t size = unit.size() + 1; size-- > 0; size -= std::min<std::size_t>(size, 2))
            ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(variant.slice, head(unit, size)));
        ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(variant.slice, variant.slice.unit(4, Bytes(3000, 0x00))));
    }
}

TEST(LevelsSlices, RandomHeaders) {
    std::mt19937 random(47);
    for (int round = 0; round < 300; ++round) {
        SliceSyntax slice = test::random_slice(random);
        slice.modifications_l0.resize(random() % 300, {0, 1000});
        Bytes unit =
            slice.unit(3 + static_cast<int>(random() % 2), Bytes(random() % 600, static_cast<unsigned char>(random())));
        for (unsigned flips = random() % 4; flips > 0; --flips) {
            unsigned char& byte = unit[4 + random() % (unit.size() - 4)];
            byte = static_cast<unsigned char>(byte ^ 1U << random() % 8);
        }
        ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, unit));
        ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, head(unit, random() % unit.size())));
    }
}

// Bytes that are no slice at all, many of them 0 and 3.
TEST(LevelsSlices, RandomBytes) {
    std::mt19937 random(53);
    for (int round = 0; round < 400; ++round) {
        SliceSyntax slice = test::random_slice(random);
        Bytes unit = {0, 0, 1, static_cast<unsigned char>(random() % 3 == 0 ? random() : random() % 4 << 5 | 1)};
        const unsigned zeros = random() % 8;
        for (std::size_t size = 1 + random() % 900; size > 0; --size)
            unit.push_back(random() % 8 < zeros ? 0 : static_cast<unsigned char>(random() % 5 == 0 ? 3 : random()));
        ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, unit));
    }
}

TEST(LevelsSlices, HeadersThatEndAround256Bytes) {
    std::set<int> ends;
    for (std::size_t bytes = 100; bytes <= 140; bytes += 2)
        for (std::size_t few = 0; few < 40; ++few) {
            const SliceSyntax slice = long_header(bytes, 20, few);
            test::GuardedBuffer memory(slice.unit());
            ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, memory.bytes()));
            ends.insert(parse_at(0, slice, memory).record.slice_header_end_bitoffset);
        }
    // The end of the first 256 bytes is met by every element behind the list, in all positions within a byte.
    for (int end = 8 * 250; end <= 8 * 260; ++end) EXPECT_TRUE(ends.count(end)) << end;
}

TEST(LevelsSlices, HeadersThatEndAround2048Bytes) {
    std::set<int> ends;
    for (std::size_t few = 0; few < 40; few += 1) {
        const SliceSyntax slice = long_header(1905, 2147483646, few);
        test::GuardedBuffer memory(slice.unit());
        ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, memory.bytes()));
        ends.insert(parse_at(0, slice, memory).record.slice_header_end_bitoffset);
    }
    EXPECT_LT(*ends.begin(), 8 * 2048);
    EXPECT_GT(*ends.rbegin(), 8 * 2048);
}

TEST(LevelsSlices, UnitsThatEndAroundTheBoundaries) {
    const SliceSyntax slice = long_header(3000, 70000, 3);
    const Bytes unit = slice.unit();
    for (const std::size_t boundary : {256U, 2048U})
        for (std::size_t size = boundary - 4; size <= boundary + 6; ++size) {
            ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, head(unit, 4 + size)));
            Bytes padded = head(unit, 4 + size);
            padded.insert(padded.end(), 2, 0);
            ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, padded));
            padded.push_back(3);
            ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, padded));
        }
    // Headers that end in the last byte of a unit as long as the boundary or nearly so.
    for (std::size_t few = 0; few < 60; ++few) {
        const SliceSyntax tight = long_header(100, 20, few);
        ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(tight, tight.unit(4, {})));
        ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(tight, tight.unit(3, {})));
    }
}

// Codes full of zeros put emulation prevention bytes on, before and behind the boundaries.
TEST(LevelsSlices, EmulationPreventionAroundTheBoundaries) {
    std::set<std::size_t> places;
    for (const std::uint64_t value : std::vector<std::uint64_t>{(1U << 24) - 1, (1U << 30) - 1, 65535})
        for (std::size_t few = 0; few < 24; ++few) {
            const SliceSyntax slice = long_header(300, value, few);
            const Bytes unit = slice.unit();
            for (const std::size_t place : emulation_prevention(unit)) places.insert(place);
            ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, unit));
        }
    for (std::size_t few = 0; few < 24; ++few) {
        const SliceSyntax slice = long_header(2100, (1U << 30) - 1, few);
        const Bytes unit = slice.unit();
        for (const std::size_t place : emulation_prevention(unit)) places.insert(place);
        ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, unit));
    }
    for (std::size_t place = 253; place <= 259; ++place) EXPECT_TRUE(places.count(place)) << place;
    for (std::size_t place = 2045; place <= 2051; ++place) EXPECT_TRUE(places.count(place)) << place;
}

// Weights whose codes end in 00 00 01: the byte behind an emulation prevention byte belongs to a value that is kept.
TEST(LevelsSlices, ValuesBehindEmulationPrevention) {
    int at_the_boundary = 0;
    for (std::size_t few = 0; few < 200; ++few) {
        SliceSyntax slice = long_header(0, 0, few);
        slice.weights_l0.assign(32, {true, -(1 << 23), -(1 << 23), true});
        const Bytes unit = slice.unit();
        const std::vector<std::size_t> places = emulation_prevention(unit);
        at_the_boundary += std::count(places.begin(), places.end(), 256U) > 0 ? 1 : 0;
        ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, unit));
        slice_header_t record = slice.record_before();
        test::GuardedBuffer memory(unit);
        test::reset(0);
        ASSERT_EQ(parse_slice_header_nal(memory.data(), static_cast<int>(unit.size()), &slice.sps, &slice.pps, &record),
                  1);
        for (int i = 0; i < 32; ++i) {
            ASSERT_EQ(record.pwt.luma_weight_l0[i], -(1 << 23));
            ASSERT_EQ(record.pwt.luma_offset_l0[i], -(1 << 23));
        }
    }
    EXPECT_GT(at_the_boundary, 0);
}

// Runs of zeros that no code ends, across both boundaries.
TEST(LevelsSlices, RunsOfZeros) {
    const SliceSyntax slice = long_header(100, 20, 0);
    for (const std::size_t before : {0U, 3U, 200U, 250U, 251U, 252U, 253U, 254U, 255U, 256U, 257U})
        for (const std::size_t zeros : {1U, 2U, 5U, 300U, 2500U}) {
            Bytes payload(before, 0xFF);
            payload.insert(payload.end(), zeros, 0);
            payload.insert(payload.end(), {1, 0xFF, 0xFF, 0x80});
            ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, test::nal_unit(0x41, payload)));
            payload.resize(before + zeros);
            ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(slice, test::nal_unit(0x41, payload)));
        }
}

// The same against a reader that has the whole payload before it, for a header of many kilobytes.
TEST(LevelsSlices, AHeaderOf40000Bytes) {
    const SliceSyntax slice = long_header(40000, 65535, 5);
    const test::SliceScript script = slice.script();
    const std::size_t bits = script.bits().bits();
    slice_header_t expected = slice.record_before();
    ASSERT_EQ(script.run(bits, nullptr, expected)->result, 0);
    const Bytes unit = slice.unit();
    test::GuardedBuffer memory(unit);
    for (const int level : {0, 6}) {
        slice_header_t record = slice.record_before();
        test::reset(level);
        EXPECT_EQ(parse_slice_header_nal(memory.data(), static_cast<int>(unit.size()), &slice.sps, &slice.pps, &record),
                  1);
        EXPECT_EQ(test::difference(record, expected), "");
        EXPECT_EQ(record.slice_header_end_bitoffset, static_cast<int>(bits));
    }
    for (const std::size_t size : {16384U, 16388U, 20000U, 40000U}) {
        test::GuardedBuffer cut(head(unit, size));
        slice_header_t record = slice.record_before();
        test::reset(6);
        EXPECT_EQ(parse_slice_header_nal(cut.data(), static_cast<int>(size), &slice.sps, &slice.pps, &record), 0);
        EXPECT_EQ(test::texts(3).size(), 3U);
    }
}

TEST(LevelsSlices, EverythingAtLevel8) {
    std::mt19937 random(59);
    for (int round = 0; round < 40; ++round) {
        SliceSyntax slice = test::random_slice(random);
        slice.modifications_l0.resize(random() % 200, {1, 5000});
        test::GuardedBuffer memory(slice.unit());
        const Seen quiet = parse_at(6, slice, memory);
        const Seen loud = parse_at(8, slice, memory);
        ASSERT_EQ(loud.result, quiet.result);
        ASSERT_EQ(test::difference(loud.record, quiet.record), "");
        ASSERT_EQ(loud.log, quiet.log);
    }
}

TEST(LevelsSlices, PictureParameterSetsAndDelimiters) {
    std::mt19937 random(61);
    for (int round = 0; round < 300; ++round) {
        const test::PpsSyntax syntax = test::random_pps(random);
        Bytes unit = syntax.unit();
        for (unsigned flips = random() % 4; flips > 0; --flips) {
            unsigned char& byte = unit[5 + random() % (unit.size() - 5)];
            byte = static_cast<unsigned char>(byte ^ 1U << random() % 8);
        }
        unit.insert(unit.end(), random() % 3, 0);
        test::GuardedBuffer memory(unit);
        const sps_t sps = syntax.sps();
        const auto parse = [&](int level) {
            std::optional<test::WithoutHandle> silent;
            if (level == kNoHandle) silent.emplace();
            test::reset(level == kNoHandle ? 8 : level);
            const int size = static_cast<int>(unit.size());
            pps_t pps = test::filled<pps_t>(0x3C);
            aud_t aud{0x3C, 0x3C};
            const int result = 2 * H264LIB_parse_pps_nal(memory.data(), size, &sps, &pps) +
                               parse_au_delimiter_nal(memory.data(), std::min(size, 19), &aud);
            const auto* start = reinterpret_cast<const unsigned char*>(&pps);
            return std::make_tuple(result, Bytes(start, start + sizeof pps), aud.nal_type, aud.primary_pic_type);
        };
        const auto quiet = parse(0);
        for (const int level : {3, 6, 7, 8, kNoHandle}) ASSERT_TRUE(parse(level) == quiet) << level;
    }
}

}  // namespace
