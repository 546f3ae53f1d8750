// The splice of a VUI head from bit buffer to bit buffer.
#include <climits>

#include "sps_splice.h"

namespace {

using test::Bits;
using test::Bytes;
using test::Log;
using test::part;
using test::record_of;
using test::Splice;
using test::SpsSyntax;
using test::text;
using Texts = std::vector<std::string>;

constexpr const char* kName = Splice::kName;

SpsSyntax with_full_vui() {
    SpsSyntax sps;
    sps.vui_parameters_present_flag = true;
    sps.vui = test::full_vui();
    return sps;
}

TEST(VuiRewrite, EveryShape) {
    test::Random random(4);
    for (unsigned shape = 0; shape < test::kHeadShapes * test::kTailShapes; ++shape) {
        const SpsSyntax sps = test::shaped_sps(shape, shape, shape / test::kHeadShapes, random);
        SpsSyntax wanted = sps;
        test::set_head_shape(wanted.vui, random() % test::kHeadShapes, random);
        const auto record = record_of(sps);
        set_head(record->vui, wanted.vui);
        Splice splice(sps.rbsp(), *record);
        const Bits expected = test::rewritten(test::bits_of(sps.rbsp()), *record);
        ASSERT_EQ(splice.run(), static_cast<int>(expected.size() / 8));
        ASSERT_EQ(splice.written(expected.size()), expected);
        ASSERT_TRUE(splice.untouched_from(expected.size()));
        ASSERT_EQ(splice.bb.bit_offset, expected.size());
        ASSERT_EQ(test::recorded_log(), Log{});
        ASSERT_EQ(test::assertions(), Texts{});
        ASSERT_EQ(test::difference(splice.sps, *record), "");
    }
}

// Every destination that is too small: what fails is the element that does not fit, under its own message, and what
// stands before it has been written and traced.
void expect_every_failure(const SpsSyntax& sps, const SpsSyntax& wanted) {
    const auto record = record_of(sps);
    set_head(record->vui, wanted.vui);
    const Bits source = test::bits_of(sps.rbsp());
    const Bits whole = test::rewritten(source, *record);
    const auto start = static_cast<std::size_t>(record->vui_parameters_present_offset);
    const auto rest = source.size() - static_cast<std::size_t>(record->vui.nal_hrd_parameters_present_offset);
    const std::size_t last = std::min<std::size_t>(rest, 8);

    struct Step {
        std::string failure;
        std::size_t bits;
        long traces;  // before it
    };
    std::vector<Step> steps = {{text("Failed to set %zu bits as string.", start), start, 0}};
    for (const test::HeadElement& element : test::vui_head(*record))
        steps.push_back({element.failure, element.bits.size(), 2});
    if (rest > 8) steps.push_back({text("Failed to set %zu bits as string.", rest - 8), rest - 8, 2});
    steps.push_back({"Failed to set StopBit.", last, 3});
    std::size_t end = 0;
    for (const Step& step : steps) end += step.bits;
    for (; end < whole.size(); ++end) steps.push_back({"Failed to set padding bit.", 1, 3});

    std::size_t position = 0;
    for (const Step& step : steps) {
        for (std::size_t i = 0; i < step.bits; ++i) {
            const std::size_t room = position + i;
            Splice splice(sps.rbsp(), *record, room, 7);
            ASSERT_EQ(splice.run(), -1);
            const Log traces = test::splice_traces(splice);
            Log expected(traces.begin(), traces.begin() + step.traces);
            expected.push_back({3, kName, step.failure});
            ASSERT_EQ(test::recorded_log(), expected) << room;
            ASSERT_EQ(splice.written(position), part(whole, 0, position));
            ASSERT_TRUE(splice.untouched_from(room));
            ASSERT_EQ(test::assertions(), Texts{});
        }
        position += step.bits;
    }
    ASSERT_EQ(position, whole.size());
    Splice splice(sps.rbsp(), *record, position);
    ASSERT_EQ(splice.run(), static_cast<int>(whole.size() / 8));
}

TEST(VuiRewrite, EveryElementThatDoesNotFit) {
    SpsSyntax wanted = with_full_vui();
    wanted.vui.chroma_sample_loc_type_top_field = 1000;
    ASSERT_NO_FATAL_FAILURE(expect_every_failure(with_full_vui(), wanted));
    SpsSyntax empty;
    empty.vui_parameters_present_flag = true;
    ASSERT_NO_FATAL_FAILURE(expect_every_failure(empty, wanted));
    ASSERT_NO_FATAL_FAILURE(expect_every_failure(empty, empty));
    ASSERT_NO_FATAL_FAILURE(expect_every_failure(with_full_vui(), empty));
}

// The names as they are written, in the order of the syntax.
TEST(VuiRewrite, MessagesOfAllElements) {
    const Texts names = {"vui_parameters_present_flag",
                         "aspect_ratio_info_present_flag",
                         "aspect_ratio_idc",
                         "sar_width",
                         "sar_width",
                         "overscan_info_present_flag",
                         "overscan_appropriate_flag",
                         "video_signal_type_present_flag",
                         "video_format",
                         "video_full_range_flag",
                         "colour_description_present_flag",
                         "colour_primaries",
                         "transfer_characteristics",
                         "matrix_coefficients",
                         "chroma_loc_info_present_flag",
                         "chroma_sample_loc_type_top_field as golomb",
                         "chroma_sample_loc_type_bottom_field as golomb",
                         "vui_timing_info_present_flag",
                         "vui_num_units_in_tick",
                         "vui_time_scale",
                         "fixed_frame_rate_flag"};
    const auto record = record_of(with_full_vui());
    const std::vector<test::HeadElement> elements = test::vui_head(*record);
    ASSERT_EQ(elements.size(), names.size());
    auto room = static_cast<std::size_t>(record->vui_parameters_present_offset);
    for (std::size_t i = 0; i < names.size(); ++i) {
        Splice splice(with_full_vui().rbsp(), *record, room);
        EXPECT_EQ(splice.run(), -1);
        EXPECT_EQ(test::recorded_log(), (Log{{3, kName, "Failed to set " + names[i] + "."}}));
        room += elements[i].bits.size();
    }
}

TEST(VuiRewrite, Traces) {
    test::Random random(5);
    unsigned on_boundary = 0, off_boundary = 0, without_tail = 0;
    for (unsigned shape = 0; shape < test::kTailShapes * 8; ++shape) {
        const SpsSyntax sps = test::shaped_sps(shape, random() % test::kHeadShapes, shape, random);
        const auto record = record_of(sps);
        Splice splice(sps.rbsp(), *record, 2048, 7);
        splice.run();
        ASSERT_EQ(test::recorded_log(), test::splice_traces(splice));
        // The dump stands between the line that announces it and the last trace.
        ASSERT_EQ(test::records().dumps.size(), 1U);
        const test::Dump& dump = test::records().dumps[0];
        EXPECT_EQ(dump.level, 6);
        EXPECT_EQ(dump.label, "Bitbuffer data");
        EXPECT_EQ(dump.bytes, splice.destination.bytes());
        const std::vector<test::Message>& messages = test::records().messages;
        ASSERT_GE(messages.size(), 2U);
        EXPECT_EQ(messages[messages.size() - 2].level, 5);
        EXPECT_EQ(messages[messages.size() - 2].order + 1, dump.order);
        EXPECT_EQ(messages.back().order, dump.order + 1);

        const int start = record->vui.nal_hrd_parameters_present_offset;
        ++(start % 8 == 0 ? on_boundary : off_boundary);
        without_tail += 8 * splice.length - start <= 8 ? 1 : 0;
    }
    EXPECT_GT(on_boundary, 0U);
    EXPECT_GT(off_boundary, 0U);
    EXPECT_GT(without_tail, 0U);
}

TEST(VuiRewrite, WithoutAVuiNothingIsDone) {
    for (const int flag : {0, 2, -1}) {
        auto record = record_of(with_full_vui());
        record->vui_parameters_present_flag = flag;
        Splice splice(with_full_vui().rbsp(), *record, 2048, 8);
        EXPECT_EQ(splice.run(), -1);
        EXPECT_TRUE(splice.untouched_from(0));
        EXPECT_EQ(test::recorded_log(), Log{});
    }
}

const Texts kTooSmall = {"OutSizeBytes >= (DIVIDE_AND_CEIL(n, NUM_BITS_IN_BYTE))"};

TEST(VuiRewrite, PositionsBehindTheData) {
    const auto record = record_of(with_full_vui());
    const Bytes payload = with_full_vui().rbsp();
    const int end = static_cast<int>(8 * payload.size());
    for (const int position : {end + 1, end + 9, INT_MAX, -1, -8, -2000, INT_MIN}) {
        SCOPED_TRACE(position);
        Splice head(payload, *record, 2048, 7);
        head.sps.vui_parameters_present_offset = position;
        EXPECT_EQ(head.run(), -1);
        EXPECT_EQ(test::recorded_log(), (Log{{3, kName, text("Failed to get %d bits as string.", position)}}));
        EXPECT_EQ(test::assertions(), position < 0 || position > 2048 ? kTooSmall : Texts{});
        EXPECT_TRUE(head.untouched_from(0));

        Splice tail(payload, *record, 2048, 7);
        tail.sps.vui.nal_hrd_parameters_present_offset = position;
        EXPECT_EQ(tail.run(), -1);
        const long long bits = 1LL * end - position;
        const std::string failure =
            text("Failed to get %d bits as %s.", static_cast<int>(bits), bits > 8 ? "string" : "Uint8");
        EXPECT_EQ(test::recorded_log(), (Log{test::tail_trace(tail), {3, kName, failure}}));
        EXPECT_EQ(test::assertions(), bits < 0 ? Texts{"n <= 8"} : bits - 8 > 2048 ? kTooSmall : Texts{});
    }
    Splice at_end(payload, *record, 2048, 7);
    at_end.sps.vui.nal_hrd_parameters_present_offset = end;
    EXPECT_EQ(at_end.run(), -1);
    EXPECT_EQ(test::recorded_log(), (Log{test::tail_trace(at_end), {3, kName, "Failed to get 0 bits as Uint8."}}));
}

// The last bits of the source, 1 to 8 of them and no tail before them.
TEST(VuiRewrite, ATailOfUpToOneByte) {
    const auto record = record_of(with_full_vui());
    const Bytes payload = with_full_vui().rbsp();
    for (int rest = 1; rest <= 17; ++rest) {
        Splice splice(payload, *record, 2048, 7);
        splice.sps.vui.nal_hrd_parameters_present_offset = static_cast<int>(8 * payload.size()) - rest;
        const Bits expected = test::rewritten(test::bits_of(payload), splice.sps);
        const bool has_stop_bit = payload.back() % (1U << std::min(rest, 8)) != 0;
        EXPECT_EQ(splice.run(), static_cast<int>(expected.size() / 8));
        EXPECT_EQ(splice.written(expected.size()), expected);
        EXPECT_EQ(test::assertions(), has_stop_bit ? Texts{} : Texts{"StopBitPos >= 0"});
        EXPECT_EQ(test::recorded_log(), test::splice_traces(splice));
    }
}

// A payload that the source does not hold.
TEST(VuiRewrite, ALengthThatTheSourceDoesNotHave) {
    const auto record = record_of(with_full_vui());
    const Bytes payload = with_full_vui().rbsp();
    for (const int length : {static_cast<int>(payload.size()) + 1, static_cast<int>(payload.size()) + 100, INT_MAX}) {
        Splice splice(payload, *record);
        splice.length = length;
        splice.capacity = INT_MAX;
        EXPECT_EQ(splice.run(), -1);
        const long long bits = 8LL * length - record->vui.nal_hrd_parameters_present_offset;
        Log expected;
        if (length == static_cast<int>(payload.size()) + 1)
            expected.push_back({3, kName, "Failed to get 8 bits as Uint8."});
        else
            expected.push_back({3, kName, text("Failed to get %d bits as string.", static_cast<int>(bits))});
        EXPECT_EQ(test::recorded_log(), expected);
        EXPECT_EQ(test::assertions(), length == INT_MAX ? Texts{"NewSpsSodbLength >= (SpsSodbLength + "
                                                                "MIN_VUI_PARAMETERS_SIZE_BYTES)"}
                                                        : Texts{});
    }
    for (const int length : {0, -1, INT_MIN}) {
        Splice splice(payload, *record);
        splice.length = length;
        EXPECT_EQ(splice.run(), -1);
        const long long bits = 8LL * length - record->vui.nal_hrd_parameters_present_offset;
        EXPECT_EQ(test::recorded_log(),
                  (Log{{3, kName, text("Failed to get %d bits as Uint8.", static_cast<int>(bits))}}));
    }
}

// Stretches of more than 256 bytes are not carried.
TEST(VuiRewrite, StretchesThatAreTooLong) {
    auto record = record_of(with_full_vui());
    const Bytes payload(600, 0x5B);
    record->vui_parameters_present_offset = 2048;
    record->vui.nal_hrd_parameters_present_offset = 8 * 600 - 2048 - 8;
    Splice fits(payload, *record, 10000);
    EXPECT_GT(fits.run(), 512);
    EXPECT_EQ(test::assertions(), Texts{});
    record->vui_parameters_present_offset = 2049;
    Splice head(payload, *record, 10000);
    EXPECT_EQ(head.run(), -1);
    EXPECT_EQ(test::recorded_log(), (Log{{3, kName, "Failed to get 2049 bits as string."}}));
    EXPECT_EQ(test::assertions(), kTooSmall);
    record->vui_parameters_present_offset = 2048;
    record->vui.nal_hrd_parameters_present_offset -= 1;
    Splice tail(payload, *record, 10000);
    EXPECT_EQ(tail.run(), -1);
    EXPECT_EQ(test::recorded_log(), (Log{{3, kName, "Failed to get 2057 bits as string."}}));
    EXPECT_EQ(test::assertions(), kTooSmall);
}

TEST(VuiRewrite, TheCapacityIsAssertedAndTheCallGoesOn) {
    const auto record = record_of(with_full_vui());
    const Bytes payload = with_full_vui().rbsp();
    const Bits expected = test::rewritten(test::bits_of(payload), *record);
    for (const int capacity : {0, -1, INT_MIN, static_cast<int>(payload.size()) + 31}) {
        Splice splice(payload, *record);
        splice.capacity = capacity;
        EXPECT_EQ(splice.run(), static_cast<int>(expected.size() / 8));
        EXPECT_EQ(splice.written(expected.size()), expected);
        EXPECT_EQ(test::assertions(), Texts{"NewSpsSodbLength >= (SpsSodbLength + MIN_VUI_PARAMETERS_SIZE_BYTES)"});
        ASSERT_EQ(test::records().assertions.size(), 1U);
        EXPECT_EQ(test::records().assertions[0].func, kName);
        EXPECT_EQ(test::records().assertions[0].file, "h264d.c");
    }
}

TEST(VuiRewrite, AMissingStopBitIsAssertedAndTheCallGoesOn) {
    const auto record = record_of(with_full_vui());
    Bytes payload = with_full_vui().rbsp();
    payload.push_back(0);
    Splice splice(payload, *record, 2048, 7);
    const Bits expected = test::rewritten(test::bits_of(payload), *record);
    EXPECT_EQ(splice.run(), static_cast<int>(expected.size() / 8));
    EXPECT_EQ(splice.written(expected.size()), expected);
    EXPECT_EQ(test::assertions(), Texts{"StopBitPos >= 0"});
    EXPECT_EQ(test::recorded_log(), test::splice_traces(splice));
    EXPECT_NE(test::recorded_log()[2].text.find("StopBitPos:-1, LastByte:0."), std::string::npos);
}

TEST(VuiRewrite, AFlagThatIsNone) {
    auto record = record_of(with_full_vui());
    record->vui.overscan_info_present_flag = 2;
    Splice splice(with_full_vui().rbsp(), *record);
    const Bits expected = test::rewritten(test::bits_of(with_full_vui().rbsp()), *record);
    EXPECT_EQ(splice.run(), static_cast<int>(expected.size() / 8));
    EXPECT_EQ(splice.written(expected.size()), expected);
    EXPECT_EQ(test::assertions(), Texts{"value < 2"});
    ASSERT_EQ(test::records().assertions.size(), 1U);
    EXPECT_EQ(test::records().assertions[0].caller_func, kName);
    EXPECT_EQ(test::records().assertions[0].caller_file, "h264d.c");
}

TEST(VuiRewrite, NullArguments) {
    const auto record = record_of(with_full_vui());
    Splice splice(with_full_vui().rbsp(), *record, 2048, 8);
    EXPECT_EQ(_set_sps_vui_parameters(nullptr, splice.length, &splice.sps, &splice.bb, splice.capacity), -1);
    EXPECT_EQ(_set_sps_vui_parameters(&splice.source_bb, splice.length, nullptr, &splice.bb, splice.capacity), -1);
    EXPECT_EQ(_set_sps_vui_parameters(&splice.source_bb, splice.length, &splice.sps, nullptr, splice.capacity), -1);
    EXPECT_EQ(test::assertions(), (Texts{"sps_nalu_bb != NULL", "sps != NULL", "new_sps_nalu_bb != NULL"}));
    EXPECT_TRUE(splice.untouched_from(0));
    EXPECT_EQ(test::recorded_log(), Log{});
}

}  // namespace
