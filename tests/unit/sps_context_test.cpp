#include <gtest/gtest.h>

#include <cstring>

#include "h264d/h264d.h"
#include "sps_builder.h"
#include "sps_check.h"
#include "sps_variants.h"

namespace {

using test::Bytes;
using test::GuardedBuffer;
using test::Log;
using test::SpsSyntax;

const Log kHit = {{6, "parse_sps_nal_ex", "SPS has not changed no need to parse it again."}};

SpsSyntax sps_of_level(unsigned level_idc) {
    SpsSyntax sps;
    sps.level_idc = level_idc;
    return sps;
}

// A unit of this many bytes in all.
Bytes unit_of_size(std::size_t bytes, unsigned level_idc = 30) {
    return test::sps_unit_of_size(bytes - 4, 4, level_idc);
}

class SpsContext : public testing::Test {
protected:
    void SetUp() override {
        std::memset(static_cast<void*>(context_.get()), 0, sizeof *context_);
        test::reset(6);
    }

    BOOL parse(const Bytes& unit, sps_t& sps) {
        GuardedBuffer memory(unit);
        test::reset(6);
        return parse_sps_nal_ex(memory.data(), static_cast<unsigned>(unit.size()), context_.get(), &sps);
    }
    BOOL parse(const Bytes& unit) { return parse(unit, *sps_); }
    bool was_hit() { return test::recorded_log() == kHit; }

    std::vector<unsigned char> context_bytes() const {
        const auto* bytes = reinterpret_cast<const unsigned char*>(context_.get());
        return {bytes, bytes + sizeof *context_};
    }

    std::unique_ptr<H264D_PARSE_CONTEXT> context_ = std::make_unique<H264D_PARSE_CONTEXT>();
    std::unique_ptr<sps_t> sps_ = test::filled_record(0);
};

TEST_F(SpsContext, TheSameUnitIsParsedOnce) {
    const Bytes unit = test::sps_variants().back().sps.unit();
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_FALSE(was_hit());
    const auto again = test::filled_record(0x77);
    GuardedBuffer memory(unit);
    test::reset(8);
    EXPECT_EQ(parse_sps_nal_ex(memory.data(), static_cast<unsigned>(unit.size()), context_.get(), again.get()), TRUE);
    EXPECT_EQ(test::recorded_log(), kHit) << "nothing but the note, at any level";
    EXPECT_EQ(test::records().messages.size(), 1U);
    EXPECT_EQ(test::difference(*again, *sps_), "") << "the whole record is copied";
    test::reset(5);
    EXPECT_EQ(parse_sps_nal_ex(memory.data(), static_cast<unsigned>(unit.size()), context_.get(), again.get()), TRUE);
    EXPECT_EQ(test::recorded_log(), Log{});
}

TEST_F(SpsContext, KeepsTheUnitAndTheRecord) {
    const Bytes unit = sps_of_level(31).unit(3);
    std::memset(context_->LastSPS, 0xEE, sizeof context_->LastSPS);
    sps_ = test::filled_record(0x33);
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_EQ(context_->LastSPSLength, unit.size());
    Bytes padded = unit;
    padded.resize(256, 0);
    EXPECT_EQ(Bytes(context_->LastSPS, context_->LastSPS + 256), padded);
    EXPECT_EQ(test::difference(context_->last_parsed_sps, *sps_), "") << "with what the caller had in it";
    EXPECT_EQ(sps_->level_idc, 31);
    EXPECT_EQ(sps_->chroma_format_idc, 0x3333333333333333U);
}

TEST_F(SpsContext, AShorterUnitLeavesNothingOfALongerOne) {
    EXPECT_EQ(parse(unit_of_size(200)), TRUE);
    const Bytes shorter = sps_of_level(10).unit();
    EXPECT_EQ(parse(shorter), TRUE);
    Bytes padded = shorter;
    padded.resize(256, 0);
    EXPECT_EQ(Bytes(context_->LastSPS, context_->LastSPS + 256), padded);
}

TEST_F(SpsContext, AnotherUnitTakesThePlace) {
    const Bytes first = sps_of_level(30).unit();
    const Bytes second = sps_of_level(40).unit();
    ASSERT_EQ(first.size(), second.size());
    EXPECT_EQ(parse(first), TRUE);
    EXPECT_EQ(parse(second), TRUE);
    EXPECT_FALSE(was_hit());
    EXPECT_EQ(sps_->level_idc, 40);
    EXPECT_EQ(parse(first), TRUE);
    EXPECT_FALSE(was_hit());
    EXPECT_EQ(sps_->level_idc, 30);
    EXPECT_EQ(parse(first), TRUE);
    EXPECT_TRUE(was_hit());
}

TEST_F(SpsContext, TheStartCodeCounts) {
    const SpsSyntax sps = sps_of_level(30);
    EXPECT_EQ(parse(sps.unit(3)), TRUE);
    EXPECT_EQ(parse(sps.unit(4)), TRUE);
    EXPECT_FALSE(was_hit());
    EXPECT_EQ(parse(sps.unit(4)), TRUE);
    EXPECT_TRUE(was_hit());
}

TEST_F(SpsContext, ATrailingByteOrADifferentLastByteIsAMiss) {
    Bytes unit = sps_of_level(30).unit();
    EXPECT_EQ(parse(unit), TRUE);
    Bytes longer = unit;
    longer.push_back(0);
    EXPECT_EQ(parse(longer), TRUE);
    EXPECT_FALSE(was_hit()) << "the padding of the kept unit does not count";
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_FALSE(was_hit());
    unit.back() = static_cast<unsigned char>(unit.back() ^ 1);
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_FALSE(was_hit());
}

TEST_F(SpsContext, AFailureLeavesTheContextAsItWas) {
    const Bytes good = sps_of_level(30).unit();
    EXPECT_EQ(parse(good), TRUE);
    const auto before = context_bytes();
    Bytes bad = sps_of_level(40).unit();
    bad.resize(8);
    GuardedBuffer memory(bad);
    test::reset(6);
    EXPECT_EQ(parse_sps_nal_ex(memory.data(), 8, context_.get(), sps_.get()), FALSE);
    EXPECT_EQ(test::recorded_log(), (Log{{3, "parse_sps", "cannot parse seq_parameter_set_id."},
                                         {3, "parse_sps_nal", "Failed to parse SPS NAL!"},
                                         {3, "parse_sps_nal_ex", "Failed to parse SPS NAL!"}}));
    EXPECT_EQ(sps_->level_idc, 40) << "the elements read until then are stored";
    EXPECT_EQ(context_bytes(), before);
    EXPECT_EQ(parse(good), TRUE);
    EXPECT_TRUE(was_hit());
    EXPECT_EQ(sps_->level_idc, 30);
    EXPECT_EQ(parse({0x67, 77, 0, 30}), FALSE);
    EXPECT_EQ(test::texts_with_function(3).back(), "parse_sps_nal_ex: Failed to parse SPS NAL!");
    EXPECT_EQ(context_bytes(), before);
}

TEST_F(SpsContext, UnitsUpTo256BytesAreKept) {
    const Bytes unit = unit_of_size(256);
    ASSERT_EQ(unit.size(), 256U);
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_EQ(context_->LastSPSLength, 256U);
    EXPECT_EQ(Bytes(context_->LastSPS, context_->LastSPS + 256), unit);
    EXPECT_EQ(context_->LastPPSLength, 0U);
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_TRUE(was_hit());
}

TEST_F(SpsContext, LongerUnitsAreParsedAndNotKept) {
    const Bytes kept = unit_of_size(256);
    EXPECT_EQ(parse(kept), TRUE);
    const auto before = context_bytes();
    for (const std::size_t size : {257U, 260U}) {
        const Bytes unit = unit_of_size(size, 42);
        ASSERT_EQ(unit.size(), size);
        for (int times = 0; times < 2; ++times) {
            EXPECT_EQ(parse(unit), TRUE);
            EXPECT_EQ(sps_->level_idc, 42);
            EXPECT_FALSE(was_hit());
            EXPECT_EQ(context_bytes(), before);
        }
    }
    EXPECT_EQ(parse(unit_of_size(261)), FALSE);
    EXPECT_EQ(context_bytes(), before);
    EXPECT_EQ(parse(kept), TRUE);
    EXPECT_TRUE(was_hit());
    EXPECT_EQ(sps_->level_idc, 30);
}

TEST_F(SpsContext, ThePictureParameterSetHalfIsNotTouched) {
    std::memset(static_cast<void*>(context_->LastPPS), 0x9A, sizeof context_->LastPPS);
    std::memset(static_cast<void*>(&context_->last_parsed_pps), 0x9B, sizeof context_->last_parsed_pps);
    context_->LastPPSLength = 17;
    EXPECT_EQ(parse(unit_of_size(256)), TRUE);
    EXPECT_EQ(context_->LastPPSLength, 17U);
    EXPECT_EQ(Bytes(context_->LastPPS, context_->LastPPS + 256), Bytes(256, 0x9A));
    const auto* pps = reinterpret_cast<const unsigned char*>(&context_->last_parsed_pps);
    EXPECT_EQ(Bytes(pps, pps + sizeof(pps_t)), Bytes(sizeof(pps_t), 0x9B));
}

TEST_F(SpsContext, ALengthOf0NeverHits) {
    GuardedBuffer nothing(0);
    for (const unsigned level : {0U, 30U}) {
        EXPECT_TRUE(level == 0 || parse(sps_of_level(level).unit()) == TRUE);
        const auto before = context_bytes();
        test::reset(8);
        EXPECT_EQ(parse_sps_nal_ex(nothing.data(), 0, context_.get(), sps_.get()), FALSE);
        EXPECT_EQ(test::count(kHit[0].text), 0);
        ASSERT_FALSE(test::records().assertions.empty());
        EXPECT_EQ(test::records().assertions[0].expression, "buffer_len > 0");
        EXPECT_EQ(test::records().assertions[0].func, "parse_sps_nal_ex");
        EXPECT_EQ(test::records().assertions[0].file, "h264d.c");
        EXPECT_EQ(context_bytes(), before);
    }
}

TEST_F(SpsContext, NullArgumentsAreAsserted) {
    const Bytes unit = sps_of_level(30).unit();
    const auto size = static_cast<unsigned>(unit.size());
    const auto first_assertion = [] {
        EXPECT_FALSE(test::records().assertions.empty());
        if (test::records().assertions.empty()) return std::string();
        EXPECT_EQ(test::records().assertions[0].func, "parse_sps_nal_ex");
        return test::records().assertions[0].expression;
    };
    // Before and after a unit is kept: what a hit would copy is not copied to a null record either.
    for (int kept = 0; kept < 2; ++kept) {
        test::reset(3);
        EXPECT_EQ(parse_sps_nal_ex(nullptr, size, context_.get(), sps_.get()), FALSE);
        EXPECT_EQ(first_assertion(), "buffer != NULL");
        test::reset(3);
        EXPECT_EQ(parse_sps_nal_ex(unit.data(), size, nullptr, sps_.get()), FALSE);
        EXPECT_EQ(first_assertion(), "pContext != NULL");
        test::reset(3);
        EXPECT_EQ(parse_sps_nal_ex(unit.data(), size, context_.get(), nullptr), FALSE);
        EXPECT_EQ(first_assertion(), "sps != NULL");
        EXPECT_EQ(parse(unit), TRUE);
    }
}

}  // namespace
