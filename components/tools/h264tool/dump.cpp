#include "dump.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

#include "commands.h"
#include "payload_reader.h"

namespace h264tool {
namespace {

constexpr std::size_t kSliceBeginning = 64;  // enough for the parameter set to which a slice refers

// What is held back at most while an SEI unit waits for its picture.
constexpr std::size_t kMaxHeldBytes = std::size_t{1024} * 1024;
constexpr std::size_t kMaxHeldUnits = 1000;

bool is_slice(unsigned type) { return type == kSlice || type == kPartitionA || type == kIdrSlice; }

// Units of types 20 and 21 are not looked into: they refer to parameter sets of extensions.
AnnexBReader::KeptBytes kept_bytes(const NalTypeSet& selected) {
    AnnexBReader::KeptBytes kept{};
    for (const std::size_t type : {kSps, kPps, kSubsetSps}) kept[type] = kUnitBeginning;
    for (const std::size_t type : {kSlice, kPartitionA, kIdrSlice, kDelimiter})
        if (selected[type]) kept[type] = kUnitBeginning;
    if (!selected[kSei]) return kept;
    kept[kSei] = kUnitBeginning;
    // They tell by which parameter set SEI units are read.
    for (const std::size_t type : {kSlice, kPartitionA, kIdrSlice}) kept[type] = std::max(kept[type], kSliceBeginning);
    return kept;
}

// The level at which the parsers run. Below the traces, their own lines above the warnings would only repeat what the
// displays show.
int parser_level(const DumpOptions& options) {
    return options.level >= DBG_LEVEL_DEBUG ? options.level : DBG_LEVEL_WARNING;
}

// Why a --types argument is wrong; empty when it is not.
std::string check_types(const std::string& list) {
    try {
        parse_nal_types(list);
        return {};
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

}  // namespace

Dump::Dump(const DumpOptions& options)
    : level_(options.level),
      json_(options.json),
      selected_(options.types.empty() ? NalTypeSet().set() : parse_nal_types(options.types)),
      input_(options.file, kept_bytes(selected_)),
      sets_(parser_level(options)) {
    DbgTraceSetLevel(DBG_LEVEL_ERROR);
}

int Dump::run() {
    NalUnit unit;
    bool more = input_.units().next(unit);
    if (input_.units().stray_bytes() > 0) show_stray_bytes();
    for (; more; more = input_.units().next(unit)) show(unit);
    release();
    input_.finish();
    return result_.report(input_.name(), input_.units().stray_bytes());
}

void Dump::show(const NalUnit& unit) {
    // Units without a header have no type by which they could be left out.
    const bool selected = !unit.has_header() || selected_[unit.type()];
    if (selected && unit.has_header() && unit.type() == kSei) {
        hold({unit, true, false, {}});
        return;
    }
    const Findings findings = examine(unit);
    if (!held_.empty() && unit.has_header() && is_slice(unit.type())) release();
    const bool damaged = selected && !findings.damage.empty();
    std::string text = selected ? render(unit, findings) : std::string();
    if (held_.empty())
        put_out(unit, damaged, text);
    else
        hold({unit, false, damaged, std::move(text)});
}

void Dump::hold(HeldUnit held) {
    // The beginning is all that is looked at once there is a text.
    if (!held.is_sei) held.unit.bytes.clear();
    held_bytes_ += held.unit.bytes.size() + held.text.size();
    held_.push_back(std::move(held));
    if (held_bytes_ > kMaxHeldBytes || held_.size() > kMaxHeldUnits) release();
}

void Dump::release() {
    for (const HeldUnit& held : held_) {
        if (!held.is_sei) {
            put_out(held.unit, held.damaged, held.text);
            continue;
        }
        const Findings findings = examine_sei_unit(held.unit);
        put_out(held.unit, !findings.damage.empty(), render(held.unit, findings));
    }
    held_.clear();
    held_bytes_ = 0;
}

void Dump::put_out(const NalUnit& unit, bool damaged, const std::string& text) {
    result_.count(unit, damaged);
    if (text.empty()) return;
    write_header();
    input_.output().write(text);
}

std::string Dump::render(const NalUnit& unit, const Findings& findings) {
    return json_ ? to_json(unit, findings) : to_text(unit, findings);
}

void Dump::show_stray_bytes() { json_ ? show_stray_bytes_as_json() : show_stray_bytes_as_text(); }

Dump::Findings Dump::examine(const NalUnit& unit) {
    Findings findings;
    if (!unit.has_header()) {
        findings.damage = "no NAL unit header behind the start code";
        return findings;
    }
    // Parameter sets are wanted whether they are shown or not.
    const unsigned type = unit.type();
    if (is_slice(type) && selected_[kSei]) activate(unit);
    if (type == kSps)
        findings.damage = examine_sps(unit, findings);
    else if (type == kPps)
        findings.damage = examine_pps(unit, findings);
    else if (type == kSubsetSps)
        sets_.read_subset_sps(unit);
    else if (!selected_[type])
        return findings;
    else if (is_slice(type))
        findings.damage = examine_slice(unit, findings);
    else if (type == kDelimiter)
        findings.damage = examine_delimiter(unit, findings);
    take_diagnostics(findings);
    return findings;
}

std::string Dump::examine_sps(const NalUnit& unit, Findings& findings) {
    std::string damage = sets_.read_sps(unit);
    if (damage.empty()) findings.sps = &sets_.last_sps();
    return damage;
}

std::string Dump::examine_pps(const NalUnit& unit, Findings& findings) {
    std::string damage = sets_.read_pps(unit);
    if (sets_.sps_of_last_pps() != nullptr) findings.pps = &sets_.last_pps();
    return damage;
}

std::string Dump::examine_slice(const NalUnit& unit, Findings& findings) {
    std::string damage = parse_slice(unit, sets_, slice_);
    if (slice_.beginning.readable) findings.slice_type = slice_.beginning.slice_type;
    if (!damage.empty()) return damage;
    findings.slice = &slice_;
    if (slice_.has_chroma_weights)
        findings.warnings.emplace_back(
            "chroma weights are not read: what follows in pred_weight_table() and behind it "
            "is not what was transmitted");
    return damage;
}

// The library tells whether the unit can be read; a zero byte behind it makes it long enough. The fields of its record
// are not what a delimiter has at their places, so that primary_pic_type is read here.
std::string Dump::examine_delimiter(const NalUnit& unit, Findings& findings) const {
    constexpr std::size_t kLeastBytes = 3;
    constexpr std::uint64_t kMostBytes = 16;
    const std::size_t size = unit.bytes.size() - unit.start_code_length;
    if (size < 2) return "access unit delimiter is empty";
    std::vector<unsigned char> bytes = unit.bytes;
    if (size < kLeastBytes) bytes.push_back(0);
    {
        const DiagnosticsLevel level(sets_.parser_level());
        aud_t aud{};
        if (!parse_au_delimiter_nal(bytes.data(), static_cast<int>(bytes.size()), &aud))
            return parse_failure("access unit delimiter", unit, kMostBytes);
    }
    PayloadReader payload(payload_of(unit));
    findings.primary_pic_type = static_cast<unsigned>(payload.u(3));
    return {};
}

// Notes the sequence parameter set of a slice.
void Dump::activate(const NalUnit& unit) {
    const DiagnosticsLevel level(0);
    PayloadReader payload(payload_of(unit, kSliceBeginning));
    SliceBeginning beginning;
    if (read_slice_beginning(unit, payload, sets_, beginning).empty()) active_sps_.activate(*beginning.sps);
}

Dump::Findings Dump::examine_sei_unit(const NalUnit& unit) {
    // What the library says about the end of its walk is told by the reason for it.
    const int walk_level = level_ >= DBG_LEVEL_DEBUG ? level_ : 0;
    Findings findings;
    findings.sei = examine_sei(unit, active_sps_.get(sets_), sets_.parser_level(), walk_level);
    findings.damage = findings.sei->damage;
    findings.warnings = findings.sei->warnings;
    take_diagnostics(findings);
    return findings;
}

void Dump::take_diagnostics(Findings& findings) {
    const bool damaged = !findings.damage.empty();
    for (const DiagnosticsLine& line : diagnostics_.take()) {
        if (line.level <= DBG_LEVEL_ERROR)
            (damaged ? findings.messages : findings.warnings).push_back(line.text);
        else if (line.level == DBG_LEVEL_WARNING)
            findings.warnings.push_back(line.text);
        else if (line.level <= level_)
            findings.traces += "        " + line.func + ": " + line.text + "\n";
    }
}

void add_dump(CLI::App& program, int& status) {
    const auto options = std::make_shared<DumpOptions>();
    CLI::App* command = program.add_subcommand(
        "dump", "Print a line a NAL unit, and the elements of parameter sets, SEI and slice headers");
    command->add_option("FILE", options->file, "Annex B byte stream; - reads standard input")->required();
    CLI::Option* json = command->add_flag("--json", options->json, "Print a JSON object a unit and line");
    command
        ->add_option(
            "--level", options->level,
            "Verbosity of the text: 5 shows sequence parameter sets and SEI messages, 6 also picture parameter "
            "sets, slice headers, HRD parameters, scaling lists and elements of SEI messages, 7 and 8 also the "
            "parser's traces")
        ->check(CLI::Range(0, 8))
        ->capture_default_str()
        ->excludes(json);
    command
        ->add_option("--types", options->types,
                     "Show units of these types only, separated by commas: 0 to 31, or " + nal_type_short_names())
        ->check(check_types)
        ->type_name("LIST");
    command->callback([options, &status] { status = Dump(*options).run(); });
}

}  // namespace h264tool
