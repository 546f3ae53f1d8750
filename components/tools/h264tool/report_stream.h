// What h264tool report collects about a stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cpb_model.h"
#include "picture_counter.h"
#include "picture_messages.h"
#include "report_timecodes.h"
#include "sps_properties.h"

namespace h264tool {

// What a sequence parameter set says about the pictures from one on.
struct ReportSequence {
    std::uint32_t first_picture = 0;
    std::string name;  // "1920x1080, High 4.1, 25 frames/s"
    std::optional<FrameRate> rate;
    double tick = 0;                 // seconds; 0 when there is no timing
    std::optional<CpbSchedule> nal;  // of the two HRDs
    std::optional<CpbSchedule> vcl;
    bool low_delay = false;
};

// A primary coded picture and its access unit.
struct ReportPicture {
    std::uint64_t unit = 0;       // number of the NAL unit of its first slice
    std::uint64_t bytes = 0;      // with start codes and the zero bytes behind units
    std::uint64_t vcl_bytes = 0;  // of slices and filler data, without start codes
    PictureType type = kPictureI;
    bool idr = false;
    std::uint8_t nal_ref_idc = 0;
    std::uint8_t structure = 0;  // 0 frame, 1 top field, 2 bottom field
    std::uint8_t fields = 2;     // how long it is shown
    std::uint32_t sequence = 0;
    std::optional<std::uint64_t> cpb_removal_delay;
    std::optional<std::uint64_t> dpb_output_delay;
    std::optional<CpbInitialDelay> nal_delay;  // of a buffering period
    std::optional<CpbInitialDelay> vcl_delay;
    std::optional<PictureTimecode> timecode;  // its first one that is known in full
    std::vector<PictureTimecode> others;      // those behind it
    std::optional<unsigned> cc_count;
    unsigned cc_active = 0;                  // triples that carry captions, not padding
    std::optional<int> active_format;        // -1 when active_format_flag is 0
    std::optional<PrecisionTime> precision;  // MISB ST 0604
};

// A parameter set whose content differs from the one of its id before it.
struct SetVersion {
    const char* kind = "";  // "SPS"
    std::uint64_t id = 0;
    std::uint64_t unit = 0;  // number
    std::uint64_t offset = 0;
    std::uint32_t picture = 0;  // that comes next
    std::uint64_t units = 1;    // with this content in a row
    nlohmann::ordered_json elements;
};

class ReportStream : public PictureMessages {
public:
    static constexpr std::size_t kMaxSetVersions = 200;

    // schedule: SchedSelIdx
    explicit ReportStream(unsigned schedule) : schedule_(schedule) {}

    // Takes the next unit of the stream.
    void add(const NalUnit& unit);
    // The stream has ended.
    void finish();

    const std::vector<ReportPicture>& pictures() const { return pictures_; }
    const std::vector<ReportSequence>& sequences() const { return sequences_; }
    const std::vector<SetVersion>& sets() const { return sets_seen_; }
    std::uint64_t sets_left_out() const { return sets_left_out_; }
    // Why there is nothing to look at in the HRDs, empty when there is; without HRDs schedule 0 will do.
    std::string missing_schedule() const;

private:
    void add_set(const NalUnit& unit) override;
    void add_slice(const SliceIdentity& identity) override;
    void keep_set(const NalUnit& unit, const char* kind, std::uint64_t id, const std::vector<unsigned char>& bytes,
                  nlohmann::ordered_json elements);
    void begin_picture(const NalUnit& unit, const SliceIdentity& identity) override;
    void select_sequence(const Sps& sps);
    void store(const SeiUnit& unit, const SeiMessage& message, const SeiRecord& record, const sps_t& sps) override;
    void store_timing(const sei_pic_timing_t& timing, const sps_t& sps);
    void store_captions(const SEI_cc_t& captions);
    void account(const NalUnit& unit);

    const unsigned schedule_;
    std::uint64_t bytes_before_picture_ = 0;  // of units that belong to the picture that comes next
    std::vector<ReportPicture> pictures_;
    std::vector<ReportSequence> sequences_;
    std::vector<unsigned char> sequence_bytes_;
    std::size_t nal_schedules_ = 0;  // most of a sequence
    std::size_t vcl_schedules_ = 0;
    std::vector<SetVersion> sets_seen_;
    std::uint64_t sets_left_out_ = 0;
    // The content of the last set of a kind and id, and its place in sets_seen_.
    std::map<std::pair<std::string, std::uint64_t>, std::pair<std::vector<unsigned char>, std::size_t>> last_sets_;
    // The parts of the last clock timestamps that had them.
    std::optional<unsigned> hours_;
    std::optional<unsigned> minutes_;
    std::optional<unsigned> seconds_;
};

}  // namespace h264tool
