// A buffering period message and what reading it does, one element at a time.
#pragma once

#include <memory>

#include "sei_check.h"

namespace test {

struct Schedules {
    int present = 0;
    unsigned length = 24;  // minus 1 in the HRD
    unsigned long schedules = 1;
};

// A value that fills its element, another one for each schedule.
inline unsigned long schedule_value(unsigned kind, unsigned long i) { return 0xC3A5F017 + 0x01234567 * (4 * i + kind); }
inline unsigned long low_bits(unsigned long value, unsigned bits) { return value & ((1UL << bits) - 1); }

struct BufferingPeriodMessage {
    unsigned long sps_id = 0;
    Schedules nal, vcl;

    std::unique_ptr<vui_t> vui() const {
        auto vui = std::make_unique<vui_t>(filled_record<vui_t>(0xEE));
        vui->nal_hrd_parameters_present_flag = nal.present;
        vui->vcl_hrd_parameters_present_flag = vcl.present;
        const auto fill = [](hrd_t& hrd, const Schedules& from) {
            hrd.cpb_cnt_minus1 = from.schedules - 1;
            hrd.initial_cpb_removal_delay_length_minus1 = static_cast<unsigned char>(from.length - 1);
        };
        fill(vui->nal_hrd, nal);
        fill(vui->vcl_hrd, vcl);
        return vui;
    }
};

inline sei_buffering_period_t untouched_period(unsigned payload_index = 2) {
    auto record = filled_record<sei_buffering_period_t>(0x5A);
    record.header.payload_index = payload_index;
    return record;
}

// Every field of a record.
inline std::string str(const sei_buffering_period_t& bp) {
    std::string all =
        text("%lu %d, %lu %lu, %u %u %u:", bp.seq_parameter_set_id, bp.after_sps_id_offset, bp.valid_NALSchedules,
             bp.valid_VCLSchedules, bp.header.payload_type, bp.header.payload_size, bp.header.payload_index);
    for (int i = 0; i < 32; ++i)
        all += text(" %lx,%lx,%lx,%lx", bp.initial_cpb_removal_delay[i], bp.initial_cpb_removal_delay_offset[i],
                    bp.initial_cpb_removal_delay_vcl[i], bp.initial_cpb_removal_delay_offset_vcl[i]);
    return all;
}

// The message's bits behind its header of two bytes, and what a reader does that has some of them.
struct BufferingPeriodModel {
    BitWriter bits;
    Lines lines;  // of the inner parser
    sei_buffering_period_t record = untouched_period();
    std::size_t offset = 0;  // of the element that cannot be read
    bool result;

    explicit BufferingPeriodModel(const BufferingPeriodMessage& message, std::size_t available = SIZE_MAX) {
        bits.u(8, 0).u(8, 99).ue(message.sps_id);
        result = run(message, available);
    }

private:
    bool fail(const std::string& line) {
        lines.push_back("3 _parse_bp: " + line);
        return false;
    }
    bool run(const BufferingPeriodMessage& message, std::size_t available) {
        if (bits.bits() > available) return fail("cannot parse seq_parameter_set_id.");
        offset = bits.bits();
        record.seq_parameter_set_id = message.sps_id;
        record.after_sps_id_offset = static_cast<int>(offset);
        return schedules(message.nal, "nal", "", 0, available, record.initial_cpb_removal_delay,
                         record.initial_cpb_removal_delay_offset, record.valid_NALSchedules) &&
               schedules(message.vcl, "vcl", "_vcl", 2, available, record.initial_cpb_removal_delay_vcl,
                         record.initial_cpb_removal_delay_offset_vcl, record.valid_VCLSchedules);
    }
    bool schedules(const Schedules& hrd, const char* name, const char* suffix, unsigned kind, std::size_t available,
                   unsigned long* delays, unsigned long* offsets, unsigned long& valid) {
        if (hrd.present == 0) return true;
        if (hrd.length > 32)
            return fail(text("invalid %s_hrd.initial_cpb_removal_delay_length_minus1[%u].", name, hrd.length - 1));
        for (unsigned long i = 0; i < hrd.schedules; ++i)
            for (const bool second : {false, true}) {
                const unsigned long value = schedule_value(kind + second, i);
                bits.u(hrd.length, value);
                if (bits.bits() > available)
                    return fail(
                        text("cannot parse initial_cpb_removal_delay%s%s[%lu].", second ? "_offset" : "", suffix, i));
                offset = bits.bits();
                if (i < 32) (second ? offsets : delays)[i] = low_bits(value, hrd.length);
            }
        valid = hrd.schedules;
        lines.push_back(
            text("6 _parse_bp: Found %d valid_%sSchedules.", static_cast<int>(valid), kind == 0 ? "NAL" : "VCL"));
        return true;
    }
};

}  // namespace test
