#include <sys/mman.h>

#include <climits>

#include "allocation_watch.h"
#include "buffering_period_model.h"

namespace {

using test::AllocationWatch;
using test::BitWriter;
using test::Bytes;
using test::GuardedBuffer;
using test::Lines;
using test::reader_lines;
using test::sei_unit;
using test::str;
using test::text;
using Message = test::BufferingPeriodMessage;
using Model = test::BufferingPeriodModel;

struct Read {
    sei_buffering_period_t record;
    BOOL result = -1;

    Read(const Message& message, const Bytes& unit, unsigned payload_index = 2)
        : record(test::untouched_period(payload_index)) {
        GuardedBuffer memory(unit);
        const std::unique_ptr<vui_t> vui = message.vui();
        test::clear();
        const AllocationWatch watch;
        result = parse_sei_buffering_period_nal(memory.data(), static_cast<int>(unit.size()), vui.get(), &record);
        EXPECT_EQ(watch.sizes(), std::vector<std::size_t>{unit.size()});
        EXPECT_EQ(watch.not_freed(), 0U);
    }
};

std::vector<std::string> own_assertions() {
    std::vector<std::string> found;
    for (const test::Assertion& assertion : test::records().assertions) {
        if (assertion.func != "parse_sei_buffering_period_nal" && assertion.func != "_parse_bp") continue;
        EXPECT_EQ(assertion.file, "h264d.c");
        found.push_back(assertion.func + ": " + assertion.expression);
    }
    return found;
}

class BufferingPeriod : public test::WriterTest {
protected:
    // The message cut to so many bytes, against the model.
    static void expect_read(const Message& message, std::size_t bytes = SIZE_MAX) {
        Bytes rbsp = Model(message).bits.bytes();
        if (bytes < rbsp.size()) rbsp.resize(bytes);
        const Model model(message, 8 * rbsp.size());
        const Bytes unit = sei_unit(rbsp);
        const Read read(message, unit);
        EXPECT_EQ(read.result, model.result ? TRUE : FALSE);
        EXPECT_EQ(str(read.record), str(model.record));
        EXPECT_EQ(test::assertions(), std::vector<std::string>{});
        Lines expected = {
            text("7 parse_sei_buffering_period_nal: Deencapsulation was successful. NAL unit "
                 "length:%zu, SODB length:%zu bytes.",
                 unit.size(), rbsp.size())};
        expected.insert(expected.end(), model.lines.begin(), model.lines.end());
        Lines lines = reader_lines("bp_bb");
        ASSERT_EQ(test::records().dumps.size(), model.result ? 0U : 1U);
        if (!model.result) {
            // Where a code that is cut off leaves the position is the accessor's business.
            const std::string last = lines.back();
            const std::size_t at = last.find("bit_offset:") + 11;
            const std::string offset = last.substr(at, last.find(',', at) - at);
            if (model.offset != 0) {
                EXPECT_EQ(offset, std::to_string(model.offset));
            }
            expected.push_back(
                text("7 parse_sei_buffering_period_nal: Failed to parse SEI buffering period! bp_bb:*, "
                     "num_bits:%zu, bit_offset:%s, pSei_bp:%p.",
                     8 * rbsp.size(), offset.c_str(), static_cast<const void*>(&read.record)));
            const test::Dump& dump = test::records().dumps[0];
            EXPECT_EQ(dump.level, 7);
            EXPECT_EQ(dump.label, "WRONG SEI buffering period NAL");
            EXPECT_EQ(dump.func, "parse_sei_buffering_period_nal");
            EXPECT_EQ(dump.file, "h264d.c");
            EXPECT_EQ(dump.bytes, unit);
            EXPECT_EQ(dump.order, test::records().messages.size());
        }
        EXPECT_EQ(lines, expected);
    }
};

TEST_F(BufferingPeriod, TwoSchedulesOf24Bits) {
    Message message;
    message.sps_id = 1;  // 3 bits
    message.nal = {1, 24, 2};
    expect_read(message);
    const Bytes rbsp = BitWriter().u(8, 0).u(8, 13).ue(1).u(24, 1).u(24, 2).u(24, 0x800000).u(24, 0).trailing().bytes();
    const Read read(message, sei_unit(rbsp));
    EXPECT_EQ(read.result, TRUE);
    EXPECT_EQ(read.record.after_sps_id_offset, 19);
    EXPECT_EQ(read.record.valid_NALSchedules, 2U);
    EXPECT_EQ(read.record.initial_cpb_removal_delay[0], 1U);
    EXPECT_EQ(read.record.initial_cpb_removal_delay_offset[0], 2U);
    EXPECT_EQ(read.record.initial_cpb_removal_delay[1], 0x800000U);
    EXPECT_EQ(read.record.initial_cpb_removal_delay_offset[1], 0U);
    EXPECT_EQ(read.record.valid_VCLSchedules, test::untouched_period().valid_VCLSchedules) << "no such HRD";
}

TEST_F(BufferingPeriod, EveryLengthInEitherHrd) {
    for (unsigned length = 1; length <= 32; ++length)
        for (const int hrds : {0, 1, 2, 3})
            for (const unsigned long sps_id : {0UL, 3UL, 31UL, 255UL, 65535UL, 4294967294UL}) {
                Message message;
                message.sps_id = sps_id;
                message.nal = {hrds & 1, length, 1 + length % 4};
                message.vcl = {hrds & 2, 33 - length, 1 + length % 3};
                expect_read(message);
            }
}

TEST_F(BufferingPeriod, LengthsAbove32AreInvalid) {
    for (unsigned length = 33; length <= 256; ++length) {
        Message message;
        message.nal = {1, length, 1};
        message.vcl = {1, 24, 1};
        expect_read(message);
        EXPECT_EQ(
            test::up_to(3, reader_lines()),
            (Lines{text("3 _parse_bp: invalid nal_hrd.initial_cpb_removal_delay_length_minus1[%u].", length - 1)}));
        message.nal = {1, 24, 3};
        message.vcl = {1, length, 1};
        expect_read(message);
        EXPECT_EQ(
            test::up_to(3, reader_lines()),
            (Lines{text("3 _parse_bp: invalid vcl_hrd.initial_cpb_removal_delay_length_minus1[%u].", length - 1)}));
        message.nal.present = 0;
        expect_read(message);
        message.vcl.present = 0;
        expect_read(message);
    }
}

TEST_F(BufferingPeriod, SchedulesBeyond32AreReadAndNotStored) {
    for (unsigned long schedules = 1; schedules <= 70; ++schedules) {
        Message message;
        message.nal = {1, 9, schedules};
        message.vcl = {1, 17, 71 - schedules};
        expect_read(message);
    }
    Message message;
    message.nal = message.vcl = {1, 24, 40};
    const Read read(message, sei_unit(Model(message).bits.bytes()));
    EXPECT_EQ(read.result, TRUE);
    EXPECT_EQ(read.record.valid_NALSchedules, 40U);
    EXPECT_EQ(read.record.valid_VCLSchedules, 40U);
    EXPECT_EQ(read.record.initial_cpb_removal_delay_offset_vcl[31], test::low_bits(test::schedule_value(3, 31), 24));
}

TEST_F(BufferingPeriod, MoreSchedulesThanTheMessageHolds) {
    for (const unsigned long schedules : {1000UL, 1UL << 32, (1UL << 32) + 1, ULONG_MAX, 0UL}) {
        Message message;
        message.nal = {1, 8, schedules};
        const Read read(message, sei_unit(Bytes(101, 0xAA)));
        EXPECT_EQ(read.result, FALSE);
        EXPECT_EQ(read.record.valid_NALSchedules, test::untouched_period().valid_NALSchedules);
        // The id takes 1 bit, each schedule 16 of the other 791.
        EXPECT_EQ(test::up_to(6, reader_lines()), Lines{"3 _parse_bp: cannot parse initial_cpb_removal_delay[49]."});
    }
}

TEST_F(BufferingPeriod, EveryElementMayBeCutOff) {
    for (const unsigned length : {1U, 3U, 8U, 24U, 31U, 32U})
        for (const int hrds : {1, 2, 3})
            for (const unsigned long sps_id : {0UL, 12UL, 4000UL}) {
                Message message;
                message.sps_id = sps_id;
                message.nal = {hrds & 1, length, 3};
                message.vcl = {hrds & 2, 33 - length, 2};
                const std::size_t all = Model(message).bits.bytes().size();
                for (std::size_t bytes = 2; bytes <= all && !HasFailure(); ++bytes) {
                    SCOPED_TRACE(text("%zu of %zu bytes", bytes, all));
                    expect_read(message, bytes);
                }
            }
}

TEST_F(BufferingPeriod, UnitsOfAnyLength) {
    Message message;
    message.nal = {1, 32, 20000};
    expect_read(message);
    expect_read(message, 100000);
}

// A payload of more bits than an int counts is read as far as it goes.
TEST_F(BufferingPeriod, APayloadOf256MegabytesIsRead) {
    Message message;
    message.nal = {1, 24, 1};
    constexpr std::size_t kBytes = (std::size_t{1} << 28) + 4096;
    void* memory = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    const Bytes unit = sei_unit(Model(message).bits.bytes());
    std::memcpy(memory, unit.data(), unit.size());
    test::reset(6);
    const std::unique_ptr<vui_t> vui = message.vui();
    sei_buffering_period_t record = test::untouched_period();
    const auto* start = static_cast<const unsigned char*>(memory);
    EXPECT_EQ(parse_sei_buffering_period_nal(start, static_cast<int>(kBytes), vui.get(), &record), TRUE);
    EXPECT_EQ(record.initial_cpb_removal_delay[0], test::low_bits(test::schedule_value(0, 0), 24));
    EXPECT_EQ(test::assertions(), std::vector<std::string>{});
    // Of the payload's last bytes nothing is read.
    record = test::untouched_period((1U << 28) - 1);
    EXPECT_EQ(parse_sei_buffering_period_nal(start, static_cast<int>(kBytes), vui.get(), &record), FALSE);
    EXPECT_EQ(test::up_to(5, reader_lines()), Lines{"3 _parse_bp: cannot parse seq_parameter_set_id."});
    EXPECT_EQ(test::assertions(), std::vector<std::string>{});
    munmap(memory, kBytes);
}

TEST_F(BufferingPeriod, WithoutAUnit) {
    const Message message;
    const std::unique_ptr<vui_t> vui = message.vui();
    sei_buffering_period_t record = test::untouched_period();
    EXPECT_EQ(parse_sei_buffering_period_nal(nullptr, 20, vui.get(), &record), FALSE);
    EXPECT_EQ(own_assertions(), std::vector<std::string>{"parse_sei_buffering_period_nal: buffer != NULL"});
    EXPECT_EQ(reader_lines(),
              Lines{"3 parse_sei_buffering_period_nal: Failed to parse SEI buffering period! buffer:(nil)."});
    struct Case {
        Bytes unit;
        const char* result;
    };
    for (const Case& c : {Case{{6, 0, 11, 0xB5, 0x80}, "."},
                          {{0, 0, 0, 0, 1, 6, 0, 1}, "."},
                          {{0, 0, 2, 6}, "."},
                          {{0}, "."},
                          {{0, 0, 0}, "."},
                          {{0, 0, 1}, " Length=-1."},
                          {{0, 0, 1, 6}, " Length=-1."},
                          {{0, 0, 1, 6, 0}, " Length=-1."},
                          {{0, 0, 0, 1}, " Length=-1."},
                          {{0, 0, 0, 1, 6, 0}, " Length=-1."},
                          {{0, 0, 1, 14, 0, 0, 0}, " Length=0."}}) {
        GuardedBuffer memory(c.unit);
        test::clear();
        const AllocationWatch watch;
        EXPECT_EQ(parse_sei_buffering_period_nal(memory.data(), static_cast<int>(c.unit.size()), vui.get(), &record),
                  FALSE);
        EXPECT_EQ(watch.not_freed(), 0U);
        EXPECT_EQ(reader_lines(), (Lines{text("3 parse_sei_buffering_period_nal: Failed to parse SEI buffering period! "
                                              "buffer:%p%s",
                                              static_cast<void*>(memory.data()), c.result)}));
        EXPECT_EQ(own_assertions(), c.unit.size() < 4
                                        ? std::vector<std::string>{"parse_sei_buffering_period_nal: buffer_len >= 4"}
                                        : std::vector<std::string>{});
    }
    const Bytes unit = sei_unit(Model(message).bits.bytes());
    for (const int size : {0, -1, INT_MIN}) {
        test::clear();
        const AllocationWatch watch;
        EXPECT_EQ(parse_sei_buffering_period_nal(unit.data(), size, vui.get(), &record), FALSE);
        EXPECT_EQ(watch.sizes(), std::vector<std::size_t>{});
        EXPECT_EQ(reader_lines(),
                  Lines{text("3 parse_sei_buffering_period_nal: Failed to parse SEI buffering period! buffer:%p.",
                             static_cast<const void*>(unit.data()))});
        EXPECT_EQ(own_assertions(), std::vector<std::string>{"parse_sei_buffering_period_nal: buffer_len >= 4"});
    }
    EXPECT_EQ(str(record), str(test::untouched_period()));
}

TEST_F(BufferingPeriod, WithoutVuiOrRecord) {
    const Message message;
    const Bytes unit = sei_unit(Model(message).bits.bytes());
    const std::unique_ptr<vui_t> vui = message.vui();
    sei_buffering_period_t record = test::untouched_period();
    for (const int missing : {1, 2, 3}) {
        const vui_t* set = (missing & 1) != 0 ? nullptr : vui.get();
        sei_buffering_period_t* bp = (missing & 2) != 0 ? nullptr : &record;
        test::clear();
        EXPECT_EQ(parse_sei_buffering_period_nal(unit.data(), static_cast<int>(unit.size()), set, bp), FALSE);
        std::vector<std::string> expected;
        for (const std::string function : {"parse_sei_buffering_period_nal", "_parse_bp"}) {
            if (set == nullptr) expected.push_back(function + ": pVui != NULL");
            if (bp == nullptr) expected.push_back(function + ": pSei_bp != NULL");
        }
        EXPECT_EQ(own_assertions(), expected);
        const Lines lines = reader_lines("bp_bb");
        ASSERT_EQ(lines.size(), 3U);
        EXPECT_EQ(lines[1], "3 _parse_bp: Failed to parse SEI buffering period!");
        EXPECT_EQ(lines[2], text("7 parse_sei_buffering_period_nal: Failed to parse SEI buffering period! bp_bb:*, "
                                 "num_bits:24, bit_offset:0, pSei_bp:%p.",
                                 static_cast<void*>(bp)));
        EXPECT_EQ(test::records().dumps.size(), 1U);
    }
    EXPECT_EQ(str(record), str(test::untouched_period()));
}

TEST_F(BufferingPeriod, AnyPayloadIndex) {
    Message message;
    message.nal = {1, 24, 1};
    const Bytes unit = sei_unit(Model(message).bits.bytes());  // 9 bytes of data
    for (const unsigned index : {9U, 10U, 14U, 15U, 0x1FFFFFFFU, 0x20000000U, 0x20000002U, 0x40000002U, 0x80000000U,
                                 0xE0000002U, 0xFFFFFFFFU}) {
        const Read read(message, unit, index);
        EXPECT_EQ(read.result, FALSE);
        EXPECT_EQ(str(read.record), str(test::untouched_period(index)));
        EXPECT_EQ(test::up_to(6, reader_lines()), Lines{"3 _parse_bp: cannot parse seq_parameter_set_id."});
    }
}

TEST_F(BufferingPeriod, LevelsChangeNothing) {
    for (const unsigned length : {24U, 32U, 33U})
        for (const int hrds : {0, 1, 2, 3})
            for (std::size_t bytes = 0; bytes < 40; bytes += 3)
                for (const unsigned index : {2U, 200U, 0x20000002U}) {
                    Message message;
                    message.nal = {hrds & 1, 24, 2};
                    message.vcl = {hrds & 2, length, 2};
                    Bytes rbsp = Model(message).bits.bytes();
                    rbsp.resize(std::min(bytes, rbsp.size()));
                    GuardedBuffer memory(sei_unit(rbsp));
                    const std::unique_ptr<vui_t> vui = message.vui();
                    sei_buffering_period_t record;
                    test::expect_same_at_all_levels(
                        [&] {
                            record = test::untouched_period(index);
                            const BOOL result = parse_sei_buffering_period_nal(
                                memory.data(), static_cast<int>(memory.size()), vui.get(), &record);
                            return text("%d ", result) + str(record);
                        },
                        "bp_bb");
                }
}

TEST_F(BufferingPeriod, BehindAnotherMessageOfAWalk) {
    Message message;
    message.nal = {1, 24, 1};
    const Bytes bp = Bytes(BitWriter().ue(0).u(24, 0).u(24, 3).trailing().bytes());
    const Bytes unit =
        sei_unit(test::join(test::join({5, 3, 0, 0, 0, 0, static_cast<unsigned char>(bp.size())}, bp), {0x80}));
    int offset = 0, nal = 0, suid = 77;
    BOOL more = FALSE;
    sei_buffering_period_t record = test::untouched_period();
    const int size = static_cast<int>(unit.size());
    ASSERT_EQ(DetermineSEIType(unit.data(), size, &offset, &nal, &record.header, &suid, &more), TRUE);
    ASSERT_EQ(more, TRUE);
    ASSERT_EQ(DetermineSEIType(unit.data(), size, &offset, &nal, &record.header, &suid, &more), TRUE);
    EXPECT_EQ(suid, SEI_SUID_NONE);
    ASSERT_EQ(record.header.payload_type, 0);
    ASSERT_EQ(parse_sei_buffering_period_nal(unit.data(), size, message.vui().get(), &record), TRUE);
    EXPECT_EQ(record.after_sps_id_offset, 57);
    EXPECT_EQ(record.initial_cpb_removal_delay[0], 0U);
    EXPECT_EQ(record.initial_cpb_removal_delay_offset[0], 3U);
}

}  // namespace
