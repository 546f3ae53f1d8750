// Writes syntax elements one by one and notes beside each what a reader of the sequence parameter set syntax must do
// with it, so that a test can say what to expect when the stream ends after any number of bits.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "bit_writer.h"
#include "diagnostics.h"
#include "format_text.h"
#include "h264.h"

namespace test {

// A message as a reader makes it.
struct LogLine {
    int level;
    std::string func;
    std::string text;
    std::string file = "h264d.c";

    bool operator==(const LogLine&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << line.level << ' ' << line.file << ' ' << line.func << ": " << line.text;
}

using Log = std::vector<LogLine>;

// The messages up to a level.
inline Log up_to_level(const Log& log, int level) {
    Log kept;
    for (const LogLine& line : log)
        if (line.level <= level) kept.push_back(line);
    return kept;
}

// The messages recorded since reset(), without the accessors' own traces of each bit field. What is wrong with a
// message beyond its parts is written behind its text.
inline Log recorded_log() {
    Log log;
    for (const Message& message : records().messages) {
        if (message.file != "h264d.c" && message.level >= 7) continue;
        std::string line = message.text;
        if (!line.empty() && line.back() == '\n' && line.find('\n') == line.size() - 1)
            line.pop_back();
        else
            line += "<line feeds wrong>";
        if (message.line <= 0) line += "<no source line>";
        log.push_back({message.level, message.func, line, message.file});
    }
    return log;
}

// What a call does: its result and its messages.
struct Outcome {
    int result = 0;
    Log log{};
};

// Where an element is stored: functions from the record to its field, null when the field has no room for it.
template <typename T>
auto at(T sps_t::*field) {
    return [field](sps_t& sps) { return &(sps.*field); };
}
template <typename T>
auto at(T vui_t::*field) {
    return [field](sps_t& sps) { return &(sps.vui.*field); };
}
template <typename T>
auto at(hrd_t vui_t::*hrd, T hrd_t::*field) {
    return [hrd, field](sps_t& sps) { return &(sps.vui.*hrd.*field); };
}
template <typename T, std::size_t N>
auto at(hrd_t vui_t::*hrd, T (hrd_t::*field)[N], std::size_t i) {
    return [hrd, field, i](sps_t& sps) { return i < N ? &(sps.vui.*hrd.*field)[i] : nullptr; };
}

class SyntaxScript {
public:
    // What the callers of a reader add when it fails.
    using Reaction = std::function<void(Outcome&)>;

    // bits_before: bits in front of the syntax, which the reader does not see.
    explicit SyntaxScript(unsigned bits_before = 0) : bits_before_(bits_before) { bits_.u(bits_before, 0); }

    // Elements. name is what the failure message calls the element.
    template <typename Place>
    void u(unsigned n, const std::string& name, std::uint64_t value, Place place) {
        const std::size_t start = bits_.bits();
        bits_.u(n, value);
        element(start, name, value, place);
    }
    template <typename Place>
    void flag(const std::string& name, bool value, Place place) {
        u(1, name, value ? 1 : 0, place);
    }
    template <typename Place>
    void ue(const std::string& name, std::uint64_t value, Place place) {
        const std::size_t start = bits_.bits();
        bits_.ue(value);
        element(start, name, value, place);
    }
    template <typename Place>
    void se(const std::string& name, std::int64_t value, Place place) {
        const std::size_t start = bits_.bits();
        bits_.se(value);
        element(start, name, value, place);
    }

    // What the reader does between two elements.
    void derive(std::function<void(sps_t&)> change) {
        between([change = std::move(change)](Run& run) { change(run.record); });
    }
    template <typename Place>
    void set(Place place, int value) {
        derive([place, value](sps_t& sps) { *place(sps) = value; });
    }
    template <typename Place>
    void position(Place place) {
        set(place, static_cast<int>(bits_.bits()));
    }
    void trace(const std::string& line) {
        between([entry = LogLine{7, func(), line}](Run& run) { run.outcome.log.push_back(entry); });
    }
    // The line that DisplayBitBufferInfo prints.
    void cursor(const std::string& label) {
        const auto offset = static_cast<unsigned>(bits_.bits());
        between([label, offset](Run& run) {
            run.outcome.log.push_back(
                {5, "_DisplayBitBuffer",
                 text("%s BB Addr=%p, NumBits=%d Current Bit Offset=%d (Byte=%d, BitOfByte=%d).", label.c_str(),
                      run.area, static_cast<int>(run.bits), offset, offset / 8, offset % 8),
                 "bitbuffer.c"});
        });
    }
    // Everything in body is done by the function name; when it fails, its caller does reaction.
    void call(const std::string& name, const Reaction& reaction, const std::function<void()>& body) {
        calls_.push_back({name, reaction});
        body();
        calls_.pop_back();
    }

    const BitWriter& bits() const { return bits_; }
    unsigned bits_before() const { return bits_before_; }

    // What must happen when the reader is given the first bits of the stream at the address area.
    Outcome run(std::size_t bits, const void* area, sps_t& record) const {
        Outcome outcome;
        Run run{bits, area, record, outcome};
        for (const Step& step : steps_) {
            if (step.end > step.start && step.end > bits) {
                outcome.result = -1;
                outcome.log.push_back({3, step.calls.back().name, "cannot parse " + step.element + "."});
                for (auto call = step.calls.rbegin(); call != step.calls.rend(); ++call)
                    if (call->reaction) call->reaction(outcome);
                return outcome;
            }
            step.act(run);
        }
        return outcome;
    }

    // Where elements begin, and their last bits: the places where cutting the stream tells most.
    std::vector<std::size_t> element_cuts() const {
        std::vector<std::size_t> cuts;
        for (const Step& step : steps_) {
            if (step.end == step.start) continue;
            if (cuts.empty() || cuts.back() != step.start) cuts.push_back(step.start);
            if (step.end - 1 != step.start) cuts.push_back(step.end - 1);
        }
        return cuts;
    }

private:
    struct Run {
        std::size_t bits;
        const void* area;
        sps_t& record;
        Outcome& outcome;
    };
    struct Call {
        std::string name;
        Reaction reaction;
    };
    struct Step {
        std::size_t start;
        std::size_t end;  // start itself: no element, always done
        std::string element;
        std::vector<Call> calls;
        std::function<void(Run&)> act;
    };

    const std::string& func() const { return calls_.back().name; }

    template <typename Value, typename Place>
    void element(std::size_t start, const std::string& name, Value value, Place place) {
        steps_.push_back({start, bits_.bits(), name, calls_, [place, value](Run& run) {
                              auto* field = place(run.record);
                              if (field != nullptr) *field = static_cast<std::remove_pointer_t<decltype(field)>>(value);
                          }});
    }
    void between(std::function<void(Run&)> act) {
        steps_.push_back({bits_.bits(), bits_.bits(), "", calls_, std::move(act)});
    }

    unsigned bits_before_;
    BitWriter bits_;
    std::vector<Call> calls_;
    std::vector<Step> steps_;
};

}  // namespace test
