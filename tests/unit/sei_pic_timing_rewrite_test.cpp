#include <climits>

#include "lost_memory.h"
#include "pic_timing_rewrite_check.h"

namespace {

using PicTimingRewrite = test::PicTimingRewrite;
using test::AllocationWatch;
using test::BitWriter;
using test::Bytes;
using test::full_timing;
using test::kTimingSource;
using test::Lines;
using test::reader_lines;
using test::RewriteModel;
using test::RewriteSps;
using test::RewrittenUnit;
using test::text;
using test::TimingRewrite;

TEST_F(PicTimingRewrite, AnEmptyPayload) {
    RewriteSps sps;
    sps.pic_struct_present = 0;
    expect_rewritten(sps, full_timing());
    EXPECT_EQ(TimingRewrite(sps, full_timing(), kTimingSource).bytes, (Bytes{0, 0, 0, 1, 6, 1, 0, 0x80}));
    EXPECT_EQ(TimingRewrite(sps, full_timing(), {0, 0, 1, 0x66, 9, 9}).bytes, (Bytes{0, 0, 1, 0x66, 1, 0, 0x80}));
}

TEST_F(PicTimingRewrite, OneFullTimestamp) {
    sei_pic_timing_t pt = full_timing();
    pt.clock_timestamp_info[0].time_offset = 0;
    // 65 bits, with emulation prevention in the zeros of time_offset.
    const Bytes bytes = TimingRewrite(RewriteSps(), pt, kTimingSource).bytes;
    BitWriter bits;
    bits.u(4, 0).u(1, 1).u(2, 2).u(1, 0).u(5, 21).u(1, 1).u(1, 0).u(1, 1).u(8, 0xA7).u(6, 37).u(6, 42).u(5, 19);
    const Bytes payload = bits.u(24, 0).trailing().bytes();
    ASSERT_EQ(payload.size(), 9U);
    EXPECT_EQ(bytes, test::join({0, 0, 0, 1, 6, 1, 9}, test::emulation_prevented(test::join(payload, {0x80}))));
    expect_rewritten(RewriteSps(), pt);
}

TEST_F(PicTimingRewrite, HeadersTypesAndSources) {
    for (unsigned type = 0; type < 256; ++type) {
        sei_pic_timing_t pt = full_timing();
        pt.header.payload_type = static_cast<unsigned char>(type);
        pt.header.payload_size = 99;
        pt.header.payload_index = 99;
        Bytes source = {0, 0, 1, static_cast<unsigned char>(type), 1, 2, 3, 4, 5};
        expect_rewritten(RewriteSps(), pt, source);
        source.insert(source.begin(), 0);
        expect_rewritten(RewriteSps(), pt, source);
    }
    // Whatever the source holds, as long as it has at least 3 bytes and at most 32.
    for (std::size_t size = 3; size <= 32; ++size)
        for (const unsigned char fill : Bytes{0x00, 0x03, 0xFF}) {
            Bytes source(size, fill);
            source[0] = 6;
            for (const Bytes& start : {Bytes{0, 0, 1}, Bytes{0, 0, 0, 1}})
                expect_rewritten(RewriteSps(), full_timing(), test::join(start, source));
        }
}

TEST_F(PicTimingRewrite, APayloadOfMoreThan17BytesLeavesTheHeader) {
    RewriteSps sps;
    sps.nal_present = 1;
    for (const int count : {1, 2, 3})
        for (unsigned delay_minus1 = 0; delay_minus1 < 32; ++delay_minus1) {
            sps.nal = {delay_minus1, delay_minus1, 8};
            const RewriteModel payload(sps, full_timing(count));
            const RewrittenUnit unit = expect_rewritten(sps, full_timing(count));
            EXPECT_EQ(unit.has_payload, payload.payload_bytes <= 17);
            EXPECT_EQ(unit.bytes.size() == 4 + 3, payload.payload_bytes > 17);
        }
    const TimingRewrite rewrite(sps, full_timing(3), kTimingSource);
    EXPECT_EQ(rewrite.result, TRUE);
    EXPECT_EQ(rewrite.bytes, (Bytes{0, 0, 0, 1, 6, 1, 26}));
    EXPECT_EQ(test::lines(), Lines{"3 RBSP_encapsulation_within_NAL: Output buffer length:25 must be at least 36 for "
                                   "input buffer length:27. Failed to encapsulate!"});
}

// Delays and a time_offset of 24 bits each leave room for one full timestamp, without delays there is room for two.
TEST_F(PicTimingRewrite, FullTimestampsThatHaveRoom) {
    for (const int delays : {0, 1})
        for (const int count : {1, 2, 3}) {
            RewriteSps sps;  // 24 bits everywhere
            sps.nal_present = delays;
            EXPECT_EQ(expect_rewritten(sps, full_timing(count)).has_payload, count <= (delays != 0 ? 1 : 2));
        }
}

// As many zeros as 17 bytes can have: two of them hold a one.
TEST_F(PicTimingRewrite, SeventeenBytesFullOfZerosHaveRoom) {
    RewriteSps sps;
    sps.nal_present = 1;
    sps.nal = {31, 31, 31};
    sei_pic_timing_t pt{};
    pt.NumClockTS = 1;
    pt.clock_timestamp_info[0].clock_timestamp_flag = 1;
    pt.clock_timestamp_info[0].full_timestamp_flag = 1;
    Bytes rbsp(18, 0);
    rbsp[8] = 0x08;
    rbsp[9] = 0x04;
    rbsp[17] = 0x80;
    for (const Bytes& start : {Bytes{0, 0, 0, 1, 6}, Bytes{0, 0, 1, 6}}) {
        const Bytes source = test::join(start, {1, 1, 0x55, 0x80});
        EXPECT_TRUE(expect_rewritten(sps, pt, source).has_payload);
        const Bytes expected = test::join(test::join(start, {0, 17}), test::emulation_prevented(rbsp));
        EXPECT_EQ(expected.size(), start.size() + 2 + 24);
        EXPECT_EQ(TimingRewrite(sps, pt, source).bytes, expected);
    }
}

// A signed number has two bits at least. Without a timestamp it is not written.
TEST_F(PicTimingRewrite, ATimeOffsetOfOneBitCannotBeWritten) {
    RewriteSps sps;
    sps.nal.time_offset = 1;
    EXPECT_FALSE(expect_rewritten(sps, full_timing()).made);
    EXPECT_EQ(test::up_to(3, reader_lines())[0], "3 _set_sei_pictiming_parameters: Failed to set time_offset_length.");
    sei_pic_timing_t pt = full_timing();
    pt.clock_timestamp_info[0].clock_timestamp_flag = 0;
    EXPECT_TRUE(expect_rewritten(sps, pt).has_payload);
}

TEST_F(PicTimingRewrite, WhatDoesNotFitInto32Bytes) {
    RewriteSps sps;
    sps.nal_present = 1;
    sps.nal = {31, 31, 31};
    for (const int full : {0, 1}) {
        sei_pic_timing_t pt = full_timing(3);
        for (clock_timestamp_info_t& clock : pt.clock_timestamp_info) clock.full_timestamp_flag = full;
        const RewrittenUnit unit = expect_rewritten(sps, pt);
        EXPECT_FALSE(unit.made);
        EXPECT_EQ(test::up_to(3, reader_lines()),
                  (Lines{"3 _set_sei_pictiming_parameters: Failed to set time_offset_length.",
                         "3 H264Lib_Set_SEIPictiming_NAL: Failed to set sei pictiming parameters NAL!"}));
    }
    // A payload of exactly 32 bytes has no room for what follows it.
    sps.nal = {31, 31, 30};  // 68 bits and 3 times 67
    sei_pic_timing_t pt = full_timing(3);
    pt.clock_timestamp_info[1].clock_timestamp_flag = 0;
    sps.nal.time_offset = 31;
    expect_rewritten(sps, pt);
    sps.nal = {22, 22, 31};  // 46 + 4 + 3 * 68 = 254, and alignment
    EXPECT_FALSE(expect_rewritten(sps, full_timing(3)).made);
    EXPECT_EQ(test::up_to(3, reader_lines())[0], "3 _set_sei_pictiming_parameters: Failed to set rbsp trailing bits.");
}

TEST_F(PicTimingRewrite, WithoutAStartCodeTheOutputsAreCleared) {
    for (const Bytes& source :
         {Bytes{6, 1, 1, 0x80}, Bytes{0, 0, 0, 0, 1, 6, 1, 1}, Bytes{0, 0, 2, 6}, Bytes{0, 1, 6, 1}, Bytes{0},
          Bytes{0, 0}, Bytes{0, 0, 0}, Bytes{0xFF, 0, 1}, Bytes(40, 7)}) {
        const TimingRewrite rewrite(RewriteSps(), full_timing(), source);
        EXPECT_EQ(rewrite.result, FALSE);
        EXPECT_TRUE(rewrite.stored_null);
        EXPECT_EQ(rewrite.length, 0U);
        EXPECT_EQ(rewrite.allocated, std::vector<std::size_t>{32});
        EXPECT_EQ(rewrite.not_freed, 0U);
        const Lines lines = reader_lines();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].find("3 H264Lib_Set_SEIPictiming_NAL: Failed to get NAL type offset from pBuffer:0x"), 0U);
        EXPECT_EQ(test::records().dumps.size(), 1U);
        EXPECT_EQ(test::assertions(),
                  source.size() < 4 ? std::vector<std::string>{"buffer_len >= 4"} : std::vector<std::string>{});
    }
}

TEST_F(PicTimingRewrite, ASourceThatCannotBeDeencapsulatedLosesTheBufferAndLeavesTheOutputs) {
    const test::MemoryThatIsLost lost;
    std::vector<Bytes> sources = {{0, 0, 1},       {0, 0, 1, 6},       {0, 0, 1, 6, 1},        {0, 0, 0, 1},
                                  {0, 0, 0, 1, 6}, {0, 0, 0, 1, 6, 1}, {0, 0, 1, 14, 1, 2, 3}, {0, 0, 1, 20, 1, 2}};
    for (const std::size_t size : {33U, 34U, 300U}) {
        sources.push_back(test::join({0, 0, 1, 6}, Bytes(size - 1, 1)));
        sources.push_back(test::join({0, 0, 0, 1, 6}, Bytes(size - 1, 1)));
    }
    for (const Bytes& source : sources) {
        const TimingRewrite rewrite(RewriteSps(), full_timing(), source);
        EXPECT_EQ(rewrite.result, FALSE);
        EXPECT_TRUE(rewrite.left_as_it_was);
        EXPECT_EQ(rewrite.length, TimingRewrite::kUntouched);
        EXPECT_EQ(rewrite.allocated, std::vector<std::size_t>{32});
        EXPECT_EQ(rewrite.not_freed, 1U);
        EXPECT_EQ(reader_lines(), Lines{"3 H264Lib_Set_SEIPictiming_NAL: Failed to get SODB from RBSP. Output buffer "
                                        "is too small."});
        ASSERT_EQ(test::records().dumps.size(), 1U);
        EXPECT_EQ(test::records().dumps[0].bytes, source);
    }
    // At each level, and for a length that is no signed number.
    const std::unique_ptr<sps_t> sps = RewriteSps().sps();
    const sei_pic_timing_t pt = full_timing();
    Bytes source = sources.back();
    test::expect_same_at_all_levels([&] {
        unsigned char* unit = source.data();
        unsigned length = 5;
        const BOOL result = H264Lib_Set_SEIPictiming_NAL(source.data(), static_cast<unsigned>(source.size()), sps.get(),
                                                         &pt, &unit, &length);
        return text("%d %d %u", result, unit == source.data(), length);
    });
    test::reset(5);
    unsigned char* unit = source.data();
    unsigned length = 5;
    EXPECT_EQ(H264Lib_Set_SEIPictiming_NAL(source.data(), UINT_MAX, sps.get(), &pt, &unit, &length), FALSE);
    EXPECT_EQ(unit, source.data());
    EXPECT_EQ(length, 5U);
}

TEST_F(PicTimingRewrite, NullArguments) {
    const std::unique_ptr<sps_t> sps = RewriteSps().sps();
    const sei_pic_timing_t pt = full_timing();
    for (unsigned missing = 1; missing < 64; ++missing) {
        const bool no_buffer = (missing & 1) != 0, empty = (missing & 2) != 0, no_unit = (missing & 4) != 0;
        const bool no_length = (missing & 8) != 0, no_sps = (missing & 16) != 0, no_pt = (missing & 32) != 0;
        unsigned char other = 0;
        unsigned char* unit = &other;
        unsigned length = 5;
        test::clear();
        const AllocationWatch watch;
        EXPECT_EQ(H264Lib_Set_SEIPictiming_NAL(no_buffer ? nullptr : kTimingSource.data(),
                                               empty ? 0 : static_cast<unsigned>(kTimingSource.size()),
                                               no_sps ? nullptr : sps.get(), no_pt ? nullptr : &pt,
                                               no_unit ? nullptr : &unit, no_length ? nullptr : &length),
                  FALSE);
        EXPECT_EQ(watch.not_freed(), 0U);
        const bool has_outputs = !no_unit && !no_length;
        EXPECT_EQ(unit, has_outputs ? nullptr : &other);
        EXPECT_EQ(length, has_outputs ? 0U : 5U);
        std::vector<std::string> expected, own;
        if (no_buffer) expected.emplace_back("pBuffer != NULL");
        if (empty) expected.emplace_back("buffer_len > 0");
        if (no_unit) expected.emplace_back("ppNewSEIBuffer != NULL");
        if (no_length) expected.emplace_back("pNewSEILength != NULL");
        if (has_outputs && !no_buffer && !empty) {
            if (no_sps) expected.emplace_back("sps != NULL");
            if (no_pt) expected.emplace_back("pt != NULL");
        }
        for (const test::Assertion& assertion : test::records().assertions)
            if (assertion.func != "_GetNALTypeOffset") own.push_back(assertion.expression);
        EXPECT_EQ(own, expected);
    }
}

}  // namespace
