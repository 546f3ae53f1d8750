// The text that h264tool dump prints.
#include <array>
#include <cinttypes>

#include "dump.h"
#include "text.h"

namespace h264tool {
namespace {

std::string indented(const std::string& text) { return "        " + text + "\n"; }

// The slice types that a picture may have, by primary_pic_type, ITU-T H.264 Table 7-5.
constexpr std::array<const char*, 8> kPrimaryPicTypes{"I",      "I, P",  "I, P, B",      "SI",
                                                      "SP, SI", "I, SI", "I, SI, P, SP", "I, SI, P, SP, B"};

}  // namespace

std::string Dump::to_text(const NalUnit& unit, const Findings& findings) {
    std::string text = format("%6" PRIu64 " %11" PRIu64 " %9" PRIu64 " %10u ", unit.number, unit.offset, unit.length,
                              unit.start_code_length);
    if (unit.has_header())
        text += format("%7u  %2u ", unit.ref_idc(), unit.type()) + std::string(nal_type_name(unit.type()));
    else
        text += "      -   -";
    text += notes(unit, findings) + '\n' + findings.traces;
    if (!findings.damage.empty()) text += indented("error: " + findings.damage);
    for (const std::string& message : findings.messages) text += indented("error: " + message);
    if (level_ >= DBG_LEVEL_WARNING)
        for (const std::string& warning : findings.warnings) text += indented("warning: " + warning);
    return text + displays(unit, findings);
}

// The elements, as the library displays them.
std::string Dump::displays(const NalUnit& unit, const Findings& findings) {
    const DiagnosticsLevel level(level_);
    // Where the level leaves out a display, its errors are left out too.
    if (findings.sps != nullptr && level_ >= DBG_LEVEL_INFO) H264LIB_Display_sps(findings.sps);
    if (findings.pps != nullptr && level_ >= DBG_LEVEL_DETAIL)
        H264LIB_Display_pps(sets_.sps_of_last_pps(), &findings.pps->pps);
    if (findings.slice != nullptr && level_ >= DBG_LEVEL_DETAIL) {
        const SliceBeginning& beginning = findings.slice->beginning;
        H264LIB_Display_slice_header(&beginning.sps->sps, &beginning.pps->pps, static_cast<BYTE>(unit.type()),
                                     static_cast<BYTE>(unit.ref_idc()), &findings.slice->header);
    }
    std::string text;
    for (const DiagnosticsLine& line : diagnostics_.take()) text += indented(line.text);
    if (findings.pps != nullptr && findings.pps->stop_bit_is_element && level_ >= DBG_LEVEL_DETAIL)
        text += indented("note: transform_8x8_mode_flag is the stop bit of the unit");
    if (findings.sei && level_ >= DBG_LEVEL_INFO)
        for (const std::string& line : sei_text(*findings.sei, level_ >= DBG_LEVEL_DETAIL)) text += indented(line);
    return text;
}

// What stands behind the name of a unit's type.
std::string Dump::notes(const NalUnit& unit, const Findings& findings) {
    std::string text;
    if (findings.slice_type) text += std::string(", ") + slice_type_name(*findings.slice_type);
    if (findings.primary_pic_type)
        text += format(", primary_pic_type %u: ", *findings.primary_pic_type) +
                kPrimaryPicTypes.at(*findings.primary_pic_type);
    if (unit.has_header() && unit.forbidden_zero_bit()) text += ", forbidden_zero_bit is 1";
    const AnnexBReader& units = input_.units();
    if (unit.number == 1 && units.stray_bytes() == 0 && units.leading_zero_8bits() > 0)
        text += ", behind " + count_of(units.leading_zero_8bits(), "leading zero byte");
    if (unit.trailing_zero_8bits > 0)
        text += ", followed by " + count_of(unit.trailing_zero_8bits, "trailing zero byte");
    return text;
}

void Dump::show_stray_bytes_as_text() {
    write_header();
    input_.output().write(format("     - %11" PRIu64 " %9" PRIu64 "          -       -   -\n",
                                 input_.units().leading_zero_8bits(), input_.units().stray_bytes()));
    input_.output().write(indented("error: data before the first start code"));
}

void Dump::write_header() {
    if (json_ || header_written_) return;
    header_written_ = true;
    input_.output().write("  unit      offset    length start_code ref_idc  nal_unit_type\n");
}

}  // namespace h264tool
