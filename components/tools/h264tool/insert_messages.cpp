#include "insert_messages.h"

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>
#include <string>

namespace h264tool {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t kMostUnitBytes = 512;  // more than a writer wants for any unit
// Start code, header byte, type and size: what a message without room leaves.
constexpr unsigned kEmptyUnitBytes = 7;
// Counted from a time that was given: not locked to a reference, MISB ST 0603.
constexpr unsigned char kPrecisionTimeStatus = 0x9F;

// Says in front of a failure what it is about.
template <class Action>
void about(const std::string& subject, const Action& action) {
    try {
        action();
    } catch (const std::exception& error) {
        throw std::runtime_error(subject + ": " + error.what());
    }
}

// Appends what a writer of the library writes into the area it is given.
template <class Write>
void append_unit(Bytes& bytes, const char* kind, const Write& write) {
    std::array<unsigned char, kMostUnitBytes> unit;
    const int length = write(unit.data(), static_cast<int>(unit.size()));
    // A length of 5 is that of a unit without a message.
    if (length <= 5 || static_cast<std::size_t>(length) > unit.size())
        throw std::runtime_error(std::string("cannot write the ") + kind + " message");
    bytes.insert(bytes.end(), unit.begin(), unit.begin() + length);
}

vanc_t caption_entry(bool valid, unsigned char type, std::uint16_t pair) {
    vanc_t entry{};
    entry.suid = SEI_SUID_CLOSED_CAPTION;
    entry.vanc_data.caption = {static_cast<unsigned char>(valid), type, static_cast<unsigned char>(pair >> 8),
                               static_cast<unsigned char>(pair)};
    return entry;
}

vitc_t vitc_of(const Timecode& timecode, bool drop_frame, bool bottom_field) {
    const auto tens = [](unsigned number) { return static_cast<unsigned char>(number / 10); };
    const auto units = [](unsigned number) { return static_cast<unsigned char>(number % 10); };
    vitc_t vitc{};
    vitc.FrameUnits = units(timecode.frames);
    vitc.FrameTens = tens(timecode.frames);
    vitc.SecondUnits = units(timecode.seconds);
    vitc.SecondTens = tens(timecode.seconds);
    vitc.MinuteUnits = units(timecode.minutes);
    vitc.MinuteTens = tens(timecode.minutes);
    vitc.HourUnits = units(timecode.hours);
    vitc.HourTens = tens(timecode.hours);
    vitc.Flag1 = static_cast<unsigned char>(drop_frame);
    vitc.Flag2 = vitc.Flag4 = static_cast<unsigned char>(bottom_field);  // which one counts depends on the rate
    return vitc;
}

// A sequence parameter set by which the picture timing writer's messages are read and written.
const sps_t& timing_sps() {
    static const sps_t sps = [] {
        sps_t set{};
        set.vui.pic_struct_present_flag = 1;
        set.vui.nal_hrd.time_offset_length = 24;
        return set;
    }();
    return sps;
}

// The writer knows frames of progressive video and single fields. This makes its message for a frame that of a frame of
// two fields, whose timecode stands with the first.
void append_as_field_pair(const Bytes& unit, PictureStructure structure, Bytes& bytes) {
    sei_pic_timing_t timing{};
    int payload_offset = 0;
    int header_offset = 0;
    int kind = SEI_SUID_NONE;
    BOOL more = FALSE;
    unsigned char* result = nullptr;
    unsigned int length = 0;
    bool fine = DetermineSEIType(unit.data(), static_cast<int>(unit.size()), &payload_offset, &header_offset,
                                 &timing.header, &kind, &more) &&
                parse_sei_pictiming_nal(unit.data(), static_cast<int>(unit.size()), &timing_sps(), &timing);
    timing.pic_struct = static_cast<unsigned char>(structure);
    timing.NumClockTS = 2;
    timing.clock_timestamp_info[0].ct_type = 1;
    fine = fine &&
           H264Lib_Set_SEIPictiming_NAL(unit.data(), static_cast<unsigned int>(unit.size()), &timing_sps(), &timing,
                                        &result, &length) &&
           length > kEmptyUnitBytes;
    if (fine) bytes.insert(bytes.end(), result, result + length);
    H26XLib_Release_sps_buffer(result);
    if (!fine) throw std::runtime_error("cannot write the picture timing message of a frame of two fields");
}

}  // namespace

PictureStructure picture_structure(const SliceIdentity& slice) {
    if (slice.field_pic_flag)
        return slice.bottom_field_flag ? PictureStructure::kBottomField : PictureStructure::kTopField;
    const sps_t& sps = slice.beginning.sps->sps;
    std::int64_t to_bottom = 0;
    if (sps.pic_order_cnt_type == 0) to_bottom = slice.delta_pic_order_cnt_bottom;
    if (sps.pic_order_cnt_type == 1) to_bottom = sps.offset_for_top_to_bottom_field + slice.delta_pic_order_cnt[1];
    if (sps.frame_mbs_only_flag != 0 || to_bottom == 0) return PictureStructure::kFrame;
    return to_bottom > 0 ? PictureStructure::kTopFieldFirst : PictureStructure::kBottomFieldFirst;
}

InsertMessages::InsertMessages(const InsertOptions& options, const std::optional<FrameRate>& rate)
    : options_(options), rate_(rate) {
    if (options_.timecode) {
        about("--timecode", [this] { timecode_rate_ = timecode_rate(*rate_, *options_.timecode); });
        first_number_ = frame_number(options_.timecode->timecode, timecode_rate_);
    }
    if (options_.captions) {
        about(options_.captions_file, [&] {
            captions_.emplace(*options_.captions, *rate_, options_.timecode, timecode_rate_.frames_per_second);
        });
    }
    if (options_.afd) {
        vanc_t entry{};
        entry.suid = SEI_SUID_AFD;
        entry.vanc_data.afd_data = {1, static_cast<unsigned char>(*options_.afd)};
        append_unit(constant_, "active format description", [&](unsigned char* area, int size) {
            return format_sei_afd_nal(area, size, &entry, sizeof entry);
        });
    }
    if (options_.user_data) {
        const UserData& data = *options_.user_data;
        append_unit(constant_, "user data", [&](unsigned char* area, int size) {
            return format_sei_user_data_unregistered_nal(area, size, data.uuid.data(),
                                                         reinterpret_cast<const unsigned char*>(data.text.data()),
                                                         static_cast<unsigned int>(data.text.size()));
        });
    }
}

void InsertMessages::check_fits(std::uint64_t frames) const {
    if (captions_) about(options_.captions_file, [&] { captions_->check_fits(frames); });
    constexpr std::uint64_t kLast = std::numeric_limits<std::int64_t>::max();
    if (options_.precision_time &&
        microseconds(2 * frames) > kLast - static_cast<std::uint64_t>(*options_.precision_time))
        throw std::runtime_error("--precision-time: the last frame's is above " + std::to_string(kLast));
}

void InsertMessages::append(const PictureOrder::Place& place, PictureStructure structure, Bytes& bytes) const {
    if (options_.timecode) append_timecode(place.frame, structure, bytes);
    // A frame's captions go with its first field.
    if (captions_ && !place.second_field) append_captions(place.frame, bytes);
    if (options_.precision_time) append_precision_time(place, bytes);
    bytes.insert(bytes.end(), constant_.begin(), constant_.end());
}

void InsertMessages::append_timecode(std::uint64_t frame, PictureStructure structure, Bytes& bytes) const {
    const bool top = structure == PictureStructure::kTopField;
    const bool bottom = structure == PictureStructure::kBottomField;
    const vitc_t vitc = vitc_of(timecode_at(first_number_ + frame, timecode_rate_), timecode_rate_.drop_frame, bottom);
    SEI_pictiming_info_t info{};
    info.FrameRate = static_cast<int>(rate_->numerator * 1000 / rate_->denominator);
    info.scan_type = top || bottom ? H264_SCAN_TYPE_INTERLACED : H264_SCAN_TYPE_PROGRESSIVE;
    info.BottomFieldFlag = static_cast<unsigned char>(bottom);
    info.enTimeSource = EMBEDDED_TIME_CODE;
    Bytes unit;
    append_unit(unit, "picture timing",
                [&](unsigned char* area, int size) { return format_sei_pictime_nal(area, size, &vitc, &info); });
    if (structure == PictureStructure::kTopFieldFirst || structure == PictureStructure::kBottomFieldFirst)
        append_as_field_pair(unit, structure, bytes);
    else
        bytes.insert(bytes.end(), unit.begin(), unit.end());
}

void InsertMessages::append_captions(std::uint64_t frame, Bytes& bytes) const {
    constexpr unsigned char kField1 = 0;
    constexpr unsigned char kDtvccData = 2;  // the type of padding
    std::vector<vanc_t> entries;
    for (const std::uint16_t pair : captions_->pairs(frame)) entries.push_back(caption_entry(true, kField1, pair));
    if (entries.empty()) entries.push_back(caption_entry(false, kField1, 0));
    const std::size_t size = entries.size() * sizeof(vanc_t);
    const auto triples = std::max(captions_->triples(), static_cast<unsigned>(entries.size()));
    entries.push_back(caption_entry(false, kDtvccData, 0));  // the writer takes the padding's type from it
    append_unit(bytes, "caption", [&](unsigned char* area, int area_size) {
        return format_sei_cc_nal(area, area_size, entries.data(), static_cast<unsigned int>(size), triples, nullptr);
    });
}

void InsertMessages::append_precision_time(const PictureOrder::Place& place, Bytes& bytes) const {
    const std::uint64_t fields = 2 * std::uint64_t{place.frame} + (place.second_field ? 1 : 0);
    const INT64 time = *options_.precision_time + static_cast<INT64>(microseconds(fields));
    append_unit(bytes, "precision time", [&](unsigned char* area, int size) {
        return FormatMISPMicroSecondTimeSEI(area, size, &time, kPrecisionTimeStatus);
    });
}

// How long so many fields last.
std::uint64_t InsertMessages::microseconds(std::uint64_t fields) const {
    return multiply_divide(fields, 1000000 * rate_->denominator, 2 * rate_->numerator);
}

}  // namespace h264tool
