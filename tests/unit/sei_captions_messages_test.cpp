// Messages of the caption writer and how often they appear.
#include "caption_message.h"

namespace {

using test::bytes_of;
using test::caption_of;
using test::entry_of;
using test::Lines;
using test::numbered_captions;
using test::text;

class CaptionMessages : public test::WriterTest {
protected:
    int write(const std::vector<vanc_t>& entries, unsigned cc_count) {
        return format_sei_cc_nal(buffer, sizeof buffer, entries.data(), bytes_of(entries), cc_count, nullptr);
    }
    // How many lines with this beginning a call at this many seconds gives.
    long lines_at(int seconds, int level, const std::string& beginning, const std::vector<vanc_t>& entries,
                  unsigned cc_count) {
        at(seconds);
        test::reset(level);
        write(entries, cc_count);
        const Lines all = test::lines();
        return std::count_if(all.begin(), all.end(),
                             [&](const std::string& line) { return line.starts_with(beginning); });
    }
    std::string sanity(const vanc_t* entries, unsigned size, unsigned count, int len) {
        return text(
            "7 format_sei_cc_nal: Sanity, vanc_data:%p, vanc_size:%u, vanc_entries:%u, cc_count:%u, "
            "buffer_len:%d, BytesNeeded:%u.",
            static_cast<const void*>(entries), size, size / 273, count, len, 3 * count + 12);
    }
    std::string note(const vanc_t* entries, unsigned size, unsigned count) {
        return text("6 format_sei_cc_nal: vanc_data:%p, vanc_entries:%u, cc_count:%u.",
                    static_cast<const void*>(entries), size / 273, count);
    }
    std::string entry(const vanc_t* entries, int index, int type) {
        return text("8 format_sei_cc_nal: vanc_data:%p, Entry:%d, cc_type:%d.", static_cast<const void*>(entries),
                    index, type);
    }

    unsigned char buffer[2100] = {};
};

TEST_F(CaptionMessages, AllInTheirOrder) {
    std::vector<vanc_t> entries = {caption_of(1, 2, 1, 2), entry_of(3), entry_of(0x80000007), caption_of(0, 3, 3, 4)};
    entries.resize(5);  // the last is there for the padding
    ASSERT_EQ(format_sei_cc_nal(buffer, 150, entries.data(), 4 * 273 + 5, 40, nullptr), 112);
    const vanc_t* start = entries.data();
    const Lines expected = {
        "4 format_sei_cc_nal: cc_count:40 is greater than maximum of 31.",
        sanity(start, 4 * 273 + 5, 31, 150),
        note(start, 4 * 273, 31),
        entry(start, 0, 2),
        "6 format_sei_cc_nal: Entry:1, SUID:3 is NOT Caption SUID:2.",
        entry(start, 3, 3),
        encapsulated_lines(buffer + 5, 145, 107)[0],
    };
    EXPECT_EQ(test::lines(), expected);
    for (int level = 7; level >= 0; --level) {
        at(10 * (8 - level));
        test::reset(level);
        format_sei_cc_nal(buffer, 150, start, 4 * 273 + 5, 40, nullptr);
        Lines allowed;
        for (const std::string& line : expected)
            if (line[0] - '0' <= level) allowed.push_back(line);
        EXPECT_EQ(test::lines(), allowed) << level;
    }
}

TEST_F(CaptionMessages, WithoutCaptions) {
    const std::vector<vanc_t> entries = {entry_of(0xFFFFFFFF)};
    EXPECT_EQ(write(entries, 2), 0);
    EXPECT_EQ(test::lines(), (Lines{sanity(entries.data(), 273, 2, 2100), note(entries.data(), 273, 2),
                                    "6 format_sei_cc_nal: Entry:0, SUID:-1 is NOT Caption SUID:2.",
                                    "7 format_sei_cc_nal: SEI cc_records:0 is 0. No entries were closed captions."}));
    at(10);
    test::clear();
    EXPECT_EQ(format_sei_cc_nal(buffer, 2100, nullptr, 0, 0, nullptr), 0);
    EXPECT_EQ(test::lines(), (Lines{sanity(nullptr, 0, 0, 2100), note(nullptr, 0, 0),
                                    "7 format_sei_cc_nal: SEI cc_records:0 is 0. No entries were closed captions."}));
    at(20);
    test::clear();
    EXPECT_EQ(format_sei_cc_nal(buffer, 2, nullptr, 600, 515, nullptr), 0);
    EXPECT_EQ(test::lines(), (Lines{"7 format_sei_cc_nal: Derived nEncoderChannel:0 from cc_count:515.",
                                    sanity(nullptr, 600, 3, 2), note(nullptr, 600, 3),
                                    "7 format_sei_cc_nal: SEI cc_records:0 is 0. No entries were closed captions."}));
}

TEST_F(CaptionMessages, WithoutRoom) {
    const std::vector<vanc_t> entries = numbered_captions(1);
    EXPECT_EQ(format_sei_cc_nal(buffer, 28, entries.data(), 273, 1, nullptr), 0);
    EXPECT_EQ(test::lines(),
              (Lines{sanity(entries.data(), 273, 1, 28), note(entries.data(), 273, 1), entry(entries.data(), 0, 0),
                     no_room_lines(23, 24, 17)[0], "4 format_sei_cc_nal: SEI CC RBSP Encapsulation failed!"}));
}

TEST_F(CaptionMessages, TheEncoderChannelOfACount) {
    struct Case {
        unsigned cc_count, channel, count;
    };
    for (const Case& c : {Case{513, 0, 1},
                          {515, 0, 3},
                          {544, 0, 32},
                          {1023, 0, 511},
                          {1024, 1, 0},
                          {1027, 1, 3},
                          {1535, 1, 511},
                          {1536, 2, 0},
                          {0x80000003, 0x3FFFFF, 3},
                          {0xFFFFFFFF, 0x7FFFFE, 511}}) {
        test::reset(7);
        EXPECT_EQ(format_sei_cc_nal(buffer, 2100, nullptr, 0, c.cc_count, nullptr), 0);
        ASSERT_GE(test::lines().size(), 2U);
        EXPECT_EQ(test::lines()[0], text("7 format_sei_cc_nal: Derived nEncoderChannel:%u from cc_count:%d.", c.channel,
                                         static_cast<int>(c.cc_count)));
        EXPECT_EQ(test::lines()[1], sanity(nullptr, 0, c.count, 2100));
    }
    for (const unsigned cc_count : {0U, 31U, 32U, 512U}) {
        test::reset(7);
        format_sei_cc_nal(buffer, 2100, nullptr, 0, cc_count, nullptr);
        for (const std::string& line : test::lines()) EXPECT_EQ(line.find("Derived"), std::string::npos);
    }
}

TEST_F(CaptionMessages, ACountAboveTheMaximumOnceASecond) {
    const std::vector<vanc_t> entries = numbered_captions(31);
    const std::string line = "4 format_sei_cc_nal: cc_count:";
    EXPECT_EQ(lines_at(0, 4, line, entries, 31), 0);
    EXPECT_EQ(lines_at(0, 4, line, entries, 513), 0);
    EXPECT_EQ(lines_at(0, 4, line + "32 is greater than maximum of 31.", entries, 32), 1);
    EXPECT_EQ(lines_at(0, 4, line, entries, 33), 0);
    EXPECT_EQ(lines_at(1, 4, line + "512 is greater than maximum of 31.", entries, 512), 1);
    EXPECT_EQ(lines_at(1, 8, line, entries, 512), 0);
    EXPECT_EQ(lines_at(2, 3, line, entries, 40), 0) << "the time is kept also when the level lets nothing out";
    EXPECT_EQ(lines_at(2, 4, line, entries, 40), 0);
    EXPECT_EQ(lines_at(3, 4, line, entries, 40), 1);
    EXPECT_EQ(lines_at(1, 4, line, entries, 40), 0) << "an earlier time";
    {
        const test::WithoutHandle silent;
        EXPECT_EQ(lines_at(4, 8, line, entries, 40), 0);
    }
    EXPECT_EQ(lines_at(4, 8, line, entries, 40), 0);
    EXPECT_EQ(lines_at(5, 8, line, entries, 40), 1);
}

TEST_F(CaptionMessages, TheNoteOnceInFiveSeconds) {
    const std::vector<vanc_t> entries = numbered_captions(3);
    const std::string line = note(entries.data(), 819, 3);
    EXPECT_EQ(lines_at(0, 6, line, entries, 3), 1);
    EXPECT_EQ(lines_at(0, 6, line, entries, 3), 0);
    EXPECT_EQ(lines_at(4, 8, line, entries, 3), 0);
    EXPECT_EQ(lines_at(5, 6, line, entries, 515), 1);
    EXPECT_EQ(lines_at(9, 6, line, entries, 3), 0);
    EXPECT_EQ(lines_at(10, 5, line, entries, 3), 0) << "the time is kept also when the level lets nothing out";
    EXPECT_EQ(lines_at(14, 6, line, entries, 3), 0);
    EXPECT_EQ(lines_at(15, 6, line, entries, 3), 1);
    {
        const test::WithoutHandle silent;
        EXPECT_EQ(lines_at(20, 6, line, entries, 3), 0);
    }
    EXPECT_EQ(lines_at(24, 6, line, entries, 3), 0);
    EXPECT_EQ(lines_at(25, 6, line, entries, 3), 1);
}

TEST_F(CaptionMessages, AnEntryOfAnotherKindOnceInFiveSeconds) {
    const std::vector<vanc_t> entries = {entry_of(3), entry_of(4), caption_of(1, 1, 1, 1), entry_of(0)};
    const std::string line = "6 format_sei_cc_nal: Entry:";
    EXPECT_EQ(lines_at(0, 6, line, {caption_of(1, 1, 1, 1)}, 1), 0);
    EXPECT_EQ(lines_at(0, 6, line + "0, SUID:3 is NOT Caption SUID:2.", entries, 1), 1);
    EXPECT_EQ(lines_at(5, 6, line, entries, 1), 1) << "one line a call";
    EXPECT_EQ(lines_at(9, 6, line, entries, 1), 0);
    EXPECT_EQ(lines_at(10, 5, line, entries, 1), 0) << "the time is kept also when the level lets nothing out";
    EXPECT_EQ(lines_at(14, 6, line, entries, 1), 0);
    EXPECT_EQ(lines_at(15, 6, line, entries, 1), 1);
    {
        const test::WithoutHandle silent;
        EXPECT_EQ(lines_at(20, 6, line, entries, 1), 0);
    }
    EXPECT_EQ(lines_at(24, 6, line, entries, 1), 0);
    // Entries behind the last triple are not examined.
    EXPECT_EQ(lines_at(25, 6, line, {caption_of(1, 1, 1, 1), entry_of(3)}, 1), 0);
    EXPECT_EQ(lines_at(25, 6, line, entries, 0), 0);
    EXPECT_EQ(lines_at(25, 6, line + "1, SUID:4 is NOT Caption SUID:2.",
                       {caption_of(1, 1, 1, 1), entry_of(4), caption_of(1, 1, 1, 1)}, 2),
              1);
}

TEST_F(CaptionMessages, TheThreeKindsAreHeldBackApart) {
    const std::vector<vanc_t> entries = {entry_of(3), caption_of(1, 1, 1, 1)};
    const std::string note_line = note(entries.data(), 546, 1);
    EXPECT_EQ(lines_at(0, 6, note_line, entries, 1), 1);
    EXPECT_EQ(lines_at(0, 6, "6", entries, 1), 0);
    EXPECT_EQ(lines_at(0, 6, "4", numbered_captions(31), 40), 1);
    EXPECT_EQ(lines_at(3, 6, "6", {caption_of(1, 1, 1, 1)}, 1), 0);
    EXPECT_EQ(lines_at(5, 6, "6", {caption_of(1, 1, 1, 1)}, 1), 1);
    EXPECT_EQ(lines_at(6, 6, "6", entries, 1), 1) << "the entry's line is due, the note is not";
    EXPECT_EQ(lines_at(10, 6, "6", entries, 1), 1) << "the note is due, the entry's line is not";
}

}  // namespace
