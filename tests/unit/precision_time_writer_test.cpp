#include <climits>
#include <random>

#include "writer_check.h"

namespace {

using test::Bytes;
using test::Lines;
using test::text;

// Start code, NAL header, payload type and size, "MISPmicrosectime".
const Bytes kHeader = {0x00, 0x00, 0x00, 0x01, 0x06, 0x05, 0x1C, 0x4D, 0x49, 0x53, 0x50, 0x6D,
                       0x69, 0x63, 0x72, 0x6F, 0x73, 0x65, 0x63, 0x74, 0x69, 0x6D, 0x65};

Bytes unit_of(INT64 time, int status) {
    test::BitWriter payload;
    const auto t = static_cast<std::uint64_t>(time);
    payload.u(8, static_cast<unsigned>(status)).u(16, t >> 48).u(8, 0xFF).u(16, t >> 32).u(8, 0xFF);
    payload.u(16, t >> 16).u(8, 0xFF).u(16, t).u(8, 0x80);
    return test::join(kHeader, payload.bytes());
}

class PrecisionTimeWriter : public test::WriterTest {
protected:
    void expect_written(INT64 time, int status) {
        test::Output out(39);
        ASSERT_EQ(FormatMISPMicroSecondTimeSEI(out.data(), 39, &time, static_cast<unsigned char>(status)), 36)
            << time << ", " << status;
        ASSERT_EQ(out.written(36), unit_of(time, status)) << time << ", " << status;
    }
};

TEST_F(PrecisionTimeWriter, EveryByteOfAMessage) {
    const INT64 time = 0x0123456789ABCDEF;
    test::Output out(39);
    EXPECT_EQ(FormatMISPMicroSecondTimeSEI(out.data(), 39, &time, 0x1F), 36);
    EXPECT_EQ(out.written(36),
              test::join(kHeader, {0x1F, 0x01, 0x23, 0xFF, 0x45, 0x67, 0xFF, 0x89, 0xAB, 0xFF, 0xCD, 0xEF, 0x80}));
    EXPECT_TRUE(test::assertions().empty());
}

TEST_F(PrecisionTimeWriter, TimeZeroNeedsNoEmulationPrevention) {
    const INT64 time = 0;
    test::Output out(39);
    EXPECT_EQ(FormatMISPMicroSecondTimeSEI(out.data(), 39, &time, 0x9F), 36);
    EXPECT_EQ(out.written(36), test::join(kHeader, {0x9F, 0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0x80}));
}

TEST_F(PrecisionTimeWriter, ExtremeTimesAndTimesThatLookLikeStartCodes) {
    for (const INT64 time : std::vector<INT64>{0,
                                               1,
                                               2,
                                               3,
                                               -1,
                                               -2,
                                               LLONG_MAX,
                                               LLONG_MIN,
                                               LLONG_MIN + 1,
                                               1700000000000000,
                                               0x0000000100000001,
                                               0x0000010000010000,
                                               0x0001000000000000,
                                               0x0000000000000300,
                                               0x0000020000000003,
                                               0x00000000FFFFFFFF,
                                               0x7F00000000000000,
                                               -0x0100000000000000,
                                               0x0100000001000000,
                                               0x000000FF000000FF})
        for (const int status : {0x1F, 0x3F, 0x5F, 0x9F, 0xFF}) ASSERT_NO_FATAL_FAILURE(expect_written(time, status));
    std::mt19937_64 random(5);
    for (int i = 0; i < 2000; ++i) {
        std::uint64_t time = random();
        for (int byte = 0; byte < 8; ++byte)
            if (random() % 2 == 0) time &= ~(0xFFULL << 8 * byte) | (random() % 4) << 8 * byte;
        ASSERT_NO_FATAL_FAILURE(expect_written(static_cast<INT64>(time), 0x1F));
    }
}

TEST_F(PrecisionTimeWriter, TheLowFiveBitsOfTheStatusMustBeSet) {
    const INT64 time = 0x1122334455667788;
    for (int status = 0; status < 256; ++status) {
        if (status % 32 == 31) {
            ASSERT_NO_FATAL_FAILURE(expect_written(time, status));
            continue;
        }
        test::Output out(64);
        test::clear();
        EXPECT_EQ(FormatMISPMicroSecondTimeSEI(out.data(), 64, &time, static_cast<unsigned char>(status)), -1);
        EXPECT_EQ(test::lines(), Lines{text("3 FormatMISPMicroSecondTimeSEI: StatusByte:%#x, bits[4:0]:%#x should be "
                                            "0x1f!",
                                            static_cast<unsigned>(status), static_cast<unsigned>(status % 32))});
        out.written(0);
    }
    test::clear();
    unsigned char buffer[64];
    EXPECT_EQ(FormatMISPMicroSecondTimeSEI(buffer, 64, &time, 0x9E), -1);
    EXPECT_EQ(test::lines(), Lines{"3 FormatMISPMicroSecondTimeSEI: StatusByte:0x9e, bits[4:0]:0x1e should be 0x1f!"});
}

TEST_F(PrecisionTimeWriter, MessagesTellTheTime) {
    struct Case {
        INT64 time;
        const char* digits;
    };
    for (const Case& c : {Case{0, "0000000000000000"},
                          {1700000000123456, "1700000000123456"},
                          {123, "0000000000000123"},
                          {-1, "-000000000000001"},
                          {LLONG_MIN, "-9223372036854775808"},
                          {LLONG_MAX, "9223372036854775807"}}) {
        unsigned char buffer[64];
        test::reset(8);
        EXPECT_EQ(FormatMISPMicroSecondTimeSEI(buffer, 64, &c.time, 0x1F), 36);
        EXPECT_EQ(test::lines(), (Lines{text("6 FormatMISPMicroSecondTimeSEI: Precision time:%s.", c.digits),
                                        encapsulated_lines(buffer + 23, 41, 12)[0]}));
        test::reset(6);
        EXPECT_EQ(FormatMISPMicroSecondTimeSEI(buffer, 64, &c.time, 0x1F), 36);
        EXPECT_EQ(test::lines().size(), 1U);
        test::reset(5);
        EXPECT_EQ(FormatMISPMicroSecondTimeSEI(buffer, 64, &c.time, 0x1F), 36);
        EXPECT_EQ(test::lines(), Lines{});
    }
}

TEST_F(PrecisionTimeWriter, TheRoomThatIsNeeded) {
    const INT64 time = 1;
    for (int len = 0; len < 64; ++len) {
        test::Output out(static_cast<std::size_t>(len));
        test::reset(6);
        const int result = FormatMISPMicroSecondTimeSEI(out.data(), len, &time, 0x1F);
        Lines expected = {"6 FormatMISPMicroSecondTimeSEI: Precision time:0000000000000001."};
        if (len < 23) {
            EXPECT_EQ(result, 0);
            out.written(0);
            expected.push_back(
                text("3 format_sei_user_data_unregistered_nal: SEI output buffer length:%d is too small!", len));
        } else if (len < 39) {
            EXPECT_EQ(result, 0) << len;
            EXPECT_EQ(out.written(23), kHeader);
            expected.push_back(no_room_lines(len - 23, 16, 12)[0]);
            expected.emplace_back("3 format_sei_user_data_unregistered_nal: SEI RBSP Encapsulation failed!");
        } else {
            EXPECT_EQ(result, 36);
            EXPECT_EQ(out.written(36), unit_of(1, 0x1F));
        }
        EXPECT_EQ(test::lines(), expected);
    }
    for (const int len : {-1, INT_MIN}) {
        test::Output out(0);
        EXPECT_EQ(FormatMISPMicroSecondTimeSEI(out.data(), len, &time, 0x1F), 0);
    }
}

TEST_F(PrecisionTimeWriter, NullPointersComeBeforeTheStatus) {
    const INT64 time = 1;
    test::Output out(64);
    EXPECT_EQ(FormatMISPMicroSecondTimeSEI(nullptr, 64, nullptr, 0), -1);
    EXPECT_EQ(FormatMISPMicroSecondTimeSEI(nullptr, 64, &time, 0x1F), -1);
    EXPECT_EQ(FormatMISPMicroSecondTimeSEI(out.data(), 64, nullptr, 0), -1);
    EXPECT_EQ(FormatMISPMicroSecondTimeSEI(out.data(), 0, nullptr, 0x1F), -1);
    EXPECT_EQ(test::lines(),
              (Lines{"3 FormatMISPMicroSecondTimeSEI: buffer:(nil) is NULL!",
                     "3 FormatMISPMicroSecondTimeSEI: buffer:(nil) is NULL!",
                     "3 FormatMISPMicroSecondTimeSEI: pllUsecTime:(nil) is NULL, no precise time given!",
                     "3 FormatMISPMicroSecondTimeSEI: pllUsecTime:(nil) is NULL, no precise time given!"}));
    out.written(0);
}

TEST_F(PrecisionTimeWriter, AFailureIsSilentBelowLevelThree) {
    const INT64 time = 1;
    unsigned char buffer[64];
    test::reset(2);
    EXPECT_EQ(FormatMISPMicroSecondTimeSEI(nullptr, 64, &time, 0x1F), -1);
    EXPECT_EQ(FormatMISPMicroSecondTimeSEI(buffer, 64, nullptr, 0x1F), -1);
    EXPECT_EQ(FormatMISPMicroSecondTimeSEI(buffer, 64, &time, 0), -1);
    EXPECT_EQ(FormatMISPMicroSecondTimeSEI(buffer, 38, &time, 0x1F), 0);
    EXPECT_EQ(test::lines(), Lines{});
}

}  // namespace
