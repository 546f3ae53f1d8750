#include "workload.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>

namespace test {
namespace {

constexpr int kSlice = 1;
constexpr int kIdrSlice = 5;
constexpr int kSei = 6;
constexpr int kSps = 7;
constexpr int kPps = 8;
constexpr int kDelimiter = 9;

constexpr int kPicTiming = 1;
constexpr int kBufferingPeriod = 0;

}  // namespace

std::vector<Bytes> read_units(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(in), {}};
    const Bytes stream(content.begin(), content.end());
    constexpr std::array<unsigned char, 3> kPrefix{0, 0, 1};
    std::vector<Bytes> units;
    auto start = std::search(stream.begin(), stream.end(), kPrefix.begin(), kPrefix.end());
    while (start != stream.end()) {
        const auto next = std::search(start + 3, stream.end(), kPrefix.begin(), kPrefix.end());
        auto end = next;
        while (end[-1] == 0) --end;
        units.emplace_back(start, end);
        start = next;
    }
    return units;
}

void Workload::step() {
    if (units_.empty()) return;
    read(units_[next_]);
    next_ = (next_ + 1) % units_.size();
    write();
    move_bits();
    ++rounds_;
}

void Workload::see(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < size; ++i) digest_ = (digest_ ^ bytes[i]) * 0x100000001B3;
}

void Workload::read(const Bytes& unit) {
    BYTE type = 0;
    BYTE ref_idc = 0;
    called(H264LIB_GetNALTypeAndNALRefIdc(unit.data(), static_cast<int>(unit.size()), &type, &ref_idc));
    switch (type) {
        case kSps:
        case kPps:
            read_parameter_sets(unit, type);
            break;
        case kSlice:
        case kIdrSlice:
            read_slice(unit, type, ref_idc);
            break;
        case kSei:
            read_sei(unit);
            break;
        case kDelimiter: {
            aud_t aud{};
            called(parse_au_delimiter_nal(unit.data(), static_cast<int>(unit.size()), &aud));
            see(aud);
            break;
        }
        default:
            break;
    }
}

void Workload::read_parameter_sets(const Bytes& unit, int type) {
    const auto length = static_cast<unsigned>(unit.size());
    if (type == kSps) {
        called(parse_sps_nal_ex(unit.data(), length, &context_, &sps_));
        called(parse_sps_nal(unit.data(), static_cast<int>(length), &sps_));
        H264LIB_Display_sps(&sps_);
        see(sps_.vui.time_scale);
        see(sps_.pic_width_in_mbs_minus1);
        rewrite_sps(unit);
    } else {
        called(H264LIB_parse_pps_nal_ex(unit.data(), length, &sps_, &context_, &pps_));
        called(H264LIB_parse_pps_nal(unit.data(), static_cast<int>(length), &sps_, &pps_));
        H264LIB_Display_pps(&sps_, &pps_);
        see(pps_.pic_init_qp_minus26);
    }
}

void Workload::read_slice(const Bytes& unit, BYTE type, BYTE ref_idc) {
    slice_header_t slice{};
    slice.num_ref_idx_l0_active_minus1 = pps_.num_ref_idx_l0_default_active_minus1;
    slice.num_ref_idx_l1_active_minus1 = pps_.num_ref_idx_l1_default_active_minus1;
    called(parse_slice_type_only_nal(unit.data(), static_cast<int>(unit.size()), &sps_, &slice));
    called(parse_slice_header_nal(unit.data(), static_cast<int>(unit.size()), &sps_, &pps_, &slice));
    H264LIB_Display_slice_header(&sps_, &pps_, type, ref_idc, &slice);
    see(slice.frame_num);
    see(slice.slice_header_end_bitoffset);
}

void Workload::read_sei(const Bytes& unit) {
    const auto length = static_cast<int>(unit.size());
    int payload_offset = 0;
    int nal_type_offset = 0;
    for (BOOL more = TRUE; more != FALSE;) {
        SEI_message_t header{};
        int kind = 0;
        if (called(DetermineSEIType(unit.data(), length, &payload_offset, &nal_type_offset, &header, &kind, &more)) ==
            FALSE)
            return;
        see(kind);
        if (header.payload_type == kPicTiming) {
            sei_pic_timing_t pic_timing{};
            pic_timing.header = header;
            called(parse_sei_pictiming_nal(unit.data(), length, &sps_, &pic_timing));
            see(pic_timing.cpb_removal_delay);
            rewrite_pic_timing(unit, pic_timing);
        } else if (header.payload_type == kBufferingPeriod) {
            sei_buffering_period_t buffering_period{};
            buffering_period.header = header;
            called(parse_sei_buffering_period_nal(unit.data(), length, &sps_.vui, &buffering_period));
            see(buffering_period.initial_cpb_removal_delay);
        } else if (kind == SEI_SUID_CLOSED_CAPTION) {
            SEI_cc_t captions{};
            captions.header = header;
            called(parse_sei_cc_nal(unit.data(), length, &captions));
            see(captions.cc_data.cc_count);
        } else if (kind == SEI_SUID_AFD) {
            SEI_afd_t afd{};
            afd.header = header;
            called(parse_sei_afd_nal(unit.data(), length, &afd));
            see(afd.afd_data.active_format);
        }
    }
}

void Workload::rewrite_sps(const Bytes& unit) {
    sps_t wanted = sps_;
    wanted.vui.timing_info_present_flag = 1;
    wanted.vui.num_units_in_tick = 1001;
    wanted.vui.time_scale = 60000 + seed_;
    unsigned char* rewritten = nullptr;
    unsigned int length = 0;
    const auto size = static_cast<unsigned>(unit.size());
    if (called(H264Lib_Set_sps_vui_parameters_NAL(unit.data(), size, &wanted, &rewritten, &length)) != FALSE) {
        see(rewritten, length);
        H26XLib_Release_sps_buffer(rewritten);
    }
    Bytes payload(unit.size() + 64);
    const int bytes = called(SODB_deencapsulation_from_NAL(unit.data() + 3, size - 3, payload.data(),
                                                           static_cast<unsigned>(payload.size())));
    if (bytes <= 0) return;
    bitbuffer_t bits{};
    called(DoInitBitBuffer(&bits, payload.data(), 8 * static_cast<int>(payload.size())));
    wanted.level_idc = static_cast<unsigned char>(30 + seed_);
    wanted.frame_crop_right_offset = seed_;
    called(set_sps_level_idc(&bits, &wanted));
    called(set_vui_timing_info(&bits, &wanted.vui));
    called(set_vui_pic_struct_present_flag(&bits, &wanted.vui));
    called(set_sps_crop(&bits, bytes, &wanted));
    see(payload.data(), payload.size());
}

void Workload::rewrite_pic_timing(const Bytes& unit, const sei_pic_timing_t& pic_timing) {
    sei_pic_timing_t wanted = pic_timing;
    wanted.clock_timestamp_info[0].clock_timestamp_flag = 1;
    wanted.clock_timestamp_info[0].full_timestamp_flag = 1;
    wanted.clock_timestamp_info[0].hours_value = static_cast<unsigned char>(seed_ % 24);
    unsigned char* rewritten = nullptr;
    unsigned int length = 0;
    // A source that is longer than this loses 32 bytes with every call.
    if (unit.size() - 3 > H264_MAX_SEI_PICTIMING_SIZE_BYTES) return;
    if (called(H264Lib_Set_SEIPictiming_NAL(unit.data(), static_cast<unsigned>(unit.size()), &sps_, &wanted, &rewritten,
                                            &length)) == FALSE)
        return;
    see(rewritten, length);
    H26XLib_Release_sps_buffer(rewritten);
}

// One unit of each kind in turn, read again where there is a reader.
void Workload::write() {
    std::array<unsigned char, 300> area{};
    const int size = static_cast<int>(area.size());
    int length = 0;
    switch (rounds_ % 6) {
        case 0: {
            SEI_pictiming_info_t info{};
            info.FrameRate = 25000;
            info.NALTime.WallTime = {static_cast<unsigned char>(rounds_ % 25), static_cast<unsigned char>(seed_ % 60),
                                     2, 1};
            info.enTimeSource = NTP_SERVER;
            const vitc_t vitc{};
            length = called(format_sei_pictime_nal(area.data(), size, &vitc, &info));
            break;
        }
        case 1: {
            std::array<vanc_t, 4> entries{};
            for (vanc_t& entry : entries) {
                entry.suid = SEI_SUID_CLOSED_CAPTION;
                entry.vanc_data.caption = {1, 0, static_cast<unsigned char>(seed_),
                                           static_cast<unsigned char>(rounds_)};
            }
            int records = 0;
            length = called(format_sei_cc_nal(area.data(), size, entries.data(), sizeof entries, 4, &records));
            break;
        }
        case 2: {
            vanc_t entry{};
            entry.suid = SEI_SUID_AFD;
            entry.vanc_data.afd_data = {1, static_cast<unsigned char>(8 + seed_ % 8)};
            length = called(format_sei_afd_nal(area.data(), size, &entry, sizeof entry));
            break;
        }
        case 3: {
            constexpr std::array<unsigned char, 16> kUuid{1, 2, 3};
            const std::array<unsigned char, 5> payload{0, 0, 0, 1, static_cast<unsigned char>(seed_)};
            length = called(format_sei_user_data_unregistered_nal(area.data(), size, kUuid.data(), payload.data(),
                                                                  static_cast<unsigned>(payload.size())));
            break;
        }
        case 4: {
            const auto time = static_cast<INT64>(1'700'000'000'000'000 + rounds_);
            length = called(FormatMISPMicroSecondTimeSEI(area.data(), size, &time, 0x1F));
            break;
        }
        default:
            length = called(format_au_delimiter_nalu(area.data(), static_cast<unsigned>(size), seed_ % 8));
            called(format_end_of_sequence_nalu(area.data() + length, 5));
    }
    if (length <= 0) return;
    see(area.data(), static_cast<std::size_t>(length));
    if (rounds_ % 6 < 5) read_sei(Bytes(area.begin(), area.begin() + length));
}

void Workload::move_bits() {
    std::array<unsigned char, 64> area{};
    bitbuffer_t bits{};
    called(DoInitBitBuffer(&bits, area.data(), 8 * static_cast<int>(area.size())));
    called(SetNextNBitsFromUint32(&bits, 17, seed_ * 77));
    called(SetUint32Golomb(&bits, seed_ + rounds_ % 1000));
    called(SetInt32Golomb(&bits, -static_cast<long>(seed_)));
    called(SetNextNBitsFromString(&bits, 77, area.data() + 20));
    bits.bit_offset = 0;
    unsigned long value = 0;
    long signed_value = 0;
    called(GetNextNBitsAsUint32(&bits, 17, &value));
    see(value);
    called(GetUint32Golomb(&bits, &value));
    see(value);
    called(GetInt32Golomb(&bits, &signed_value));
    see(signed_value);
    std::array<unsigned char, 80> escaped{};
    called(RBSP_encapsulation_within_NAL_Ex(area.data(), 50, escaped.data(), 80, FALSE));
    see(escaped);
}

}  // namespace test
