// The work of h264tool dump.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "annexb_reader.h"
#include "diagnostics.h"
#include "h264.h"
#include "nal_types.h"
#include "parameter_sets.h"
#include "run_result.h"
#include "sei_findings.h"
#include "slice_unit.h"
#include "stream_input.h"

namespace h264tool {

struct DumpOptions {
    std::string file;
    std::string types;
    int level = DBG_LEVEL_DETAIL;
    bool json = false;
};

class Dump {
public:
    explicit Dump(const DumpOptions& options);

    // Prints the stream and returns the exit status.
    int run();

private:
    // What a unit holds.
    struct Findings {
        std::string damage;                 // why it cannot be parsed; empty when it can
        std::vector<std::string> messages;  // what the library says about that
        std::vector<std::string> warnings;
        std::string traces;  // text lines for what else the parser said
        // Set when they can be shown.
        const sps_t* sps = nullptr;
        const Pps* pps = nullptr;
        const Slice* slice = nullptr;
        std::optional<SeiFindings> sei;
        std::optional<unsigned> primary_pic_type;
        // Set also when the rest of a slice cannot be parsed.
        std::optional<std::uint64_t> slice_type;
    };

    // A unit that waits for the picture by whose parameter sets an SEI unit before it, or itself, is read.
    struct HeldUnit {
        NalUnit unit;
        bool is_sei = false;
        bool damaged = false;
        std::string text;  // of a unit that is no SEI unit
    };

    void show(const NalUnit& unit);
    void hold(HeldUnit held);
    void release();
    void put_out(const NalUnit& unit, bool damaged, const std::string& text);
    std::string render(const NalUnit& unit, const Findings& findings);
    Findings examine(const NalUnit& unit);
    void activate(const NalUnit& unit);
    std::string examine_sps(const NalUnit& unit, Findings& findings);
    std::string examine_pps(const NalUnit& unit, Findings& findings);
    std::string examine_slice(const NalUnit& unit, Findings& findings);
    std::string examine_delimiter(const NalUnit& unit, Findings& findings) const;
    Findings examine_sei_unit(const NalUnit& unit);
    void take_diagnostics(Findings& findings);
    void show_stray_bytes();

    // In dump_text.cpp.
    std::string to_text(const NalUnit& unit, const Findings& findings);
    std::string displays(const NalUnit& unit, const Findings& findings);
    std::string notes(const NalUnit& unit, const Findings& findings);
    void show_stray_bytes_as_text();
    void write_header();
    // In dump_json.cpp.
    std::string to_json(const NalUnit& unit, const Findings& findings);
    void show_stray_bytes_as_json();

    const int level_;
    const bool json_;
    const NalTypeSet selected_;
    StreamInput input_;
    DiagnosticsCapture diagnostics_;
    ParameterSets sets_;
    Slice slice_;
    ActiveSps active_sps_;
    std::deque<HeldUnit> held_;
    std::size_t held_bytes_ = 0;
    RunResult result_;
    bool header_written_ = false;
};

}  // namespace h264tool
