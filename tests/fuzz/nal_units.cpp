// Readers of parameter sets, slice headers and delimiters: several units read into the same records, in any order, so
// that each reader finds what another unit left there.
#include <array>

#include "fuzz.h"
#include "guarded_buffer.h"
#include "h264.h"

namespace {

using test::Bytes;
using test::FuzzInput;
using test::GuardedBuffer;
using test::Observed;

// Small enough that a run's messages do not take seconds.
constexpr unsigned long kMostMapUnits = 4096;

struct Records {
    sps_t sps;
    pps_t pps;
    slice_header_t slice;
    aud_t aud;
};

void read_sps(GuardedBuffer& unit, int length, Records& records, Observed& observed) {
    observed.add(parse_sps_nal(unit.data(), length, &records.sps));
    H264LIB_Display_sps(&records.sps);
}

void read_pps(GuardedBuffer& unit, int length, Records& records, Observed& observed) {
    observed.add(H264LIB_parse_pps_nal(unit.data(), length, &records.sps, &records.pps));
    const bool large = records.pps.pic_size_in_map_units_minus1 >= kMostMapUnits;
    if (!large) H264LIB_Display_pps(&records.sps, &records.pps);
}

void read_slice(GuardedBuffer& unit, int length, Records& records, Observed& observed) {
    observed.add(parse_slice_type_only_nal(unit.data(), length, &records.sps, &records.slice));
    observed.add(parse_slice_header_nal(unit.data(), length, &records.sps, &records.pps, &records.slice));
    BYTE type = 0;
    BYTE ref_idc = 0;
    observed.add(H264LIB_GetNALTypeAndNALRefIdc(unit.data(), length, &type, &ref_idc));
    H264LIB_Display_slice_header(&records.sps, &records.pps, type, ref_idc, &records.slice);
}

void read_delimiter(GuardedBuffer& unit, int length, Records& records, Observed& observed) {
    observed.add(parse_au_delimiter_nal(unit.data(), length, &records.aud));
}

}  // namespace

void test::fuzz(FuzzInput& input, Observed& observed) {
    auto records = zeroed<Records>();
    constexpr std::array kReaders{read_sps, read_pps, read_slice, read_delimiter};
    while (input.left() > 0) {
        const auto reader = input.below(kReaders.size() + 1);
        if (reader == kReaders.size()) {
            // Parameter sets that no unit has held.
            switch (input.below(3)) {
                case 0:
                    input.fill(records.sps);
                    break;
                case 1:
                    input.fill(records.pps);
                    break;
                default:
                    input.fill(records.slice);
            }
            continue;
        }
        const Bytes bytes = input.chunk();
        GuardedBuffer unit(bytes);
        kReaders.at(reader)(unit, static_cast<int>(bytes.size()), records, observed);
        FUZZ_CHECK(unit.bytes() == bytes);
        observed.add(records);
    }
    int max_fps = 0;
    observed.add(getMAXFPSForVUI(records.sps.vui.time_scale, records.sps.vui.num_units_in_tick, &max_fps));
    observed.add(max_fps);
}
