#include <climits>
#include <random>

#include "buffering_period_model.h"

namespace {

using test::Bytes;
using test::GuardedBuffer;
using test::Lines;
using test::reader_lines;
using test::text;
using Message = test::BufferingPeriodMessage;

constexpr int kNal = 1, kVcl = 2;

// Replaces n bits of an area.
Bytes with_bits(const Bytes& area, std::size_t at, unsigned n, std::uint64_t value) {
    std::vector<bool> bits;
    for (const unsigned char byte : area)
        for (int k = 7; k >= 0; --k) bits.push_back((byte >> k & 1) != 0);
    for (unsigned k = 0; k < n; ++k) bits.at(at + k) = (value >> (n - 1 - k) & 1) != 0;
    Bytes all(area.size(), 0);
    for (std::size_t k = 0; k < bits.size(); ++k)
        all[k / 8] = static_cast<unsigned char>(all[k / 8] | (bits[k] ? 1U : 0U) << (7 - k % 8));
    return all;
}

struct Set {
    BOOL result;
    Bytes area;
    unsigned position;

    // Over the first bits of an area with nothing readable behind them.
    Set(const Message& message, const Bytes& before, std::size_t bits, const sei_bp_set_t& values,
        const sei_buffering_period_t& record, int length = 4) {
        GuardedBuffer memory(before);
        bitbuffer_t bb{memory.data(), 3, static_cast<unsigned>(bits)};  // the position does not matter
        const std::unique_ptr<vui_t> vui = message.vui();
        test::clear();
        result = set_sei_buffering_period(&bb, length, vui.get(), &values, &record);
        area = memory.bytes();
        position = bb.bit_offset;
    }
    Set(const Message& message, const Bytes& before, const sei_bp_set_t& values, const sei_buffering_period_t& record)
        : Set(message, before, 8 * before.size(), values, record) {}
};

sei_buffering_period_t record_of(int after_sps_id, unsigned long nal, unsigned long vcl) {
    auto record = test::filled_record<sei_buffering_period_t>(0x5A);
    record.after_sps_id_offset = after_sps_id;
    record.valid_NALSchedules = nal;
    record.valid_VCLSchedules = vcl;
    return record;
}

// Messages at level 3, without the function's name; no other function says anything there.
Lines errors() {
    Lines found;
    for (const test::Message& message : test::records().messages) {
        if (message.level != 3) continue;
        EXPECT_EQ(message.func, "set_sei_buffering_period");
        EXPECT_EQ(message.file, "h264d.c");
        EXPECT_GT(message.line, 0);
        EXPECT_EQ(message.text.find('\n'), message.text.size() - 1) << message.text;
        found.push_back(message.text.substr(0, message.text.find('\n')));
    }
    return found;
}

using BufferingPeriodSetter = test::WriterTest;

TEST_F(BufferingPeriodSetter, Schedule1Of24BitsIsBits48To95) {
    Message message;
    message.nal = {1, 24, 2};
    for (const int start : {17, 19, 24, 31})
        for (const unsigned char fill : Bytes{0x00, 0xFF, 0x5A}) {
            const Bytes before(20, fill);
            const Set set(message, before, {1, kNal, 0x123456, 0xABCDEF}, record_of(start, 2, 0));
            EXPECT_EQ(set.result, TRUE);
            const auto at = static_cast<std::size_t>(start);
            EXPECT_EQ(set.area, with_bits(with_bits(before, at + 48, 24, 0x123456), at + 72, 24, 0xABCDEF));
            EXPECT_EQ(set.position, at + 96);
            EXPECT_EQ(reader_lines(), Lines{});
            EXPECT_EQ(test::assertions(), std::vector<std::string>{});
        }
}

TEST_F(BufferingPeriodSetter, ChangesExactlyTheBitsItNames) {
    std::mt19937 random(5);
    const auto below = [&](unsigned long n) { return static_cast<unsigned>(random() % n); };
    for (int run = 0; run < 4000; ++run) {
        Message message;
        const int hrds = static_cast<int>(1 + below(3));
        message.nal = {hrds & 1, 1 + below(32), 1 + below(32)};
        message.vcl = {hrds & 2, 1 + below(32), 1 + below(32)};
        const int type = hrds == 3 ? static_cast<int>(1 + below(2)) : hrds;
        const test::Schedules& hrd = type == kNal ? message.nal : message.vcl;
        const unsigned long schedule = below(hrd.schedules);
        const int start = static_cast<int>(below(60));
        const sei_bp_set_t values = {schedule, type, random() | static_cast<unsigned long>(random()) << 32, random()};
        // The schedules of a VCL HRD are looked for at the same place, those of a NAL HRD or not.
        const std::size_t at = static_cast<std::size_t>(start) + 2 * schedule * hrd.length;
        const std::size_t end = at + std::size_t{2} * hrd.length;
        Bytes before((end + 7) / 8 + below(3));
        for (unsigned char& byte : before) byte = static_cast<unsigned char>(random());
        test::set_level(run % 2 == 0 ? 8 : 3);
        const Set set(message, before, values, record_of(start, message.nal.schedules, message.vcl.schedules));
        ASSERT_EQ(set.result, TRUE);
        const Bytes first = with_bits(before, at, hrd.length, values.initial_cpb_removal_delay);
        const Bytes both = with_bits(first, at + hrd.length, hrd.length, values.initial_cpb_removal_delay_offset);
        ASSERT_EQ(set.area, both) << run;
        ASSERT_EQ(set.position, end);
        ASSERT_EQ(reader_lines(), Lines{});

        // The same where the data ends early: what cannot be reached is not written.
        const std::size_t bits = below(end);
        const Set cut(message, before, bits, values, record_of(start, 32, 32));
        ASSERT_EQ(cut.result, FALSE);
        const bool has_first = at + hrd.length <= bits;
        ASSERT_EQ(cut.area, has_first ? first : before);
        ASSERT_EQ(errors().size(), 1U);
    }
}

TEST_F(BufferingPeriodSetter, TheVclHrdBehindANalHrdIsNotFound) {
    Message message;
    message.nal = {1, 20, 1};
    message.vcl = {1, 24, 2};
    const Bytes before = test::BufferingPeriodModel(message).bits.bytes();
    const Set set(message, before, {1, kVcl, 0, 0}, record_of(17, 1, 2));
    EXPECT_EQ(set.result, TRUE);
    // Bits 40 to 135 behind the id are the VCL HRD's; 48 to 95 have been written.
    EXPECT_EQ(set.area, with_bits(before, 17 + 48, 48, 0));
}

TEST_F(BufferingPeriodSetter, SchedulesOutOfRange) {
    Message message;
    message.nal = message.vcl = {1, 8, 3};
    const Bytes before(300, 0xC3);
    struct Case {
        unsigned long schedule, valid;
        const char* numbers;
    };
    for (const Case& c : {Case{3, 3, "3 %s 3."},
                          {4, 3, "4 %s 3."},
                          {0, 0, "0 %s 0."},
                          {ULONG_MAX, 3, "-1 %s 3."},
                          {ULONG_MAX, ULONG_MAX, "-1 %s -1."},
                          {ULONG_MAX, 0, "-1 %s 0."},
                          {1UL << 32, 3, "0 %s 3."}})
        for (const int type : {kNal, kVcl}) {
            const Set set(message, before, {c.schedule, type, 1, 2},
                          record_of(17, type == kNal ? c.valid : 9, type == kVcl ? c.valid : 9));
            EXPECT_EQ(set.result, FALSE);
            EXPECT_EQ(set.area, before);
            EXPECT_EQ(set.position, 3U) << "not moved";
            std::string numbers = c.numbers;
            numbers.replace(numbers.find("%s"), 2, "that is out of range");
            EXPECT_EQ(errors(), Lines{text("Trying to set a %s schedule:", type == kNal ? "NAL" : "VCL") + numbers});
        }
}

TEST_F(BufferingPeriodSetter, OtherTypesAreRejected) {
    Message message;
    message.nal = message.vcl = {1, 8, 1};
    const Bytes before(30, 0xC3);
    for (const int type : {0, 3, -1, 4, INT_MAX, INT_MIN}) {
        const Set set(message, before, {0, type, 1, 2}, record_of(17, 9, 9));
        EXPECT_EQ(set.result, FALSE);
        EXPECT_EQ(set.area, before);
        EXPECT_EQ(set.position, 3U) << "not moved";
        EXPECT_EQ(errors(), Lines{text("enHRDCbpType %d not in the known types.", type)});
    }
}

TEST_F(BufferingPeriodSetter, WithoutTheHrdNothingIsWritten) {
    const Bytes before(30, 0xC3);
    for (const int hrds : {0, 1, 2})
        for (const int type : {kNal, kVcl}) {
            if ((hrds & type) != 0) continue;
            Message message;
            message.nal = {hrds & 1, 24, 2};
            message.vcl = {hrds & 2, 24, 2};
            const Set set(message, before, {1, type, 1, 2}, record_of(17, 2, 2));
            EXPECT_EQ(set.result, FALSE);
            EXPECT_EQ(set.area, before);
            EXPECT_EQ(set.position, 17U) << "behind seq_parameter_set_id";
            EXPECT_EQ(test::records().messages.size(), 0U);
        }
}

TEST_F(BufferingPeriodSetter, DataThatEnds) {
    for (const int type : {kNal, kVcl}) {
        Message message;
        (type == kNal ? message.nal : message.vcl) = {1, 11, 3};
        const char* suffix = type == kNal ? "" : "_vcl";
        const sei_bp_set_t values = {2, type, 0xFFFFFFFFFFFFF2BE, 0xFFFFFFFFFFFFFD41};
        const Bytes before(11, 0xC3);  // 22 bits in front, 66 of schedules
        const std::size_t start = 22;
        for (std::size_t bits = 0; bits < 88; ++bits) {
            const Set set(message, before, bits, values, record_of(static_cast<int>(start), 3, 3));
            EXPECT_EQ(set.result, FALSE);
            std::string expected;
            Bytes area = before;
            const std::size_t fields = bits < start ? 0 : (bits - start) / 11;
            if (fields < 4) {
                expected = text("cannot parse initial_cpb_removal_delay%s%s[%zu] as string.",
                                fields % 2 == 1 ? "_offset" : "", suffix, fields / 2);
            } else if (fields == 4) {
                expected = "Failed to set initial_cpb_removal_delay:18446744073709548222 for SchedSelIdx:2.";
            } else {
                // A first write that fails ends the call: only a second one leaves the first value.
                expected = "Failed to set initial_cpb_removal_delay_offset:18446744073709550913 for SchedSelIdx:2.";
                area = with_bits(before, start + 44, 11, 0x2BE);
            }
            EXPECT_EQ(errors(), Lines{expected});
            EXPECT_EQ(set.area, area);
            EXPECT_EQ(set.position, start + 11 * fields) << bits;
        }
        EXPECT_EQ(Set(message, before, values, record_of(22, 3, 3)).result, TRUE);
    }
}

TEST_F(BufferingPeriodSetter, AfterAFailedFirstWriteTheSecondIsNotTried) {
    Message message;
    message.nal = {1, 33, 1};
    const Bytes before(30, 0xC3);
    const Set set(message, before, {0, kNal, 1, 2}, record_of(17, 1, 1));
    EXPECT_EQ(set.result, FALSE);
    EXPECT_EQ(set.area, before);
    EXPECT_EQ(errors(), Lines{"Failed to set initial_cpb_removal_delay:1 for SchedSelIdx:0."});
    EXPECT_EQ(test::assertions(), std::vector<std::string>{"n <= 32"});
}

TEST_F(BufferingPeriodSetter, LengthsAbove32AreSkippedAndNotWritten) {
    for (unsigned length = 33; length <= 256; ++length)
        for (const int type : {kNal, kVcl}) {
            Message message;
            (type == kNal ? message.nal : message.vcl) = {1, length, 2};
            const Bytes before(200, 0xC3);
            const Set set(message, before, {1, type, 1, 2}, record_of(17, 2, 2));
            EXPECT_EQ(set.result, FALSE);
            EXPECT_EQ(set.area, before);
            EXPECT_EQ(set.position, 17 + 2 * length);
            EXPECT_EQ(errors(), Lines{"Failed to set initial_cpb_removal_delay:1 for SchedSelIdx:1."});
            EXPECT_EQ(test::assertions(), std::vector<std::string>{"n <= 32"});
        }
}

TEST_F(BufferingPeriodSetter, PositionsAndSchedulesBehindTheData) {
    Message message;
    message.nal = {1, 24, 1};
    const Bytes before(30, 0xC3);
    for (const int position : {240, 241, 100000, INT_MAX, -1, -240, INT_MIN})
        for (const unsigned long schedule : {0UL, 1UL, 1UL << 40}) {
            const Set set(message, before, {schedule, kNal, 1, 2}, record_of(position, ULONG_MAX, 1));
            EXPECT_EQ(set.result, FALSE);
            EXPECT_EQ(set.area, before);
            EXPECT_EQ(errors(), Lines{schedule == 0 ? "Failed to set initial_cpb_removal_delay:1 for SchedSelIdx:0."
                                                    : "cannot parse initial_cpb_removal_delay[0] as string."});
        }
    const Set set(message, before, {1UL << 40, kNal, 1, 2}, record_of(0, ULONG_MAX, 1));
    EXPECT_EQ(set.result, FALSE);
    EXPECT_EQ(set.area, before);
    EXPECT_EQ(errors(), Lines{"cannot parse initial_cpb_removal_delay[5] as string."});
}

TEST_F(BufferingPeriodSetter, TracesOfTheSkippedAndTheWritten) {
    Message message;
    message.nal = {1, 24, 3};
    const Set set(message, Bytes(40, 0), {2, kNal, 1, 2}, record_of(17, 3, 0));
    int read = 0, written = 0;
    for (const test::Message& m : test::records().messages) {
        EXPECT_GE(m.level, 7) << m.text;
        EXPECT_EQ(m.file, "bitbuffer.c");
        read += m.text.find("BitOffset:") == 0;
        written += m.text.find("ByteOff=") == 0;
    }
    EXPECT_EQ(read, 4);
    EXPECT_EQ(written, 2);
}

TEST_F(BufferingPeriodSetter, Preconditions) {
    Message message;
    message.nal = {1, 24, 1};
    const std::unique_ptr<vui_t> vui = message.vui();
    const sei_bp_set_t values = {0, kNal, 1, 2};
    const sei_buffering_period_t record = record_of(17, 1, 0);
    const Bytes before(30, 0xC3);
    for (unsigned missing = 0; missing < 16; ++missing)
        for (const int length : {4, 3, 0, -1, INT_MIN, INT_MAX}) {
            GuardedBuffer memory(before);
            bitbuffer_t bb{memory.data(), 0, 240};
            test::clear();
            const BOOL result = set_sei_buffering_period(
                (missing & 1) != 0 ? nullptr : &bb, length, (missing & 2) != 0 ? nullptr : vui.get(),
                (missing & 4) != 0 ? nullptr : &values, (missing & 8) != 0 ? nullptr : &record);
            // A length that is too small is reported, and plays no part otherwise.
            EXPECT_EQ(result, missing == 0 ? TRUE : FALSE);
            std::vector<std::string> expected;
            if ((missing & 1) != 0) expected.emplace_back("bp_bb != NULL");
            if (length < 4) expected.emplace_back("BpLen >= 4");
            if ((missing & 2) != 0) expected.emplace_back("pVui != NULL");
            if ((missing & 4) != 0) expected.emplace_back("pBpValues != NULL");
            if ((missing & 8) != 0) expected.emplace_back("pSei_bp != NULL");
            EXPECT_EQ(test::assertions(), expected);
            for (const test::Assertion& assertion : test::records().assertions) {
                EXPECT_EQ(assertion.func, "set_sei_buffering_period");
                EXPECT_EQ(assertion.file, "h264d.c");
            }
            if (missing != 0) {
                EXPECT_EQ(memory.bytes(), before);
            }
        }
}

TEST_F(BufferingPeriodSetter, LevelsChangeNothing) {
    for (const int type : {0, kNal, kVcl})
        for (const int hrds : {1, 2, 3})
            for (const unsigned length : {24U, 32U, 33U})
                for (std::size_t bits = 0; bits <= 240; bits += 5) {
                    Message message;
                    message.nal = {hrds & 1, length, 3};
                    message.vcl = {hrds & 2, length, 3};
                    const std::unique_ptr<vui_t> vui = message.vui();
                    const sei_bp_set_t values = {1, type, 0x123456789, 0xABCDEF};
                    const sei_buffering_period_t record = record_of(17, 3, 2);
                    test::expect_same_at_all_levels([&] {
                        GuardedBuffer memory(Bytes(30, 0xC3));
                        bitbuffer_t bb{memory.data(), 0, static_cast<unsigned>(bits)};
                        const BOOL result = set_sei_buffering_period(&bb, 30, vui.get(), &values, &record);
                        const Bytes after = memory.bytes();
                        return text("%d %u ", result, bb.bit_offset) + std::string(after.begin(), after.end());
                    });
                }
}

TEST_F(BufferingPeriodSetter, ReadChangedAndReadAgain) {
    for (const int hrds : {1, 2, 3})
        for (const unsigned length : {1U, 8U, 24U, 32U})
            for (unsigned long schedule = 0; schedule < 3; ++schedule) {
                const int type = hrds == 2 ? kVcl : kNal;
                Message message;
                message.sps_id = 4;
                message.nal = {hrds & 1, length, 3};
                message.vcl = {hrds & 2, hrds == 3 ? 33 - length : length, 3};
                const std::unique_ptr<vui_t> vui = message.vui();
                Bytes rbsp = test::join(test::BufferingPeriodModel(message).bits.bytes(), {0x80});
                const Bytes unit = test::sei_unit(rbsp);
                sei_buffering_period_t before = test::untouched_period();
                ASSERT_EQ(
                    parse_sei_buffering_period_nal(unit.data(), static_cast<int>(unit.size()), vui.get(), &before),
                    TRUE);
                // A delay of 0 wants emulation prevention that the source did not need.
                const sei_bp_set_t values = {schedule, type, 0, test::low_bits(0x80000001, length)};
                bitbuffer_t bb;
                DoInitBitBuffer(&bb, rbsp.data(), static_cast<int>(8 * rbsp.size()));
                ASSERT_EQ(set_sei_buffering_period(&bb, static_cast<int>(rbsp.size()), vui.get(), &values, &before),
                          TRUE);
                Bytes changed(unit.begin(), unit.begin() + 5);
                changed.resize(5 + 4 * ((rbsp.size() + 2) / 3));
                const int size =
                    RBSP_encapsulation_within_NAL(rbsp.data(), static_cast<unsigned>(rbsp.size()), changed.data() + 5,
                                                  static_cast<unsigned>(changed.size() - 5));
                ASSERT_GT(size, 0);
                sei_buffering_period_t after = test::untouched_period();
                ASSERT_EQ(parse_sei_buffering_period_nal(changed.data(), 5 + size, vui.get(), &after), TRUE);
                sei_buffering_period_t expected = before;
                (type == kNal ? expected.initial_cpb_removal_delay : expected.initial_cpb_removal_delay_vcl)[schedule] =
                    0;
                (type == kNal ? expected.initial_cpb_removal_delay_offset
                              : expected.initial_cpb_removal_delay_offset_vcl)[schedule] =
                    test::low_bits(0x80000001, length);
                EXPECT_EQ(test::str(after), test::str(expected));
            }
}

}  // namespace
