// What the library is told to report never changes what it does.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>

#include "fake_clock.h"
#include "h264d/h264d.h"
#include "sps_builder.h"
#include "sps_check.h"
#include "sps_variants.h"
#include "test_clock.h"

namespace {

using test::Bytes;

constexpr int kNoHandle = -1;

// Everything that a caller sees of one parse.
struct Seen {
    int result = 0;
    unsigned bit_offset = 0;
    std::unique_ptr<sps_t> record = test::filled_record(0x3C);
};

Seen parse_at(int level, const Bytes& bytes, std::size_t num_bits) {
    std::optional<test::WithoutHandle> silent;
    if (level == kNoHandle) silent.emplace();
    test::reset(level == kNoHandle ? 8 : level);
    Seen seen;
    test::GuardedBuffer memory(bytes);
    bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(num_bits)};
    seen.result = parse_sps(&bb, seen.record.get());
    seen.bit_offset = bb.bit_offset;
    EXPECT_EQ(memory.bytes(), bytes);
    EXPECT_EQ(test::assertions(), std::vector<std::string>{});
    if (level == kNoHandle || level == 0) {
        EXPECT_TRUE(test::records().messages.empty());
        EXPECT_TRUE(test::records().dumps.empty());
    }
    return seen;
}

void expect_the_same_at_all_levels(const Bytes& bytes, std::size_t num_bits) {
    const Seen quiet = parse_at(0, bytes, num_bits);
    for (const int level : {3, 6, 7, 8, kNoHandle}) {
        SCOPED_TRACE(test::text("level %d, %zu bits", level, num_bits));
        const Seen seen = parse_at(level, bytes, num_bits);
        ASSERT_EQ(seen.result, quiet.result);
        ASSERT_EQ(seen.bit_offset, quiet.bit_offset);
        ASSERT_EQ(test::difference(*seen.record, *quiet.record), "");
    }
}

TEST(LevelsSps, EveryVariant) {
    for (const test::SpsVariant& variant : test::sps_variants()) {
        SCOPED_TRACE(variant.name);
        const Bytes bytes = variant.sps.script().bits().bytes();
        const std::size_t bits = variant.sps.script().bits().bits();
        ASSERT_EQ(parse_at(0, bytes, bits).result, 0);
        for (std::size_t cut = bits + 1; cut-- > 0; cut -= std::min<std::size_t>(cut, 6)) {
            const Bytes head(bytes.begin(), bytes.begin() + static_cast<long>((cut + 7) / 8));
            ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(head, cut));
        }
    }
}

// Parameter sets with flipped bits, and bytes that are none.
TEST(LevelsSps, DamagedAndRandomBits) {
    std::mt19937 random(99);
    for (int round = 0; round < 1500; ++round) {
        const auto& variants = test::sps_variants();
        Bytes bytes = variants[random() % variants.size()].sps.rbsp();
        if (round % 3 == 0)
            for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
        for (auto flips = random() % 6; flips > 0; --flips) {
            unsigned char& byte = bytes[random() % bytes.size()];
            byte = static_cast<unsigned char>(byte ^ 1U << random() % 8);
        }
        if (round % 2 == 0) bytes[0] = 100;
        const std::size_t bits = 8 * bytes.size() - random() % 8;
        ASSERT_NO_FATAL_FAILURE(expect_the_same_at_all_levels(bytes, bits));
    }
}

TEST(LevelsSps, WholeUnitsAndContexts) {
    test::set_time(test::later_than_all_tests());
    std::vector<Bytes> units;
    for (const test::SpsVariant& variant : test::sps_variants()) {
        units.push_back(variant.sps.unit(3));
        units.push_back(units.back());
    }
    units.insert(units.end(), {test::sps_unit_of_size(256, 4),
                               test::sps_unit_of_size(257, 4),
                               {0, 0, 1},
                               {0, 0, 0, 1},
                               {0x67, 77, 0, 30, 9},
                               {0, 0, 1, 0x67, 77},
                               {0, 0, 0, 1, 0x74, 1, 2, 3}});
    const auto run = [&](int level) {
        std::optional<test::WithoutHandle> silent;
        if (level == kNoHandle) silent.emplace();
        test::reset(level == kNoHandle ? 8 : level);
        auto context = std::make_unique<H264D_PARSE_CONTEXT>();
        std::memset(static_cast<void*>(context.get()), 0, sizeof *context);
        std::vector<BOOL> results;
        const auto record = test::filled_record(0x3C);
        Bytes bytes;
        for (const Bytes& unit : units) {
            test::GuardedBuffer memory(unit);
            BYTE type = 0xEE;
            results.push_back(
                H264LIB_GetNALTypeAndNALRefIdc(memory.data(), static_cast<int>(unit.size()), &type, nullptr));
            results.push_back(type);
            results.push_back(
                parse_sps_nal_ex(memory.data(), static_cast<unsigned>(unit.size()), context.get(), record.get()));
            const auto* start = reinterpret_cast<const unsigned char*>(record.get());
            bytes.insert(bytes.end(), start, start + sizeof *record);
        }
        const auto* start = reinterpret_cast<const unsigned char*>(context.get());
        bytes.insert(bytes.end(), start, start + sizeof *context);
        EXPECT_FALSE(test::assertions().empty()) << "assertions do not depend on level and handle";
        return std::make_pair(results, bytes);
    };
    const auto quiet = run(0);
    for (const int level : {3, 6, 7, 8, kNoHandle}) {
        const auto seen = run(level);
        EXPECT_EQ(seen.first, quiet.first) << level;
        EXPECT_TRUE(seen.second == quiet.second) << level;
    }
    test::use_system_time();
}

}  // namespace
