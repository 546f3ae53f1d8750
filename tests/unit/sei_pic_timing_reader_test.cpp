#include <climits>

#include "pic_timing_message.h"
#include "pic_timing_model.h"

namespace {

using test::Bytes;
using test::ClockTimestamp;
using test::GuardedBuffer;
using test::Lines;
using test::reader_lines;
using test::sei_unit;
using test::str;
using test::text;
using test::TimingMessage;
using test::TimingModel;

struct Read {
    sei_pic_timing_t record = TimingMessage::untouched();
    BOOL result = -1;

    Read(const TimingMessage& message, const Bytes& unit, unsigned payload_index = 2) {
        GuardedBuffer memory(unit);
        record.header.payload_index = payload_index;
        const std::unique_ptr<sps_t> sps = message.sps();
        test::clear();
        result = parse_sei_pictiming_nal(memory.data(), static_cast<int>(unit.size()), sps.get(), &record);
    }
};

class PicTimingReader : public test::WriterTest {
protected:
    // The message cut to so many bytes, against the model.
    static void expect_read(const TimingMessage& message, std::size_t bytes = SIZE_MAX) {
        Bytes rbsp = TimingModel(message).bits.bytes();
        if (bytes < rbsp.size()) rbsp.resize(bytes);
        const TimingModel model(message, 8 * rbsp.size());
        const Bytes unit = sei_unit(rbsp);
        const Read read(message, unit);
        EXPECT_EQ(read.result, model.result ? TRUE : FALSE);
        EXPECT_EQ(str(read.record), str(model.record));
        Lines lines = {
            text("7 parse_sei_pictiming_nal: Deencapsulation was successful. NAL unit length:%zu, SODB "
                 "length:%zu.",
                 unit.size(), rbsp.size())};
        lines.insert(lines.end(), model.lines.begin(), model.lines.end());
        if (!model.result) lines.push_back("3 parse_sei_pictiming_nal: Failed to parse pictiming SEI!.");
        EXPECT_EQ(reader_lines(), lines);
        ASSERT_EQ(test::records().dumps.size(), 1U);
        const test::Dump& dump = test::records().dumps[0];
        EXPECT_EQ(dump.label, "Pictiming SEI NAL");
        EXPECT_EQ(dump.level, 7);
        EXPECT_EQ(dump.func, "parse_sei_pictiming_nal");
        EXPECT_EQ(dump.file, "h264d.c");
        EXPECT_EQ(dump.bytes, unit);
        EXPECT_EQ(dump.order, 0U);
    }
    static void expect_read_at_every_length(const TimingMessage& message) {
        const std::size_t all = TimingModel(message).bits.bytes().size();
        for (std::size_t bytes = 2; bytes <= all && !HasFailure(); ++bytes) {
            SCOPED_TRACE(text("%zu of %zu bytes", bytes, all));
            expect_read(message, bytes);
        }
    }
    static bool found(const std::string& line) { return test::find(line) != nullptr; }
};

TEST_F(PicTimingReader, NothingToRead) {
    TimingMessage message;
    message.pic_struct_present = 0;
    expect_read(message);
    for (const unsigned index : {0U, 2U, 3U, 256U, 0x20000000U, 0xFFFFFFFFU}) {
        const Read read(message, sei_unit({1, 9}), index);
        EXPECT_EQ(read.result, TRUE);
        sei_pic_timing_t untouched = TimingMessage::untouched();
        untouched.header.payload_index = index;
        EXPECT_EQ(str(read.record), str(untouched));
    }
}

TEST_F(PicTimingReader, LengthsOfTheDelays) {
    for (unsigned length = 1; length <= 32; ++length)
        for (const int nal : {0, 1})
            for (const int pic_struct_present : {0, 1}) {
                TimingMessage message;
                message.delays_present = 1;
                message.nal_hrd_present = nal;
                message.pic_struct_present = pic_struct_present;
                (nal != 0 ? message.nal : message.vcl) = {length, 33 - length, length % 2 == 0 ? length : 0};
                (nal != 0 ? message.vcl : message.nal) = {200, 200, 200};
                expect_read(message);
            }
    TimingMessage message;
    message.delays_present = message.nal_hrd_present = 1;
    message.pic_struct_present = 0;
    message.nal = {32, 32, 0};
    const Read read(message, sei_unit(TimingModel(message).bits.bytes()));
    EXPECT_EQ(read.record.cpb_removal_delay, 0x9ABCDEF1U);
    EXPECT_EQ(read.record.dpb_output_delay, 0x81234567U);
    EXPECT_TRUE(found("cpb_removal_delay:-1698898191, length:32."));
}

TEST_F(PicTimingReader, LengthsAbove32) {
    for (unsigned length = 33; length <= 256; ++length)
        for (const int nal : {0, 1}) {
            TimingMessage message;
            message.delays_present = 1;
            message.nal_hrd_present = nal;
            test::TimingLengths& lengths = nal != 0 ? message.nal : message.vcl;
            lengths.cpb_removal_delay = length;
            const Read first(message, sei_unit(Bytes(200, 0x77)));
            EXPECT_EQ(first.result, FALSE);
            EXPECT_EQ(str(first.record), str(TimingMessage::untouched()));
            EXPECT_EQ(test::up_to(3, reader_lines()),
                      (Lines{"3 _parse_sei_pic_timing: cannot parse cpb_removal_delay.",
                             "3 parse_sei_pictiming_nal: Failed to parse pictiming SEI!."}));
            lengths.cpb_removal_delay = 8;
            lengths.dpb_output_delay = length;
            const Read second(message, sei_unit(Bytes(200, 0x77)));
            EXPECT_EQ(second.result, FALSE);
            EXPECT_EQ(second.record.cpb_removal_delay, 0x77U);
            EXPECT_EQ(test::up_to(3, reader_lines()),
                      (Lines{"3 _parse_sei_pic_timing: cannot parse dpb_output_delay.",
                             "3 parse_sei_pictiming_nal: Failed to parse pictiming SEI!."}));
        }
}

TEST_F(PicTimingReader, EveryPicStruct) {
    constexpr int kTimestamps[] = {1, 1, 1, 2, 2, 3, 3, 2, 3};
    for (unsigned pic_struct = 0; pic_struct < 16; ++pic_struct) {
        TimingMessage message;
        message.pic_struct = pic_struct;
        message.clocks[1].full_timestamp_flag = 0;
        message.clocks[2].clock_timestamp_flag = 0;
        expect_read(message);
        const Read read(message, sei_unit(test::join(TimingModel(message).bits.bytes(), Bytes(60, 0xFF))));
        EXPECT_EQ(read.record.pic_struct, pic_struct);
        if (pic_struct < 9) {
            EXPECT_EQ(read.record.NumClockTS, kTimestamps[pic_struct]);
            EXPECT_EQ(read.result, TRUE);
        } else {
            EXPECT_EQ(read.record.NumClockTS, 0x5A5A5A5A);
            EXPECT_EQ(read.result, FALSE);
            EXPECT_EQ(test::up_to(6, reader_lines()),
                      Lines{"3 parse_sei_pictiming_nal: Failed to parse pictiming SEI!."});
        }
    }
}

TEST_F(PicTimingReader, FullTimestampsForceTheUnitFlags) {
    TimingMessage message;
    const Read read(message, sei_unit(TimingModel(message).bits.bytes()));
    const clock_timestamp_info_t& clock = read.record.clock_timestamp_info[0];
    EXPECT_EQ(read.result, TRUE);
    EXPECT_EQ(text("%d %d %d, %u %u %u", clock.seconds_flag, clock.minutes_flag, clock.hours_flag, clock.seconds_value,
                   clock.minutes_value, clock.hours_value),
              "1 1 1, 37 42 19");
    EXPECT_TRUE(found("DEBUG - HH:MM:SS:FF:19:42:37:167. ct_full_flag:1, ct_flag:1 time_offset:-3."));
    for (std::size_t bytes = 2; bytes < 7; ++bytes) expect_read(message, bytes);
    // The flags are set before the first value is read.
    const Read cut(message, sei_unit(Bytes{1, 9, 0x0F, 0xFF, 0xFF}));
    EXPECT_EQ(cut.result, FALSE);
    EXPECT_TRUE(found("cannot parse seconds_value[i]:0."));
    EXPECT_EQ(cut.record.clock_timestamp_info[0].hours_flag, 1);
}

TEST_F(PicTimingReader, PartialTimestamps) {
    for (unsigned flags = 0; flags < 16; ++flags) {
        TimingMessage message;
        message.pic_struct = 3;
        for (ClockTimestamp& clock : message.clocks) {
            clock.full_timestamp_flag = flags >> 3;
            clock.seconds_flag = flags & 1;
            clock.minutes_flag = flags >> 1 & 1;
            clock.hours_flag = flags >> 2 & 1;
        }
        expect_read(message);
    }
    TimingMessage message;
    message.clocks[0].full_timestamp_flag = message.clocks[0].seconds_flag = 0;
    const Read read(message, sei_unit(TimingModel(message).bits.bytes()));
    EXPECT_EQ(read.record.clock_timestamp_info[0].seconds_flag, 0);
    EXPECT_EQ(read.record.clock_timestamp_info[0].minutes_flag, 0x5A5A5A5A);
    EXPECT_EQ(read.record.clock_timestamp_info[0].hours_flag, 0x5A5A5A5A);
}

TEST_F(PicTimingReader, LengthsOfTheTimeOffset) {
    for (unsigned length = 0; length < 256; ++length)
        for (const int delays : {0, 1})
            for (const int nal : {0, 1})
                for (const long time_offset : {-1L, 1L, 0x55555555L, -0x55555556L}) {
                    TimingMessage message;
                    message.delays_present = delays;
                    message.nal_hrd_present = nal;
                    message.nal.time_offset = nal != 0 ? length : 7;
                    message.vcl.time_offset = nal != 0 ? 7 : length;
                    message.clocks[0].time_offset = time_offset;
                    expect_read(message);
                    if (HasFailure()) return;
                }
    TimingMessage message;
    message.nal_hrd_present = 1;
    message.nal.time_offset = 1;
    message.clocks[0].time_offset = -0x800000;
    const Bytes unit = sei_unit(TimingModel(message).bits.bytes());
    EXPECT_EQ(Read(message, unit).record.clock_timestamp_info[0].time_offset, -0x800000) << "24 bits without an HRD";
    message.delays_present = 1;
    const Read read(message, sei_unit(Bytes(100, 0x1F)));
    EXPECT_EQ(read.result, FALSE);
    EXPECT_TRUE(found("cannot parse time_offset[i]:0.")) << "1 bit is no signed value";
}

TEST_F(PicTimingReader, EveryElementMayBeCutOff) {
    for (unsigned shift = 1; shift <= 8; ++shift)
        for (const unsigned flags : {0U, 1U, 3U, 7U, 8U}) {
            TimingMessage message;
            message.delays_present = 1;
            message.nal_hrd_present = static_cast<int>(shift & 1);
            message.nal = message.vcl = {16 + shift, 32, 5};
            message.pic_struct = 8;
            for (ClockTimestamp& clock : message.clocks) {
                clock.full_timestamp_flag = flags >> 3;
                clock.seconds_flag = flags & 1;
                clock.minutes_flag = flags >> 1 & 1;
                clock.hours_flag = flags >> 2 & 1;
            }
            message.clocks[1].clock_timestamp_flag = shift >> 1 & 1;
            expect_read_at_every_length(message);
        }
    for (const int pic_struct : {0, 4, 6}) {
        TimingMessage message;
        message.pic_struct = static_cast<unsigned>(pic_struct);
        expect_read_at_every_length(message);
    }
}

TEST_F(PicTimingReader, UnitsOfUpTo256Bytes) {
    const TimingMessage message;
    for (const std::size_t size : {100U, 255U, 256U, 257U, 2000U}) {
        Bytes rbsp = TimingModel(message).bits.bytes();
        rbsp.resize(size, 0x11);
        const Read read(message, sei_unit(rbsp));
        EXPECT_EQ(read.result, size <= 255 ? TRUE : FALSE);
        if (size > 255) {
            EXPECT_EQ(reader_lines(),
                      (Lines{text("7 parse_sei_pictiming_nal: Deencapsulation was successful. NAL unit length:%zu, "
                                  "SODB length:-1.",
                                  size + 5),
                             "3 _parse_sei_pic_timing: Failed to parse pictiming SEI! Length=-1.",
                             "3 parse_sei_pictiming_nal: Failed to parse pictiming SEI!."}));
            EXPECT_EQ(str(read.record), str(TimingMessage::untouched()));
        }
    }
}

TEST_F(PicTimingReader, WithoutAnInput) {
    const Bytes unit = sei_unit(TimingModel(TimingMessage()).bits.bytes());
    const std::unique_ptr<sps_t> sps = TimingMessage().sps();
    sei_pic_timing_t record = TimingMessage::untouched();
    for (int missing = 1; missing < 8; ++missing)
        for (const int size : {static_cast<int>(unit.size()), 0, -1, INT_MIN}) {
            const unsigned char* buffer = (missing & 1) != 0 ? nullptr : unit.data();
            const sps_t* set = (missing & 2) != 0 ? nullptr : sps.get();
            sei_pic_timing_t* pt = (missing & 4) != 0 ? nullptr : &record;
            test::clear();
            EXPECT_EQ(parse_sei_pictiming_nal(buffer, size, set, pt), FALSE);
            EXPECT_EQ(reader_lines(), (Lines{text("3 parse_sei_pictiming_nal: Failed to parse pictiming SEI! "
                                                  "buffer:%p, sps:%p, pt:%p.",
                                                  static_cast<const void*>(buffer), static_cast<const void*>(set),
                                                  static_cast<void*>(pt))}));
            EXPECT_EQ(test::assertions(), std::vector<std::string>{});
            EXPECT_EQ(test::records().dumps.size(), 0U);
        }
    EXPECT_EQ(str(record), str(TimingMessage::untouched()));
}

TEST_F(PicTimingReader, UnitsThatAreTooShort) {
    const TimingMessage message;
    for (const Bytes& unit : {Bytes{6, 1, 9, 0xB5, 0x80}, Bytes{0, 0, 0, 0, 1, 6, 1, 9}, Bytes{0, 0}, Bytes{}}) {
        GuardedBuffer memory(unit);
        sei_pic_timing_t record = TimingMessage::untouched();
        test::clear();
        EXPECT_EQ(parse_sei_pictiming_nal(memory.data(), static_cast<int>(unit.size()), message.sps().get(), &record),
                  FALSE);
        EXPECT_EQ(reader_lines(), (Lines{text("3 parse_sei_pictiming_nal: Failed to parse pictiming SEI nal! "
                                              "buffer:%p.",
                                              static_cast<void*>(memory.data()))}));
    }
    for (const Bytes& unit : {Bytes{0, 0, 1, 6}, Bytes{0, 0, 1, 6, 1}, Bytes{0, 0, 0, 1}, Bytes{0, 0, 0, 1, 6, 1}}) {
        EXPECT_EQ(Read(message, unit).result, FALSE);
        EXPECT_EQ(test::up_to(3, reader_lines()),
                  (Lines{"3 _parse_sei_pic_timing: Failed to parse pictiming SEI! Length=-1.",
                         "3 parse_sei_pictiming_nal: Failed to parse pictiming SEI!."}));
    }
    const Bytes unit = sei_unit({1, 9, 0, 0});
    for (const int size : {-1, INT_MIN}) {
        sei_pic_timing_t record = TimingMessage::untouched();
        EXPECT_EQ(parse_sei_pictiming_nal(unit.data(), size, message.sps().get(), &record), FALSE);
    }
}

TEST_F(PicTimingReader, AnyPayloadIndex) {
    TimingMessage message;
    const Bytes unit = sei_unit(TimingModel(message).bits.bytes());  // 11 bytes of data
    for (const int delays : {0, 1})
        for (const unsigned index : {11U, 12U, 255U, 256U, 0x1FFFFFFFU, 0x20000000U, 0x20000002U, 0x40000002U,
                                     0x80000000U, 0xE0000002U, 0xFFFFFFFFU}) {
            message.delays_present = delays;
            const Read read(message, unit, index);
            EXPECT_EQ(read.result, FALSE);
            sei_pic_timing_t untouched = TimingMessage::untouched();
            untouched.header.payload_index = index;
            EXPECT_EQ(str(read.record), str(untouched));
            EXPECT_EQ(test::up_to(3, reader_lines()),
                      (Lines{text("3 _parse_sei_pic_timing: cannot parse %s.",
                                  delays != 0 ? "cpb_removal_delay" : "pic_struct"),
                             "3 parse_sei_pictiming_nal: Failed to parse pictiming SEI!."}));
        }
}

TEST_F(PicTimingReader, LevelsChangeNothing) {
    for (const int delays : {0, 1})
        for (const unsigned pic_struct : {0U, 8U, 9U}) {
            TimingMessage message;
            message.delays_present = delays;
            message.pic_struct = pic_struct;
            const Bytes rbsp = TimingModel(message).bits.bytes();
            const std::unique_ptr<sps_t> sps = message.sps();
            for (std::size_t bytes = 0; bytes <= rbsp.size(); ++bytes)
                for (const unsigned index : {2U, 200U, 0x20000002U}) {
                    GuardedBuffer memory(sei_unit(Bytes(rbsp.begin(), rbsp.begin() + static_cast<long>(bytes))));
                    test::expect_same_at_all_levels([&] {
                        sei_pic_timing_t record = TimingMessage::untouched();
                        record.header.payload_index = index;
                        const BOOL result =
                            parse_sei_pictiming_nal(memory.data(), static_cast<int>(memory.size()), sps.get(), &record);
                        EXPECT_EQ(test::records().dumps.size(),
                                  g_hH264LibDbg != nullptr && g_hH264LibDbg->nMaxLevel >= 7 ? 1U : 0U);
                        return text("%d ", result) + str(record);
                    });
                }
        }
}

TEST_F(PicTimingReader, ReadsWhatTheLibraryWrites) {
    for (int hours = 0; hours < 24; ++hours) {
        const int minutes = 59 - hours, seconds = 2 * hours, frames = hours;
        const vitc_t vitc = test::vitc_of(hours, minutes, seconds, frames);
        SEI_pictiming_info_t timing = test::timing_of(25000);
        Bytes unit(100);
        const int size = format_sei_pictime_nal(unit.data(), 100, &vitc, &timing);
        ASSERT_GT(size, 0);
        unit.resize(static_cast<std::size_t>(size));
        int offset = 0, nal = 0, suid = 0;
        BOOL more = FALSE;
        TimingMessage message;
        sei_pic_timing_t record = TimingMessage::untouched();
        ASSERT_EQ(DetermineSEIType(unit.data(), size, &offset, &nal, &record.header, &suid, &more), TRUE);
        ASSERT_EQ(suid, SEI_SUID_PIC_TIMING);
        ASSERT_EQ(parse_sei_pictiming_nal(unit.data(), size, message.sps().get(), &record), TRUE);
        const clock_timestamp_info_t& clock = record.clock_timestamp_info[0];
        EXPECT_EQ(record.NumClockTS, 1);
        EXPECT_EQ(text("%d %d, %02u:%02u:%02u:%02u %ld", clock.clock_timestamp_flag, clock.full_timestamp_flag,
                       clock.hours_value, clock.minutes_value, clock.seconds_value, clock.n_frames, clock.time_offset),
                  text("1 1, %02d:%02d:%02d:%02d 0", hours, minutes, seconds, frames));
    }
}

}  // namespace
