// Emulation prevention and back against a byte-wise model.
#include "encapsulation_model.h"

#include <algorithm>

#include "fuzz.h"
#include "guarded_buffer.h"
#include "h264.h"

namespace {

using test::Bytes;
using test::GuardedBuffer;

// The output holds just the room that is declared; with bypass also what is written past it without a check.
void encapsulate(const Bytes& payload, std::size_t room, bool bypass, test::Observed& observed) {
    const test::Encapsulated expected = test::encapsulation_model(payload, room, bypass);
    GuardedBuffer in(payload);
    GuardedBuffer out(bypass ? std::max(room, expected.bytes.size()) : room);
    std::fill_n(out.data(), out.size(), test::kUntouched);
    const auto in_len = static_cast<unsigned>(payload.size());
    const auto out_len = static_cast<unsigned>(room);
    const int result = bypass ? RBSP_encapsulation_within_NAL_Ex(in.data(), in_len, out.data(), out_len, TRUE)
                              : RBSP_encapsulation_within_NAL(in.data(), in_len, out.data(), out_len);
    FUZZ_CHECK(result == expected.result);
    Bytes bytes = expected.bytes;
    bytes.resize(out.size(), test::kUntouched);
    FUZZ_CHECK(out.bytes() == bytes);
    FUZZ_CHECK(in.bytes() == payload);
    observed.add(result);
    observed.add(bytes);
}

Bytes deencapsulate(const Bytes& unit, std::size_t room, test::Observed& observed) {
    GuardedBuffer in(unit);
    GuardedBuffer out(room);
    std::fill_n(out.data(), room, test::kUntouched);
    const int result = SODB_deencapsulation_from_NAL(in.data(), static_cast<unsigned>(unit.size()), out.data(),
                                                     static_cast<unsigned>(room));
    FUZZ_CHECK(in.bytes() == unit);
    Bytes expected = unit.size() < 3 || room < unit.size() ? Bytes{} : test::payload_of(unit);
    FUZZ_CHECK(result == (unit.size() < 3 || room < unit.size() ? -1 : static_cast<int>(expected.size())));
    Bytes bytes = expected;
    bytes.resize(room, test::kUntouched);
    FUZZ_CHECK(out.bytes() == bytes);
    observed.add(result);
    return expected;
}

}  // namespace

void test::fuzz(FuzzInput& input, Observed& observed) {
    const auto slack = static_cast<std::size_t>(input.below(24));
    const bool less = input.flag();
    const bool bypass = input.flag();
    const Bytes bytes = input.rest();

    const std::size_t whole = emulation_prevented(bytes).size();
    encapsulate(bytes, less ? whole - std::min(whole, slack) : whole + slack, bypass, observed);

    deencapsulate(bytes, less ? bytes.size() - std::min(bytes.size(), slack) : bytes.size() + slack, observed);

    // What is encapsulated comes back. A header byte of a type without extension stands before it.
    Bytes unit = emulation_prevented(bytes);
    unit.insert(unit.begin(), 0x65);
    const Bytes back = deencapsulate(unit, unit.size(), observed);
    FUZZ_CHECK(unit.size() < 3 || back == bytes);
}
