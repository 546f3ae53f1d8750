// The page that h264tool summary prints.
#include <algorithm>
#include <cinttypes>
#include <utility>

#include "nal_types.h"
#include "sps_properties.h"
#include "summary_output.h"
#include "text.h"

namespace h264tool {
namespace {

constexpr int kLabelWidth = 18;

std::string line(const std::string& label, const std::string& text) {
    return format("%-*s", kLabelWidth, label.c_str()) + text + '\n';
}

// A number with at most three decimals.
std::string decimal(double number) {
    std::string text = format("%.3f", number);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text;
}

std::string seconds(double duration) { return format("%.3f s", duration); }

std::string kilobits(double bits) { return format("%.1f kbit", bits / 1000); }

std::string percent(std::uint64_t part, std::uint64_t whole) {
    return format("%6.1f", whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole));
}

std::string picture_format(const sps_t& sps) {
    const auto size = picture_size(sps);
    std::string text = size ? std::to_string(size->width) + " x " + std::to_string(size->height) : "no valid size";
    const std::string chroma = chroma_format_name(sps);
    text += ", " + chroma + ", " + std::to_string(std::uint64_t{sps.bit_depth_luma_minus8} + 8) + " bits";
    if (chroma != "monochrome" && sps.bit_depth_chroma_minus8 != sps.bit_depth_luma_minus8)
        text += " luma, " + std::to_string(std::uint64_t{sps.bit_depth_chroma_minus8} + 8) + " bits chroma";
    return text;
}

std::string coding(const Sequence& sequence) {
    const sps_t& sps = sequence.sps.sps;
    const FrameCounts& frames = sequence.frames;
    std::string text = sps.frame_mbs_only_flag != 0            ? "progressive"
                       : sps.mb_adaptive_frame_field_flag != 0 ? "interlaced (MBAFF)"
                                                               : "interlaced (no MBAFF)";
    const char* separator = ": ";
    const auto add = [&](std::uint64_t count, const std::string& noun) {
        if (count > 0) text += std::exchange(separator, ", ") + count_of(count, noun);
    };
    add(frames.frame_pictures, "frame");
    add(frames.field_pairs, "field pair");
    add(frames.single_fields, "single field");
    return text;
}

std::string rate(const sps_t& sps) {
    const auto frames = frame_rate(sps);
    if (!frames) return "not signalled";
    std::string text = decimal(frames->value());
    if (frames->denominator != 1)
        text += " (" + std::to_string(frames->numerator) + '/' + std::to_string(frames->denominator) + ')';
    return text + " frames/s, " + (sps.vui.fixed_frame_rate_flag != 0 ? "fixed" : "not fixed");
}

std::string sequence_block(const Sequence& sequence, const std::string& title) {
    const sps_t& sps = sequence.sps.sps;
    std::string text = '\n' + title + '\n';
    text += line("  Profile", profile_name(sps) + ", level " + level_name(sps));
    text += line("  Picture", picture_format(sps));
    text += line("  Coding", coding(sequence));
    text += line("  Frame rate", rate(sps));
    if (const auto duration = sequence.duration()) {
        text += line("  Duration", seconds(*duration));
        text += line("  Bit rate", kilobits(bit_rate(sequence.bytes, *duration)) + "/s");
    }
    for (const HrdSchedule& schedule : hrd_schedules(sps))
        text += line(schedule.nal ? "  NAL HRD" : "  VCL HRD", kilobits(static_cast<double>(schedule.bit_rate)) +
                                                                   "/s " + (schedule.cbr ? "CBR" : "VBR") + ", CPB " +
                                                                   kilobits(static_cast<double>(schedule.cpb_size)));
    return text;
}

// "2 units, ids 0 1, 1 change of content"
std::string sets(const SetCount& count, const UnitCount& units) {
    std::string text = count_of(units.units, "unit");
    if (count.ids.any()) text += count.ids.count() == 1 ? ", id" : ", ids";
    for (std::size_t id = 0; id < count.ids.size(); ++id)
        if (count.ids[id]) text += ' ' + std::to_string(id);
    return units.units == 0 ? "none" : text + ", " + count_of(count.changes, "change") + " of content";
}

std::string head(const StreamSummary& summary, const InputFacts& input) {
    const auto duration = summary.duration();
    std::string text = line("File", input.name);
    text += line("Size", grouped(input.size) + " bytes");
    text += line("Frames", grouped(summary.pictures().frames()));
    if (duration) {
        text += line("Duration", seconds(*duration));
        text += line("Bit rate", kilobits(bit_rate(input.size, *duration)) + "/s");
    } else if (!summary.sequences().empty()) {
        text += line("Duration", "unknown, since the stream does not signal its frame rate");
    }
    const auto& units = summary.units_by_type();
    text += line("SPS", sets(summary.sequence_parameter_sets(), units[kSps]));
    text += line("PPS", sets(summary.picture_parameter_sets(), units[kPps]));
    if (summary.result().damaged_units() > 0)
        text += line("Damage", count_of(summary.result().damaged_units(), "unit") +
                                   " could not be parsed and may be missing in what follows; h264tool dump tells more");
    return text;
}

std::string unit_table(const StreamSummary& summary, const InputFacts& input) {
    struct Row {
        std::string name;
        std::string units;
        std::uint64_t bytes;
    };
    std::vector<Row> rows;
    for (unsigned type = 0; type < 32; ++type) {
        const UnitCount& count = summary.units_by_type()[type];
        if (count.units > 0)
            rows.push_back({format("  %2u ", type).append(nal_type_name(type)), grouped(count.units), count.bytes});
    }
    const UnitCount& empty = summary.units_without_header();
    if (empty.units > 0) rows.push_back({"   - Start code alone", grouped(empty.units), empty.bytes});
    const std::uint64_t zeros = input.size - input.stray_bytes - summary.unit_bytes();
    if (zeros > 0) rows.push_back({"     Zero bytes around units", "", zeros});
    if (input.stray_bytes > 0) rows.push_back({"     Data before the first start code", "", input.stray_bytes});
    rows.push_back({"     Sum", grouped(summary.units()), input.size});

    std::size_t width = 0;
    for (const Row& row : rows) width = std::max(width, row.name.size());
    const int name_width = static_cast<int>(width);
    std::string text = format("\n%-*s %9s %15s %6s\n", name_width, "NAL units", "units", "bytes", "%");
    for (const Row& row : rows)
        text += format("%-*s %9s %15s ", name_width, row.name.c_str(), row.units.c_str(), grouped(row.bytes).c_str()) +
                percent(row.bytes, input.size) + '\n';
    return text;
}

std::string picture_table(const StreamSummary& summary) {
    const PictureCounter& pictures = summary.pictures();
    const auto& types = pictures.pictures();
    const auto& slices = summary.slices();
    std::string text =
        format("\n%-*s %9s %9s %9s %9s %9s %9s\n", kLabelWidth, "Pictures, slices", "I", "P", "B", "SI", "SP", "IDR");
    text += format("%-*s %9s %9s %9s %9s %9s %9s\n", kLabelWidth, "  pictures", grouped(types[kPictureI]).c_str(),
                   grouped(types[kPictureP]).c_str(), grouped(types[kPictureB]).c_str(), "", "",
                   grouped(pictures.idr_pictures()).c_str());
    text +=
        format("%-*s %9s %9s %9s %9s %9s %9s\n", kLabelWidth, "  slices", grouped(slices[kSliceI]).c_str(),
               grouped(slices[kSliceP]).c_str(), grouped(slices[kSliceB]).c_str(), grouped(slices[kSliceSI]).c_str(),
               grouped(slices[kSliceSP]).c_str(), grouped(summary.units_by_type()[kIdrSlice].units).c_str());
    return text;
}

std::string distance_row(const char* label, const Distances& distances) {
    if (distances.count() == 0) return format("%-*s %9u\n", kLabelWidth, label, 0U);
    return format("%-*s %9s %9s %9.1f %9s\n", kLabelWidth, label, grouped(distances.count()).c_str(),
                  grouped(distances.shortest).c_str(), distances.mean(), grouped(distances.longest).c_str());
}

std::string distance_table(const PictureCounter& pictures) {
    return format("\n%-*s %9s %9s %9s %9s\n", kLabelWidth, "GOPs, in frames", "number", "shortest", "mean", "longest") +
           distance_row("  IDR to IDR", pictures.idr_distances()) +
           distance_row("  I to I", pictures.intra_distances());
}

std::string sei_table(const StreamSummary& summary) {
    if (summary.sei_messages().empty()) return "\nSEI messages: none\n";
    std::size_t width = 0;
    std::vector<std::pair<std::string, std::uint64_t>> rows;
    for (const auto& [kind, count] : summary.sei_messages()) {
        std::string name = format("%5" PRIu64 " ", kind.payload_type).append(sei_name(kind.payload_type));
        if (!kind.user_identifier.empty()) name += ", " + kind.user_identifier;
        width = std::max(width, name.size());
        rows.emplace_back(name, count);
    }
    const int name_width = static_cast<int>(std::max<std::size_t>(width, kLabelWidth));
    std::string text = format("\n%-*s %9s\n", name_width, "SEI messages", "number");
    for (const auto& [name, count] : rows)
        text += format("%-*s %9s\n", name_width, name.c_str(), grouped(count).c_str());
    return text;
}

}  // namespace

std::string summary_to_text(const StreamSummary& summary, const InputFacts& input) {
    std::string text = head(summary, input);
    const std::size_t count = summary.sequences().size();
    std::size_t number = 0;
    for (const Sequence& sequence : summary.sequences())
        text += sequence_block(
            sequence, count == 1 ? "Video" : "Video " + std::to_string(++number) + " of " + std::to_string(count));
    if (summary.has_more_sequences()) text += "\nThe videos behind these, by other parameter sets, are left out.\n";
    text += unit_table(summary, input);
    text += picture_table(summary);
    text += distance_table(summary.pictures());
    return text + sei_table(summary);
}

}  // namespace h264tool
