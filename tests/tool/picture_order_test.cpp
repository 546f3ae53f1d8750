#include "picture_order.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using h264tool::PictureBoundaries;
using h264tool::PictureOrder;
using h264tool::PictureOrderCounter;
using h264tool::PictureOrderCounts;
using h264tool::SliceIdentity;
using h264tool::Sps;

// frame_num has 4 bits, pic_order_cnt_lsb 4.
Sps poc_sps(unsigned long type) {
    Sps sps;
    sps.sps.pic_order_cnt_type = type;
    return sps;
}

SliceIdentity picture(const Sps& sps, std::uint64_t lsb, bool reference = true) {
    SliceIdentity slice;
    slice.beginning.sps = &sps;
    slice.pic_order_cnt_lsb = lsb;
    slice.nal_ref_idc = reference ? 1 : 0;
    return slice;
}

SliceIdentity idr(SliceIdentity slice) {
    slice.idr = true;
    return slice;
}

SliceIdentity field(SliceIdentity slice, bool bottom, std::uint64_t frame_num = 0) {
    slice.field_pic_flag = true;
    slice.bottom_field_flag = bottom;
    slice.frame_num = frame_num;
    return slice;
}

SliceIdentity numbered(SliceIdentity slice, std::uint64_t frame_num) {
    slice.frame_num = frame_num;
    return slice;
}

std::vector<std::uint32_t> frames_of(const PictureOrder& order) {
    std::vector<std::uint32_t> frames;
    for (std::size_t i = 0; i < order.pictures(); ++i) frames.push_back(order.place(i).frame);
    return frames;
}

std::vector<std::uint32_t> frames_of(const std::vector<SliceIdentity>& pictures) {
    PictureOrder order;
    for (const SliceIdentity& slice : pictures) order.add(slice);
    order.finish();
    return frames_of(order);
}

using Frames = std::vector<std::uint32_t>;

TEST(PictureOrder, BPyramid) {
    const Sps sps = poc_sps(0);
    EXPECT_EQ(frames_of({idr(picture(sps, 0)), picture(sps, 8), picture(sps, 4), picture(sps, 2, false),
                         picture(sps, 6, false), picture(sps, 12), picture(sps, 10, false)}),
              (Frames{0, 4, 2, 1, 3, 6, 5}));
}

TEST(PictureOrder, LsbWrapsInBothDirections) {
    const Sps sps = poc_sps(0);
    // 0, 14, 18 (lsb 2), 16 (lsb 0), 15, 32 (lsb 0): the difference of half the range goes up.
    EXPECT_EQ(frames_of({idr(picture(sps, 0)), picture(sps, 7), picture(sps, 14), picture(sps, 4),
                         picture(sps, 2, false), picture(sps, 15, false), picture(sps, 12)}),
              (Frames{0, 1, 2, 5, 4, 3, 6}));
    // Pictures before the first one of a stream that was cut: counts -2 and -1.
    EXPECT_EQ(frames_of({picture(sps, 0), picture(sps, 14, false), picture(sps, 15, false), picture(sps, 2)}),
              (Frames{2, 0, 1, 3}));
}

TEST(PictureOrder, NonReferencePicturesDoNotMoveTheLsb) {
    const Sps sps = poc_sps(0);
    // Were the second one's lsb kept, 15 would be 15 and not -1.
    EXPECT_EQ(frames_of({picture(sps, 0), picture(sps, 6, false), picture(sps, 15, false)}), (Frames{1, 2, 0}));
    EXPECT_EQ(frames_of({picture(sps, 0), picture(sps, 7), picture(sps, 15, false)}), (Frames{0, 1, 2}));
}

TEST(PictureOrder, SequencesFollowEachOther) {
    const Sps sps = poc_sps(0);
    EXPECT_EQ(frames_of({idr(picture(sps, 0)), picture(sps, 4), picture(sps, 2, false), idr(picture(sps, 0)),
                         picture(sps, 2), idr(picture(sps, 0))}),
              (Frames{0, 2, 1, 3, 4, 5}));
}

TEST(PictureOrder, FieldsOfAFrame) {
    const Sps sps = poc_sps(0);
    PictureOrder order;
    order.add(idr(field(picture(sps, 1), true)));
    order.add(field(picture(sps, 0), false));
    order.add(field(picture(sps, 6), false, 1));
    order.add(field(picture(sps, 7), true, 1));
    order.add(field(picture(sps, 4, false), false, 2));
    order.add(field(picture(sps, 5, false), true, 2));
    order.finish();
    EXPECT_EQ(order.frames(), 3U);
    EXPECT_EQ(frames_of(order), (Frames{0, 0, 2, 2, 1, 1}));
    std::vector<bool> second;
    for (std::size_t i = 0; i < order.pictures(); ++i) second.push_back(order.place(i).second_field);
    EXPECT_EQ(second, (std::vector<bool>{true, false, false, true, false, true}));
    EXPECT_EQ(order.in_output_order(), (Frames{1, 0, 4, 5, 2, 3}));
}

TEST(PictureOrder, FieldsWithoutPartnerAreFrames) {
    const Sps sps = poc_sps(0);
    // The same parity, another frame_num, a reference field with one that is none, an IDR field, frames between.
    EXPECT_EQ(frames_of({field(picture(sps, 0), false), field(picture(sps, 1), false)}), (Frames{0, 1}));
    EXPECT_EQ(frames_of({field(picture(sps, 0), false), field(picture(sps, 1), true, 1)}), (Frames{0, 1}));
    EXPECT_EQ(frames_of({field(picture(sps, 0), false), field(picture(sps, 1, false), true)}), (Frames{0, 1}));
    EXPECT_EQ(frames_of({field(picture(sps, 0), false), idr(field(picture(sps, 1), true))}), (Frames{0, 1}));
    EXPECT_EQ(frames_of({field(picture(sps, 0), false), picture(sps, 2), field(picture(sps, 3), true)}),
              (Frames{0, 1, 2}));
    EXPECT_EQ(frames_of({field(picture(sps, 0), false), field(picture(sps, 1), true), field(picture(sps, 2), false)}),
              (Frames{0, 0, 1}));
}

TEST(PictureOrder, BottomFieldOfAFrameComesFirst) {
    const Sps sps = poc_sps(0);
    SliceIdentity frame = picture(sps, 4, false);
    frame.delta_pic_order_cnt_bottom = -3;  // before the frame with 2
    EXPECT_EQ(frames_of({idr(picture(sps, 0)), picture(sps, 2), frame}), (Frames{0, 2, 1}));
}

TEST(PictureOrder, MemoryManagementOperation5BeginsASequence) {
    const Sps sps = poc_sps(0);
    PictureOrder order;
    order.add(idr(picture(sps, 0)));
    order.add(picture(sps, 6));
    order.add(picture(sps, 4), true);    // becomes 0
    order.add(picture(sps, 15, false));  // -1
    order.add(picture(sps, 2));
    order.finish();
    EXPECT_EQ(frames_of(order), (Frames{0, 1, 3, 2, 4}));
}

TEST(PictureOrder, SecondFieldOfAFrameThatResets) {
    const Sps sps = poc_sps(0);
    PictureOrder order;
    order.add(idr(picture(sps, 0)));
    order.add(field(picture(sps, 6), false, 3), true);
    order.add(field(picture(sps, 1), true, 0));
    order.add(field(picture(sps, 3), false, 1), true);
    order.add(field(picture(sps, 1), true, 0), true);  // no second field
    order.finish();
    EXPECT_EQ(frames_of(order), (Frames{0, 1, 1, 2, 3}));
}

TEST(PictureOrder, Type1) {
    Sps sps = poc_sps(1);
    sps.sps.offset_for_non_ref_pic = -2;
    sps.sps.num_ref_frames_in_pic_order_cnt_cycle = 2;
    sps.sps.offset_for_ref_frame[0] = 4;
    sps.sps.offset_for_ref_frame[1] = 6;
    // 0, 4, 4 + 6 and the picture before it, 4 - 2.
    EXPECT_EQ(frames_of({idr(picture(sps, 0)), numbered(picture(sps, 0), 1), numbered(picture(sps, 0, false), 2),
                         numbered(picture(sps, 0), 2)}),
              (Frames{0, 2, 1, 3}));
}

std::vector<std::int64_t> both(PictureOrderCounts counts) { return {counts.top, counts.bottom}; }
using Counts = std::vector<std::int64_t>;

TEST(PictureOrderCounter, Type0) {
    const Sps sps = poc_sps(0);
    PictureOrderCounter counter;
    SliceIdentity frame = idr(picture(sps, 0));
    frame.delta_pic_order_cnt_bottom = -1;
    EXPECT_EQ(both(counter.next(frame, false)), (Counts{0, -1}));
    EXPECT_EQ(both(counter.next(picture(sps, 7), false)), (Counts{7, 7}));
    EXPECT_EQ(both(counter.next(picture(sps, 15), false)), (Counts{15, 15}));
    EXPECT_EQ(both(counter.next(picture(sps, 7), false)), (Counts{23, 23}));
    EXPECT_EQ(both(counter.next(field(picture(sps, 8), true), false)), (Counts{24, 24}));
    EXPECT_EQ(both(counter.next(idr(picture(sps, 3)), false)), (Counts{3, 3}));
}

TEST(PictureOrderCounter, Type0BehindAReset) {
    const Sps sps = poc_sps(0);
    SliceIdentity frame = picture(sps, 6);
    frame.delta_pic_order_cnt_bottom = -2;
    PictureOrderCounter counter;
    EXPECT_EQ(both(counter.next(frame, true)), (Counts{2, 0}));
    EXPECT_EQ(both(counter.next(picture(sps, 11, false), false)), (Counts{-5, -5}));
    EXPECT_EQ(both(counter.next(picture(sps, 10, false), false)), (Counts{10, 10}));
    EXPECT_EQ(both(counter.next(field(picture(sps, 6), true), true)), (Counts{0, 0}));
    EXPECT_EQ(both(counter.next(picture(sps, 9, false), false)), (Counts{-7, -7}));
}

TEST(PictureOrderCounter, Type1) {
    Sps sps = poc_sps(1);
    sps.sps.offset_for_non_ref_pic = -3;
    sps.sps.offset_for_top_to_bottom_field = 1;
    sps.sps.num_ref_frames_in_pic_order_cnt_cycle = 3;
    sps.sps.offset_for_ref_frame[0] = 2;
    sps.sps.offset_for_ref_frame[1] = 4;
    sps.sps.offset_for_ref_frame[2] = 8;
    PictureOrderCounter counter;
    SliceIdentity frame = idr(picture(sps, 0));
    frame.delta_pic_order_cnt = {5, -7};
    EXPECT_EQ(both(counter.next(frame, false)), (Counts{5, -1}));
    EXPECT_EQ(both(counter.next(numbered(picture(sps, 0), 1), false)), (Counts{2, 3}));
    EXPECT_EQ(both(counter.next(numbered(picture(sps, 0), 5), false)), (Counts{20, 21}));         // 14 + 2 + 4
    EXPECT_EQ(both(counter.next(numbered(picture(sps, 0, false), 5), false)), (Counts{13, 14}));  // 14 + 2 - 3
    EXPECT_EQ(both(counter.next(field(picture(sps, 0), true, 6), false)), (Counts{29, 29}));      // 28 + 1
    EXPECT_EQ(both(counter.next(numbered(picture(sps, 0), 2), false)), (Counts{84, 85}));         // frame 18
    EXPECT_EQ(both(counter.next(numbered(picture(sps, 0), 2), true)), (Counts{0, 1}));
    EXPECT_EQ(both(counter.next(numbered(picture(sps, 0), 1), false)), (Counts{2, 3}));
    sps.sps.num_ref_frames_in_pic_order_cnt_cycle = 0;
    EXPECT_EQ(both(counter.next(numbered(picture(sps, 0, false), 3), false)), (Counts{-3, -2}));
}

TEST(PictureOrderCounter, Type2IsDecodingOrder) {
    const Sps sps = poc_sps(2);
    PictureOrderCounter counter;
    EXPECT_EQ(both(counter.next(idr(picture(sps, 0)), false)), (Counts{0, 0}));
    EXPECT_EQ(both(counter.next(numbered(picture(sps, 0), 15), false)), (Counts{30, 30}));
    EXPECT_EQ(both(counter.next(numbered(picture(sps, 0, false), 0), false)), (Counts{31, 31}));
    EXPECT_EQ(both(counter.next(numbered(picture(sps, 0), 1), true)), (Counts{0, 0}));
    EXPECT_EQ(both(counter.next(numbered(picture(sps, 0), 1), false)), (Counts{2, 2}));
    EXPECT_EQ(both(counter.next(field(picture(sps, 0), true, 2), false)), (Counts{4, 4}));
}

TEST(PictureOrderCounter, ElementsBeyondAllBoundsWrap) {
    Sps sps = poc_sps(1);
    sps.sps.log2_max_frame_num_minus4 = 60;
    sps.sps.num_ref_frames_in_pic_order_cnt_cycle = 100000;
    sps.sps.offset_for_ref_frame[0] = INT64_MAX;
    PictureOrderCounter counter;
    SliceIdentity frame = numbered(picture(sps, 0), UINT64_MAX);
    frame.delta_pic_order_cnt = {INT64_MAX, INT64_MIN};
    counter.next(frame, false);
    counter.next(numbered(frame, 0), true);
    Sps type_0 = poc_sps(0);
    type_0.sps.log2_max_pic_order_cnt_lsb_minus4 = 60;
    counter.next(picture(type_0, UINT64_MAX), false);
    EXPECT_EQ(both(counter.next(idr(picture(type_0, 1)), false)), (Counts{1, 1}));
}

TEST(PictureBoundaries, ElementsThatDiffer) {
    const Sps sps = poc_sps(0);
    const SliceIdentity first = picture(sps, 0);
    const auto starts = [&](auto change) {
        PictureBoundaries boundaries;
        EXPECT_TRUE(boundaries.starts_picture(first));
        SliceIdentity second = first;
        second.beginning.first_mb_in_slice = 5;
        change(second);
        return boundaries.starts_picture(second);
    };
    EXPECT_FALSE(starts([](SliceIdentity&) {}));
    EXPECT_FALSE(starts([](SliceIdentity& slice) { slice.nal_ref_idc = 3; }));
    EXPECT_FALSE(starts([](SliceIdentity& slice) { slice.beginning.slice_type = 7; }));
    EXPECT_TRUE(starts([](SliceIdentity& slice) { slice.nal_ref_idc = 0; }));
    EXPECT_TRUE(starts([](SliceIdentity& slice) { slice.frame_num = 1; }));
    EXPECT_TRUE(starts([](SliceIdentity& slice) { slice.beginning.pic_parameter_set_id = 1; }));
    EXPECT_TRUE(starts([](SliceIdentity& slice) { slice.field_pic_flag = true; }));
    EXPECT_TRUE(starts([](SliceIdentity& slice) { slice.bottom_field_flag = true; }));
    EXPECT_TRUE(starts([](SliceIdentity& slice) { slice.idr = true; }));
    EXPECT_TRUE(starts([](SliceIdentity& slice) { slice.idr_pic_id = 1; }));
    EXPECT_TRUE(starts([](SliceIdentity& slice) { slice.pic_order_cnt_lsb = 1; }));
    EXPECT_TRUE(starts([](SliceIdentity& slice) { slice.delta_pic_order_cnt_bottom = 1; }));
    EXPECT_TRUE(starts([](SliceIdentity& slice) { slice.delta_pic_order_cnt[0] = 1; }));
    EXPECT_TRUE(starts([](SliceIdentity& slice) { slice.delta_pic_order_cnt[1] = 1; }));
    EXPECT_TRUE(starts([](SliceIdentity& slice) { slice.beginning.first_mb_in_slice = 0; }));
    // The planes of a picture all begin with macroblock 0.
    EXPECT_FALSE(starts([](SliceIdentity& slice) {
        slice.beginning.first_mb_in_slice = 0;
        slice.colour_plane_id = 1;
    }));
}

TEST(PictureBoundaries, RedundantSlicesBeginNoPicture) {
    const Sps sps = poc_sps(0);
    PictureBoundaries boundaries;
    SliceIdentity redundant = picture(sps, 0);
    redundant.redundant_pic_cnt = 1;
    EXPECT_FALSE(boundaries.starts_picture(redundant));
    EXPECT_TRUE(boundaries.starts_picture(picture(sps, 0)));
    redundant.pic_order_cnt_lsb = 2;
    EXPECT_FALSE(boundaries.starts_picture(redundant));
    SliceIdentity second = picture(sps, 0);
    second.beginning.first_mb_in_slice = 9;
    EXPECT_FALSE(boundaries.starts_picture(second));
    EXPECT_TRUE(boundaries.starts_picture(picture(sps, 2)));
}

TEST(PictureBoundaries, EndOfAPicture) {
    const Sps sps = poc_sps(0);
    PictureBoundaries boundaries;
    SliceIdentity slice = picture(sps, 0);
    slice.beginning.first_mb_in_slice = 9;
    EXPECT_TRUE(boundaries.starts_picture(slice));
    EXPECT_FALSE(boundaries.starts_picture(slice));
    boundaries.end_picture();
    EXPECT_TRUE(boundaries.starts_picture(slice));
    EXPECT_FALSE(boundaries.starts_picture(picture(sps, 0)));  // its first macroblock was lost before, or came late
    EXPECT_TRUE(boundaries.starts_picture(picture(sps, 0)));
}

}  // namespace
