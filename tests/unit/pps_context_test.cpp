#include <gtest/gtest.h>

#include <memory>

#include "h264d/h264d.h"
#include "pps_builder.h"
#include "script_check.h"

namespace {

using test::Bytes;
using test::filled;
using test::GuardedBuffer;
using test::Log;
using test::PpsSyntax;
using Texts = std::vector<std::string>;

const Log kHit = {{7, "H264LIB_parse_pps_nal_ex", "PPS has not changed no need to parse it again."}};

Bytes unit_of_id(std::uint64_t picture_parameter_set_id, int start_code_length = 4) {
    PpsSyntax pps;
    pps.picture_parameter_set_id = picture_parameter_set_id;
    return pps.unit(start_code_length);
}

class PpsContext : public testing::Test {
protected:
    void SetUp() override { std::memset(static_cast<void*>(context_.get()), 0, sizeof *context_); }

    BOOL parse(const Bytes& unit, pps_t& pps, int level = 7) {
        GuardedBuffer memory(unit);
        test::reset(level);
        return H264LIB_parse_pps_nal_ex(memory.data(), static_cast<unsigned>(unit.size()), &sps_, context_.get(), &pps);
    }
    BOOL parse(const Bytes& unit) { return parse(unit, pps_); }
    bool was_hit() { return test::recorded_log() == kHit; }

    Bytes context_bytes() const {
        const auto* bytes = reinterpret_cast<const unsigned char*>(context_.get());
        return {bytes, bytes + sizeof *context_};
    }
    Bytes kept() const { return {context_->LastPPS, context_->LastPPS + 256}; }

    std::unique_ptr<H264D_PARSE_CONTEXT> context_ = std::make_unique<H264D_PARSE_CONTEXT>();
    sps_t sps_ = PpsSyntax{}.sps();
    pps_t pps_ = filled<pps_t>(0x33);
};

TEST_F(PpsContext, TheSameUnitIsParsedOnce) {
    PpsSyntax syntax = test::pps_variants().back().pps;
    sps_ = syntax.sps();
    const Bytes unit = syntax.unit();
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_FALSE(was_hit());
    // The kept record is given out as it is, also when another sequence parameter set would read the unit otherwise.
    sps_ = PpsSyntax{}.sps();
    for (const int level : {8, 7, 6, 3}) {
        pps_t again = filled<pps_t>(0x77);
        EXPECT_EQ(parse(unit, again, level), TRUE);
        EXPECT_EQ(test::recorded_log(), level >= 7 ? kHit : Log{});
        EXPECT_EQ(test::records().messages.size(), level >= 7 ? 1U : 0U);
        EXPECT_EQ(test::difference(again, pps_), "");
    }
    context_->last_parsed_pps.chroma_qp_index_offset = 99;
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_EQ(pps_.chroma_qp_index_offset, 99);
}

TEST_F(PpsContext, TheRecordIsZeroedBeforeTheUnitIsParsed) {
    const Bytes unit = unit_of_id(5);
    EXPECT_EQ(parse(unit), TRUE);
    pps_t expected = filled<pps_t>(0);
    GuardedBuffer memory(unit);
    EXPECT_EQ(H264LIB_parse_pps_nal(memory.data(), static_cast<int>(unit.size()), &sps_, &expected), TRUE);
    EXPECT_EQ(test::difference(pps_, expected), "");
    EXPECT_EQ(pps_.picture_parameter_set_id, 5U);

    pps_t failed = filled<pps_t>(0x44);
    EXPECT_EQ(parse({1, 2, 3, 4, 5}, failed), FALSE);
    EXPECT_EQ(test::difference(failed, filled<pps_t>(0)), "") << "also when it cannot be parsed";
}

TEST_F(PpsContext, KeepsTheUnitAndTheRecord) {
    std::memset(context_->LastPPS, 0xEE, sizeof context_->LastPPS);
    std::memset(static_cast<void*>(&context_->last_parsed_pps), 0xEE, sizeof context_->last_parsed_pps);
    Bytes unit = unit_of_id(7, 3);
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_EQ(context_->LastPPSLength, unit.size());
    unit.resize(256, 0);
    EXPECT_EQ(kept(), unit);
    EXPECT_EQ(test::difference(context_->last_parsed_pps, pps_), "");
    EXPECT_EQ(pps_.picture_parameter_set_id, 7U);

    // A shorter one leaves nothing of a longer one.
    EXPECT_EQ(parse(test::pps_unit_of_size(200, 4)), TRUE);
    unit = unit_of_id(8);
    EXPECT_EQ(parse(unit), TRUE);
    unit.resize(256, 0);
    EXPECT_EQ(kept(), unit);
}

TEST_F(PpsContext, AnotherUnitTakesThePlace) {
    const Bytes first = unit_of_id(1);
    const Bytes second = unit_of_id(2);
    ASSERT_EQ(first.size(), second.size());
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(parse(first), TRUE);
        EXPECT_FALSE(was_hit());
        EXPECT_EQ(pps_.picture_parameter_set_id, 1U);
        EXPECT_EQ(parse(second), TRUE);
        EXPECT_FALSE(was_hit());
        EXPECT_EQ(pps_.picture_parameter_set_id, 2U);
        EXPECT_EQ(parse(second), TRUE);
        EXPECT_TRUE(was_hit());
    }
}

TEST_F(PpsContext, EveryByteAndTheLengthCount) {
    const Bytes unit = unit_of_id(1);
    EXPECT_EQ(parse(unit), TRUE);
    Bytes longer = unit;
    longer.push_back(0);
    EXPECT_EQ(parse(longer), TRUE);
    EXPECT_FALSE(was_hit()) << "the padding of the kept unit does not count";
    EXPECT_EQ(parse(unit_of_id(1, 3)), TRUE);
    EXPECT_FALSE(was_hit()) << "the start code counts";
    for (std::size_t i = 4; i < unit.size(); ++i) {
        EXPECT_EQ(parse(unit), TRUE);
        EXPECT_FALSE(was_hit());
        Bytes other = unit;
        other[i] = static_cast<unsigned char>(other[i] ^ 0x40);
        // Another unit that cannot be read leaves the first one in its place.
        const bool replaced = parse(other) == TRUE;
        EXPECT_FALSE(was_hit());
        EXPECT_EQ(parse(unit), TRUE);
        EXPECT_EQ(was_hit(), !replaced) << i;
        EXPECT_EQ(parse(longer), TRUE);
    }
}

TEST_F(PpsContext, AFailureLeavesTheContextAsItWas) {
    const Bytes good = unit_of_id(3);
    EXPECT_EQ(parse(good), TRUE);
    const Bytes before = context_bytes();
    // picture_parameter_set_id 6, seq_parameter_set_id 0, then zeros up to a bit that no code begins with.
    const Bytes bad = {0, 0, 0, 1, 0x68, 0x38, 0x80, 0x00, 0x01};
    EXPECT_EQ(parse(bad), FALSE);
    const Texts errors = test::texts_with_function(3);
    ASSERT_EQ(errors.size(), 3U);
    EXPECT_EQ(errors[1], "H264LIB_parse_pps_nal: Failed to parse PPS NAL!");
    EXPECT_EQ(errors[2], "H264LIB_parse_pps_nal_ex: Failed to parse PPS NAL!");
    EXPECT_EQ(pps_.picture_parameter_set_id, 6U) << "the elements read until then are stored";
    EXPECT_EQ(context_bytes(), before);
    EXPECT_EQ(parse({0x68, 0xCE, 0x38, 0x80}), FALSE);
    EXPECT_EQ(context_bytes(), before);
    EXPECT_EQ(parse(good), TRUE);
    EXPECT_TRUE(was_hit());
    EXPECT_EQ(pps_.picture_parameter_set_id, 3U);
}

TEST_F(PpsContext, AUnitThatEndsEarlyWithSuccessIsKept) {
    test::BitWriter bits;
    bits.ue(0).ue(0).flag(true).flag(false).ue(1).ue(1).ue(2).ue(0).flag(true).u(1, 1);
    const Bytes unit = test::nal_unit(0x68, bits.bytes());
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_EQ(test::texts(3), Texts{"cannot parse weighted_bipred_idc."});
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_TRUE(was_hit());
    EXPECT_EQ(pps_.num_ref_idx_l0_default_active_minus1, 2U);
    EXPECT_EQ(pps_.weighted_bipred_idc, 0);
}

TEST_F(PpsContext, LongerUnitsAreParsedAndNotKept) {
    const Bytes unit = test::pps_unit_of_size(252, 4, false, 11);
    ASSERT_EQ(unit.size(), 256U);
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_EQ(context_->LastPPSLength, 256U);
    EXPECT_EQ(kept(), unit);
    const Bytes before = context_bytes();
    std::vector<Bytes> longer = {test::pps_unit_of_size(253, 4, false, 12), test::pps_unit_of_size(256, 4, false, 12),
                                 test::pps_unit_of_size(257, 4, true, 12), unit_of_id(12)};
    longer.back().resize(100000, 0);
    longer.push_back(unit);
    longer.back().push_back(0);
    for (const Bytes& other : longer)
        for (int times = 0; times < 2; ++times) {
            ASSERT_GT(other.size(), 256U);
            EXPECT_EQ(parse(other), TRUE);
            EXPECT_EQ(pps_.picture_parameter_set_id, &other == &longer.back() ? 11U : 12U);
            EXPECT_FALSE(was_hit());
            EXPECT_TRUE(context_bytes() == before);
        }
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_TRUE(was_hit());
}

TEST_F(PpsContext, TheSequenceParameterSetHalfIsNotTouched) {
    std::memset(static_cast<void*>(context_->LastSPS), 0x9A, sizeof context_->LastSPS);
    std::memset(static_cast<void*>(&context_->last_parsed_sps), 0x9B, sizeof context_->last_parsed_sps);
    context_->LastSPSLength = 17;
    EXPECT_EQ(parse(test::pps_unit_of_size(252, 4)), TRUE);
    EXPECT_EQ(context_->LastSPSLength, 17U);
    EXPECT_EQ(Bytes(context_->LastSPS, context_->LastSPS + 256), Bytes(256, 0x9A));
    const auto* sps = reinterpret_cast<const unsigned char*>(&context_->last_parsed_sps);
    EXPECT_EQ(Bytes(sps, sps + sizeof(sps_t)), Bytes(sizeof(sps_t), 0x9B));
}

// A length that a caller has put there is no licence to compare behind the 256 bytes that are kept.
TEST_F(PpsContext, ALengthOfMoreThan256IsNeverAHit) {
    context_->LastPPSLength = 300;
    Bytes unit = unit_of_id(4);
    unit.resize(300, 0);
    std::memcpy(context_->LastPPS, unit.data(), 256);
    EXPECT_EQ(parse(unit), TRUE);
    EXPECT_FALSE(was_hit());
    EXPECT_EQ(pps_.picture_parameter_set_id, 4U);
}

TEST_F(PpsContext, NullArgumentsAreAsserted) {
    const Bytes unit = unit_of_id(1);
    const auto size = static_cast<unsigned>(unit.size());
    const auto asserted = [&](const unsigned char* buffer, unsigned length, H264D_PARSE_CONTEXT* context, pps_t* pps) {
        test::reset(3);
        EXPECT_EQ(H264LIB_parse_pps_nal_ex(buffer, length, &sps_, context, pps), FALSE);
        Texts own;
        for (const test::Assertion& assertion : test::records().assertions)
            if (assertion.func == "H264LIB_parse_pps_nal_ex") own.push_back(assertion.expression);
        return own;
    };
    // Before and after a unit is kept: what a hit would copy is not copied to a null record either.
    for (int kept = 0; kept < 2; ++kept) {
        EXPECT_EQ(asserted(nullptr, size, context_.get(), &pps_), Texts{"buffer != NULL"});
        EXPECT_EQ(asserted(unit.data(), size, nullptr, &pps_), Texts{"pContext != NULL"});
        EXPECT_EQ(asserted(unit.data(), size, context_.get(), nullptr), Texts{"pps != NULL"});
        EXPECT_EQ(asserted(unit.data(), 0, context_.get(), &pps_), Texts{"buffer_len > 0"});
        EXPECT_EQ(asserted(nullptr, size, context_.get(), &context_->last_parsed_pps),
                  (Texts{"buffer != NULL", "pps != &pContext->last_parsed_pps"}));
        const Texts all = asserted(nullptr, 0, nullptr, nullptr);
        ASSERT_GE(all.size(), 4U);
        EXPECT_EQ(Texts(all.begin(), all.begin() + 4),
                  (Texts{"buffer != NULL", "buffer_len > 0", "pContext != NULL", "pps != NULL"}));
        EXPECT_EQ(parse(unit), TRUE);
        EXPECT_TRUE(test::assertions().empty());
    }
}

TEST_F(PpsContext, TheContextsOwnRecordIsAsserted) {
    const Bytes unit = unit_of_id(1);
    for (int times = 0; times < 2; ++times) {
        EXPECT_EQ(parse(unit, context_->last_parsed_pps), TRUE);
        EXPECT_EQ(test::assertions(), Texts{"pps != &pContext->last_parsed_pps"});
        EXPECT_EQ(test::records().assertions[0].func, "H264LIB_parse_pps_nal_ex");
        EXPECT_EQ(test::records().assertions[0].file, "h264d.c");
        EXPECT_EQ(context_->last_parsed_pps.picture_parameter_set_id, 1U);
    }
}

}  // namespace
