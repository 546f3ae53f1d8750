#include <climits>

#include "vanc_entries.h"
#include "writer_check.h"

namespace {

using test::afd_of;
using test::Bytes;
using test::bytes_of;
using test::entry_of;
using test::Lines;
using test::packed;
using test::text;

const Bytes kNoFormat = {0x00, 0x00, 0x00, 0x01, 0x06, 0x04, 0x08, 0xB5,
                         0x00, 0x31, 0x44, 0x54, 0x47, 0x31, 0x01, 0x80};

Bytes unit_with(unsigned format) {
    return {0x00, 0x00, 0x00, 0x01, 0x06, 0x04, 0x09, 0xB5,
            0x00, 0x31, 0x44, 0x54, 0x47, 0x31, 0x41, static_cast<unsigned char>(0xF0 | format),
            0x80};
}

class AfdWriter : public test::WriterTest {
protected:
    // Entries and output end at unreadable memory; nothing is reported up to this level.
    void expect_written(const std::vector<vanc_t>& entries, const Bytes& unit, int level = 7) {
        test::GuardedBuffer memory(packed(entries));
        test::Output out(21);
        test::reset(level);
        ASSERT_EQ(format_sei_afd_nal(out.data(), 21, reinterpret_cast<const vanc_t*>(memory.data()),
                                     static_cast<int>(bytes_of(entries))),
                  static_cast<int>(unit.size()));
        EXPECT_EQ(out.written(unit.size()), unit);
        EXPECT_EQ(test::lines(), Lines{});
    }
};

TEST_F(AfdWriter, EveryActiveFormat) {
    for (int format = 0; format < 256; ++format)
        ASSERT_NO_FATAL_FAILURE(expect_written({afd_of(1, format)}, unit_with(static_cast<unsigned>(format))));
    EXPECT_EQ(unit_with(10)[15], 0xFA);
}

TEST_F(AfdWriter, TheLastEntryWins) {
    expect_written({afd_of(1, 8), afd_of(1, 10)}, unit_with(10));
    expect_written({afd_of(1, 10), afd_of(1, 8)}, unit_with(8));
    expect_written({afd_of(1, 9), entry_of(2), afd_of(1, 11), entry_of(4), afd_of(0, 3)}, unit_with(11));
    expect_written({afd_of(1, 9), entry_of(2), entry_of(0xFFFFFFFF)}, unit_with(9));
    std::vector<vanc_t> many(200, afd_of(0, 1));
    many[0] = afd_of(1, 13);
    expect_written(many, unit_with(13));
}

TEST_F(AfdWriter, Bit0OfTheFlagTellsAValidFormat) {
    for (const int flag : {0, 2, 4, 0x100, INT_MIN, -2, 0x7FFFFFFE}) {
        expect_written({afd_of(flag, 8)}, kNoFormat);
        expect_written({afd_of(1, 8), afd_of(flag, 10)}, unit_with(8));
    }
    for (const int flag : {1, 3, 0x101, -1, INT_MAX, INT_MIN + 1}) expect_written({afd_of(flag, 8)}, unit_with(8));
}

TEST_F(AfdWriter, OtherEntriesGiveNoFormat) {
    for (const unsigned suid : {0U, 1U, 2U, 4U, 0x103U, 0x80000003U}) expect_written({entry_of(suid)}, kNoFormat);
    expect_written({entry_of(2), entry_of(0), entry_of(2)}, kNoFormat);
}

TEST_F(AfdWriter, WithoutDataTheMessageIsWrittenAndReported) {
    const std::vector<vanc_t> entries = {afd_of(1, 8), afd_of(1, 9)};
    struct Case {
        const vanc_t* data;
        int size, count;
    };
    for (const Case& c : {Case{nullptr, 0, 0},
                          {nullptr, 546, 2},
                          {nullptr, -273, -1},
                          {entries.data(), 0, 0},
                          {entries.data(), 272, 0},
                          {entries.data(), -1, 0},
                          {entries.data(), -272, 0},
                          {entries.data(), -273, -1},
                          {entries.data(), -545, -1},
                          {entries.data(), -546, -2},
                          {entries.data(), INT_MIN, -7866240}}) {
        test::Output out(21);
        test::clear();
        EXPECT_EQ(format_sei_afd_nal(out.data(), 21, c.data, c.size), 16);
        EXPECT_EQ(out.written(16), kNoFormat);
        EXPECT_EQ(test::lines(), (Lines{text("4 format_sei_afd_nal: vanc_data:%p, vanc_entries:%d, No data is present.",
                                             static_cast<const void*>(c.data), c.count),
                                        encapsulated_lines(out.data() + 5, 16, 11)[0]}));
        test::reset(3);
        EXPECT_EQ(format_sei_afd_nal(out.data(), 21, c.data, c.size), 16);
        EXPECT_EQ(test::lines(), Lines{});
        test::set_level(8);
    }
    for (const int size : {273, 274, 545}) {
        unsigned char buffer[21];
        EXPECT_EQ(format_sei_afd_nal(buffer, 21, entries.data(), size), 17);
        EXPECT_EQ(buffer[15], 0xF8) << "only whole entries are examined";
    }
}

TEST_F(AfdWriter, TheRoomThatIsNeeded) {
    const std::vector<vanc_t> entries = {afd_of(1, 8)};
    for (const bool with_format : {true, false}) {
        const vanc_t* data = with_format ? entries.data() : nullptr;
        const Bytes unit = with_format ? unit_with(8) : kNoFormat;
        for (int len = 0; len < 30; ++len) {
            test::Output out(static_cast<std::size_t>(len));
            test::reset(3);
            const int result = format_sei_afd_nal(out.data(), len, data, 273);
            if (len >= 21) {
                EXPECT_EQ(result, static_cast<int>(unit.size()));
                EXPECT_EQ(out.written(unit.size()), unit);
                EXPECT_EQ(test::lines(), Lines{});
                continue;
            }
            EXPECT_EQ(result, 0) << len;
            EXPECT_EQ(out.written(len < 5 ? 0 : 5), len < 5 ? Bytes{} : test::kSeiHeader);
            ASSERT_FALSE(test::lines().empty());
            EXPECT_EQ(test::lines().back(), "3 format_sei_afd_nal: SEI AFD RBSP Encapsulation failed!");
            if (len >= 5) {
                EXPECT_EQ(test::lines().front(), no_room_lines(len - 5, 16, with_format ? 12 : 11)[0]);
                EXPECT_EQ(test::lines().size(), 2U);
            }
        }
        for (const int len : {-1, INT_MIN}) {
            test::Output out(0);
            EXPECT_EQ(format_sei_afd_nal(out.data(), len, data, 273), 0);
            EXPECT_EQ(test::lines().back(), "3 format_sei_afd_nal: SEI AFD RBSP Encapsulation failed!");
        }
    }
}

TEST_F(AfdWriter, EntriesAtAnyAddress) {
    for (std::size_t shift = 0; shift < 8; ++shift) {
        const Bytes memory = test::join(Bytes(shift, 0), packed({entry_of(2), afd_of(1, 14)}));
        test::Output out(64);
        EXPECT_EQ(format_sei_afd_nal(out.data(), 64, reinterpret_cast<const vanc_t*>(memory.data() + shift), 546), 17);
        EXPECT_EQ(out.written(17), unit_with(14));
    }
}

TEST_F(AfdWriter, ANullBuffer) {
    const std::vector<vanc_t> entries = {afd_of(1, 8)};
    EXPECT_EQ(format_sei_afd_nal(nullptr, 64, entries.data(), 273), 0);
    EXPECT_EQ(test::assertions(), std::vector<std::string>{"buffer != NULL"});
    EXPECT_EQ(format_sei_afd_nal(nullptr, 0, nullptr, 0), 0);
}

}  // namespace
