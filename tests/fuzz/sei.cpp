// The walker over SEI units with every reader behind it, with the headers that it finds and with hostile ones.

#include "fuzz.h"
#include "guarded_buffer.h"
#include "h264.h"

namespace {

using test::Bytes;
using test::FuzzInput;
using test::GuardedBuffer;
using test::Observed;

struct Records {
    SEI_cc_t captions;
    SEI_afd_t afd;
    sei_pic_timing_t pic_timing;
    sei_buffering_period_t buffering_period;
};

// Every reader, whatever the message is.
void read_all(GuardedBuffer& unit, int length, const SEI_message_t& header, const sps_t& sps, Records& records,
              Observed& observed) {
    records.captions.header = records.afd.header = records.pic_timing.header = records.buffering_period.header = header;
    observed.add(parse_sei_cc_nal(unit.data(), length, &records.captions));
    observed.add(parse_sei_afd_nal(unit.data(), length, &records.afd));
    observed.add(parse_sei_pictiming_nal(unit.data(), length, &sps, &records.pic_timing));
    observed.add(parse_sei_buffering_period_nal(unit.data(), length, &sps.vui, &records.buffering_period));
    observed.add(records);
}

void walk(GuardedBuffer& unit, int length, const sps_t& sps, Records& records, Observed& observed) {
    int payload_offset = 0;
    int nal_type_offset = 0;
    int messages = 0;
    for (BOOL more = TRUE; more != FALSE;) {
        auto header = test::zeroed<SEI_message_t>();
        int kind = -1;
        const BOOL found =
            DetermineSEIType(unit.data(), length, &payload_offset, &nal_type_offset, &header, &kind, &more);
        observed.add(found);
        observed.add(kind);
        observed.add(payload_offset);
        if (found == FALSE) {
            FUZZ_CHECK(more == FALSE);
            break;
        }
        FUZZ_CHECK(++messages <= length);
        read_all(unit, length, header, sps, records, observed);
    }
}

}  // namespace

void test::fuzz(FuzzInput& input, Observed& observed) {
    auto sps = zeroed<sps_t>();
    if (input.flag()) {
        // Any content, but mostly the few elements by which messages are read.
        if (input.flag()) input.fill(sps);
        vui_t& vui = sps.vui;
        sps.vui_parameters_present_flag = static_cast<int>(input.below(2));
        vui.nal_hrd_parameters_present_flag = static_cast<int>(input.below(2));
        vui.vcl_hrd_parameters_present_flag = static_cast<int>(input.below(2));
        vui.CpbDpbDelaysPresentFlag = static_cast<int>(input.below(2));
        vui.pic_struct_present_flag = static_cast<int>(input.below(2));
        for (hrd_t* hrd : {&vui.nal_hrd, &vui.vcl_hrd}) {
            hrd->cpb_cnt_minus1 = input.below(40);
            hrd->initial_cpb_removal_delay_length_minus1 = static_cast<unsigned char>(input.below(34));
            hrd->cpb_removal_delay_length_minus1 = static_cast<unsigned char>(input.below(34));
            hrd->dpb_output_delay_length_minus1 = static_cast<unsigned char>(input.below(34));
            hrd->time_offset_length = static_cast<unsigned char>(input.below(34));
        }
    } else {
        const Bytes sps_unit = input.chunk();
        parse_sps_nal(sps_unit.data(), static_cast<int>(sps_unit.size()), &sps);
    }
    auto hostile = zeroed<SEI_message_t>();
    hostile.payload_type = static_cast<unsigned char>(input.below(6));
    hostile.payload_size = static_cast<unsigned>(input.number(4));
    hostile.payload_index = static_cast<unsigned>(input.flag() ? input.number(4) : input.below(64));
    int payload_offset = static_cast<int>(input.flag() ? input.number(4) : input.below(64));
    int nal_type_offset = static_cast<int>(input.flag() ? input.number(4) : input.below(8));

    const Bytes bytes = input.rest();
    GuardedBuffer unit(bytes);
    const auto length = static_cast<int>(bytes.size());
    auto records = zeroed<Records>();
    walk(unit, length, sps, records, observed);
    read_all(unit, length, hostile, sps, records, observed);

    // A walk that begins anywhere.
    auto header = zeroed<SEI_message_t>();
    int kind = -1;
    BOOL more = TRUE;
    observed.add(DetermineSEIType(unit.data(), length, &payload_offset, &nal_type_offset, &header, &kind, &more));
    observed.add(header);
    observed.add(kind);
    if (length >= 8) observed.add(_FindSEIUserDataRegisteredSUID(unit.data(), length, &kind));
    observed.add(kind);
    FUZZ_CHECK(unit.bytes() == bytes);
}
