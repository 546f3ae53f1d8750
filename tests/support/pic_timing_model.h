// A picture timing message and what reading it does, one element at a time.
#pragma once

#include <memory>

#include "sei_check.h"

namespace test {

struct TimingLengths {
    unsigned cpb_removal_delay = 24, dpb_output_delay = 24;  // minus 1 in the HRD
    unsigned time_offset = 24;
};

struct ClockTimestamp {
    unsigned clock_timestamp_flag = 1, ct_type = 2, nuit_field_based_flag = 1, counting_type = 21;
    unsigned full_timestamp_flag = 1, discontinuity_flag = 0, cnt_dropped_flag = 1, n_frames = 0xA7;
    unsigned seconds_flag = 1, seconds = 37, minutes_flag = 1, minutes = 42, hours_flag = 1, hours = 19;
    long time_offset = -3;
};

struct TimingMessage {
    static constexpr unsigned char kOld = 0x5A;

    int delays_present = 0, nal_hrd_present = 0, pic_struct_present = 1;
    TimingLengths nal, vcl;
    unsigned long cpb_removal_delay = 0x9ABCDEF1, dpb_output_delay = 0x81234567;
    unsigned pic_struct = 0;
    ClockTimestamp clocks[3];

    // What no part of the message depends on holds something.
    std::unique_ptr<sps_t> sps() const {
        auto sps = std::make_unique<sps_t>(filled_record<sps_t>(0xEE));
        sps->vui.CpbDpbDelaysPresentFlag = delays_present;
        sps->vui.nal_hrd_parameters_present_flag = nal_hrd_present;
        sps->vui.pic_struct_present_flag = pic_struct_present;
        const auto fill = [](hrd_t& hrd, const TimingLengths& lengths) {
            hrd.cpb_removal_delay_length_minus1 = static_cast<unsigned char>(lengths.cpb_removal_delay - 1);
            hrd.dpb_output_delay_length_minus1 = static_cast<unsigned char>(lengths.dpb_output_delay - 1);
            hrd.time_offset_length = static_cast<unsigned char>(lengths.time_offset);
        };
        fill(sps->vui.nal_hrd, nal);
        fill(sps->vui.vcl_hrd, vcl);
        return sps;
    }
    static sei_pic_timing_t untouched() {
        sei_pic_timing_t record = filled_record<sei_pic_timing_t>(kOld);
        record.header = {1, 9, 2};
        return record;
    }
};

// The message's bits behind its header of two bytes, and what a reader does that has some of them.
class TimingModel {
public:
    BitWriter bits;
    Lines lines;  // of the inner parser
    sei_pic_timing_t record = TimingMessage::untouched();
    bool result;

    explicit TimingModel(const TimingMessage& message, std::size_t available = SIZE_MAX) : available_(available) {
        bits.u(8, 1).u(8, 9);
        result = run(message);
    }

private:
    void say(int level, const std::string& line) {
        lines.push_back(std::to_string(level) + " _parse_sei_pic_timing: " + line);
    }
    bool fail(const std::string& element) {
        say(3, "cannot parse " + element + ".");
        return false;
    }
    template <typename Field>
    bool read(unsigned width, std::uint64_t value, Field& field, const std::string& element) {
        bits.u(width, value);
        if (bits.bits() > available_) return fail(element);
        field = static_cast<Field>(width < 64 ? value & ((std::uint64_t{1} << width) - 1) : value);
        return true;
    }
    bool delay(unsigned length, unsigned long value, unsigned long& field, const std::string& element) {
        say(7, text("from hrd, %s_length_minus1:%u.", element.c_str(), length - 1));
        if (length > 32) return fail(element);
        if (!read(length, value, field, element)) return false;
        say(7, text("%s:%d, length:%u.", element.c_str(), static_cast<int>(static_cast<unsigned>(field)), length));
        return true;
    }
    bool run(const TimingMessage& m) {
        say(7, "Advancing to Payload index:2, Payload_type:0x1, Payload_size:0x9.");
        unsigned offset_length = 24;
        if (m.delays_present != 0) {
            say(6, text("CpbDpbDelaysPresentFlag:%d, nal_hrd_parameters_present_flag:%d.", m.delays_present,
                        m.nal_hrd_present));
            const TimingLengths& hrd = m.nal_hrd_present != 0 ? m.nal : m.vcl;
            if (!delay(hrd.cpb_removal_delay, m.cpb_removal_delay, record.cpb_removal_delay, "cpb_removal_delay"))
                return false;
            if (!delay(hrd.dpb_output_delay, m.dpb_output_delay, record.dpb_output_delay, "dpb_output_delay"))
                return false;
            offset_length = hrd.time_offset;
        }
        say(7, text("pic_struct_present_flag:%d.", m.pic_struct_present));
        if (m.pic_struct_present == 0) return true;
        if (!read(4, m.pic_struct, record.pic_struct, "pic_struct")) return false;
        switch (m.pic_struct) {
            case 0:
            case 1:
            case 2:
                record.NumClockTS = 1;
                break;
            case 3:
            case 4:
            case 7:
                record.NumClockTS = 2;
                break;
            case 5:
            case 6:
            case 8:
                record.NumClockTS = 3;
                break;
            default:
                return false;
        }
        say(7, text("pic_struct:%u, NumClockTS:%d.", m.pic_struct, record.NumClockTS));
        for (int i = 0; i < record.NumClockTS; ++i)
            if (!clock(m.clocks[i], record.clock_timestamp_info[i], offset_length, text("[i]:%d", i))) return false;
        return true;
    }
    bool clock(const ClockTimestamp& c, clock_timestamp_info_t& r, unsigned offset_length, const std::string& i) {
        if (!read(1, c.clock_timestamp_flag, r.clock_timestamp_flag, "clock_timestamp_flag")) return false;
        say(7, text("clock_timestamp_flag:%u.", c.clock_timestamp_flag));
        if (c.clock_timestamp_flag == 0) return true;
        const bool head = read(2, c.ct_type, r.ct_type, "ct_type" + i) &&
                          read(1, c.nuit_field_based_flag, r.nuit_field_based_flag, "nuit_field_based_flag" + i) &&
                          read(5, c.counting_type, r.counting_type, "counting_type" + i) &&
                          read(1, c.full_timestamp_flag, r.full_timestamp_flag, "full_timestamp_flag" + i) &&
                          read(1, c.discontinuity_flag, r.discontinuity_flag, "discontinuity_flag" + i) &&
                          read(1, c.cnt_dropped_flag, r.cnt_dropped_flag, "cnt_dropped_flag" + i) &&
                          read(8, c.n_frames, r.n_frames, "n_frames" + i);
        if (!head || !time(c, r, i)) return false;
        if (offset_length == 1 || offset_length > 32) return fail("time_offset" + i);
        if (offset_length != 0) {
            if (!read(offset_length, static_cast<std::uint64_t>(c.time_offset), r.time_offset, "time_offset" + i))
                return false;
            const long sign = 1L << (offset_length - 1);
            r.time_offset = (r.time_offset ^ sign) - sign;
        }
        say(8, text("DEBUG - HH:MM:SS:FF:%02d:%02d:%02d:%02d. ct_full_flag:%d, ct_flag:%d time_offset:%d.",
                    r.hours_value, r.minutes_value, r.seconds_value, r.n_frames, r.full_timestamp_flag,
                    r.clock_timestamp_flag, static_cast<int>(static_cast<unsigned>(r.time_offset))));
        return true;
    }
    bool time(const ClockTimestamp& c, clock_timestamp_info_t& r, const std::string& i) {
        if (c.full_timestamp_flag == 1) {
            r.seconds_flag = r.minutes_flag = r.hours_flag = 1;
            return read(6, c.seconds, r.seconds_value, "seconds_value" + i) &&
                   read(6, c.minutes, r.minutes_value, "minutes_value" + i) &&
                   read(5, c.hours, r.hours_value, "hours_value" + i);
        }
        if (!read(1, c.seconds_flag, r.seconds_flag, "seconds_flag" + i)) return false;
        if (c.seconds_flag == 0) return true;
        if (!read(6, c.seconds, r.seconds_value, "seconds_value" + i)) return false;
        if (!read(1, c.minutes_flag, r.minutes_flag, "minutes_flag" + i)) return false;
        if (c.minutes_flag == 0) return true;
        if (!read(6, c.minutes, r.minutes_value, "minutes_value" + i)) return false;
        if (!read(1, c.hours_flag, r.hours_flag, "hours_flag" + i)) return false;
        return c.hours_flag == 0 || read(5, c.hours, r.hours_value, "hours_value" + i);
    }

    std::size_t available_;
};

// Every field of a record.
inline std::string str(const sei_pic_timing_t& pt) {
    std::string all =
        text("%d %lu %lu %u %d, %u %u %u", pt.valid, pt.cpb_removal_delay, pt.dpb_output_delay, pt.pic_struct,
             pt.NumClockTS, pt.header.payload_type, pt.header.payload_size, pt.header.payload_index);
    for (const clock_timestamp_info_t& c : pt.clock_timestamp_info)
        all += text("; %d %u %d %u %d %d %d %u, %d %u, %d %u, %d %u, %ld", c.clock_timestamp_flag, c.ct_type,
                    c.nuit_field_based_flag, c.counting_type, c.full_timestamp_flag, c.discontinuity_flag,
                    c.cnt_dropped_flag, c.n_frames, c.seconds_flag, c.seconds_value, c.minutes_flag, c.minutes_value,
                    c.hours_flag, c.hours_value, c.time_offset);
    return all;
}

}  // namespace test
