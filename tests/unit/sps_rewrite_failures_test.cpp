// Units and arguments with which the VUI of a sequence parameter set is not rewritten, or not as it should be.
#include <climits>

#include "sps_rewrite_check.h"

namespace {

using test::AllocationWatch;
using test::behind_start_code;
using test::Bytes;
using test::kNoLength;
using test::Log;
using test::record_of;
using test::Rewritten;
using test::SpsSyntax;
using test::text;
using test::with_vui;
using Texts = std::vector<std::string>;

constexpr const char* kName = "H264Lib_Set_sps_vui_parameters_NAL";

using SpsRewriteFailures = test::SpsRewriteTest;

TEST_F(SpsRewriteFailures, WithoutAVui) {
    const SpsSyntax sps;
    const auto record = record_of(sps);
    const Rewritten rewritten(sps.unit(), record.get());
    EXPECT_EQ(rewritten.result, FALSE);
    EXPECT_TRUE(rewritten.outputs_cleared());
    EXPECT_EQ(rewritten.log, (Log{{3, kName, "Failed to set vui parameters SPS NAL!"}}));
}

TEST_F(SpsRewriteFailures, ATrailingZeroByteHasNoStopBit) {
    const SpsSyntax sps = with_vui();
    Bytes unit = sps.unit();
    unit.push_back(0);
    Bytes payload = sps.rbsp();
    payload.push_back(0);
    const auto record = record_of(sps);
    const Rewritten rewritten(unit, record.get());
    EXPECT_EQ(rewritten.result, TRUE);
    EXPECT_EQ(test::assertions(), Texts{"StopBitPos >= 0"});
    EXPECT_EQ(rewritten.made, test::rewritten_unit(unit, payload, *record));
    EXPECT_EQ(rewritten.log, Log{});
}

TEST_F(SpsRewriteFailures, WithoutAStartCode) {
    const auto record = record_of(with_vui());
    for (const Bytes& unit :
         {behind_start_code(with_vui().unit()), Bytes{0, 0, 0, 0, 1, 0x67, 77, 0, 30}, Bytes{0, 0, 2, 1, 0x67}}) {
        Rewritten rewritten(unit, record.get(), 8);
        EXPECT_EQ(rewritten.result, FALSE);
        EXPECT_TRUE(rewritten.outputs_cleared());
        EXPECT_EQ(rewritten.log, (Log{{3, kName,
                                       text("Failed to get NAL type offset from pBuffer:%p.",
                                            static_cast<void*>(rewritten.memory.data()))}}));
    }
}

TEST_F(SpsRewriteFailures, AUnitThatIsTooShort) {
    const auto record = record_of(with_vui());
    for (const Bytes& unit : {Bytes{0, 0, 0, 1}, Bytes{0, 0, 1}, Bytes{0, 0, 1, 0x67}, Bytes{0, 0, 0, 1, 0x67},
                              Bytes{0, 0, 1, 0x67, 77}, Bytes{0, 0, 0, 1, 0x67, 77}}) {
        SCOPED_TRACE(testing::PrintToString(unit));
        const Rewritten rewritten(unit, record.get(), 6);
        EXPECT_EQ(rewritten.result, FALSE);
        EXPECT_TRUE(rewritten.outputs_untouched());
        EXPECT_EQ(
            rewritten.log,
            (Log{{5, "SODB_deencapsulation_from_NAL",
                  text("Input buffer length is %zu, too short to be de-encapsulated.", behind_start_code(unit).size())},
                 {3, kName, "Failed to get SODB from RBSP. Output buffer is too small."}}));
        EXPECT_EQ(test::assertions(), unit.size() < 4 ? Texts{"buffer_len >= 4"} : Texts{});
    }
    for (const Bytes& unit : {Bytes{}, Bytes{0}, Bytes{0, 0}}) {
        const Rewritten rewritten(unit, record.get());
        EXPECT_EQ(rewritten.result, FALSE);
        EXPECT_TRUE(rewritten.outputs_cleared());
        EXPECT_EQ(test::assertions(), Texts{"buffer_len >= 4"});
    }
}

TEST_F(SpsRewriteFailures, AnEmptyPayload) {
    const auto record = record_of(with_vui());
    const Rewritten rewritten({0, 0, 1, 0x74, 1, 2, 3}, record.get());
    EXPECT_EQ(rewritten.result, FALSE);
    EXPECT_TRUE(rewritten.outputs_untouched());
    EXPECT_EQ(rewritten.log, (Log{{3, kName, "Failed to get SODB from RBSP. Output buffer is too small."}}));
}

TEST_F(SpsRewriteFailures, At257BytesBehindTheStartCodeItIsRefused) {
    const auto record = record_of(with_vui());
    for (const int start_code : {4, 3}) {
        const Rewritten rewritten(test::sps_unit_of_size(257, start_code), record.get());
        EXPECT_EQ(rewritten.result, FALSE);
        EXPECT_TRUE(rewritten.outputs_untouched());
        Log expected;
        if (start_code == 4)  // reported once in ten seconds
            expected.push_back({3, "SODB_deencapsulation_from_NAL",
                                "Deencapsulation cannot be done as InputBufferLength:257 is longer than "
                                "OutputBufferLength:256."});
        expected.push_back({3, kName, "Failed to get SODB from RBSP. Output buffer is too small."});
        EXPECT_EQ(rewritten.log, expected);
    }
}

// The size of the new unit does not wrap.
TEST_F(SpsRewriteFailures, ALengthNear2To32) {
    const Bytes unit = with_vui().unit();
    const auto record = record_of(with_vui());
    unsigned char* out = nullptr;
    UINT length = 0;
    const AllocationWatch watch(1);
    EXPECT_EQ(H264Lib_Set_sps_vui_parameters_NAL(unit.data(), UINT_MAX, record.get(), &out, &length), FALSE);
    EXPECT_EQ(watch.sizes(), std::vector<std::size_t>{std::size_t{UINT_MAX} + 68});
}

TEST_F(SpsRewriteFailures, NullArguments) {
    const Bytes unit = with_vui().unit();
    const auto size = static_cast<unsigned>(unit.size());
    const auto record = record_of(with_vui());
    unsigned char untouched = 0;
    unsigned char* out = &untouched;
    UINT length = kNoLength;
    const AllocationWatch watch;
    test::reset(3);
    EXPECT_EQ(H264Lib_Set_sps_vui_parameters_NAL(unit.data(), size, record.get(), nullptr, &length), FALSE);
    EXPECT_EQ(length, kNoLength);
    EXPECT_EQ(H264Lib_Set_sps_vui_parameters_NAL(unit.data(), size, record.get(), &out, nullptr), FALSE);
    EXPECT_EQ(out, &untouched);
    EXPECT_EQ(test::assertions(), (Texts{"ppNewSpsBuffer != NULL", "pNewSPSLength != NULL"}));
    for (const test::Assertion& assertion : test::records().assertions) {
        EXPECT_EQ(assertion.func, kName);
        EXPECT_EQ(assertion.file, "h264d.c");
    }

    test::reset(3);
    EXPECT_EQ(H264Lib_Set_sps_vui_parameters_NAL(nullptr, size, record.get(), &out, &length), FALSE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(test::assertions(), (Texts{"pBuffer != NULL", "buffer != NULL"}));
    EXPECT_EQ(test::texts(3), Texts{"Failed to get NAL type offset from pBuffer:(nil)."});

    test::reset(3);
    out = &untouched;
    length = kNoLength;
    EXPECT_EQ(H264Lib_Set_sps_vui_parameters_NAL(unit.data(), size, nullptr, &out, &length), FALSE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(test::assertions(), Texts{"sps != NULL"});
    EXPECT_EQ(test::texts(3), Texts{"Failed to set vui parameters SPS NAL!"});
    EXPECT_EQ(watch.not_freed(), 0U);
}

TEST_F(SpsRewriteFailures, ReleasingNothing) {
    test::reset(8);
    H26XLib_Release_sps_buffer(nullptr);
    EXPECT_EQ(test::recorded_log(), Log{});
    EXPECT_EQ(test::assertions(), Texts{});
}

}  // namespace
