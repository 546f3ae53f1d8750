// Sequences of parameter sets through parse contexts: what a context answers is what parsing answers.
#include <algorithm>
#include <array>

#include "fuzz.h"
#include "guarded_buffer.h"
#include "h264.h"

namespace {

using test::Bytes;
using test::GuardedBuffer;
using test::Observed;

template <class Record>
bool same(const Record& a, const Record& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace

void test::fuzz(FuzzInput& input, Observed& observed) {
    auto context = zeroed<H264D_PARSE_CONTEXT>();
    auto sps = zeroed<sps_t>();
    std::vector<Bytes> units;
    while (input.left() > 0) {
        // A new unit, or one that was there before.
        const auto choice = input.below(8);
        const bool is_sps = input.flag();
        if (choice >= units.size()) units.push_back(input.chunk());
        const Bytes bytes = units.at(std::min<std::size_t>(choice, units.size() - 1));
        GuardedBuffer unit(bytes);
        const auto length = static_cast<unsigned>(bytes.size());
        const H264D_PARSE_CONTEXT before = context;
        if (is_sps) {
            auto record = zeroed<sps_t>();
            auto plain = zeroed<sps_t>();
            const BOOL read = parse_sps_nal_ex(unit.data(), length, &context, &record);
            FUZZ_CHECK(read == parse_sps_nal(unit.data(), static_cast<int>(length), &plain));
            if (read != FALSE) {
                FUZZ_CHECK(same(record, plain));
                sps = record;
            } else {
                FUZZ_CHECK(same(context, before));
            }
            observed.add(record);
        } else {
            auto record = zeroed<pps_t>();
            auto plain = zeroed<pps_t>();
            const BOOL read = H264LIB_parse_pps_nal_ex(unit.data(), length, &sps, &context, &record);
            // A unit that the context knows is answered by the sequence parameter set of its first parse.
            const bool known =
                length > 0 && before.LastPPSLength == length && std::equal(bytes.begin(), bytes.end(), before.LastPPS);
            if (!known) {
                FUZZ_CHECK(read == H264LIB_parse_pps_nal(unit.data(), static_cast<int>(length), &sps, &plain));
                if (read != FALSE) FUZZ_CHECK(same(record, plain));
            } else {
                FUZZ_CHECK(read != FALSE && same(record, before.last_parsed_pps));
            }
            if (read == FALSE) FUZZ_CHECK(same(context, before));
            observed.add(record);
        }
        FUZZ_CHECK(unit.bytes() == bytes);
        observed.add(context.LastSPSLength);
        observed.add(context.LastPPSLength);
    }
}
