#include <climits>

#include "sei_check.h"
#include "vanc_entries.h"

namespace {

using test::BitWriter;
using test::Bytes;
using test::filled_record;
using test::GuardedBuffer;
using test::Lines;
using test::reader_lines;
using test::sei_unit;
using test::text;

constexpr unsigned char kOld = 0x5A;

// A message with an active format description; every element can be set. The payload begins at index 2.
struct Message {
    unsigned country = 0xB5, provider = 0x0031, identifier = 0x44544731;
    unsigned zero_bit = 0, active_format_flag = 1, alignment = 1, reserved = 0xF, active_format = 10, trailing = 0x80;

    Bytes rbsp() const {
        BitWriter bits;
        bits.u(8, 4).u(8, 8 + active_format_flag).u(8, country).u(16, provider).u(32, identifier);
        bits.u(1, zero_bit).u(1, active_format_flag).u(6, alignment);
        if (active_format_flag == 1) bits.u(4, reserved).u(4, active_format);
        return bits.u(8, trailing).bytes();
    }
    // What a record then holds when only these bytes of the rbsp are there.
    SEI_afd_t expected(std::size_t bytes) const {
        SEI_afd_t afd = filled_record<SEI_afd_t>(kOld);
        if (bytes >= 3) afd.itu_t_t35_country_code = static_cast<char>(country);
        if (bytes >= 5) afd.itu_t_t35_provider_code = static_cast<unsigned short>(provider);
        if (bytes >= 9) afd.user_identifier = identifier;
        if (bytes >= 10) afd.afd_data.active_format_flag = static_cast<int>(active_format_flag);
        if (bytes >= 11 && active_format_flag == 1)
            afd.afd_data.active_format = static_cast<unsigned char>(active_format);
        afd.header.payload_index = 2;
        return afd;
    }
};

// Every field of a record.
std::string str(const SEI_afd_t& afd) {
    const int flag = afd.afd_data.active_format_flag;
    return text("%d %u %lu, %d %u, %u %u %u", afd.itu_t_t35_country_code, afd.itu_t_t35_provider_code,
                afd.user_identifier, flag, afd.afd_data.active_format, afd.header.payload_type, afd.header.payload_size,
                afd.header.payload_index);
}

struct Read {
    SEI_afd_t record = filled_record<SEI_afd_t>(kOld);
    BOOL result = -1;

    explicit Read(const Bytes& unit, unsigned payload_index = 2) {
        GuardedBuffer memory(unit);
        record.header.payload_index = payload_index;
        test::clear();
        result = parse_sei_afd_nal(memory.data(), static_cast<int>(unit.size()), &record);
    }
};

Bytes head(const Bytes& bytes, std::size_t count) {
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

class AfdReader : public test::WriterTest {
protected:
    static void expect_read(const Message& message) {
        const Bytes rbsp = message.rbsp();
        for (const int start_code : {3, 4}) {
            const Read read(sei_unit(rbsp, start_code));
            EXPECT_EQ(read.result, TRUE);
            EXPECT_EQ(str(read.record), str(message.expected(rbsp.size())));
            EXPECT_EQ(test::up_to(6, reader_lines()), Lines{});
            EXPECT_EQ(test::assertions(), std::vector<std::string>{});
        }
    }
};

TEST_F(AfdReader, EveryFormatAndNoOtherValueIsCompared) {
    for (unsigned value = 0; value < 256; ++value) {
        Message message;
        message.active_format = value & 0xF;
        message.reserved = value >> 4;
        expect_read(message);
        message.country = value;
        message.provider = value * 257;
        message.identifier = value * 0x01010101U;
        message.zero_bit = value & 1;
        message.alignment = value >> 2;
        message.trailing = value;
        expect_read(message);
        message.active_format_flag = 0;
        expect_read(message);
    }
}

TEST_F(AfdReader, WithoutAFormatTheNextByteEndsTheMessage) {
    Message message;
    message.active_format_flag = 0;
    message.trailing = 0xFA;
    const Bytes rbsp = message.rbsp();
    ASSERT_EQ(rbsp.size(), 11U);
    const Read read(sei_unit(rbsp));
    EXPECT_EQ(read.result, TRUE);
    EXPECT_EQ(read.record.afd_data.active_format_flag, 0);
    EXPECT_EQ(read.record.afd_data.active_format, kOld);
    EXPECT_EQ(Read(sei_unit(head(rbsp, 10))).result, FALSE);
}

TEST_F(AfdReader, Messages) {
    const Bytes unit = sei_unit(Message().rbsp());
    const Read read(unit);
    EXPECT_EQ(reader_lines(),
              (Lines{text("7 parse_sei_afd_nal: Deencapsulation was successful. NAL unit length:%zu, SODB length:12.",
                          unit.size()),
                     "7 _parse_afd: Sanity Check, CountryCode:0xffffffb5, ProviderCode:0x31, "
                     "user_identifier:0x44544731, active_format_flag:0x1, active_format:0xa.",
                     "7 _parse_afd: Sanity Check, Bitbuffer length:96, Current offset:96."}));
    Message other;
    other.country = 0x7F;
    other.provider = other.identifier = 0;
    other.active_format_flag = 0;
    const Read without_format(sei_unit(other.rbsp()));
    EXPECT_EQ(test::up_to(7, reader_lines())[1],
              "7 _parse_afd: Sanity Check, CountryCode:0x7f, ProviderCode:0000, user_identifier:0, "
              "active_format_flag:0, active_format:0x5a.");
    EXPECT_EQ(reader_lines()[2], "7 _parse_afd: Sanity Check, Bitbuffer length:88, Current offset:88.");
}

// Bits that have been passed when the read fails that a message of this many bytes cuts off.
unsigned failing_offset(std::size_t bytes, unsigned active_format_flag) {
    if (bytes < 3) return 16;
    if (bytes < 5) return 24;
    if (bytes < 9) return 40;
    if (bytes < 10) return 73;
    if (bytes < 11) return active_format_flag == 1 ? 84 : 80;
    return 88;
}

TEST_F(AfdReader, CutBehindEveryByte) {
    for (const unsigned flag : {0U, 1U}) {
        Message message;
        message.active_format_flag = flag;
        const Bytes rbsp = message.rbsp();
        for (std::size_t bytes = 2; bytes < rbsp.size(); ++bytes) {
            SCOPED_TRACE(text("%zu of %zu bytes", bytes, rbsp.size()));
            const Bytes unit = sei_unit(head(rbsp, bytes));
            const Read read(unit);
            EXPECT_EQ(read.result, FALSE);
            EXPECT_EQ(str(read.record), str(message.expected(bytes)));
            EXPECT_EQ(reader_lines("afd_bb"),
                      (Lines{text("7 parse_sei_afd_nal: Deencapsulation was successful. NAL unit length:%zu, SODB "
                                  "length:%zu.",
                                  unit.size(), bytes),
                             text("7 parse_sei_afd_nal: Failed to parse afd SEI! afd_bb:*, num_bits:%zu, "
                                  "bit_offset:%u, sei_afd:%p.",
                                  8 * bytes, failing_offset(bytes, flag), static_cast<const void*>(&read.record))}));
            EXPECT_EQ(test::records().dumps.size(), 0U);
        }
    }
}

TEST_F(AfdReader, UnitsOfUpTo32Bytes) {
    const Message message;
    for (const std::size_t size : {12U, 13U, 30U, 31U, 32U, 1000U}) {
        Bytes rbsp = message.rbsp();
        rbsp.resize(size, 0x11);
        const Read read(sei_unit(rbsp));
        EXPECT_EQ(read.result, size <= 31 ? TRUE : FALSE);
        EXPECT_EQ(str(read.record), str(message.expected(size <= 31 ? size : 0)));
        if (size > 31) {
            EXPECT_NE(reader_lines()[0].find("3 parse_sei_afd_nal: Failed to parse afd SEI! buffer:0x"),
                      std::string::npos);
            EXPECT_NE(reader_lines()[0].find(" Length=-1."), std::string::npos);
        }
    }
}

TEST_F(AfdReader, WithoutAUnit) {
    SEI_afd_t record = Message().expected(0);
    const std::string before = str(record);
    for (const int size : {0, 20, -1, INT_MIN}) {
        test::clear();
        EXPECT_EQ(parse_sei_afd_nal(nullptr, size, &record), FALSE);
        EXPECT_EQ(reader_lines(), Lines{"3 parse_sei_afd_nal: Failed to parse afd SEI! buffer:(nil)."});
        EXPECT_EQ(test::assertions(), std::vector<std::string>{});
    }
    struct Case {
        Bytes unit;
        const char* result;
    };
    for (const Case& c : {Case{{6, 4, 11, 0xB5, 0x80}, "."},
                          {{0, 0, 0, 0, 1, 6, 4, 11}, "."},
                          {{0, 0, 2, 6}, "."},
                          {{0, 0}, "."},
                          {{}, "."},
                          {{0, 0, 1, 6}, " Length=-1."},
                          {{0, 0, 1, 6, 4}, " Length=-1."},
                          {{0, 0, 0, 1}, " Length=-1."},
                          {{0, 0, 0, 1, 6, 4}, " Length=-1."}}) {
        GuardedBuffer memory(c.unit);
        test::clear();
        EXPECT_EQ(parse_sei_afd_nal(memory.data(), static_cast<int>(c.unit.size()), &record), FALSE);
        EXPECT_EQ(reader_lines(), (Lines{text("3 parse_sei_afd_nal: Failed to parse afd SEI! buffer:%p%s",
                                              static_cast<void*>(memory.data()), c.result)}));
    }
    EXPECT_EQ(str(record), before);
}

TEST_F(AfdReader, WithoutARecord) {
    const Bytes unit = sei_unit(Message().rbsp());
    GuardedBuffer memory(unit);
    EXPECT_EQ(parse_sei_afd_nal(memory.data(), static_cast<int>(unit.size()), nullptr), FALSE);
    EXPECT_EQ(reader_lines("afd_bb"),
              (Lines{text("7 parse_sei_afd_nal: Deencapsulation was successful. NAL unit length:%zu, SODB length:12.",
                          unit.size()),
                     "3 _parse_afd: Failed to parse afd SEI! afd_bb:*, sei_afd:(nil).",
                     "7 parse_sei_afd_nal: Failed to parse afd SEI! afd_bb:*, num_bits:96, bit_offset:0, "
                     "sei_afd:(nil)."}));
}

TEST_F(AfdReader, AnyPayloadIndex) {
    const Message message;
    const Bytes unit = sei_unit(message.rbsp());  // 12 bytes of data
    EXPECT_EQ(Read(unit, 0).record.itu_t_t35_country_code, 4);
    const Read last(unit, 11);
    EXPECT_EQ(last.result, FALSE);
    EXPECT_EQ(last.record.itu_t_t35_country_code, -128);
    EXPECT_EQ(last.record.itu_t_t35_provider_code, kOld * 257);
    for (const unsigned index : {12U, 13U, 31U, 32U, 33U, 0x1FFFFFFEU, 0x1FFFFFFFU, 0x20000000U, 0x20000002U,
                                 0x40000002U, 0x80000000U, 0xE0000002U, 0xFFFFFFFFU}) {
        const Read read(unit, index);
        EXPECT_EQ(read.result, FALSE);
        SEI_afd_t untouched = message.expected(0);
        untouched.header.payload_index = index;
        EXPECT_EQ(str(read.record), str(untouched)) << index;
    }
}

TEST_F(AfdReader, LevelsChangeNothing) {
    for (const unsigned flag : {0U, 1U}) {
        Message message;
        message.active_format_flag = flag;
        const Bytes rbsp = message.rbsp();
        for (std::size_t bytes = 0; bytes <= rbsp.size(); ++bytes)
            for (const unsigned index : {0U, 2U, 50U, 0x20000002U}) {
                GuardedBuffer memory(sei_unit(head(rbsp, bytes)));
                SEI_afd_t record;
                test::expect_same_at_all_levels(
                    [&] {
                        record = message.expected(0);
                        record.header.payload_index = index;
                        const BOOL result = parse_sei_afd_nal(memory.data(), static_cast<int>(memory.size()), &record);
                        return text("%d ", result) + str(record);
                    },
                    "afd_bb");
            }
    }
}

TEST_F(AfdReader, ReadsWhatTheLibraryWrites) {
    for (int format = -1; format < 16; ++format) {
        const std::vector<vanc_t> entries = {test::afd_of(format >= 0 ? 1 : 0, format)};
        Bytes unit(64);
        const int size = format_sei_afd_nal(unit.data(), 64, entries.data(), static_cast<int>(test::bytes_of(entries)));
        ASSERT_GT(size, 0);
        unit.resize(static_cast<std::size_t>(size));
        int offset = 0, nal = 0, suid = 0;
        BOOL more = FALSE;
        SEI_afd_t record = filled_record<SEI_afd_t>(kOld);
        ASSERT_EQ(DetermineSEIType(unit.data(), size, &offset, &nal, &record.header, &suid, &more), TRUE);
        ASSERT_EQ(suid, SEI_SUID_AFD);
        ASSERT_EQ(parse_sei_afd_nal(unit.data(), size, &record), TRUE);
        EXPECT_EQ(record.user_identifier, 0x44544731U);
        const int flag = record.afd_data.active_format_flag;
        EXPECT_EQ(flag, format >= 0 ? 1 : 0);
        EXPECT_EQ(record.afd_data.active_format, format >= 0 ? format : kOld);
    }
}

}  // namespace
