#include <sys/mman.h>

#include <array>
#include <random>

#include "encapsulation_model.h"
#include "writer_check.h"

namespace {

using test::Bytes;
using test::Lines;
using test::text;

enum class Form { kPlain, kChecked, kBypass };
constexpr std::array kForms = {Form::kPlain, Form::kChecked, Form::kBypass};

const char* name(Form form) {
    return form == Form::kPlain ? "RBSP_encapsulation_within_NAL" : "RBSP_encapsulation_within_NAL_Ex";
}

int call(Form form, const unsigned char* input, std::size_t size, unsigned char* output, std::size_t room) {
    const auto inbuf_len = static_cast<unsigned>(size);
    const auto outbuf_len = static_cast<unsigned>(room);
    if (form == Form::kPlain) return RBSP_encapsulation_within_NAL(input, inbuf_len, output, outbuf_len);
    return RBSP_encapsulation_within_NAL_Ex(input, inbuf_len, output, outbuf_len, form == Form::kBypass ? TRUE : FALSE);
}

Lines expected_lines(Form form, const test::Encapsulated& model, std::size_t size, const unsigned char* output,
                     std::size_t room) {
    const auto* end = static_cast<const void*>(output + room);
    const auto* current = static_cast<const void*>(output + model.bytes.size());
    if (model.too_small)
        return {
            text("3 %s: Output buffer length:%zu must be at least %u for input buffer length:%zu. Failed to "
                 "encapsulate!",
                 name(form), room, model.required, size)};
    if (model.ran_out)
        return {text("3 %s: OuputBufferPtr:%p is near end of OutBufEndAddr=%p", name(form), current, end)};
    if (size <= 2) return {};
    return {text("8 %s: outbuf_start:%p, outbuf_end:%p, outbuf_curr:%p", name(form), static_cast<const void*>(output),
                 end, current)};
}

// Input and output that end at unreadable memory, used again for many calls.
class Areas {
public:
    Areas(std::size_t input_size, std::size_t output_size) : input_(input_size), output_(output_size) {}

    // Compares one call with the model: result, every byte of the output and the bytes behind what was written.
    void check(Form form, const Bytes& bytes, std::size_t room) {
        const test::Encapsulated model = test::encapsulation_model(bytes, room, form == Form::kBypass);
        // With bypass the caller answers for the room of ordinary bytes, and gives no more than they take.
        const std::size_t size = form == Form::kBypass ? std::max(room, model.bytes.size()) : room;
        ASSERT_LE(size, output_.size());
        ASSERT_LE(bytes.size(), input_.size());
        unsigned char* input = input_.data() + input_.size() - bytes.size();
        unsigned char* output = output_.data() + output_.size() - size;
        std::copy(bytes.begin(), bytes.end(), input);
        std::fill_n(output, size, kFill);
        test::clear();
        ASSERT_EQ(call(form, input, bytes.size(), output, room), model.result) << describe(form, bytes, room);
        ASSERT_TRUE(std::equal(model.bytes.begin(), model.bytes.end(), output)) << describe(form, bytes, room);
        const auto is_untouched = [](unsigned char byte) { return byte == kFill; };
        ASSERT_TRUE(std::all_of(output + model.bytes.size(), output + size, is_untouched))
            << describe(form, bytes, room);
        ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), input)) << "the input has been changed";
        if (g_hH264LibDbg->nMaxLevel == 8) {
            ASSERT_EQ(test::lines(), expected_lines(form, model, bytes.size(), output, room));
        }
    }

    // All forms with every room from first to last.
    void check_all(const Bytes& bytes, std::size_t first, std::size_t last) {
        for (const Form form : kForms)
            for (std::size_t room = first; room <= last; ++room) ASSERT_NO_FATAL_FAILURE(check(form, bytes, room));
    }

private:
    static constexpr unsigned char kFill = 0xA5;
    static std::string describe(Form form, const Bytes& bytes, std::size_t room) {
        return text("%s%s, %zu bytes of input, room for %zu: ", name(form), form == Form::kBypass ? " (bypass)" : "",
                    bytes.size(), room) +
               testing::PrintToString(bytes);
    }

    test::GuardedBuffer input_;
    test::GuardedBuffer output_;
};

class Encapsulation : public test::WriterTest {};

struct Example {
    Bytes input;
    Bytes output;
};

TEST_F(Encapsulation, Examples) {
    const std::vector<Example> examples = {
        {{0, 0, 0}, {0, 0, 3, 0}},
        {{0, 0, 1}, {0, 0, 3, 1}},
        {{0, 0, 2}, {0, 0, 3, 2}},
        {{0, 0, 3}, {0, 0, 3, 3}},
        {{0, 0, 4}, {0, 0, 4}},
        {{0, 0, 0, 0}, {0, 0, 3, 0, 0}},
        {{0, 0, 0, 0, 0}, {0, 0, 3, 0, 0, 3, 0}},
        {{0, 0, 0, 0, 1}, {0, 0, 3, 0, 0, 3, 1}},
        {{0, 0, 3, 0, 0, 3}, {0, 0, 3, 3, 0, 0, 3, 3}},
        {{0, 0, 1, 0, 0}, {0, 0, 3, 1, 0, 0}},
        {{0, 0, 4, 0, 0, 3}, {0, 0, 4, 0, 0, 3, 3}},
        {{5, 0, 0}, {5, 0, 0}},
        {{5, 0, 0, 0}, {5, 0, 0, 3, 0}},
        {{0, 1, 0, 0, 1}, {0, 1, 0, 0, 3, 1}},
        {{0}, {0}},
        {{0, 0}, {0, 0}},
        {{1, 2}, {1, 2}},
        {{0x80, 0x11, 0x22, 0x33}, {0x80, 0x11, 0x22, 0x33}},
    };
    for (const Example& example : examples) {
        for (const Form form : kForms) {
            unsigned char output[16];
            const int result = call(form, example.input.data(), example.input.size(), output, sizeof output);
            ASSERT_EQ(result, static_cast<int>(example.output.size())) << testing::PrintToString(example.input);
            EXPECT_EQ(Bytes(output, output + result), example.output);
        }
        Areas areas(example.input.size(), 32);
        ASSERT_NO_FATAL_FAILURE(areas.check_all(example.input, 0, 16));
    }
}

TEST_F(Encapsulation, AnEscapeThatWouldFillTheOutputIsRefused) {
    const Bytes input = {0, 0, 1};
    Areas areas(3, 16);
    for (const Form form : kForms) {
        unsigned char output[5] = {9, 9, 9, 9, 9};
        EXPECT_EQ(call(form, input.data(), 3, output, 4), 0);
        EXPECT_EQ(Bytes(output, output + 5), (Bytes{0, 0, 9, 9, 9}));
        EXPECT_EQ(call(form, input.data(), 3, output, 5), 4);
        EXPECT_EQ(Bytes(output, output + 5), (Bytes{0, 0, 3, 1, 9}));
    }
    ASSERT_NO_FATAL_FAILURE(areas.check_all(input, 0, 8));
}

TEST_F(Encapsulation, OutputOfFourBytesForThree) {
    EXPECT_EQ(test::encapsulation_model(Bytes(7, 1), 12).required, 12U);
    unsigned char output[12] = {};
    const Bytes seven(7, 1);
    EXPECT_EQ(RBSP_encapsulation_within_NAL(seven.data(), 7, output, 11), 0);
    EXPECT_EQ(Bytes(output, output + 12), Bytes(12, 0));
    EXPECT_EQ(test::lines(), Lines{"3 RBSP_encapsulation_within_NAL: Output buffer length:11 must be at least 12 for "
                                   "input buffer length:7. Failed to encapsulate!"});
    EXPECT_EQ(RBSP_encapsulation_within_NAL(seven.data(), 7, output, 12), 7);
    Areas areas(60, 100);
    for (std::size_t size = 0; size <= 60; ++size)
        ASSERT_NO_FATAL_FAILURE(areas.check_all(Bytes(size, 0x42), 0, (size + 2) / 3 * 4 + 2));
}

// 13 zeros and two more bytes pass the rule with 20 bytes of output, but take 21.
TEST_F(Encapsulation, AnOrdinaryByteThatDoesNotFitEndsTheCallAsARefusedEscapeDoes) {
    const Bytes input = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x41, 0x42};
    test::Output output(20);
    EXPECT_EQ(RBSP_encapsulation_within_NAL(input.data(), 15, output.data(), 20), 0);
    const auto* end = static_cast<const void*>(output.data() + 20);
    EXPECT_EQ(test::lines(), Lines{text("3 RBSP_encapsulation_within_NAL: OuputBufferPtr:%p is near end of "
                                        "OutBufEndAddr=%p",
                                        end, end)});
    EXPECT_EQ(output.written(20).back(), 0x41);
    Areas areas(15, 40);
    ASSERT_NO_FATAL_FAILURE(areas.check_all(input, 0, 24));
    EXPECT_EQ(test::encapsulation_model(input, 21).result, 21);
}

// The zeros take half as much room again, of which the rule knows nothing.
TEST_F(Encapsulation, ALongRunOfOrdinaryBytesThatDoesNotFitBehindZeros) {
    Bytes input(1000, 0);
    input.resize(1300, 0x42);
    Areas areas(1300, 1820);
    EXPECT_TRUE(test::encapsulation_model(input, 1736).ran_out);
    ASSERT_NO_FATAL_FAILURE(areas.check_all(input, 1730, 1810));
}

TEST_F(Encapsulation, NoBytesGiveNoBytes) {
    unsigned char byte = 7;
    for (const Form form : kForms) {
        EXPECT_EQ(call(form, &byte, 0, &byte, 0), 0);
        EXPECT_EQ(call(form, &byte, 0, &byte, 1), 0);
    }
    EXPECT_EQ(byte, 7);
    EXPECT_EQ(test::lines(), Lines{});
}

TEST_F(Encapsulation, NullPointersWriteNothing) {
    unsigned char bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (const Form form : kForms) {
        EXPECT_EQ(call(form, nullptr, 3, bytes, 8), 0);
        EXPECT_EQ(call(form, bytes, 3, nullptr, 8), 0);
        EXPECT_EQ(call(form, nullptr, 0, nullptr, 0), 0);
    }
    EXPECT_EQ(Bytes(bytes, bytes + 8), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
}

// The rule is computed in 32 bits: 3 GiB of input need 0 bytes by it. The room checks hold nonetheless.
TEST_F(Encapsulation, TheRuleIsComputedModulo32Bits) {
    unsigned char output[4] = {9, 9, 9, 9};
    for (const Form form : {Form::kPlain, Form::kChecked}) {
        test::clear();
        unsigned char byte = 1;
        EXPECT_EQ(call(form, &byte, 0xFFFFFFFF, output, 4), 0);
        EXPECT_EQ(test::lines(), Lines{text("3 %s: Output buffer length:4 must be at least 1431655764 for input buffer "
                                            "length:-1. Failed to encapsulate!",
                                            name(form))});
    }
    constexpr std::size_t kSize = 0xC0000000;
    void* zeros = mmap(nullptr, kSize, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(zeros, MAP_FAILED);
    for (const std::size_t room : {3U, 2U, 1U, 0U}) {
        std::fill_n(output, 4, static_cast<unsigned char>(9));
        test::clear();
        EXPECT_EQ(call(Form::kPlain, static_cast<unsigned char*>(zeros), kSize, output, room), 0);
        const std::size_t kept = std::min<std::size_t>(room, 2);
        for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(output[i], i < kept ? 0 : 9) << room;
        EXPECT_EQ(test::lines(),
                  Lines{text("3 RBSP_encapsulation_within_NAL: OuputBufferPtr:%p is near end of "
                             "OutBufEndAddr=%p",
                             static_cast<const void*>(output + kept), static_cast<const void*>(output + room))});
    }
    munmap(zeros, kSize);
}

TEST_F(Encapsulation, EveryByteBehindTwoZeros) {
    Areas areas(8, 32);
    for (int byte = 0; byte < 256; ++byte) {
        const auto b = static_cast<unsigned char>(byte);
        const Bytes out = test::emulation_prevented({7, 0, 0, b, 0, 7});
        EXPECT_EQ(out.size(), byte <= 3 ? 7U : 6U);
        ASSERT_NO_FATAL_FAILURE(areas.check_all({7, 0, 0, b, 0, 7}, 0, 12));
        ASSERT_NO_FATAL_FAILURE(areas.check_all({0, 0, b}, 0, 8));
        ASSERT_NO_FATAL_FAILURE(areas.check_all({0, b, 0, 0, b, 0, b}, 8, 14));
    }
}

TEST_F(Encapsulation, FollowsTheModelForAllShortInputs) {
    test::set_level(0);
    constexpr std::array<unsigned char, 3> values = {0, 3, 4};
    Areas areas(8, 32);
    for (std::size_t size = 0; size <= 8; ++size) {
        unsigned combinations = 1;
        for (std::size_t i = 0; i < size; ++i) combinations *= 3;
        for (unsigned n = 0; n < combinations; ++n) {
            Bytes input(size);
            unsigned digits = n;
            for (unsigned char& byte : input) {
                byte = values[digits % 3];
                digits /= 3;
            }
            ASSERT_NO_FATAL_FAILURE(areas.check_all(input, 0, size + size / 2 + 4));
        }
    }
}

TEST_F(Encapsulation, FollowsTheModelForAnEscapeAtEveryPlaceOfEverySize) {
    test::set_level(0);
    Areas areas(140, 260);
    for (std::size_t size = 3; size <= 140; ++size) {
        for (std::size_t place = 0; place + 3 <= size; ++place) {
            Bytes input(size, 0xAB);
            input[place] = input[place + 1] = 0;
            input[place + 2] = static_cast<unsigned char>(place % 5);
            for (const Form form : kForms) {
                ASSERT_NO_FATAL_FAILURE(areas.check(form, input, (size + 2) / 3 * 4));
                ASSERT_NO_FATAL_FAILURE(areas.check(form, input, size + 60));
                ASSERT_NO_FATAL_FAILURE(areas.check(form, input, place + 4));
            }
        }
    }
}

TEST_F(Encapsulation, AnyAlignmentOfInputAndOutput) {
    Bytes input(100, 0x55);
    for (std::size_t i = 3; i + 3 < input.size(); i += 11) input[i] = input[i + 1] = input[i + 2] = 0;
    const Bytes expected = test::emulation_prevented(input);
    for (std::size_t shift_in = 0; shift_in < 16; ++shift_in) {
        for (std::size_t shift_out = 0; shift_out < 16; ++shift_out) {
            const Bytes shifted = test::join(Bytes(shift_in, 0), input);
            Bytes out(shift_out + 160, 0xEE);
            const int written =
                RBSP_encapsulation_within_NAL(shifted.data() + shift_in, 100, out.data() + shift_out, 150);
            ASSERT_EQ(written, static_cast<int>(expected.size())) << "bytes before the input have been looked at";
            const auto begin = out.begin() + static_cast<long>(shift_out);
            ASSERT_EQ(Bytes(begin, begin + written), expected);
            ASSERT_EQ(*(begin + written), 0xEE);
        }
    }
}

// Inputs that make emulation prevention work hard, and random ones.
std::vector<Bytes> inputs_of_size(std::size_t size, std::mt19937& random) {
    const auto repeat = [size](const Bytes& pattern) {
        Bytes bytes(size);
        for (std::size_t i = 0; i < size; ++i) bytes[i] = pattern[i % pattern.size()];
        return bytes;
    };
    std::vector<Bytes> inputs = {repeat({0}),       repeat({0, 0, 3}), repeat({0, 0, 0, 3}), repeat({0, 0, 1, 0xFF}),
                                 repeat({0, 0, 4}), repeat({0, 1}),    repeat({3, 0, 0}),    repeat({0xFF})};
    Bytes half = repeat({0});
    std::fill(half.begin(), half.begin() + static_cast<long>(size / 2), static_cast<unsigned char>(0x5A));
    inputs.push_back(half);
    std::reverse(half.begin(), half.end());
    inputs.push_back(half);
    for (const std::vector<unsigned>& values :
         {std::vector<unsigned>{0, 0, 0, 3}, {0, 1, 2, 3, 4}, {0, 0, 0, 0, 0, 0, 0, 0xFF}, {}}) {
        Bytes bytes(size);
        for (unsigned char& byte : bytes)
            byte = static_cast<unsigned char>(values.empty() ? random() : values[random() % values.size()]);
        inputs.push_back(bytes);
    }
    return inputs;
}

constexpr std::array<std::size_t, 26> kSizes = {0,  1,  2,  3,  4,   5,   6,   7,   8,    9,    15,   16,   17,
                                                31, 33, 63, 64, 129, 255, 256, 511, 1000, 1023, 2048, 4095, 4096};

TEST_F(Encapsulation, FollowsTheModelAroundEveryLimit) {
    test::set_level(0);
    std::mt19937 random(4711);
    Areas areas(4096, 7000);
    for (const std::size_t size : kSizes) {
        for (const Bytes& input : inputs_of_size(size, random)) {
            const std::size_t required = (size + 2) / 3 * 4;
            const std::size_t needed = test::emulation_prevented(input).size();
            for (const std::size_t limit : {std::size_t{2}, required, needed, (required + needed) / 2, size})
                ASSERT_NO_FATAL_FAILURE(areas.check_all(input, limit < 4 ? 0 : limit - 4, limit + 4));
        }
    }
}

TEST_F(Encapsulation, FollowsTheModelForEveryRoomOfZeros) {
    test::set_level(0);
    for (const std::size_t size : {50U, 333U, 4096U}) {
        Areas areas(size, 7000);
        const std::size_t step = size == 4096 ? 7 : 1;
        for (std::size_t room = 0; room <= size * 3 / 2 + 5; room += step)
            for (const Form form : kForms) ASSERT_NO_FATAL_FAILURE(areas.check(form, Bytes(size, 0), room));
    }
}

TEST_F(Encapsulation, DeencapsulationGivesTheInputBack) {
    std::mt19937 random(1234);
    test::set_level(3);
    for (std::size_t size = 2; size <= 4096; size += size < 70 ? 1 : 97) {
        for (const Bytes& input : inputs_of_size(size, random)) {
            Bytes unit(1 + 2 * size + 8);
            unit[0] = 0x06;
            const int encapsulated = RBSP_encapsulation_within_NAL(
                input.data(), static_cast<unsigned>(size), unit.data() + 1, static_cast<unsigned>(unit.size() - 1));
            ASSERT_GE(encapsulated, static_cast<int>(size));
            for (int i = 3; i <= encapsulated; ++i) {
                const auto at = static_cast<std::size_t>(i);
                ASSERT_FALSE(unit[at - 2] == 0 && unit[at - 1] == 0 && unit[at] <= 2) << "start code at " << i - 2;
            }
            Bytes back(unit.size());
            ASSERT_EQ(SODB_deencapsulation_from_NAL(unit.data(), static_cast<unsigned>(encapsulated + 1), back.data(),
                                                    static_cast<unsigned>(back.size())),
                      static_cast<int>(size));
            back.resize(size);
            ASSERT_EQ(back, input);
        }
    }
    EXPECT_EQ(test::lines(), Lines{});
}

}  // namespace
