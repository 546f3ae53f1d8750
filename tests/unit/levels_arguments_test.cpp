// Null arguments: what a call does with them does not depend on the level.
#include "h264d/h264d.h"
#include "h264d/slice_header.h"
#include "sei_check.h"

namespace {

using test::Bytes;
using test::expect_same_at_all_levels;

template <typename Call>
void expect_refused(Call call, const std::string& own_address = "") {
    expect_same_at_all_levels([&] { return std::to_string(call()); }, own_address);
    EXPECT_NE(call(), 1) << "TRUE, and the slices' success";
}

class LevelsArguments : public test::WriterTest {
protected:
    const Bytes unit_ = test::sei_unit({4, 9, 0xB5, 0, 0x31, 'G', 'A', '9', '4', 3, 0, 0x80});
    const int size_ = static_cast<int>(unit_.size());
    sps_t sps_{};
    pps_t pps_{};
    slice_header_t slice_{};
    aud_t aud_{};
    int suid_ = 0;
};

TEST_F(LevelsArguments, Delimiters) {
    expect_refused([&] { return parse_aud(nullptr, &aud_); });
    expect_refused([&] { return parse_au_delimiter_nal(nullptr, 8, &aud_); });
}

TEST_F(LevelsArguments, Slices) {
    bitbuffer_t bits{};
    expect_refused([&] { return parse_slice_header_nal(nullptr, 8, &sps_, &pps_, &slice_); });
    expect_refused([&] { return parse_slice_header_nal(unit_.data(), size_, &sps_, &pps_, nullptr); });
    expect_refused([&] { return parse_slice_type_only_nal(nullptr, 8, &sps_, &slice_); });
    expect_refused([&] { return parse_slice_type_only_nal(unit_.data(), size_, &sps_, nullptr); });
    expect_refused([&] { return _parse_slice_header(nullptr, &sps_, &pps_, 1, 1, &slice_); });
    expect_refused([&] { return _parse_slice_header(&bits, nullptr, &pps_, 1, 1, &slice_); });
    expect_refused([&] { return _parse_slice_header(&bits, &sps_, nullptr, 1, 1, &slice_); });
    expect_refused([&] { return _parse_slice_type(nullptr, &sps_, &slice_); });
    expect_refused([&] { return _parse_slice_type(&bits, nullptr, &slice_); });
}

TEST_F(LevelsArguments, SeiMessages) {
    const vui_t vui{};
    expect_refused([&] { return _FindSEIUserDataRegisteredSUID(nullptr, 8, &suid_); });
    expect_refused([&] { return parse_sei_cc_nal(unit_.data(), size_, nullptr); }, "cc_bb");
    expect_refused([&] { return parse_sei_afd_nal(unit_.data(), size_, nullptr); }, "afd_bb");
    expect_refused([&] { return parse_sei_buffering_period_nal(unit_.data(), size_, &vui, nullptr); }, "bp_bb");
    expect_refused([&] { return parse_sei_pictiming_nal(unit_.data(), size_, &sps_, nullptr); }, "pt_bb");
}

}  // namespace
