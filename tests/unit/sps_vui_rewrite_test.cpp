// The splice of a VUI head from bit buffer to bit buffer.
#include <climits>

#include "h264d/h264d.h"
#include "sps_rewrite_model.h"
#include "sps_shapes.h"

namespace {

using test::Bits;
using test::Bytes;
using test::Log;
using test::part;
using test::record_of;
using test::SpsSyntax;
using test::text;
using Texts = std::vector<std::string>;

constexpr unsigned char kFill = 0x5A;
constexpr const char* kName = "_set_sps_vui_parameters";

// One call with a destination of so many bits, nothing readable behind source and destination.
struct Splice {
    Splice(const Bytes& payload, const sps_t& record, std::size_t room = 2048, int level = 3)
        : source_bytes(payload),
          source(payload),
          destination(Bytes((room + 7) / 8, kFill)),
          source_bb{source.data(), 0, static_cast<unsigned>(8 * payload.size())},
          bb{destination.data(), 0, static_cast<unsigned>(room)},
          length(static_cast<int>(payload.size())),
          capacity(length + 32),
          sps(record) {
        test::reset(level);
    }

    int run() {
        const int result = _set_sps_vui_parameters(&source_bb, length, &sps, &bb, capacity);
        EXPECT_EQ(source.bytes(), source_bytes);
        return result;
    }
    // The first bits of the destination.
    Bits written(std::size_t bits) { return part(test::bits_of(destination.bytes()), 0, bits); }
    // Whether the destination is as it was from a bit on.
    bool untouched_from(std::size_t bit) {
        const Bytes fill(destination.size(), kFill);
        return part(test::bits_of(destination.bytes()), bit) == part(test::bits_of(fill), bit);
    }

    Bytes source_bytes;
    test::GuardedBuffer source;
    test::GuardedBuffer destination;
    bitbuffer_t source_bb;
    bitbuffer_t bb;
    int length;
    int capacity;
    sps_t sps;
};

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
// stands before it has been written.
void expect_every_failure(const SpsSyntax& sps, const SpsSyntax& wanted) {
    const auto record = record_of(sps);
    set_head(record->vui, wanted.vui);
    const Bits source = test::bits_of(sps.rbsp());
    const Bits whole = test::rewritten(source, *record);
    const auto start = static_cast<std::size_t>(record->vui_parameters_present_offset);
    const auto rest = source.size() - static_cast<std::size_t>(record->vui.nal_hrd_parameters_present_offset);
    const std::size_t last = std::min<std::size_t>(rest, 8);

    std::vector<test::HeadElement> elements = {{text("Failed to set %zu bits as string.", start), Bits(start)}};
    for (const test::HeadElement& element : test::vui_head(*record)) elements.push_back(element);
    if (rest > 8) elements.push_back({text("Failed to set %zu bits as string.", rest - 8), Bits(rest - 8)});
    elements.push_back({"Failed to set StopBit.", Bits(last)});
    std::size_t end = 0;
    for (const test::HeadElement& element : elements) end += element.bits.size();
    while (end < whole.size()) {
        elements.push_back({"Failed to set padding bit.", Bits(1)});
        ++end;
    }

    std::size_t position = 0;
    for (const test::HeadElement& element : elements) {
        for (std::size_t i = 0; i < element.bits.size(); ++i) {
            const std::size_t room = position + i;
            Splice splice(sps.rbsp(), *record, room);
            ASSERT_EQ(splice.run(), -1);
            ASSERT_EQ(test::recorded_log(), (Log{{3, kName, element.failure}})) << room;
            ASSERT_EQ(splice.written(position), part(whole, 0, position));
            ASSERT_TRUE(splice.untouched_from(room));
            ASSERT_EQ(test::assertions(), Texts{});
        }
        position += element.bits.size();
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
    for (unsigned shape = 0; shape < test::kTailShapes * 8; ++shape) {
        const SpsSyntax sps = test::shaped_sps(shape, random() % test::kHeadShapes, shape, random);
        const auto record = record_of(sps);
        Splice splice(sps.rbsp(), *record, 2048, 7);
        const int bytes = splice.run();
        const int offset = record->vui.nal_hrd_parameters_present_offset;
        const int rest = 8 * splice.length - offset;
        const int last_bits = std::min(rest, 8);
        const Bits source = test::bits_of(sps.rbsp());
        unsigned last = 0;
        for (const bool bit : part(source, source.size() - static_cast<std::size_t>(last_bits)))
            last = 2 * last + (bit ? 1 : 0);
        int stop = 0;
        while ((last >> stop & 1U) == 0) ++stop;
        const std::string label =
            text("FINAL NEW SODB SPS BB Addr=%p, NumBits=2048 Current Bit Offset=%d (Byte=%d, BitOfByte=0).",
                 static_cast<void*>(splice.destination.data()), 8 * bytes, bytes);
        ASSERT_EQ(test::recorded_log(),
                  (Log{{7, kName,
                        text("SpsSodbLength bytes:%d. Current offset in bb:%d, num_bits:%d, IsByteBoudary:%s.",
                             splice.length, offset, rest, offset % 8 == 0 ? "TRUE" : "FALSE")},
                       {7, kName, text("num_bits:%d, LastByteNumBits:%d, LastByte:%#x.", last_bits, last_bits, last)},
                       {7, kName,
                        text("Before Trailing bits, bitbuffer BitOffset:%d, StopBitPos:%d, LastByte:%#x.",
                             8 * splice.length - last_bits, stop, last)},
                       {5, "_DisplayBitBuffer", label, "bitbuffer.c"},
                       {7, kName, text("Final new SPS num_bits:%d, Bytes:%d.", 8 * bytes, bytes)}}));
        ASSERT_EQ(test::records().dumps.size(), 1U);
        ASSERT_EQ(test::records().dumps[0].label, "Bitbuffer data");
        ASSERT_EQ(test::records().dumps[0].bytes, splice.destination.bytes());
    }
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

TEST(VuiRewrite, PositionsBehindTheData) {
    const auto record = record_of(with_full_vui());
    const Bytes payload = with_full_vui().rbsp();
    const int end = static_cast<int>(8 * payload.size());
    for (const int position : {end + 1, end + 9, INT_MAX, -1, -8, -2000, INT_MIN}) {
        SCOPED_TRACE(position);
        Splice head(payload, *record);
        head.sps.vui_parameters_present_offset = position;
        EXPECT_EQ(head.run(), -1);
        EXPECT_EQ(test::recorded_log(), (Log{{3, kName, text("Failed to get %d bits as string.", position)}}));
        EXPECT_EQ(test::assertions(), Texts{});
        EXPECT_TRUE(head.untouched_from(0));

        Splice tail(payload, *record);
        tail.sps.vui.nal_hrd_parameters_present_offset = position;
        EXPECT_EQ(tail.run(), -1);
        const long long bits = 1LL * end - position;
        EXPECT_EQ(test::recorded_log(),
                  (Log{{3, kName,
                        text("Failed to get %d bits as %s.", static_cast<int>(bits), bits > 8 ? "string" : "Uint8")}}));
        EXPECT_EQ(test::assertions(), Texts{});
    }
    Splice at_end(payload, *record);
    at_end.sps.vui.nal_hrd_parameters_present_offset = end;
    EXPECT_EQ(at_end.run(), -1);
    EXPECT_EQ(test::recorded_log(), (Log{{3, kName, "Failed to get 0 bits as Uint8."}}));
}

// The last bits of the source, 1 to 8 of them and no tail before them.
TEST(VuiRewrite, ATailOfUpToOneByte) {
    const auto record = record_of(with_full_vui());
    const Bytes payload = with_full_vui().rbsp();
    for (int rest = 1; rest <= 17; ++rest) {
        Splice splice(payload, *record);
        splice.sps.vui.nal_hrd_parameters_present_offset = static_cast<int>(8 * payload.size()) - rest;
        const Bits expected = test::rewritten(test::bits_of(payload), splice.sps);
        const bool has_stop_bit = payload.back() % (1U << std::min(rest, 8)) != 0;
        EXPECT_EQ(splice.run(), static_cast<int>(expected.size() / 8));
        EXPECT_EQ(splice.written(expected.size()), expected);
        EXPECT_EQ(test::assertions(), has_stop_bit ? Texts{} : Texts{"StopBitPos >= 0"});
        EXPECT_EQ(test::recorded_log(), Log{});
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
    const Texts too_small = {"OutSizeBytes >= (DIVIDE_AND_CEIL(n, NUM_BITS_IN_BYTE))"};
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
    EXPECT_EQ(test::assertions(), too_small);
    record->vui_parameters_present_offset = 2048;
    record->vui.nal_hrd_parameters_present_offset -= 1;
    Splice tail(payload, *record, 10000);
    EXPECT_EQ(tail.run(), -1);
    EXPECT_EQ(test::recorded_log(), (Log{{3, kName, "Failed to get 2057 bits as string."}}));
    EXPECT_EQ(test::assertions(), too_small);
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
    const auto bits = static_cast<int>(expected.size());
    EXPECT_EQ(test::count(text("Before Trailing bits, bitbuffer BitOffset:%d, StopBitPos:-1, LastByte:0.", bits - 8)),
              1);
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
