#include <climits>

#include "caption_message.h"
#include "sei_check.h"

namespace {

using test::BitWriter;
using test::Bytes;
using test::filled_record;
using test::GuardedBuffer;
using test::join;
using test::Lines;
using test::reader_lines;
using test::sei_unit;
using test::text;

constexpr unsigned char kOld = 0x5A;

// A caption message; every element can be set. The payload begins at index 2.
struct Message {
    unsigned country = 0xB5, provider = 0x0031, identifier = 0x47413934, type_code = 3;
    unsigned process_em = 1, process_cc = 1, additional = 0, count = 0, em_data = 0xFF;
    unsigned triple_marker = 0x1F, marker = 0xFF, trailing = 0x80;

    static caption_t triple(unsigned i) {
        const auto byte = [](unsigned value) { return static_cast<unsigned char>(value & 0xFF); };
        return {byte(i & 1 ? 0U : 1U), byte(i & 3), byte(0x80 + 5 * i), byte(0xFE - 7 * i)};
    }
    Bytes rbsp() const {
        BitWriter bits;
        bits.u(8, 4).u(8, 11 + 3 * count);
        bits.u(8, country).u(16, provider).u(32, identifier).u(8, type_code);
        bits.u(1, process_em).u(1, process_cc).u(1, additional).u(5, count).u(8, em_data);
        for (unsigned i = 0; i < count; ++i) {
            const caption_t c = triple(i);
            bits.u(5, triple_marker).u(1, c.flag).u(2, c.type).u(8, c.data1).u(8, c.data2);
        }
        return bits.u(8, marker).u(8, trailing).bytes();
    }
    // What a record then holds when only these bytes of the rbsp are there.
    SEI_cc_t expected(std::size_t bytes) const {
        SEI_cc_t cc = filled_record<SEI_cc_t>(kOld);
        if (bytes >= 3) cc.itu_t_t35_country_code = static_cast<char>(country);
        if (bytes >= 5) cc.itu_t_t35_provider_code = static_cast<unsigned short>(provider);
        if (bytes >= 9) cc.user_identifier = identifier;
        if (bytes >= 10) cc.user_data_type_code = static_cast<unsigned char>(type_code);
        if (bytes >= 11) cc.cc_data.process_cc_data_flag = static_cast<int>(process_cc);
        if (bytes >= 11) cc.cc_data.cc_count = static_cast<unsigned char>(count);
        for (unsigned i = 0; i < count; ++i) {
            const caption_t c = triple(i);
            if (bytes >= 13 + 3 * i) cc.cc_bytes[i].flag = c.flag;
            if (bytes >= 13 + 3 * i) cc.cc_bytes[i].type = c.type;
            if (bytes >= 14 + 3 * i) cc.cc_bytes[i].data1 = c.data1;
            if (bytes >= 15 + 3 * i) cc.cc_bytes[i].data2 = c.data2;
        }
        cc.header.payload_index = 2;
        return cc;
    }
};

// Every field of a record.
std::string str(const SEI_cc_t& cc) {
    std::string all =
        text("%d %u %lu %u, %d %u %u, %u %u %u:", cc.itu_t_t35_country_code, cc.itu_t_t35_provider_code,
             cc.user_identifier, cc.user_data_type_code, cc.cc_data.process_cc_data_flag, cc.cc_data.cc_count,
             cc.cc_data.marker_bits, cc.header.payload_type, cc.header.payload_size, cc.header.payload_index);
    for (const caption_t& c : cc.cc_bytes) all += text(" %u,%u,%u,%u", c.flag, c.type, c.data1, c.data2);
    return all;
}

struct Read {
    SEI_cc_t record = filled_record<SEI_cc_t>(kOld);
    BOOL result = -1;

    explicit Read(const Bytes& unit, unsigned payload_index = 2) {
        GuardedBuffer memory(unit);
        record.header.payload_index = payload_index;
        test::clear();
        result = parse_sei_cc_nal(memory.data(), static_cast<int>(unit.size()), &record);
    }
};

Bytes head(const Bytes& bytes, std::size_t count) {
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

class CaptionsReader : public test::WriterTest {
protected:
    static void expect_read(const Message& message) {
        const Bytes rbsp = message.rbsp();
        for (const int start_code : {3, 4}) {
            const Read read(sei_unit(rbsp, start_code));
            EXPECT_EQ(read.result, TRUE);
            EXPECT_EQ(str(read.record), str(message.expected(rbsp.size())));
            EXPECT_EQ(test::up_to(6, reader_lines()), Lines{});
            EXPECT_EQ(test::records().dumps.size(), 0U);
            EXPECT_EQ(test::assertions(), std::vector<std::string>{});
        }
    }
};

TEST_F(CaptionsReader, EveryCount) {
    for (unsigned count = 0; count < 32; ++count) {
        Message message;
        message.count = count;
        expect_read(message);
    }
}

TEST_F(CaptionsReader, NoValueIsCompared) {
    for (unsigned value = 0; value < 256; ++value) {
        Message message;
        message.count = 3;
        message.country = value;
        message.provider = value * 257;
        message.identifier = value * 0x01010101U;
        message.type_code = value;
        message.process_em = value & 1;
        message.process_cc = value >> 1 & 1;
        message.additional = value >> 2 & 1;
        message.em_data = value;
        message.triple_marker = value >> 3;
        expect_read(message);
        Message ending;
        ending.marker = value;
        ending.trailing = 255 - value;
        expect_read(ending);
        ending.count = 31;
        ending.trailing = 0;
        expect_read(ending);
    }
}

TEST_F(CaptionsReader, Messages) {
    Message message;
    message.count = 2;
    const Bytes unit = sei_unit(message.rbsp());
    const Read read(unit);
    EXPECT_EQ(reader_lines(),
              (Lines{text("7 parse_sei_cc_nal: Deencapsulation was successful. NAL unit length:%zu, SODB length:20 "
                          "bytes.",
                          unit.size()),
                     "7 _parse_cc: Sanity Check, before loop CountryCode:0xffffffb5, ProviderCode:0x31, "
                     "user_identifier:0x47413934, user_data_type_code:0x3, cc_count:2.",
                     "7 _parse_cc: Sanity Check, Bitbuffer length:160, Current offset:160."}));
    message.country = message.provider = message.identifier = message.type_code = message.count = 0;
    const Read zeros(sei_unit(message.rbsp()));
    EXPECT_EQ(reader_lines()[1],
              "7 _parse_cc: Sanity Check, before loop CountryCode:0, ProviderCode:0000, "
              "user_identifier:0, user_data_type_code:0, cc_count:0.");
    message.country = 0x7F;
    message.provider = 0xFFFF;
    message.identifier = 0xFFFFFFFF;
    const Read ones(sei_unit(message.rbsp()));
    EXPECT_EQ(reader_lines()[1],
              "7 _parse_cc: Sanity Check, before loop CountryCode:0x7f, ProviderCode:0xffff, "
              "user_identifier:0xffffffff, user_data_type_code:0, cc_count:0.");
}

// Bits that have been passed when the read fails that a message of this many bytes cuts off.
unsigned failing_offset(std::size_t bytes, unsigned count) {
    if (bytes < 3) return 16;
    if (bytes < 5) return 24;
    if (bytes < 9) return 40;
    if (bytes < 10) return 72;
    if (bytes < 11) return 81;
    const auto triple_bytes = static_cast<unsigned>(bytes < 12 ? 0 : bytes - 12);
    if (triple_bytes >= 3 * count) return 96 + 8 * triple_bytes;
    return 96 + 8 * triple_bytes + (triple_bytes % 3 == 0 ? 5 : 0);
}

TEST_F(CaptionsReader, CutBehindEveryByte) {
    for (const unsigned count : {0U, 1U, 3U, 31U})
        for (const unsigned marker : {0xFFU, 0x80U, 0U}) {
            Message message;
            message.count = count;
            message.marker = marker;
            const Bytes rbsp = message.rbsp();
            for (std::size_t bytes = 2; bytes < rbsp.size(); ++bytes) {
                SCOPED_TRACE(text("%zu of %zu bytes", bytes, rbsp.size()));
                const Bytes unit = sei_unit(head(rbsp, bytes));
                const Read read(unit);
                EXPECT_EQ(read.result, FALSE);
                EXPECT_EQ(str(read.record), str(message.expected(bytes)));
                Lines expected;
                expected.push_back(
                    text("7 parse_sei_cc_nal: Deencapsulation was successful. NAL unit length:%zu, SODB "
                         "length:%zu bytes.",
                         unit.size(), bytes));
                if (bytes >= 11)
                    expected.push_back(
                        text("7 _parse_cc: Sanity Check, before loop CountryCode:0xffffffb5, "
                             "ProviderCode:0x31, user_identifier:0x47413934, user_data_type_code:0x3, "
                             "cc_count:%u.",
                             count));
                if (bytes == rbsp.size() - 2 || (bytes == 11 && count == 0))
                    expected.push_back("7 _parse_cc: ATSC_data marker field:0 supposed to be 0xFF.");
                if (bytes == rbsp.size() - 1 && marker != 0x80)
                    expected.push_back(
                        text("7 _parse_cc: RBSP Trailing bits:%s supposed to be 0x80.", marker == 0 ? "0" : "0xff"));
                expected.push_back(
                    text("7 parse_sei_cc_nal: Failed to parse cc SEI! cc_bb:*, num_bits:%zu, "
                         "bit_offset:%u, sei_cc:%p.",
                         8 * bytes, failing_offset(bytes, count), static_cast<const void*>(&read.record)));
                EXPECT_EQ(reader_lines("cc_bb"), expected);
            }
        }
}

TEST_F(CaptionsReader, AUnitThatFailsIsDumped) {
    const Bytes unit = sei_unit(head(Message().rbsp(), 12));
    GuardedBuffer memory(unit);
    SEI_cc_t record{};
    record.header.payload_index = 2;
    for (const int level : {8, 7, 6, 3, 0}) {
        test::reset(level);
        EXPECT_EQ(parse_sei_cc_nal(memory.data(), static_cast<int>(unit.size()), &record), FALSE);
        const std::vector<test::Dump>& dumps = test::records().dumps;
        ASSERT_EQ(dumps.size(), level >= 7 ? 1U : 0U);
        if (level < 7) {
            EXPECT_EQ(test::records().messages.size(), 0U) << "a failure is silent";
            continue;
        }
        EXPECT_EQ(dumps[0].level, 7);
        EXPECT_EQ(dumps[0].label, "WRONG SEI CC NAL");
        EXPECT_EQ(dumps[0].func, "parse_sei_cc_nal");
        EXPECT_EQ(dumps[0].file, "h264d.c");
        EXPECT_EQ(dumps[0].bytes, unit);
        EXPECT_EQ(dumps[0].order, test::records().messages.size()) << "the last that is reported";
    }
}

TEST_F(CaptionsReader, UnitsOfUpTo128Bytes) {
    Message message;
    message.count = 31;
    for (const std::size_t size : {107U, 108U, 127U, 128U, 1000U}) {
        Bytes rbsp = message.rbsp();
        rbsp.resize(size, 0x11);
        const Bytes unit = sei_unit(rbsp);
        const Read read(unit);
        EXPECT_EQ(read.result, size <= 127 ? TRUE : FALSE);
        EXPECT_EQ(str(read.record), str(message.expected(size <= 127 ? size : 0)));
        if (size > 127) {
            EXPECT_NE(reader_lines()[0].find(" Length=-1."), std::string::npos);
        }
    }
}

TEST_F(CaptionsReader, WithoutAUnit) {
    SEI_cc_t record = Message().expected(0);
    const std::string before = str(record);
    for (const int size : {0, 20, -1, INT_MIN}) {
        test::clear();
        EXPECT_EQ(parse_sei_cc_nal(nullptr, size, &record), FALSE);
        EXPECT_EQ(reader_lines(), Lines{"3 parse_sei_cc_nal: Failed to parse cc SEI! buffer:(nil)."});
        EXPECT_EQ(test::assertions(), std::vector<std::string>{});
    }
    for (const Bytes& unit :
         {Bytes{6, 4, 11, 0xB5, 0x80}, Bytes{0, 0, 0, 0, 1, 6, 4, 11}, Bytes{0, 0, 2, 6}, Bytes{0, 0}, Bytes{}}) {
        GuardedBuffer memory(unit);
        test::clear();
        EXPECT_EQ(parse_sei_cc_nal(memory.data(), static_cast<int>(unit.size()), &record), FALSE);
        EXPECT_EQ(
            reader_lines(),
            (Lines{text("3 parse_sei_cc_nal: Failed to parse cc SEI! buffer:%p.", static_cast<void*>(memory.data()))}));
    }
    for (const Bytes& unit : {Bytes{0, 0, 1, 6}, Bytes{0, 0, 1, 6, 4}, Bytes{0, 0, 0, 1}, Bytes{0, 0, 0, 1, 6, 4}}) {
        GuardedBuffer memory(unit);
        test::clear();
        EXPECT_EQ(parse_sei_cc_nal(memory.data(), static_cast<int>(unit.size()), &record), FALSE);
        EXPECT_EQ(reader_lines(), (Lines{text("3 parse_sei_cc_nal: Failed to parse cc SEI! buffer:%p Length=-1.",
                                              static_cast<void*>(memory.data()))}));
    }
    EXPECT_EQ(str(record), before);
}

TEST_F(CaptionsReader, WithoutARecord) {
    const Bytes unit = sei_unit(Message().rbsp());
    GuardedBuffer memory(unit);
    EXPECT_EQ(parse_sei_cc_nal(memory.data(), static_cast<int>(unit.size()), nullptr), FALSE);
    EXPECT_EQ(reader_lines("cc_bb"),
              (Lines{text("7 parse_sei_cc_nal: Deencapsulation was successful. NAL unit length:%zu, SODB length:14 "
                          "bytes.",
                          unit.size()),
                     "3 _parse_cc: Failed to parse cc SEI! cc_bb:*, sei_cc:(nil).",
                     "7 parse_sei_cc_nal: Failed to parse cc SEI! cc_bb:*, num_bits:112, bit_offset:0, "
                     "sei_cc:(nil)."}));
    EXPECT_EQ(test::records().dumps.size(), 1U);
}

TEST_F(CaptionsReader, AnyPayloadIndex) {
    Message message;
    message.count = 1;
    const Bytes unit = sei_unit(message.rbsp());  // 17 bytes of data
    EXPECT_EQ(Read(unit, 0).record.itu_t_t35_country_code, 4) << "the payload type is taken for the country code";
    EXPECT_EQ(Read(unit, 0).record.itu_t_t35_provider_code, 14 * 256 + 0xB5);
    const Read last(unit, 16);
    EXPECT_EQ(last.result, FALSE);
    EXPECT_EQ(last.record.itu_t_t35_country_code, -128);
    EXPECT_EQ(last.record.itu_t_t35_provider_code, kOld * 257);
    for (const unsigned index : {17U, 18U, 128U, 129U, 0x1FFFFFFEU, 0x1FFFFFFFU, 0x20000000U, 0x20000002U, 0x40000002U,
                                 0x80000000U, 0xE0000002U, 0xFFFFFFFFU}) {
        const Read read(unit, index);
        EXPECT_EQ(read.result, FALSE);
        SEI_cc_t untouched = message.expected(0);
        untouched.header.payload_index = index;
        EXPECT_EQ(str(read.record), str(untouched)) << index;
    }
}

TEST_F(CaptionsReader, TheNalTypeIsNotExamined) {
    const Message message;
    const Read read(test::nal_unit(0x07, message.rbsp()));
    EXPECT_EQ(read.result, TRUE);
    EXPECT_EQ(str(read.record), str(message.expected(14)));
}

TEST_F(CaptionsReader, LevelsChangeNothing) {
    for (const unsigned count : {0U, 2U, 31U}) {
        Message message;
        message.count = count;
        const Bytes rbsp = message.rbsp();
        for (std::size_t bytes = 0; bytes <= rbsp.size(); ++bytes)
            for (const unsigned index : {0U, 2U, 200U, 0x20000002U}) {
                GuardedBuffer memory(sei_unit(head(rbsp, bytes)));
                SEI_cc_t record;
                test::expect_same_at_all_levels(
                    [&] {
                        record = message.expected(0);
                        record.header.payload_index = index;
                        const BOOL result = parse_sei_cc_nal(memory.data(), static_cast<int>(memory.size()), &record);
                        return text("%d ", result) + str(record);
                    },
                    "cc_bb");
            }
    }
}

TEST_F(CaptionsReader, ReadsWhatTheLibraryWrites) {
    for (unsigned count = 1; count < 32; ++count) {
        const std::vector<vanc_t> entries = test::numbered_captions(count);
        Bytes unit(200);
        int records = -1;
        const int size = format_sei_cc_nal(unit.data(), 200, entries.data(), test::bytes_of(entries), count, &records);
        ASSERT_GT(size, 0) << count;
        unit.resize(static_cast<std::size_t>(size));
        int offset = 0, nal = 0, suid = 0;
        BOOL more = FALSE;
        SEI_cc_t record = filled_record<SEI_cc_t>(kOld);
        ASSERT_EQ(DetermineSEIType(unit.data(), size, &offset, &nal, &record.header, &suid, &more), TRUE);
        ASSERT_EQ(suid, SEI_SUID_CLOSED_CAPTION);
        ASSERT_EQ(parse_sei_cc_nal(unit.data(), size, &record), TRUE);
        EXPECT_EQ(record.user_identifier, 0x47413934U);
        EXPECT_EQ(record.cc_data.process_cc_data_flag, 1);
        EXPECT_EQ(record.cc_data.cc_count, count);
        for (unsigned i = 0; i < 32; ++i) {
            const caption_t written = i < count ? entries[i].vanc_data.caption : caption_t{kOld, kOld, kOld, kOld};
            const caption_t& read = record.cc_bytes[i];
            EXPECT_EQ(text("%u %u %u %u", read.flag, read.type, read.data1, read.data2),
                      text("%u %u %u %u", written.flag, written.type, written.data1, written.data2));
        }
    }
}

}  // namespace
