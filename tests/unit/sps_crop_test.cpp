#include <climits>

#include "sps_rewrite_model.h"
#include "sps_shapes.h"

namespace {

using test::append;
using test::Bytes;
using test::CropModel;
using test::Log;
using test::part;
using test::record_of;
using test::SpsSyntax;
using test::text;

constexpr std::size_t kSpare = 32;  // room for four codes of 63 bits
constexpr const char* kName = "set_sps_crop";

// The trace of the tail; start: where the record says that it begins.
test::LogLine tail_trace(int payload_bytes, long long start) {
    const auto shown = static_cast<int>(start);
    return {6, kName,
            text("SPSLen bytes:%d. Current offset in bb:%d, num_bits:%d, IsByteBoudary:%s.", payload_bytes, shown,
                 static_cast<int>(8LL * payload_bytes - start), shown % 8 == 0 ? "TRUE" : "FALSE")};
}

SpsSyntax some_sps(bool crops) {
    SpsSyntax sps = test::sps_variants()[4].sps;  // with cropping
    sps.frame_cropping_flag = crops;
    sps.vui_parameters_present_flag = true;
    sps.vui = test::full_vui();
    return sps;
}

// A payload with spare bytes behind it, and no readable byte behind these. The bit buffer's position does not matter.
struct Area {
    Area(const Bytes& payload, std::size_t spare, unsigned char fill)
        : before(join(payload, spare, fill)),
          memory(before),
          bb{memory.data(), 5, static_cast<unsigned>(8 * before.size())} {}

    static Bytes join(Bytes bytes, std::size_t spare, unsigned char fill) {
        bytes.insert(bytes.end(), spare, fill);
        return bytes;
    }

    Bytes before;
    test::GuardedBuffer memory;
    bitbuffer_t bb;
};

void set_offsets(sps_t& record, const SpsSyntax& sps) {
    record.frame_crop_left_offset = sps.frame_crop_left_offset;
    record.frame_crop_right_offset = sps.frame_crop_right_offset;
    record.frame_crop_top_offset = sps.frame_crop_top_offset;
    record.frame_crop_bottom_offset = sps.frame_crop_bottom_offset;
}

void choose_offsets(SpsSyntax& sps, test::Random& random) {
    const unsigned bits = random() % 32;
    sps.frame_crop_left_offset = test::some_value(random, bits);
    sps.frame_crop_right_offset = test::some_value(random, bits);
    sps.frame_crop_top_offset = test::some_value(random, bits);
    sps.frame_crop_bottom_offset = test::some_value(random, bits);
}

// The whole area, the result, the position and the record, against the model.
void expect_crop(const SpsSyntax& sps, const SpsSyntax& wanted, unsigned char fill) {
    const Bytes payload = sps.rbsp();
    Area area(payload, kSpare, fill);
    const auto record = record_of(sps);
    set_offsets(*record, wanted);
    const CropModel model(test::bits_of(area.before), payload.size(), *record);
    test::reset(3);
    ASSERT_EQ(set_sps_crop(&area.bb, static_cast<int>(payload.size()), record.get()), model.result);
    ASSERT_EQ(area.memory.bytes(), test::bytes_of(model.area.bits));
    ASSERT_EQ(area.bb.bit_offset, model.area.position);
    ASSERT_EQ(record->frame_cropping_flag, 1);
    ASSERT_EQ(test::recorded_log(), Log{});
    ASSERT_EQ(test::assertions(), std::vector<std::string>{});

    if (sps.frame_cropping_flag) {
        ASSERT_EQ(model.result, static_cast<int>(8 * area.before.size())) << "the size of the area";
    } else {
        ASSERT_EQ(model.result, static_cast<int>((area.bb.bit_offset + 7) / 8 * 8)) << "the new length";
    }
    // What has been written is the other parameter set, with the zeros that stood behind the first one's stop bit.
    const test::Bits written = part(test::bits_of(area.memory.bytes()), 0, area.bb.bit_offset);
    test::Bits expected = test::bits_of(wanted.script().bits().bytes());
    expected.resize(wanted.script().bits().bits());
    expected.push_back(true);
    while (expected.size() < written.size()) expected.push_back(false);
    ASSERT_EQ(written, expected);
    const auto read = test::filled_record(0);
    bitbuffer_t bb{area.memory.data(), 0, area.bb.bit_offset};
    ASSERT_EQ(parse_sps(&bb, read.get()), 0);
    ASSERT_EQ(test::difference(*read, *record_of(wanted)), "");
}

TEST(SetCrop, AnyShapeAnyOffsets) {
    test::Random random(3);
    for (unsigned round = 0; round < 2 * test::kHeadShapes * test::kTailShapes; ++round) {
        SpsSyntax sps = test::shaped_sps(round, round, round / test::kHeadShapes, random);
        sps.vui_parameters_present_flag = random() % 4 != 0;
        sps.frame_cropping_flag = round % 2 == 0;
        choose_offsets(sps, random);
        SpsSyntax wanted = sps;
        wanted.frame_cropping_flag = true;
        choose_offsets(wanted, random);
        ASSERT_NO_FATAL_FAILURE(expect_crop(sps, wanted, test::coin(random) ? 0xFF : 0x00)) << round;
    }
}

TEST(SetCrop, TheSameOffsetsAgain) {
    for (const test::SpsVariant& variant : test::sps_variants()) {
        if (!variant.sps.frame_cropping_flag) continue;
        const Bytes payload = variant.sps.rbsp();
        Area area(payload, kSpare, 0);
        const auto record = record_of(variant.sps);
        EXPECT_EQ(set_sps_crop(&area.bb, static_cast<int>(payload.size()), record.get()),
                  static_cast<int>(8 * area.before.size()));
        EXPECT_EQ(area.memory.bytes(), area.before);
        EXPECT_EQ(area.bb.bit_offset, 8 * payload.size());
    }
}

TEST(SetCrop, AnAreaThatIsNoWholeNumberOfBytesIsRoundedUp) {
    const SpsSyntax sps = some_sps(true);
    for (unsigned bits = 0; bits < 8; ++bits) {
        const Bytes payload = sps.rbsp();
        Area area(payload, kSpare, 0);
        area.bb.num_bits -= bits;
        EXPECT_EQ(set_sps_crop(&area.bb, static_cast<int>(payload.size()), record_of(sps).get()),
                  static_cast<int>(8 * area.before.size()));
    }
}

// Values that are no 32-bit ones are coded modulo 2^32, and 2^32 - 1, which has no code of 63 bits, as 0.
TEST(SetCrop, OffsetsAbove32Bits) {
    struct Case {
        unsigned long offset, coded;
    };
    for (const bool crops : {false, true})
        for (const Case& c : {Case{0xFFFFFFFE, 0xFFFFFFFE},
                              {0xFFFFFFFF, 0},
                              {0x100000000, 0},
                              {0x100000005, 5},
                              {0xFFFFFFFF00000003, 3},
                              {0xFFFFFFFFFFFFFFFE, 0xFFFFFFFE},
                              {0xFFFFFFFFFFFFFFFF, 0}}) {
            SpsSyntax wanted = some_sps(true);
            wanted.frame_crop_left_offset = wanted.frame_crop_bottom_offset = c.coded;
            Area area(some_sps(crops).rbsp(), kSpare, 0);
            const auto record = record_of(some_sps(crops));
            set_offsets(*record, wanted);
            record->frame_crop_left_offset = record->frame_crop_bottom_offset = c.offset;
            test::reset(6);
            EXPECT_GT(set_sps_crop(&area.bb, static_cast<int>(some_sps(crops).rbsp().size()), record.get()), 0);
            EXPECT_EQ(test::recorded_log().back().text,
                      text("About to set framecrop params: Flag:1, LeftOff:%d, RightOff:22, TopOff:333, BottomOff:%d, "
                           "bit_offset:%d.",
                           static_cast<int>(c.offset), static_cast<int>(c.offset), record->frame_cropping_offset + 1));
            const Bytes expected = wanted.rbsp();
            const Bytes bytes = area.memory.bytes();
            EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + static_cast<long>(expected.size())), expected);
        }
}

// The area ends anywhere behind the payload: of codes that do not fit nothing is written, or the first half when the
// second does not fit. They are reported, and the tail then fails.
TEST(SetCrop, NoRoom) {
    for (const bool crops : {false, true}) {
        const SpsSyntax sps = some_sps(crops);
        const Bytes payload = sps.rbsp();
        std::size_t failed = 0;
        for (std::size_t bits = 8 * payload.size(); bits < 8 * (payload.size() + kSpare); ++bits) {
            Area area(payload, (bits + 7) / 8 - payload.size(), 0xFF);
            area.bb.num_bits = static_cast<unsigned>(bits);
            const auto record = record_of(sps);
            record->frame_crop_left_offset = 0x7FFFFFFE;
            record->frame_crop_right_offset = 0;
            record->frame_crop_top_offset = 0x7FFF;
            record->frame_crop_bottom_offset = 0xFFFFFFFE;
            test::Bits before = test::bits_of(area.before);
            const test::Bits behind = part(before, bits);
            before.resize(bits);
            CropModel model(before, payload.size(), *record);
            append(model.area.bits, behind);
            test::reset(3);
            ASSERT_EQ(set_sps_crop(&area.bb, static_cast<int>(payload.size()), record.get()), model.result);
            ASSERT_EQ(area.memory.bytes(), test::bytes_of(model.area.bits));
            ASSERT_EQ(area.bb.bit_offset, model.area.position);
            Log expected;
            for (const std::string& failure : model.failures) expected.push_back({3, kName, failure});
            ASSERT_EQ(test::recorded_log(), expected);
            failed += model.failures.size();
        }
        EXPECT_GT(failed, 50U);
    }
}

// The four messages of offsets, each where the one before it has just fitted.
TEST(SetCrop, EveryOffsetThatDoesNotFit) {
    SpsSyntax sps;  // nothing behind the cropping flag but vui_parameters_present_flag
    const Bytes payload = sps.rbsp();
    const auto record = record_of(sps);
    const auto flag = static_cast<unsigned>(record->frame_cropping_offset);
    const std::vector<std::string> names = {"left", "right", "top", "bottom"};
    for (unsigned fitting = 0; fitting <= 4; ++fitting) {
        // Codes of one bit fit, those of 63 do not.
        const unsigned long large = 0x7FFFFFFF;
        *record = *record_of(sps);
        record->frame_crop_left_offset = fitting > 0 ? 0 : large;
        record->frame_crop_right_offset = fitting > 1 ? 0 : large;
        record->frame_crop_top_offset = fitting > 2 ? 0 : large;
        record->frame_crop_bottom_offset = fitting > 3 ? 0 : large;
        Area area(payload, 2, 0);
        ASSERT_LT(area.bb.num_bits, flag + 1 + 31);
        test::reset(3);
        const int result = set_sps_crop(&area.bb, static_cast<int>(payload.size()), record.get());
        EXPECT_EQ(result > 0, true) << "the function carries on";
        Log expected;
        for (unsigned i = fitting; i < 4; ++i)
            expected.push_back({3, kName, "Failed to set crop " + names[i] + " as golomb."});
        EXPECT_EQ(test::recorded_log(), expected);
    }
}

TEST(SetCrop, Traces) {
    for (const bool crops : {false, true}) {
        const SpsSyntax sps = some_sps(crops);
        const Bytes payload = sps.rbsp();
        Area area(payload, kSpare, 0);
        const auto record = record_of(sps);
        record->frame_crop_left_offset = 3;
        record->frame_crop_right_offset = 0xFFFFFFFE;
        record->frame_crop_top_offset = 5;
        record->frame_crop_bottom_offset = 6;
        test::reset(6);
        set_sps_crop(&area.bb, static_cast<int>(payload.size()), record.get());
        const int start = crops ? record->vui_parameters_present_offset : record->frame_cropping_offset + 1;
        EXPECT_EQ(test::recorded_log(),
                  (Log{tail_trace(static_cast<int>(payload.size()), start),
                       {6, kName,
                        text("About to set framecrop params: Flag:1, LeftOff:3, RightOff:-2, TopOff:5, BottomOff:6, "
                             "bit_offset:%d.",
                             record->frame_cropping_offset + 1)}}));
    }
}

TEST(SetCrop, ATailOnAByteBoundary) {
    for (std::uint64_t id = 0; id < 200; ++id) {
        SpsSyntax sps = some_sps(true);
        sps.frame_crop_left_offset = id;
        const auto record = record_of(sps);
        Area area(sps.rbsp(), kSpare, 0);
        test::reset(6);
        set_sps_crop(&area.bb, static_cast<int>(sps.rbsp().size()), record.get());
        const bool boundary = record->vui_parameters_present_offset % 8 == 0;
        EXPECT_EQ(test::recorded_log()[0].text.find(boundary ? "IsByteBoudary:TRUE." : "IsByteBoudary:FALSE.") !=
                      std::string::npos,
                  true);
    }
}

// Nothing of the area and the record changes, and one message names the bits: those of the tail, which cannot be read,
// or those to be cleared.
void expect_refused(const sps_t& wrong, int payload_bytes, bool has_tail = false) {
    Area area(some_sps(true).rbsp(), kSpare, 0xFF);
    auto record = std::make_unique<sps_t>(wrong);
    const long long end = 8LL * payload_bytes;
    const long long offsets = wrong.frame_cropping_offset + 1LL;
    const long long tail = wrong.frame_cropping_flag == 1 ? wrong.vui_parameters_present_offset : offsets;
    test::reset(6);
    EXPECT_EQ(set_sps_crop(&area.bb, payload_bytes, record.get()), -1);
    EXPECT_EQ(area.memory.bytes(), area.before);
    EXPECT_EQ(test::difference(*record, wrong), "");
    const std::string failure = text("Failed to %s %d bits as string.", has_tail ? "set" : "get",
                                     static_cast<int>(end - (has_tail ? offsets : tail)));
    EXPECT_EQ(test::recorded_log(), (Log{tail_trace(payload_bytes, tail), {3, kName, failure}}));
    // A string that is too long is reported, when its position and length make one.
    const bool is_read = (wrong.frame_cropping_flag == 1 || wrong.frame_cropping_offset >= 0) && end - tail <= UINT_MAX;
    std::vector<std::string> too_long;
    if (is_read && (end < tail || end - tail > 2048))
        too_long.emplace_back("OutSizeBytes >= (DIVIDE_AND_CEIL(n, NUM_BITS_IN_BYTE))");
    EXPECT_EQ(test::assertions(), too_long);
}

TEST(SetCrop, PositionsBehindTheData) {
    const auto record = record_of(some_sps(true));
    const auto size = static_cast<int>(some_sps(true).rbsp().size());
    const int bits = 8 * size;
    for (const int position : {bits + 1, INT_MAX, -1, -8, -9, INT_MIN}) {
        SCOPED_TRACE(position);
        sps_t wrong = *record;
        wrong.vui_parameters_present_offset = position;
        expect_refused(wrong, size);

        wrong = *record;
        wrong.frame_cropping_flag = 0;
        wrong.frame_cropping_offset = position;
        expect_refused(wrong, size);

        // The tail is there, but not the place of the offsets.
        wrong.frame_cropping_flag = 1;
        expect_refused(wrong, size, true);
    }
    // No bit behind the flag, or the flag the first of all bits behind the data.
    sps_t wrong = *record;
    wrong.frame_cropping_flag = 0;
    wrong.frame_cropping_offset = bits;
    expect_refused(wrong, size);
}

TEST(SetCrop, ALengthThatTheAreaDoesNotHave) {
    const auto record = record_of(some_sps(true));
    const int area = static_cast<int>(some_sps(true).rbsp().size() + kSpare);
    for (const int length : {area + 1, INT_MAX, 0, -1, INT_MIN}) expect_refused(*record, length);
}

// More than 256 bytes behind the cropping part, in an area that has them.
TEST(SetCrop, ATailThatIsTooLong) {
    auto record = record_of(some_sps(true));
    record->frame_cropping_offset = 90;
    record->vui_parameters_present_offset = 100;
    const auto crop = [&](std::size_t bits) {
        Area area(Bytes((bits + 100) / 8, 0x5A), kSpare, 0);
        test::reset(3);
        return set_sps_crop(&area.bb, static_cast<int>((bits + 100) / 8), record.get());
    };
    EXPECT_GT(crop(2044), 0);
    EXPECT_EQ(test::assertions(), std::vector<std::string>{});
    EXPECT_EQ(crop(2052), -1);
    EXPECT_EQ(test::recorded_log(), (Log{{3, kName, "Failed to get 2052 bits as string."}}));
    EXPECT_EQ(test::assertions(), std::vector<std::string>{"OutSizeBytes >= (DIVIDE_AND_CEIL(n, NUM_BITS_IN_BYTE))"});
}

// The cropping part itself may be as long as it wants.
TEST(SetCrop, ALongStretchIsCleared) {
    auto record = record_of(some_sps(true));
    record->frame_cropping_offset = 11;
    record->vui_parameters_present_offset = 8 * 1000 - 5;
    Area area(Bytes(1000, 0xFF), 3, 0xFF);
    const CropModel model(test::bits_of(area.before), 1000, *record);
    EXPECT_EQ(set_sps_crop(&area.bb, 1000, record.get()), 8 * 1003);
    EXPECT_EQ(area.memory.bytes(), test::bytes_of(model.area.bits));
}

TEST(SetCrop, NullArguments) {
    const SpsSyntax sps = some_sps(false);
    Area area(sps.rbsp(), kSpare, 0);
    const auto record = record_of(sps);
    test::reset(8);
    EXPECT_EQ(set_sps_crop(nullptr, 20, record.get()), -1);
    EXPECT_EQ(set_sps_crop(&area.bb, 20, nullptr), -1);
    EXPECT_EQ(test::assertions(), (std::vector<std::string>{"sps_bb != NULL", "sps != NULL"}));
    EXPECT_EQ(test::records().assertions[0].func, kName);
    EXPECT_EQ(test::records().assertions[0].file, "h264d.c");
    EXPECT_EQ(area.memory.bytes(), area.before);
    EXPECT_EQ(test::difference(*record, *record_of(sps)), "");
    EXPECT_EQ(test::recorded_log(), Log{});
}

}  // namespace
