#include <climits>

#include "caption_message.h"

namespace {

using test::Bytes;
using test::bytes_of;
using test::caption_of;
using test::caption_room;
using test::caption_unit;
using test::entry_of;
using test::GuardedBuffer;
using test::numbered_captions;
using test::packed;

constexpr int kUnset = -77;

class CaptionWriter : public test::WriterTest {
protected:
    // Entries that end at unreadable memory, with a number of bytes behind them, and an output that does so too.
    void expect_written(const std::vector<vanc_t>& entries, unsigned cc_count, unsigned count, int records,
                        const Bytes& behind = {}, int padding_type = 0) {
        GuardedBuffer memory(test::join(packed(entries), behind));
        const auto* vanc = reinterpret_cast<const vanc_t*>(memory.data());
        const Bytes unit = caption_unit(entries, count, padding_type);
        test::Output out(static_cast<std::size_t>(caption_room(count)));
        int cc_records = kUnset;
        ASSERT_EQ(format_sei_cc_nal(out.data(), out.size(), vanc, bytes_of(entries), cc_count, &cc_records),
                  static_cast<int>(unit.size()));
        EXPECT_EQ(out.written(unit.size()), unit);
        EXPECT_EQ(cc_records, records);
    }

    // A call that finds no caption: the header alone is written.
    void expect_header_only(const std::vector<vanc_t>& entries, unsigned vanc_size, unsigned cc_count) {
        GuardedBuffer memory(packed(entries));
        test::Output out(200);
        int cc_records = kUnset;
        EXPECT_EQ(format_sei_cc_nal(out.data(), 200, reinterpret_cast<const vanc_t*>(memory.data()), vanc_size,
                                    cc_count, &cc_records),
                  0);
        EXPECT_EQ(out.written(5), test::kSeiHeader);
        EXPECT_EQ(cc_records, 0);
    }
};

TEST_F(CaptionWriter, EveryByteOfTwoCaptions) {
    const std::vector<vanc_t> entries = {caption_of(1, 0, 0x94, 0x2C), caption_of(0, 3, 0x00, 0x80)};
    test::Output out(33);
    int cc_records = kUnset;
    EXPECT_EQ(format_sei_cc_nal(out.data(), 33, entries.data(), 546, 2, &cc_records), 25);
    EXPECT_EQ(out.written(25), (Bytes{0x00, 0x00, 0x00, 0x01, 0x06, 0x04, 0x11, 0xB5, 0x00, 0x31, 0x47, 0x41, 0x39,
                                      0x34, 0x03, 0xC2, 0xFF, 0xFC, 0x94, 0x2C, 0xFB, 0x00, 0x80, 0xFF, 0x80}));
    EXPECT_EQ(cc_records, 2);
    EXPECT_TRUE(test::assertions().empty());
    EXPECT_EQ(out.written(25), caption_unit(entries, 2));
}

TEST_F(CaptionWriter, TheNumberOfTriplesByCount) {
    struct Case {
        unsigned cc_count, count;
    };
    const std::vector<vanc_t> entries = numbered_captions(600);
    for (const Case& c : {Case{1, 1},  {2, 2},    {30, 30},        {31, 31},        {32, 31},         {40, 31},
                          {63, 31},    {511, 31}, {512, 31},       {513, 1},        {515, 3},         {543, 31},
                          {544, 32},   {600, 88}, {768, 256},      {1023, 511},     {1025, 1},        {1027, 3},
                          {1535, 511}, {1537, 1}, {0x80000003, 3}, {0xFFFFFE01, 1}, {0xFFFFFFFF, 511}})
        ASSERT_NO_FATAL_FAILURE(expect_written(entries, c.cc_count, c.count, static_cast<int>(c.count))) << c.cc_count;
    for (const unsigned cc_count : {0U, 1024U, 1536U, 0x80000000U, 0xFFFFFE00U}) {
        test::Output out(100);
        int cc_records = kUnset;
        EXPECT_EQ(format_sei_cc_nal(out.data(), 100, entries.data(), bytes_of(entries), cc_count, &cc_records), 0);
        EXPECT_EQ(out.written(5), test::kSeiHeader);
        EXPECT_EQ(cc_records, 0) << cc_count;
    }
}

TEST_F(CaptionWriter, CountAndSizeAreWrittenModulo256) {
    const std::vector<vanc_t> entries = numbered_captions(511);
    test::Output out(2069);
    EXPECT_EQ(format_sei_cc_nal(out.data(), 2069, entries.data(), bytes_of(entries), 512 + 300, nullptr), 5 + 914);
    EXPECT_EQ(out.data()[6], (11 + 900) % 256);
    EXPECT_EQ(out.data()[15], (300 % 256) | 0xC0);
    out.fill();
    EXPECT_EQ(format_sei_cc_nal(out.data(), 2069, entries.data(), bytes_of(entries), 1023, nullptr), 5 + 1547);
    EXPECT_EQ(out.data()[6], (11 + 1533) % 256);
    EXPECT_EQ(out.data()[15], 0xFF);
    out.written(5 + 1547);
}

TEST_F(CaptionWriter, TheRoomThatIsNeeded) {
    const std::vector<vanc_t> entries = numbered_captions(511);
    EXPECT_EQ(caption_room(31), 149);
    for (const unsigned count : {1U, 2U, 3U, 31U, 511U}) {
        const int room = caption_room(count);
        const Bytes unit = caption_unit(entries, count);
        for (int len = 0; len <= room + 3; len += len > 40 && len < room - 9 ? 7 : 1) {
            test::Output out(static_cast<std::size_t>(len));
            int cc_records = kUnset;
            test::reset(4);
            const int result =
                format_sei_cc_nal(out.data(), len, entries.data(), bytes_of(entries), 512 + count, &cc_records);
            if (len >= room) {
                EXPECT_EQ(result, static_cast<int>(unit.size())) << len;
                EXPECT_EQ(out.written(unit.size()), unit);
                EXPECT_EQ(cc_records, static_cast<int>(count));
                EXPECT_EQ(test::lines(), test::Lines{});
                continue;
            }
            EXPECT_EQ(result, 0) << len;
            EXPECT_EQ(out.written(len < 5 ? 0 : 5), len < 5 ? Bytes{} : test::kSeiHeader);
            EXPECT_EQ(cc_records, 0);
            ASSERT_FALSE(test::lines().empty());
            EXPECT_EQ(test::lines().back(), "4 format_sei_cc_nal: SEI CC RBSP Encapsulation failed!");
            if (len >= 5) {
                const int size = static_cast<int>(14 + 3 * count);
                EXPECT_EQ(test::lines().front(), no_room_lines(len - 5, room - 5, size)[0]);
                EXPECT_EQ(test::lines().size(), 2U);
            }
        }
        for (const int len : {-1, INT_MIN}) {
            test::Output out(0);
            EXPECT_EQ(format_sei_cc_nal(out.data(), len, entries.data(), bytes_of(entries), 512 + count, nullptr), 0);
            EXPECT_EQ(test::lines().back(), "4 format_sei_cc_nal: SEI CC RBSP Encapsulation failed!");
        }
    }
}

TEST_F(CaptionWriter, NoByteOfABufferWithoutRoomForTheHeaderIsWrittenWithoutCaptions) {
    for (int len = 0; len < 5; ++len) {
        test::Output out(static_cast<std::size_t>(len));
        EXPECT_EQ(format_sei_cc_nal(out.data(), len, nullptr, 0, 3, nullptr), 0);
        out.written(0);
    }
}

TEST_F(CaptionWriter, EveryFlagAndType) {
    test::set_level(0);
    for (int value = 0; value < 256; ++value) {
        for (const vanc_t& entry :
             {caption_of(value, 0, 1, 2), caption_of(0, value, 3, 4), caption_of(value, value, 5, 6),
              caption_of(1, 2, value, 0), caption_of(1, 2, 0, value)}) {
            ASSERT_NO_FATAL_FAILURE(expect_written({entry}, 1, 1, 1));
        }
    }
}

TEST_F(CaptionWriter, PaddingHasTheTypeBehindTheEntries) {
    const std::vector<vanc_t> entries = {caption_of(1, 2, 0x94, 0x20), caption_of(1, 1, 0x41, 0x42)};
    for (int type = 0; type < 256; ++type) {
        // 14 bytes behind the entries reach up to the type, and no further.
        Bytes behind(14, 0xFF);
        behind[13] = static_cast<unsigned char>(type);
        ASSERT_NO_FATAL_FAILURE(expect_written(entries, 5, 5, 2, behind, type));
        ASSERT_NO_FATAL_FAILURE(expect_written(entries, 40, 31, 2, behind, type));
        ASSERT_NO_FATAL_FAILURE(expect_written(entries, 512 + 200, 200, 2, behind, type));
    }
    const std::vector<vanc_t> mixed = {entry_of(3), caption_of(1, 3, 7, 8), entry_of(0), entry_of(4)};
    ASSERT_NO_FATAL_FAILURE(expect_written(mixed, 2, 2, 1, packed({caption_of(1, 1, 9, 9)}), 1));
}

TEST_F(CaptionWriter, NothingBehindTheEntriesIsReadWithoutPadding) {
    for (const unsigned count : {1U, 2U, 31U}) {
        ASSERT_NO_FATAL_FAILURE(expect_written(numbered_captions(count), count, count, static_cast<int>(count)));
        ASSERT_NO_FATAL_FAILURE(expect_written(numbered_captions(count + 4), count, count, static_cast<int>(count)));
    }
    ASSERT_NO_FATAL_FAILURE(expect_written(numbered_captions(40), 600, 88, 40, Bytes(14, 0), 0));
    expect_header_only({entry_of(3), entry_of(1)}, 546, 4);
    expect_header_only({entry_of(3)}, 273, 0);
    expect_header_only({}, 0, 4);
    expect_header_only(numbered_captions(1), 273, 0);
}

TEST_F(CaptionWriter, OnlyCaptionsAreTaken) {
    const std::vector<vanc_t> entries = {
        entry_of(0),          caption_of(1, 0, 1, 2), entry_of(3),    entry_of(4), entry_of(1), caption_of(0, 1, 3, 4),
        entry_of(0xFFFFFFFF), caption_of(1, 2, 5, 6), entry_of(0x102)};
    ASSERT_NO_FATAL_FAILURE(expect_written(entries, 3, 3, 3));
    ASSERT_NO_FATAL_FAILURE(expect_written(entries, 2, 2, 2));
    ASSERT_NO_FATAL_FAILURE(expect_written(entries, 1, 1, 1));
    ASSERT_NO_FATAL_FAILURE(expect_written(entries, 4, 4, 3, Bytes(14, 2), 2));
    for (const unsigned suid : {0U, 1U, 3U, 4U, 5U, 0x00000200U, 0x80000002U, 0xFFFFFFFFU})
        expect_header_only({entry_of(suid), entry_of(suid)}, 546, 2);
}

TEST_F(CaptionWriter, OnlyWholeEntriesAreExamined) {
    const std::vector<vanc_t> entries = numbered_captions(2);
    expect_header_only(entries, 0, 1);
    expect_header_only(entries, 272, 1);
    for (const unsigned size : {273U, 274U, 545U}) {
        test::Output out(100);
        int cc_records = kUnset;
        const Bytes unit = caption_unit({entries[0]}, 2, entries[1].vanc_data.caption.type);
        EXPECT_EQ(format_sei_cc_nal(out.data(), 100, entries.data(), size, 2, &cc_records),
                  static_cast<int>(unit.size()));
        EXPECT_EQ(cc_records, 1) << size;
        EXPECT_EQ(out.written(unit.size()), unit) << "the second entry gives the type of the padding";
    }
}

TEST_F(CaptionWriter, EntriesAtAnyAddress) {
    const std::vector<vanc_t> entries = numbered_captions(5);
    for (std::size_t shift = 0; shift < 8; ++shift) {
        Bytes memory = test::join(test::join(Bytes(shift, 0), packed(entries)), Bytes(14, 1));
        test::Output out(200);
        const Bytes unit = caption_unit(entries, 6, 1);
        EXPECT_EQ(format_sei_cc_nal(out.data(), 200, reinterpret_cast<const vanc_t*>(memory.data() + shift),
                                    bytes_of(entries), 6, nullptr),
                  static_cast<int>(unit.size()));
        EXPECT_EQ(out.written(unit.size()), unit);
    }
}

TEST_F(CaptionWriter, TheNumberOfCaptionsIsOptional) {
    const std::vector<vanc_t> entries = numbered_captions(2);
    unsigned char buffer[60];
    EXPECT_EQ(format_sei_cc_nal(buffer, 60, entries.data(), 546, 2, nullptr), 25);
    EXPECT_EQ(format_sei_cc_nal(buffer, 20, entries.data(), 546, 2, nullptr), 0);
    EXPECT_EQ(format_sei_cc_nal(buffer, 60, entries.data(), 0, 2, nullptr), 0);
    EXPECT_EQ(format_sei_cc_nal(buffer, 60, nullptr, 0, 0, nullptr), 0);
    EXPECT_TRUE(test::assertions().empty());
}

TEST_F(CaptionWriter, NoEntries) {
    for (const unsigned cc_count : {0U, 1U, 31U, 40U, 515U, 1024U})
        for (const unsigned size : {0U, 272U, 273U, 2730U}) {
            test::Output out(200);
            int cc_records = kUnset;
            EXPECT_EQ(format_sei_cc_nal(out.data(), 200, nullptr, size, cc_count, &cc_records), 0);
            EXPECT_EQ(out.written(5), test::kSeiHeader);
            EXPECT_EQ(cc_records, 0);
        }
    EXPECT_TRUE(test::assertions().empty());
}

TEST_F(CaptionWriter, ANullBuffer) {
    const std::vector<vanc_t> entries = numbered_captions(2);
    int cc_records = kUnset;
    EXPECT_EQ(format_sei_cc_nal(nullptr, 100, entries.data(), 546, 2, &cc_records), 0);
    EXPECT_EQ(cc_records, 0);
    EXPECT_EQ(test::assertions(), std::vector<std::string>{"buffer != NULL"});
    EXPECT_EQ(format_sei_cc_nal(nullptr, 0, nullptr, 0, 0, nullptr), 0);
}

// A writer and its reader: captions, the header that classifies them and the unit's frame.
TEST_F(CaptionWriter, TheMessageReadsBackFromTheUnit) {
    const std::vector<vanc_t> entries = numbered_captions(31);
    test::Output out(149);
    const int size = format_sei_cc_nal(out.data(), 149, entries.data(), bytes_of(entries), 31, nullptr);
    ASSERT_EQ(size, 112);
    Bytes payload(149);
    ASSERT_EQ(SODB_deencapsulation_from_NAL(out.data() + 4, static_cast<unsigned>(size - 4), payload.data(), 149), 107);
    EXPECT_EQ(payload[1] + 3, 107) << "type, size and stop byte are not counted";
    EXPECT_EQ(payload[10], 0xC0 | 31);
    for (unsigned i = 0; i < 31; ++i) {
        const caption_t caption = entries[i].vanc_data.caption;
        EXPECT_EQ(payload[12 + 3 * i], 0xF8 | (caption.flag << 2) | caption.type);
        EXPECT_EQ(payload[13 + 3 * i], caption.data1);
        EXPECT_EQ(payload[14 + 3 * i], caption.data2);
    }
    EXPECT_EQ(payload[105], 0xFF);
    EXPECT_EQ(payload[106], 0x80);
}

}  // namespace
