#include <gtest/gtest.h>

#include <array>
#include <random>

#include "diagnostics.h"
#include "encapsulation_model.h"
#include "fake_clock.h"
#include "guarded_buffer.h"
#include "h264d/h264d.h"
#include "test_clock.h"

namespace {

using test::GuardedBuffer;
using test::payload_of;
using Bytes = std::vector<unsigned char>;

constexpr int kRefused = -1;

// De-encapsulates into an area of outbuf_len bytes between unreadable memory and a pattern, which must survive behind
// the payload.
std::pair<int, Bytes> deencapsulate(const Bytes& unit, std::size_t outbuf_len) {
    GuardedBuffer in(unit);
    GuardedBuffer out(outbuf_len);
    for (std::size_t i = 0; i < outbuf_len; ++i) out[i] = static_cast<unsigned char>(0xC0 + i % 61);
    const int written = SODB_deencapsulation_from_NAL(in.data(), static_cast<unsigned>(unit.size()), out.data(),
                                                      static_cast<unsigned>(outbuf_len));
    EXPECT_EQ(in.bytes(), unit) << "the input has been changed";
    EXPECT_LE(written, static_cast<int>(outbuf_len));
    const auto kept = static_cast<std::size_t>(std::max(written, 0));
    for (std::size_t i = kept; i < outbuf_len; ++i)
        if (out[i] != 0xC0 + i % 61) return {kRefused - 1, {}};  // written behind the payload
    Bytes bytes = out.bytes();
    bytes.resize(kept);
    return {written, bytes};
}

void expect_payload(const Bytes& unit, const Bytes& payload) {
    const std::pair<int, Bytes> expected{static_cast<int>(payload.size()), payload};
    ASSERT_EQ(deencapsulate(unit, unit.size()), expected) << testing::PrintToString(unit);
    ASSERT_EQ(deencapsulate(unit, unit.size() + 40), expected) << testing::PrintToString(unit);
}

class Deencapsulation : public testing::Test {
protected:
    void SetUp() override { test::reset(8); }
};

TEST_F(Deencapsulation, DropsTheHeaderAndEmulationPreventionBytes) {
    expect_payload({0x67, 0, 0, 3, 1}, {0, 0, 1});
    expect_payload({0x67, 0, 0, 3, 0, 0, 3, 1}, {0, 0, 0, 0, 1});
    expect_payload({0x67, 0, 0, 3}, {0, 0});
    expect_payload({0x67, 1, 2, 0, 0, 3}, {1, 2, 0, 0});
    expect_payload({0x67, 0x42, 0x00, 0x1E, 0xAB}, {0x42, 0x00, 0x1E, 0xAB});
    EXPECT_TRUE(test::records().messages.empty());
    EXPECT_TRUE(test::records().assertions.empty());
}

TEST_F(Deencapsulation, KeepsWhatIsNoTriple) {
    expect_payload({0x67, 0, 3, 0, 3}, {0, 3, 0, 3});
    expect_payload({0x67, 3, 0, 0}, {3, 0, 0});
    expect_payload({0x67, 0, 0, 0, 0}, {0, 0, 0, 0});
    expect_payload({0x67, 0, 0, 1, 0, 0, 2}, {0, 0, 1, 0, 0, 2});
    expect_payload({0x67, 0, 0, 3, 3}, {0, 0, 3});
    expect_payload({0x67, 0, 0, 3, 0, 3}, {0, 0, 0, 3});
    expect_payload({0x67, 0, 0, 0, 3, 1}, {0, 0, 0, 1});
    expect_payload({0x67, 0x80, 0, 0}, {0x80, 0, 0});
    expect_payload({0, 0, 3, 5}, {0, 3, 5});
}

TEST_F(Deencapsulation, HeaderExtensionsAreSkippedForTypes14And20Only) {
    expect_payload({0x74, 1, 2, 3, 4, 5}, {4, 5});
    expect_payload({0x6E, 1, 2, 3, 0, 0, 3, 9}, {0, 0, 9});
    expect_payload({0x14, 0, 0, 3, 0, 0, 3}, {0, 0});
    expect_payload({0x75, 1, 2, 3, 4, 5}, {1, 2, 3, 4, 5});
    expect_payload({0x6F, 1, 2, 3, 4, 5}, {1, 2, 3, 4, 5});
}

TEST_F(Deencapsulation, UnitsOfEveryTypeAndUpToEightBytes) {
    for (int header = 0; header < 256; ++header) {
        for (std::size_t size = 0; size <= 8; ++size) {
            Bytes unit = {static_cast<unsigned char>(header), 0x11, 0x22, 0x33, 0, 0, 3, 0x44};
            unit.resize(size);
            if (size <= 2) {
                EXPECT_EQ(deencapsulate(unit, 64), std::make_pair(kRefused, Bytes{}));
            } else {
                expect_payload(unit, payload_of(unit));
            }
        }
    }
    expect_payload({0x74, 1, 2}, {});
    expect_payload({0x74, 1, 2, 3}, {});
    expect_payload({0x6E, 0, 0, 3}, {});
    expect_payload({0x6E, 0, 0, 3, 7}, {7});
}

TEST_F(Deencapsulation, AUnitOfTwoBytesIsTooShort) {
    for (std::size_t size = 0; size <= 2; ++size) {
        test::reset(5);
        EXPECT_EQ(deencapsulate(Bytes(size, 0x67), 16), std::make_pair(kRefused, Bytes{}));
        ASSERT_EQ(test::records().messages.size(), 1U);
        const test::Message& message = test::records().messages[0];
        EXPECT_EQ(message.text,
                  "Input buffer length is " + std::to_string(size) + ", too short to be de-encapsulated.\n");
        EXPECT_EQ(message.level, 5);
        EXPECT_EQ(message.func, "SODB_deencapsulation_from_NAL");
        EXPECT_EQ(message.file, "h264d.c");
        test::reset(4);
        EXPECT_EQ(deencapsulate(Bytes(size, 0x67), 16), std::make_pair(kRefused, Bytes{}));
        EXPECT_TRUE(test::records().messages.empty());
    }
    expect_payload({0x67, 5, 6}, {5, 6});
}

TEST_F(Deencapsulation, TheOutputMustBeAsLongAsTheInput) {
    const Bytes unit = {0x67, 0, 0, 3, 1, 0, 0, 3};
    EXPECT_EQ(deencapsulate(unit, 8).first, 5);
    EXPECT_EQ(deencapsulate(unit, 7), std::make_pair(kRefused, Bytes{}));
    EXPECT_EQ(deencapsulate(unit, 5), std::make_pair(kRefused, Bytes{}));
    EXPECT_EQ(deencapsulate(unit, 0), std::make_pair(kRefused, Bytes{}));
    EXPECT_EQ(deencapsulate({0x67, 1}, 1), std::make_pair(kRefused, Bytes{})) << "too long for the output comes first";
    EXPECT_EQ(test::count("Input buffer length is 2, too short to be de-encapsulated."), 0);
}

TEST_F(Deencapsulation, NullPointersAreAsserted) {
    const Bytes unit = {0x67, 1, 2, 3};
    Bytes out(8, 0xC0);
    EXPECT_EQ(SODB_deencapsulation_from_NAL(nullptr, 4, out.data(), 8), kRefused);
    EXPECT_EQ(SODB_deencapsulation_from_NAL(unit.data(), 4, nullptr, 8), kRefused);
    EXPECT_EQ(test::assertions(), (std::vector<std::string>{"input_buf != NULL", "output_buf != NULL"}));
    EXPECT_EQ(out, Bytes(8, 0xC0));

    // The lengths come first.
    test::reset(5);
    EXPECT_EQ(SODB_deencapsulation_from_NAL(nullptr, 2, nullptr, 2), kRefused);
    EXPECT_EQ(test::count("Input buffer length is 2, too short to be de-encapsulated."), 1);
    EXPECT_EQ(SODB_deencapsulation_from_NAL(nullptr, 5, nullptr, 0), kRefused);
    EXPECT_TRUE(test::assertions().empty());
}

// All units of up to 8 bytes behind the header out of the values that matter.
TEST_F(Deencapsulation, FollowsTheModelForAllShortUnits) {
    test::set_level(0);
    constexpr std::array<unsigned char, 3> values = {0, 3, 1};
    for (const int header : {0x67, 0x74}) {
        for (std::size_t size = 3; size <= 9; ++size) {
            GuardedBuffer in(size);
            GuardedBuffer out(size);
            unsigned combinations = 1;
            for (std::size_t i = 1; i < size; ++i) combinations *= 3;
            for (unsigned n = 0; n < combinations; ++n) {
                in[0] = static_cast<unsigned char>(header);
                for (std::size_t i = 1, digits = n; i < size; ++i, digits /= 3) in[i] = values[digits % 3];
                const Bytes expected = payload_of(in.bytes());
                const int written = SODB_deencapsulation_from_NAL(in.data(), static_cast<unsigned>(size), out.data(),
                                                                  static_cast<unsigned>(size));
                ASSERT_EQ(written, static_cast<int>(expected.size())) << testing::PrintToString(in.bytes());
                ASSERT_TRUE(std::equal(expected.begin(), expected.end(), out.data()))
                    << testing::PrintToString(in.bytes());
            }
        }
    }
}

TEST_F(Deencapsulation, FollowsTheModelForATripleAtEveryPlaceOfEverySize) {
    test::set_level(0);
    for (std::size_t size = 3; size <= 140; ++size) {
        for (std::size_t place = 1; place + 3 <= size; ++place) {
            Bytes unit(size, 0xAB);
            unit[0] = 0x65;
            unit[place] = unit[place + 1] = 0;
            unit[place + 2] = 3;
            ASSERT_NO_FATAL_FAILURE(expect_payload(unit, payload_of(unit)));
        }
    }
}

TEST_F(Deencapsulation, FollowsTheModelForRandomUnits) {
    test::set_level(0);
    std::mt19937 random(20240517);
    const std::array<std::vector<int>, 5> alphabets = {
        std::vector<int>{0, 3}, {0, 0, 0, 0, 3}, {0, 1, 2, 3}, {0, 0, 3, 0xFF, 0x80, 0x7F}, {}};
    for (int round = 0; round < 4000; ++round) {
        const std::vector<int>& alphabet = alphabets[static_cast<std::size_t>(round) % alphabets.size()];
        const std::size_t size = 3 + random() % (round % 40 == 0 ? 9000 : 180);
        Bytes unit(size);
        for (unsigned char& byte : unit)
            byte = static_cast<unsigned char>(
                alphabet.empty() ? random() % 256 : static_cast<unsigned>(alphabet[random() % alphabet.size()]));
        constexpr std::array<unsigned char, 5> headers = {0x67, 0x68, 0x65, 0x6E, 0x74};
        unit[0] = headers[random() % headers.size()];
        ASSERT_NO_FATAL_FAILURE(expect_payload(unit, payload_of(unit)));
    }
}

TEST_F(Deencapsulation, AnyAlignmentOfInputAndOutput) {
    Bytes unit(100, 0x55);
    for (std::size_t i = 3; i + 3 < unit.size(); i += 11) unit[i] = unit[i + 1] = 0, unit[i + 2] = 3;
    const Bytes expected = payload_of(unit);
    for (std::size_t shift_in = 0; shift_in < 16; ++shift_in) {
        for (std::size_t shift_out = 0; shift_out < 16; ++shift_out) {
            Bytes in(shift_in, 0);
            in.insert(in.end(), unit.begin(), unit.end());
            Bytes out(shift_out + unit.size() + 8, 0xEE);
            const int written = SODB_deencapsulation_from_NAL(in.data() + shift_in, 100, out.data() + shift_out, 100);
            ASSERT_EQ(written, static_cast<int>(expected.size()));
            ASSERT_EQ(
                Bytes(out.begin() + static_cast<long>(shift_out), out.begin() + static_cast<long>(shift_out) + written),
                expected);
            ASSERT_EQ(out[shift_out + 100], 0xEE);
        }
    }
}

class DeencapsulationThrottle : public testing::Test {
protected:
    void SetUp() override {
        start_ = test::later_than_all_tests();
        test::reset(8);
    }
    void TearDown() override { test::use_system_time(); }

    // Whether a refusal at this many seconds is reported.
    bool reported_at(int seconds, int level = 3) {
        test::reset(level);
        test::set_time(start_ + seconds);
        unsigned char out[1];
        const Bytes unit = {0x67, 1, 2, 3};
        EXPECT_EQ(SODB_deencapsulation_from_NAL(unit.data(), 4, out, 1), -1);
        return !test::records().messages.empty();
    }

private:
    std::time_t start_ = 0;
};

TEST_F(DeencapsulationThrottle, TheMessageTellsBothLengths) {
    EXPECT_TRUE(reported_at(0));
    ASSERT_EQ(test::records().messages.size(), 1U);
    const test::Message& message = test::records().messages[0];
    EXPECT_EQ(message.text,
              "Deencapsulation cannot be done as InputBufferLength:4 is longer than OutputBufferLength:1.\n");
    EXPECT_EQ(message.level, 3);
    EXPECT_EQ(message.func, "SODB_deencapsulation_from_NAL");
    EXPECT_EQ(message.file, "h264d.c");
}

TEST_F(DeencapsulationThrottle, ItIsRepeatedAfterMoreThanTenSecondsOnly) {
    EXPECT_TRUE(reported_at(0));
    EXPECT_FALSE(reported_at(0));
    EXPECT_FALSE(reported_at(1));
    EXPECT_FALSE(reported_at(10));
    EXPECT_TRUE(reported_at(11));
    EXPECT_FALSE(reported_at(21));
    EXPECT_TRUE(reported_at(22));
}

TEST_F(DeencapsulationThrottle, AMessageThatTheLevelSuppressesDoesNotCount) {
    EXPECT_FALSE(reported_at(0, 2));
    EXPECT_TRUE(reported_at(1));
    EXPECT_FALSE(reported_at(12, 2));
    EXPECT_TRUE(reported_at(13));
    {
        const test::WithoutHandle silent;
        EXPECT_FALSE(reported_at(30));
    }
    EXPECT_TRUE(reported_at(31));
}

TEST_F(DeencapsulationThrottle, OtherMessagesAreNotHeldBack) {
    EXPECT_TRUE(reported_at(0));
    test::reset(5);
    unsigned char out[8];
    const Bytes unit = {0x67, 1};
    EXPECT_EQ(SODB_deencapsulation_from_NAL(unit.data(), 2, out, 8), -1);
    EXPECT_EQ(SODB_deencapsulation_from_NAL(unit.data(), 2, out, 8), -1);
    EXPECT_EQ(test::count("Input buffer length is 2, too short to be de-encapsulated."), 2);
}

TEST(BitsToHoldInteger, IsTheFloorOfTheBinaryLogarithm) {
    EXPECT_EQ(_FindNumberOfBitsToHoldInteger(0), 0U);
    EXPECT_EQ(_FindNumberOfBitsToHoldInteger(1), 0U);
    EXPECT_EQ(_FindNumberOfBitsToHoldInteger(2), 1U);
    EXPECT_EQ(_FindNumberOfBitsToHoldInteger(3), 1U);
    for (const unsigned v : {4U, 5U, 6U, 7U}) EXPECT_EQ(_FindNumberOfBitsToHoldInteger(v), 2U);
    EXPECT_EQ(_FindNumberOfBitsToHoldInteger(8), 3U);
    EXPECT_EQ(_FindNumberOfBitsToHoldInteger(0xFFFFFFFF), 31U);
    for (unsigned bit = 1; bit < 32; ++bit) {
        EXPECT_EQ(_FindNumberOfBitsToHoldInteger(1U << bit), bit);
        EXPECT_EQ(_FindNumberOfBitsToHoldInteger((1U << bit) - 1), bit - 1);
        EXPECT_EQ(_FindNumberOfBitsToHoldInteger(1U << bit | 1U), bit);
    }
}

}  // namespace
