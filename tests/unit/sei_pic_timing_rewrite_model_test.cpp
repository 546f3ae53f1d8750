// Any record and any SPS: the rewriter agrees with the model, and the reader with the rewriter.
#include <random>

#include "pic_timing_model.h"
#include "pic_timing_rewrite_check.h"

namespace {

using test::Bytes;
using test::GuardedBuffer;
using test::kTimingSource;
using test::RewriteModel;
using test::RewriteSps;
using test::RewrittenUnit;
using test::text;
using test::TimingRewrite;
using PicTimingRewriteModel = test::PicTimingRewrite;

// Anything a record and an SPS may hold; rarely more than fits.
class AnyTiming {
public:
    explicit AnyTiming(unsigned seed) : random_(seed) {}

    RewriteSps sps() {
        RewriteSps s;
        s.vui_present = flag();
        s.nal_present = flag();
        s.vcl_present = flag();
        s.pic_struct_present = below(4) != 0 ? 1 : 0;
        s.nal = hrd();
        s.vcl = hrd();
        return s;
    }
    // Values fit their elements, and what is not transmitted is 0.
    sei_pic_timing_t timing() {
        sei_pic_timing_t pt{};
        pt.cpb_removal_delay = value(32);
        pt.dpb_output_delay = value(32);
        pt.pic_struct = static_cast<unsigned char>(below(9));
        constexpr int counts[] = {1, 1, 1, 2, 2, 3, 3, 2, 3};
        pt.NumClockTS = counts[pt.pic_struct];
        for (int i = 0; i < pt.NumClockTS; ++i) pt.clock_timestamp_info[i] = clock();
        pt.header.payload_type = 1;
        return pt;
    }
    unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }
    int flag() { return static_cast<int>(below(2)); }

private:
    // Often zeros, for emulation prevention.
    unsigned value(unsigned bits) {
        const unsigned all = static_cast<unsigned>(random_()) & static_cast<unsigned>((1UL << bits) - 1);
        return below(3) == 0 ? 0 : below(3) == 0 ? all & 3 : all;
    }
    unsigned char byte(unsigned bits) { return static_cast<unsigned char>(value(bits)); }
    RewriteSps::Hrd hrd() { return {below(32), below(32), below(3) == 0 ? 0 : below(32)}; }
    clock_timestamp_info_t clock() {
        clock_timestamp_info_t c{};
        c.clock_timestamp_flag = flag();
        if (c.clock_timestamp_flag == 0) return c;
        c.ct_type = byte(2);
        c.nuit_field_based_flag = flag();
        c.counting_type = byte(5);
        c.full_timestamp_flag = flag();
        c.discontinuity_flag = flag();
        c.cnt_dropped_flag = flag();
        c.n_frames = byte(8);
        const bool full = c.full_timestamp_flag != 0;
        c.seconds_flag = full || flag() != 0;
        c.minutes_flag = c.seconds_flag != 0 && (full || flag() != 0);
        c.hours_flag = c.minutes_flag != 0 && (full || flag() != 0);
        if (c.seconds_flag != 0) c.seconds_value = byte(6);
        if (c.minutes_flag != 0) c.minutes_value = byte(6);
        if (c.hours_flag != 0) c.hours_value = byte(5);
        c.time_offset = static_cast<int>(value(32));
        return c;
    }

    std::mt19937 random_;
};

TEST_F(PicTimingRewriteModel, AgreesWithTheModel) {
    AnyTiming any(56);
    int made = 0, without_payload = 0, failed = 0;
    for (int run = 0; run < 20000 && !HasFailure(); ++run) {
        test::set_level(8);
        const RewriteSps sps = any.sps();
        sei_pic_timing_t pt = any.timing();
        if (run % 3 == 0) pt.NumClockTS = static_cast<int>(any.below(6)) - 1;
        Bytes source(any.below(2) == 0 ? 2 : 3, 0);
        source.push_back(1);
        for (unsigned size = 3 + any.below(30), i = 0; i < size; ++i)
            source.push_back(i == 0 ? 6 : static_cast<unsigned char>(any.below(256)));
        const RewrittenUnit unit = expect_rewritten(sps, pt, source);
        made += unit.has_payload;
        without_payload += unit.made && !unit.has_payload;
        failed += !unit.made;
    }
    EXPECT_GT(made, 5000);
    EXPECT_GT(without_payload, 500);
    EXPECT_GT(failed, 50);
}

// The walker wants 8 bytes, and adds a byte of 0xFF that follows the size to it.
bool is_walked(const Bytes& unit) {
    const std::size_t payload = unit[2] == 1 ? 6 : 7;
    return unit.size() >= 8 && unit[payload] != 0xFF;
}

TEST_F(PicTimingRewriteModel, ReadsBackWhatItWrites) {
    AnyTiming any(65);
    int read = 0, walked = 0, timestamps = 0, delays = 0;
    for (int run = 0; run < 20000 && !HasFailure(); ++run) {
        test::set_level(run % 16 == 0 ? 8 : 0);
        RewriteSps s = any.sps();
        // The reader's conditions: it goes by another flag for the delays, and looks for time_offset in the HRD that
        // gives their lengths, with 24 bits when there is none.
        s.delays_present = s.vui_present == 1 && (s.nal_present == 1 || s.vcl_present == 1) ? 1 : 0;
        if (s.delays_present == 0) {
            s.nal.time_offset = 24;
        } else if (s.nal_present == 1) {
            if (s.nal.time_offset == 0) s.vcl.time_offset = 0;
        } else {
            s.nal.time_offset = any.below(2) == 0 ? 0 : s.vcl.time_offset;
        }
        const unsigned offset_length = s.nal.time_offset != 0 ? s.nal.time_offset : s.vcl.time_offset;
        if (offset_length == 1) continue;
        const RewriteSps::Hrd& hrd = s.nal_present == 1 ? s.nal : s.vcl;
        sei_pic_timing_t pt = any.timing();
        pt.cpb_removal_delay &= (2UL << hrd.cpb_minus1) - 1;
        pt.dpb_output_delay &= (2UL << hrd.dpb_minus1) - 1;
        for (clock_timestamp_info_t& c : pt.clock_timestamp_info)
            c.time_offset = offset_length == 0 ? 0 : c.time_offset % (1L << (offset_length - 1));
        const RewriteModel model(s, pt);
        if (model.payload_bytes < 0 || model.payload_bytes > 17) continue;

        // What is not transmitted is not read.
        sei_pic_timing_t expected = pt;
        if (s.delays_present == 0) expected.cpb_removal_delay = expected.dpb_output_delay = 0;
        if (s.pic_struct_present == 0) {
            expected.pic_struct = 0;
            expected.NumClockTS = 0;
            for (clock_timestamp_info_t& c : expected.clock_timestamp_info) c = {};
        }
        expected.header = {1, static_cast<unsigned>(model.payload_bytes), 2};

        const TimingRewrite rewrite(s, pt, run % 2 == 0 ? kTimingSource : Bytes{0, 0, 1, 6, 5, 0x80});
        ASSERT_EQ(rewrite.result, TRUE);
        const int size = static_cast<int>(rewrite.bytes.size());
        sei_pic_timing_t back{};
        GuardedBuffer unit(rewrite.bytes);
        if (is_walked(rewrite.bytes)) {
            int offset = 0, nal = 0, suid = 0;
            BOOL more = FALSE;
            ASSERT_EQ(DetermineSEIType(unit.data(), size, &offset, &nal, &back.header, &suid, &more), TRUE);
            ASSERT_EQ(suid, SEI_SUID_PIC_TIMING);
            ASSERT_EQ(more, FALSE);
            ++walked;
        } else {
            back.header = expected.header;
        }
        ASSERT_EQ(parse_sei_pictiming_nal(unit.data(), size, s.sps().get(), &back), TRUE);
        ASSERT_EQ(test::str(back), test::str(expected));
        ++read;
        delays += s.delays_present;
        if (s.pic_struct_present != 0)
            for (const clock_timestamp_info_t& c : pt.clock_timestamp_info) timestamps += c.clock_timestamp_flag;
    }
    EXPECT_GT(read, 5000);
    EXPECT_GT(walked, read / 2);
    EXPECT_GT(timestamps, 2000);
    EXPECT_GT(delays, 2000);
}

TEST_F(PicTimingRewriteModel, LevelsChangeNothing) {
    AnyTiming any(7);
    for (int run = 0; run < 500 && !HasFailure(); ++run) {
        const std::unique_ptr<sps_t> sps = any.sps().sps();
        const sei_pic_timing_t pt = any.timing();
        const Bytes source = run % 5 == 0 ? Bytes{6, 1, 1, 1} : kTimingSource;
        test::expect_same_at_all_levels([&] {
            unsigned char* unit = nullptr;
            unsigned length = 5;
            const BOOL result = H264Lib_Set_SEIPictiming_NAL(source.data(), static_cast<unsigned>(source.size()),
                                                             sps.get(), &pt, &unit, &length);
            const std::string bytes(unit, unit + length);
            std::free(unit);
            return text("%d %u ", result, length) + bytes;
        });
    }
}

}  // namespace
