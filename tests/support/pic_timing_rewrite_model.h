// What the rewriter of picture timing messages makes of a record, one bit at a time.
#pragma once

#include <memory>

#include "encapsulation_model.h"
#include "sei_check.h"

namespace test {

// What of an SPS decides the syntax. Lengths are those of the records: delays minus 1.
struct RewriteSps {
    struct Hrd {
        unsigned cpb_minus1 = 23, dpb_minus1 = 23, time_offset = 24;
    };
    int vui_present = 1, nal_present = 0, vcl_present = 0, pic_struct_present = 1;
    Hrd nal, vcl;
    int delays_present = 0;  // for the reader only

    // What nothing depends on holds something.
    std::unique_ptr<sps_t> sps() const {
        auto sps = std::make_unique<sps_t>(filled_record<sps_t>(0xEE));
        sps->vui_parameters_present_flag = vui_present;
        sps->vui.nal_hrd_parameters_present_flag = nal_present;
        sps->vui.vcl_hrd_parameters_present_flag = vcl_present;
        sps->vui.pic_struct_present_flag = pic_struct_present;
        sps->vui.CpbDpbDelaysPresentFlag = delays_present;
        const auto fill = [](hrd_t& hrd, const Hrd& from) {
            hrd.cpb_removal_delay_length_minus1 = static_cast<unsigned char>(from.cpb_minus1);
            hrd.dpb_output_delay_length_minus1 = static_cast<unsigned char>(from.dpb_minus1);
            hrd.time_offset_length = static_cast<unsigned char>(from.time_offset);
        };
        fill(sps->vui.nal_hrd, nal);
        fill(sps->vui.vcl_hrd, vcl);
        return sps;
    }
};

// A record in which every element has something to say: a full timestamp in each entry.
inline sei_pic_timing_t full_timing(int timestamps = 1) {
    sei_pic_timing_t pt{};
    pt.cpb_removal_delay = 0x9ABCDEF1;
    pt.dpb_output_delay = 0x81234567;
    pt.pic_struct = timestamps == 1 ? 0 : timestamps == 2 ? 3 : 5;
    pt.NumClockTS = timestamps;
    unsigned char i = 0;
    for (clock_timestamp_info_t& c : pt.clock_timestamp_info)
        c = {1, 2,  0, 21, 1, 0, 1, static_cast<unsigned char>(0xA7 + i), 1, static_cast<unsigned char>(37 + i++),
             1, 42, 1, 19, -3};
    pt.header = {1, 0, 0};
    return pt;
}

class RewriteModel {
public:
    std::vector<bool> bits;  // those written
    Lines lines;             // of the payload's writer
    std::vector<std::string> assertions;
    int payload_bytes = -1;  // -1: not stored
    int result = -1;

    // available: bits of the area.
    RewriteModel(const RewriteSps& s, const sei_pic_timing_t& pt, std::size_t available = 256) : available_(available) {
        if (!payload(s, pt) || !alignment()) return;
        payload_bytes = static_cast<int>(bits.size() / 8);
        if (!put(8, 0x80, "rbsp trailing bits")) return;
        result = payload_bytes + 1;
        say(7, text("Final new SEI num_bits:%d, PayloadBytes:%d, TotalBytes:%d.", 8 * result, payload_bytes, result));
    }

    // The area behind the write; before: what it held.
    Bytes area(const Bytes& before) const {
        Bytes after = before;
        for (std::size_t k = 0; k < bits.size(); ++k) {
            const auto mask = static_cast<unsigned char>(1U << (7 - k % 8));
            after[k / 8] = static_cast<unsigned char>(bits[k] ? after[k / 8] | mask : after[k / 8] & ~mask);
        }
        return after;
    }

private:
    void say(int level, const std::string& line) {
        lines.push_back(std::to_string(level) + " _set_sei_pictiming_parameters: " + line);
    }
    bool put(unsigned width, std::uint64_t value, const std::string& element, unsigned narrowest = 1) {
        if (width > 32) assertions.push_back("n <= 32");
        if (width < narrowest || width > 32 || bits.size() + width > available_) {
            say(3, "Failed to set " + element + ".");
            return false;
        }
        for (unsigned k = width; k-- > 0;) bits.push_back((value >> k & 1) != 0);
        return true;
    }
    bool flag(int value, const std::string& element) {
        if (value != 0 && value != 1) assertions.push_back("value < 2");
        return put(1, value != 0 ? 1 : 0, element);
    }
    bool delay(unsigned length, unsigned long value, const std::string& element) {
        if (!put(length, value, element)) return false;
        say(7, text("set %s:%d, length:%u.", element.c_str(), static_cast<int>(static_cast<unsigned>(value)), length));
        return true;
    }
    bool payload(const RewriteSps& s, const sei_pic_timing_t& pt) {
        if (s.vui_present == 1 && (s.nal_present == 1 || s.vcl_present == 1)) {
            const RewriteSps::Hrd& hrd = s.nal_present != 0 ? s.nal : s.vcl;
            if (!delay(hrd.cpb_minus1 + 1, pt.cpb_removal_delay, "cpb_removal_delay")) return false;
            if (!delay(hrd.dpb_minus1 + 1, pt.dpb_output_delay, "dpb_output_delay")) return false;
        }
        if (s.pic_struct_present == 0) return true;
        if (!put(4, pt.pic_struct, "pic_struct")) return false;
        const unsigned offset_length = s.nal.time_offset != 0 ? s.nal.time_offset : s.vcl.time_offset;
        for (int i = 0; i < pt.NumClockTS && i < 3; ++i)
            if (!clock(pt.clock_timestamp_info[i], offset_length)) return false;
        return true;
    }
    bool clock(const clock_timestamp_info_t& c, unsigned offset_length) {
        if (!flag(c.clock_timestamp_flag, "clock_timestamp_flag")) return false;
        if (c.clock_timestamp_flag == 0) return true;
        const bool head = put(2, c.ct_type, "ct_type") && flag(c.nuit_field_based_flag, "nuit_field_based_flag") &&
                          put(5, c.counting_type, "counting_type") &&
                          flag(c.full_timestamp_flag, "full_timestamp_flag") &&
                          flag(c.discontinuity_flag, "discontinuity_flag") &&
                          flag(c.cnt_dropped_flag, "cnt_dropped_flag") && put(8, c.n_frames, "n_frames");
        if (!head || !(c.full_timestamp_flag == 1 ? full_time(c) : partial_time(c))) return false;
        return offset_length == 0 ||
               put(offset_length, static_cast<std::uint64_t>(c.time_offset), "time_offset_length", 2);
    }
    bool full_time(const clock_timestamp_info_t& c) {
        return put(6, c.seconds_value, "n_frames") && put(6, c.minutes_value, "n_frames") &&
               put(5, c.hours_value, "n_frames");
    }
    bool partial_time(const clock_timestamp_info_t& c) {
        if (!flag(c.seconds_flag, "cnt_dropped_flag")) return false;
        if (c.seconds_flag == 0) return true;
        if (!put(6, c.seconds_value, "n_frames") || !flag(c.minutes_flag, "cnt_dropped_flag")) return false;
        if (c.minutes_flag == 0) return true;
        if (!put(6, c.minutes_value, "n_frames") || !flag(c.hours_flag, "cnt_dropped_flag")) return false;
        return c.hours_flag == 0 || put(5, c.hours_value, "n_frames");
    }
    bool alignment() {
        if (bits.size() % 8 == 0) return true;
        if (!put(1, 1, "stop_bit")) return false;
        while (bits.size() % 8 != 0)
            if (!put(1, 0, "padding bit")) return false;
        return true;
    }

    std::size_t available_;
};

// The whole unit and the messages of both functions. source: the unit whose header is taken over.
struct RewrittenUnit {
    bool made = false;
    bool has_payload = false;
    Bytes bytes;
    Bytes area;  // in which the payload is written
    Lines lines;

    RewrittenUnit(const RewriteSps& s, const sei_pic_timing_t& pt, const Bytes& source) {
        const RewriteModel model(s, pt);
        lines = model.lines;
        if (model.result < 0) {
            lines.push_back("3 H264Lib_Set_SEIPictiming_NAL: Failed to set sei pictiming parameters NAL!");
            return;
        }
        made = true;
        area = model.area(Bytes(32, 0));
        bytes.assign(source.begin(), source.begin() + (source[2] == 1 ? 4 : 5));
        bytes.push_back(pt.header.payload_type);
        bytes.push_back(static_cast<unsigned char>(model.payload_bytes));
        lines.push_back(text("7 H264Lib_Set_SEIPictiming_NAL: nNewSEIBufOffset:%zu.", bytes.size()));
        const Bytes rbsp = model.area(Bytes(static_cast<std::size_t>(model.result), 0));
        const Encapsulated behind = encapsulation_model(rbsp, 32 - bytes.size());
        has_payload = behind.result > 0;
        if (has_payload) bytes = join(bytes, behind.bytes);
    }
};

}  // namespace test
