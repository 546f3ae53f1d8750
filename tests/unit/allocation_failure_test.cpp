// What happens when memory runs out: each allocation of each function that makes any fails in turn.
#include <execinfo.h>

#include <cstdlib>
#include <memory>
#include <utility>

#include "allocation_watch.h"
#include "buffering_period_model.h"
#include "h264d/h264d.h"
#include "pic_timing_rewrite_model.h"
#include "script_check.h"
#include "slice_builder.h"
#include "sps_rewrite_check.h"

namespace {

using test::Bytes;
using test::Lines;
using test::SliceSyntax;
using test::text;

struct Row {
    std::string name;
    // Calls the function once, releases what it made and tells its result and all that it stored.
    std::function<std::string()> call;
    // What it tells when the first allocation fails, when the second one fails, ...
    Lines failed;
    // The messages up to level 3 and the failed assertions that come with it.
    Lines reported;
};

Lines assertions_of(Lines reported) {
    std::erase_if(reported, [](const std::string& line) { return line.rfind("3 ", 0) == 0; });
    return reported;
}

Row sei_walker() {
    const Bytes unit = test::sei_unit(Bytes(2000, 1));
    const auto call = [unit] {
        SEI_message_t header{77, 77, 77};
        int payload_offset = 0, nal_type_offset = 0, suid = 77;
        BOOL more = 77;
        const BOOL result = DetermineSEIType(unit.data(), static_cast<int>(unit.size()), &payload_offset,
                                             &nal_type_offset, &header, &suid, &more);
        return text("%d: %d %d, %d %u %u, %d %d", result, payload_offset, nal_type_offset, header.payload_type,
                    header.payload_size, header.payload_index, suid, more);
    };
    return {"DetermineSEIType",
            call,
            {"0: 0 4, 0 0 0, 77 0"},
            {"DetermineSEIType asserts: pSEISodbBuffer = calloc(1, BufferLen)"}};
}

Row buffering_period() {
    test::BufferingPeriodMessage message;
    message.nal.present = 1;
    const Bytes unit = test::sei_unit(test::BufferingPeriodModel(message).bits.bytes());
    const auto call = [unit, message] {
        sei_buffering_period_t record = test::untouched_period();
        const BOOL result =
            parse_sei_buffering_period_nal(unit.data(), static_cast<int>(unit.size()), message.vui().get(), &record);
        return text("%d: ", result) + test::str(record);
    };
    return {"parse_sei_buffering_period_nal", call, {"0: " + test::str(test::untouched_period())}, {}};
}

std::string told(int result, const slice_header_t& record, const slice_header_t& before) {
    return text("%d: ", result) + (test::difference(record, before).empty() ? "untouched" : "changed");
}

Lines without_slice_memory(const std::string& function, const Bytes& unit) {
    return {text("3 %s: Failed to allocate memory for nal_sodb_buffer. Size requested:%zu.", function.c_str(),
                 unit.size() + 32)};
}

Row slice_header() {
    const SliceSyntax slice = test::long_slice();
    const Bytes unit = slice.unit();
    const auto call = [slice, unit] {
        const slice_header_t before = slice.record_before();
        slice_header_t record = before;
        const int result =
            parse_slice_header_nal(unit.data(), static_cast<int>(unit.size()), &slice.sps, &slice.pps, &record);
        return told(result, record, before);
    };
    return {"parse_slice_header_nal", call, {"0: untouched"}, without_slice_memory("parse_slice_header_nal", unit)};
}

Row slice_type() {
    const SliceSyntax slice = test::long_slice();
    const Bytes unit = slice.unit();
    const auto call = [slice, unit] {
        const slice_header_t before = slice.record_before();
        slice_header_t record = before;
        const int result = parse_slice_type_only_nal(unit.data(), static_cast<int>(unit.size()), &slice.sps, &record);
        return told(result, record, before);
    };
    return {
        "parse_slice_type_only_nal", call, {"0: untouched"}, without_slice_memory("parse_slice_type_only_nal", unit)};
}

// What a rewriting function stored, which is released.
template <typename Length>
std::string told(BOOL result, unsigned char* unit, const unsigned char* before, Length length) {
    if (unit == before) return text("%d: untouched %u", result, length);
    std::string all = text("%d:", result);
    for (Length i = 0; i < length; ++i) all += text(" %02X", unit[i]);
    H26XLib_Release_sps_buffer(unit);
    return all;
}

Row sps_rewriting() {
    const auto call = [] {
        const test::SpsSyntax sps = test::with_vui();
        const Bytes unit = sps.unit();
        unsigned char other = 0;
        unsigned char* made = &other;
        UINT length = 4711;
        const BOOL result = H264Lib_Set_sps_vui_parameters_NAL(unit.data(), static_cast<unsigned>(unit.size()),
                                                               test::record_of(sps).get(), &made, &length);
        return told(result, made, &other, length);
    };
    return {"H264Lib_Set_sps_vui_parameters_NAL",
            call,
            {"0: untouched 4711"},
            {"H264Lib_Set_sps_vui_parameters_NAL asserts: pNewSpsBuffer = calloc(1, NewSpsBufLength)"}};
}

Row pic_timing_rewriting() {
    const auto call = [] {
        const Bytes unit = test::sei_unit({1, 1, 0x55, 0x80});
        const sei_pic_timing_t pt = test::full_timing();
        unsigned char other = 0;
        unsigned char* made = &other;
        unsigned int length = 4711;
        const BOOL result = H264Lib_Set_SEIPictiming_NAL(unit.data(), static_cast<unsigned>(unit.size()),
                                                         test::RewriteSps().sps().get(), &pt, &made, &length);
        return told(result, made, &other, length);
    };
    return {"H264Lib_Set_SEIPictiming_NAL",
            call,
            {"0: untouched 4711"},
            {"H264Lib_Set_SEIPictiming_NAL asserts: pNewSEIBuffer = calloc(1, NewSEIBufLength)"}};
}

std::vector<Row> table() {
    return {sei_walker(), buffering_period(), slice_header(), slice_type(), sps_rewriting(), pic_timing_rewriting()};
}

constexpr int kLevels[] = {0, 3, 8};

// One call. failing: which of its allocations fails; 0: none.
struct Called {
    std::string told;
    Lines reported;
    std::size_t allocations = 0;

    Called(const Row& row, int level, int failing) {
        test::reset(level);
        const test::AllocationWatch watch(failing);
        told = row.call();
        allocations = watch.sizes().size();
        EXPECT_EQ(watch.not_freed(), 0U);
        reported = test::up_to(3, test::reader_lines());
        for (const test::Assertion& assertion : test::records().assertions) {
            EXPECT_EQ(assertion.file, "h264d.c");
            reported.push_back(assertion.func + " asserts: " + assertion.expression);
        }
    }
    bool operator==(const Called&) const = default;
};

TEST(AllocationFailure, OneAllocationAfterTheOther) {
    for (const Row& row : table())
        for (const int level : kLevels) {
            SCOPED_TRACE(text("%s, level %d", row.name.c_str(), level));
            const Called whole(row, level, 0);
            ASSERT_GE(whole.allocations, 1U);
            EXPECT_EQ(whole.told.front(), '1');
            ASSERT_EQ(whole.allocations, row.failed.size());
            for (std::size_t failing = 1; failing <= whole.allocations; ++failing) {
                SCOPED_TRACE(failing);
                const Called call(row, level, static_cast<int>(failing));
                EXPECT_EQ(call.allocations, failing) << "nothing more is asked for";
                EXPECT_EQ(call.told, row.failed[failing - 1]);
                EXPECT_EQ(call.reported, level < 3 ? assertions_of(row.reported) : row.reported);
                EXPECT_TRUE(Called(row, level, 0) == whole) << "the next call";
            }
        }
}

// Behind the tests of each process: whatever asked for memory in them must be in the table.
class EveryAllocationIsInTheTable : public testing::Environment {
    void TearDown() override {
        const std::set<void*> seen = std::exchange(test::allocation_sites(), {});
        if (seen.empty()) return;
        for (const Row& row : table())
            for (const int level : kLevels) Called(row, level, 0);
        for (void* site : seen) {
            const std::unique_ptr<char*, void (*)(void*)> name(backtrace_symbols(&site, 1), std::free);
            EXPECT_TRUE(test::allocation_sites().contains(site))
                << "allocation_failure_test.cpp has no row for the allocation at " << *name
                << "; addr2line tells its line";
        }
    }
};

[[maybe_unused]] testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new EveryAllocationIsInTheTable);

}  // namespace
