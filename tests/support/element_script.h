// Writes a syntax structure element by element and notes beside each what a reader must do with it, so that a test can
// say what to expect when the stream ends after any number of bits.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "bit_writer.h"
#include "syntax_script.h"

namespace test {

// Where an element is stored: functions from the record to its field, null when the record has no room for it.
template <typename Record, typename T>
auto field(T Record::*member) {
    return [member](Record& record) { return &(record.*member); };
}
template <typename Record, typename Part, typename T>
auto field(Part Record::*part, T Part::*member) {
    return [part, member](Record& record) { return &(record.*part.*member); };
}
template <typename Record, typename T, std::size_t N>
auto entry(T (Record::*array)[N], std::size_t i) {
    return [array, i](Record& record) { return i < N ? &(record.*array)[i] : nullptr; };
}
template <typename Record, typename Part, typename T, std::size_t N>
auto entry(Part Record::*part, T (Part::*array)[N], std::size_t i) {
    return [part, array, i](Record& record) { return i < N ? &(record.*part.*array)[i] : nullptr; };
}

template <typename Record>
class ElementScript {
public:
    // What the caller of a function adds when that function fails.
    using Reaction = std::function<void(Outcome&)>;

    // failure: what the messages of elements that cannot be read begin with.
    explicit ElementScript(std::string failure) : failure_(std::move(failure)) {}

    // Elements. name is what the failure message calls the element; without a name there is no message. result is that
    // of a reader that cannot read the element.
    template <typename Place>
    void u(unsigned n, const std::string& name, std::uint64_t value, Place place, int result = -1) {
        const std::size_t start = bits_.bits();
        bits_.u(n, value);
        element({start, start, result}, name, value, place);
    }
    template <typename Place>
    void flag(const std::string& name, bool value, Place place) {
        u(1, name, value ? 1 : 0, place);
    }
    template <typename Place>
    void ue(const std::string& name, std::uint64_t value, Place place) {
        const std::size_t start = bits_.bits();
        bits_.ue(value);
        element({start, start + (bits_.bits() - start + 1) / 2, -1}, name, value, place);
    }
    template <typename Place>
    void se(const std::string& name, std::int64_t value, Place place) {
        const std::size_t start = bits_.bits();
        bits_.se(value);
        element({start, start + (bits_.bits() - start + 1) / 2, -1}, name, value, place);
    }

    // What the reader does between two elements. The position is the one where it stands.
    void derive(std::function<void(Record&, int position)> change) {
        between([change = std::move(change)](Run& run) { change(run.record, static_cast<int>(run.position)); });
    }
    template <typename Place>
    void position(Place place) {
        derive([place](Record& record, int position) { *place(record) = position; });
    }
    void say(int level, const std::string& line) {
        between(
            [entry = LogLine{level, calls_[open_.back()].name, line}](Run& run) { run.outcome.log.push_back(entry); });
    }
    // The line that DisplayBitBufferInfo prints.
    void cursor(const std::string& label) {
        between([label](Run& run) {
            const auto at = static_cast<unsigned>(run.position);
            run.outcome.log.push_back({5, "_DisplayBitBuffer",
                                       text("%s BB Addr=%p, NumBits=%d Current Bit Offset=%d (Byte=%d, BitOfByte=%d).",
                                            label.c_str(), run.area, static_cast<int>(run.bits), at, at / 8, at % 8),
                                       "bitbuffer.c"});
        });
    }
    // A success when the stream ends here.
    void may_end() {
        between([](Run& run) { run.ended = run.position == run.bits; });
    }
    // Whatever the stream holds, the reader fails here with this message.
    void refuse(const std::string& message) {
        steps_.push_back({{bits_.bits(), bits_.bits(), -1}, bits_.bits(), true, message, open_, {}});
    }
    // Everything in body is done by the function name; when it fails, its caller does reaction.
    void call(const std::string& name, const Reaction& reaction, const std::function<void()>& body) {
        call({name, reaction, false}, body);
    }
    // A function whose failure its caller ignores.
    void call_ignored(const std::string& name, const std::function<void()>& body) { call({name, {}, true}, body); }

    const BitWriter& bits() const { return bits_; }
    // The bits, a stop bit and zeros up to the next byte.
    Bytes rbsp() const {
        Bytes payload = bits_.bytes();
        payload.resize(bits_.bits() / 8 + 1);
        payload[bits_.bits() / 8] = static_cast<unsigned char>(payload[bits_.bits() / 8] | 0x80U >> bits_.bits() % 8);
        return payload;
    }

    // What must happen when the reader is given the first bits of the stream at the address area. Nothing when that
    // cannot be told: the stream ends inside a code of an ignored function, and the rest of the code is read as
    // something else.
    std::optional<Outcome> run(std::size_t bits, const void* area, Record& record) const {
        Outcome outcome;
        Run run{bits, area, 0, false, false, record, outcome};
        for (std::size_t i = 0; i < steps_.size() && !run.ended; ++i) {
            const Step& step = steps_[i];
            const bool readable = step.end == step.read.start || (!run.emptied && step.end <= bits);
            if (readable && !step.refused) {
                run.position = run.emptied ? bits : step.end;
                step.act(run);
                continue;
            }
            outcome.result = step.read.result;
            if (!step.failure.empty()) outcome.log.push_back({3, calls_[step.calls.back()].name, step.failure});
            const std::optional<std::size_t> ignoring = react(step, outcome);
            if (!ignoring) return outcome;
            if (!run.emptied && bits > step.read.emptied) return std::nullopt;
            run.emptied = true;
            outcome.result = 0;
            while (i + 1 < steps_.size() && is_within(steps_[i + 1], *ignoring)) ++i;
        }
        return outcome;
    }

private:
    struct Run {
        std::size_t bits;
        const void* area;
        std::size_t position;
        bool emptied;  // a failed code has taken the last bits
        bool ended;
        Record& record;
        Outcome& outcome;
    };
    struct Call {
        std::string name;
        Reaction reaction;
        bool ignored;
    };
    struct Read {
        std::size_t start;
        std::size_t emptied;  // up to this size of the stream, a failed read leaves no bit
        int result;           // of a reader that cannot read it
    };
    struct Step {
        Read read;
        std::size_t end;  // start itself: no element
        bool refused;
        std::string failure;
        std::vector<std::size_t> calls;  // outermost first
        std::function<void(Run&)> act;
    };

    void call(Call made, const std::function<void()>& body) {
        open_.push_back(calls_.size());
        calls_.push_back(std::move(made));
        body();
        open_.pop_back();
    }
    template <typename Value, typename Place>
    void element(Read read, const std::string& name, Value value, Place place) {
        steps_.push_back({read, bits_.bits(), false, name.empty() ? "" : failure_ + " " + name + ".", open_,
                          [place, value](Run& run) {
                              auto* destination = place(run.record);
                              if (destination != nullptr)
                                  *destination = static_cast<std::remove_pointer_t<decltype(destination)>>(value);
                          }});
    }
    void between(std::function<void(Run&)> act) {
        steps_.push_back({{bits_.bits(), bits_.bits(), 0}, bits_.bits(), false, "", open_, std::move(act)});
    }
    // The callers' reactions, innermost first, up to the call whose failure is ignored, if there is one.
    std::optional<std::size_t> react(const Step& step, Outcome& outcome) const {
        for (auto id = step.calls.rbegin(); id != step.calls.rend(); ++id) {
            if (calls_[*id].ignored) return *id;
            if (calls_[*id].reaction) calls_[*id].reaction(outcome);
        }
        return std::nullopt;
    }
    static bool is_within(const Step& step, std::size_t call) {
        for (const std::size_t id : step.calls)
            if (id == call) return true;
        return false;
    }

    std::string failure_;
    BitWriter bits_;
    std::vector<Call> calls_;
    std::vector<std::size_t> open_;  // the calls that are under way, outermost first
    std::vector<Step> steps_;
};

}  // namespace test
