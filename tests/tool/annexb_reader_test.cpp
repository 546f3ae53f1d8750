#include "annexb_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "annexb_model.h"

namespace {

using h264tool::AnnexBReader;
using h264tool::NalUnit;
using test::Bytes;
using test::difference;
using test::model;
using test::read_all;
using test::source_of;
using test::Split;

void expect_like_model_at_every_chunk_size(const Bytes& stream) {
    const Split expected = model(stream);
    for (std::size_t chunk_size = 1; chunk_size <= 16; ++chunk_size)
        EXPECT_EQ(difference(read_all(stream, chunk_size), expected), "")
            << "chunks of " << chunk_size << ", stream " << ::testing::PrintToString(stream);
}

TEST(AnnexBReader, ReadsUnitsBehindBothStartCodes) {
    const Bytes stream{0, 0, 0, 1, 0x67, 0x42, 0, 0, 1, 0x68, 0xCE};
    for (std::size_t chunk_size = 1; chunk_size <= 16; ++chunk_size) {
        const Split split = read_all(stream, chunk_size);
        ASSERT_EQ(split.units.size(), 2U);
        EXPECT_EQ(split.units[0].number, 1U);
        EXPECT_EQ(split.units[0].offset, 0U);
        EXPECT_EQ(split.units[0].length, 6U);
        EXPECT_EQ(split.units[0].start_code_length, 4U);
        EXPECT_EQ(split.units[0].trailing_zero_8bits, 0U);
        EXPECT_EQ(split.units[0].bytes, (Bytes{0, 0, 0, 1, 0x67, 0x42}));
        EXPECT_EQ(split.units[1].number, 2U);
        EXPECT_EQ(split.units[1].offset, 6U);
        EXPECT_EQ(split.units[1].length, 5U);
        EXPECT_EQ(split.units[1].start_code_length, 3U);
        EXPECT_EQ(split.units[1].bytes, (Bytes{0, 0, 1, 0x68, 0xCE}));
        EXPECT_EQ(split.leading_zeros, 0U);
        EXPECT_EQ(split.stray_bytes, 0U);
    }
}

TEST(AnnexBReader, TellsTheFieldsOfTheHeader) {
    const Split split = read_all({0, 0, 1, 0x67, 0, 0, 1, 0xE5, 0, 0, 1}, 4);
    ASSERT_EQ(split.units.size(), 3U);
    EXPECT_EQ(split.units[0].type(), 7U);
    EXPECT_EQ(split.units[0].ref_idc(), 3U);
    EXPECT_FALSE(split.units[0].forbidden_zero_bit());
    EXPECT_EQ(split.units[1].type(), 5U);
    EXPECT_EQ(split.units[1].ref_idc(), 3U);
    EXPECT_TRUE(split.units[1].forbidden_zero_bit());
    EXPECT_TRUE(split.units[1].has_header());
    EXPECT_FALSE(split.units[2].has_header());
}

TEST(AnnexBReader, CountsZerosBetweenUnitsAsTrailing) {
    const Bytes stream{0, 0, 1, 0x65, 0x80, 0, 0, 0, 0, 0, 1, 0x41, 0, 0};
    const Split split = read_all(stream, 5);
    ASSERT_EQ(split.units.size(), 2U);
    EXPECT_EQ(split.units[0].length, 5U);
    EXPECT_EQ(split.units[0].trailing_zero_8bits, 2U);
    EXPECT_EQ(split.units[1].offset, 7U);
    EXPECT_EQ(split.units[1].length, 5U);
    EXPECT_EQ(split.units[1].trailing_zero_8bits, 2U);
    expect_like_model_at_every_chunk_size(stream);
}

TEST(AnnexBReader, CountsZerosBeforeTheFirstStartCodeAsLeading) {
    const Bytes stream{0, 0, 0, 0, 1, 0x67};
    const Split split = read_all(stream, 2);
    ASSERT_EQ(split.units.size(), 1U);
    EXPECT_EQ(split.leading_zeros, 1U);
    EXPECT_EQ(split.stray_bytes, 0U);
    EXPECT_EQ(split.units[0].offset, 1U);
    EXPECT_EQ(split.units[0].start_code_length, 4U);
    expect_like_model_at_every_chunk_size(stream);
}

TEST(AnnexBReader, TellsDataBeforeTheFirstStartCode) {
    const Bytes stream{0, 0, 7, 0, 8, 0, 0, 0, 0, 1, 0x67};
    const Split split = read_all(stream, 3);
    ASSERT_EQ(split.units.size(), 1U);
    EXPECT_EQ(split.leading_zeros, 2U);
    EXPECT_EQ(split.stray_bytes, 4U);
    EXPECT_EQ(split.units[0].offset, 6U);
    expect_like_model_at_every_chunk_size(stream);
}

TEST(AnnexBReader, KnowsWhatStandsBeforeTheFirstUnitWhenItGivesThatUnit) {
    const Bytes stream{0, 5, 0, 0, 1, 0x67, 0, 0, 1, 0x68};
    AnnexBReader reader(source_of(stream, 2), AnnexBReader::all_of_every_unit(), 2);
    NalUnit unit;
    ASSERT_TRUE(reader.next(unit));
    EXPECT_EQ(reader.leading_zero_8bits(), 1U);
    EXPECT_EQ(reader.stray_bytes(), 1U);
}

TEST(AnnexBReader, FindsNoUnitWithoutStartCode) {
    for (const Bytes& stream : {Bytes{}, Bytes{0}, Bytes(100, 0), Bytes{1}, Bytes{0, 1}, Bytes{5, 0, 0, 2, 0, 0}})
        for (std::size_t chunk_size = 1; chunk_size <= 16; ++chunk_size) {
            const Split split = read_all(stream, chunk_size);
            EXPECT_TRUE(split.units.empty());
            EXPECT_EQ(split.leading_zeros + split.stray_bytes, stream.size());
            EXPECT_EQ(difference(split, model(stream)), "");
        }
}

TEST(AnnexBReader, GivesUnitsThatAreNothingButAStartCode) {
    const Split split = read_all({0, 0, 1, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0}, 4);
    ASSERT_EQ(split.units.size(), 3U);
    for (const NalUnit& unit : split.units) EXPECT_FALSE(unit.has_header());
    EXPECT_EQ(split.units[1].offset, 3U);
    EXPECT_EQ(split.units[2].offset, 6U);
    EXPECT_EQ(split.units[2].trailing_zero_8bits, 3U);
}

TEST(AnnexBReader, LeavesZerosInsideAUnitInIt) {
    const Split split = read_all({0, 0, 1, 0, 0, 0, 0, 5, 0, 0, 3, 0, 9}, 1);
    ASSERT_EQ(split.units.size(), 1U);
    EXPECT_EQ(split.units[0].bytes, (Bytes{0, 0, 1, 0, 0, 0, 0, 5, 0, 0, 3, 0, 9}));
    EXPECT_EQ(split.units[0].type(), 0U);
}

// Every stream of up to eight bytes of those that matter, in chunks of every size.
TEST(AnnexBReader, SplitsAllShortStreamsLikeTheModel) {
    const Bytes alphabet{0, 1, 5};
    for (std::size_t size = 0; size <= 8; ++size) {
        Bytes stream(size);
        std::vector<std::size_t> digits(size, 0);
        for (bool more = true; more;) {
            for (std::size_t i = 0; i < size; ++i) stream[i] = alphabet[digits[i]];
            const Split expected = model(stream);
            for (std::size_t chunk_size = 1; chunk_size <= size + 1; ++chunk_size)
                ASSERT_EQ(difference(read_all(stream, chunk_size), expected), "")
                    << "chunks of " << chunk_size << ", stream " << ::testing::PrintToString(stream);
            more = false;
            for (std::size_t i = 0; i < size && !more; ++i) {
                digits[i] = (digits[i] + 1) % alphabet.size();
                more = digits[i] != 0;
            }
        }
    }
}

TEST(AnnexBReader, SplitsAdversarialStreamsLikeTheModel) {
    std::mt19937 random(20261121);
    for (int round = 0; round < 300; ++round) {
        Bytes stream(random() % 200);
        for (unsigned char& byte : stream) {
            const auto kind = random() % 8;
            byte = kind < 5 ? 0 : kind < 7 ? 1 : static_cast<unsigned char>(random() % 256);
        }
        expect_like_model_at_every_chunk_size(stream);
    }
}

TEST(AnnexBReader, TakesWhateverTheSourceGives) {
    std::mt19937 random(7);
    Bytes stream;
    for (int i = 0; i < 2000; ++i) stream.push_back(random() % 3 == 0 ? 1 : 0);
    const Split expected = model(stream);
    for (std::size_t step = 1; step <= 16; ++step) {
        AnnexBReader reader(source_of(stream, step), AnnexBReader::all_of_every_unit(), 64);
        EXPECT_EQ(difference(read_all(reader), expected), "") << "reads of " << step;
    }
}

TEST(AnnexBReader, DoesNotAskTheSourceAgainBehindItsEnd) {
    int calls = 0;
    AnnexBReader reader([&calls](unsigned char*, std::size_t) { return ++calls, std::size_t{0}; });
    NalUnit unit;
    EXPECT_FALSE(reader.next(unit));
    EXPECT_FALSE(reader.next(unit));
    EXPECT_EQ(calls, 1);
}

TEST(AnnexBReader, KeepsAsMuchOfAUnitAsItsTypeHas) {
    Bytes stream{0, 0, 0, 1, 0x65};
    stream.insert(stream.end(), 100000, 0xAB);
    const Bytes rest{0, 0, 1, 0x67, 0x42, 0, 0x1E, 0, 0, 1, 0, 0, 0x67, 0, 0, 1, 0x68, 0, 7, 8, 9};
    stream.insert(stream.end(), rest.begin(), rest.end());
    AnnexBReader::KeptBytes kept{};
    kept[7] = AnnexBReader::kWhole;
    kept[8] = 3;
    for (const std::size_t chunk_size : {1U, 3U, 4U, 5U, 6U, 4096U, 1U << 20}) {
        AnnexBReader reader(source_of(stream, chunk_size), kept, chunk_size);
        const Split split = read_all(reader);
        ASSERT_EQ(split.units.size(), 4U);
        EXPECT_EQ(split.units[0].length, 100005U);
        EXPECT_EQ(split.units[0].bytes, (Bytes{0, 0, 0, 1, 0x65}));
        EXPECT_EQ(split.units[1].bytes, (Bytes{0, 0, 1, 0x67, 0x42, 0, 0x1E}));
        EXPECT_EQ(split.units[2].length, 6U);
        EXPECT_EQ(split.units[2].bytes, (Bytes{0, 0, 1, 0}));
        EXPECT_EQ(split.units[3].length, 8U);
        EXPECT_EQ(split.units[3].bytes, (Bytes{0, 0, 1, 0x68, 0, 7}));
    }
}

TEST(AnnexBReader, KeepsABeginningOfEveryLength) {
    const Bytes stream{0, 0, 0, 1, 0x65, 0, 0, 5, 0, 6};
    for (std::size_t limit = 0; limit <= 8; ++limit) {
        AnnexBReader::KeptBytes kept{};
        kept[5] = limit;
        for (std::size_t chunk_size = 1; chunk_size <= 10; ++chunk_size) {
            AnnexBReader reader(source_of(stream, chunk_size), kept, chunk_size);
            const Split split = read_all(reader);
            ASSERT_EQ(split.units.size(), 1U);
            const auto size = static_cast<std::ptrdiff_t>(4 + std::clamp<std::size_t>(limit, 1, 6));
            EXPECT_EQ(split.units[0].bytes, Bytes(stream.begin(), stream.begin() + size)) << limit;
            EXPECT_EQ(split.units[0].length, stream.size());
        }
    }
}

}  // namespace
