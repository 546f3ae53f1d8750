// What bit strings report at level 7, line by line.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "bit_writer.h"
#include "bitbuffer.h"
#include "diagnostics.h"
#include "guarded_buffer.h"
#include "trace_text.h"

namespace {

using test::Bytes;
using test::GuardedBuffer;
using test::parse_trace;

// One operation: where it starts, and the bytes of the area and of the string after it.
struct Access {
    unsigned offset, n, num_bits;
    unsigned char* area;
    const unsigned char* string;

    unsigned r() const { return offset % 8; }
    unsigned s() const { return 8 - r(); }
    unsigned first() const { return offset / 8; }
    unsigned size() const { return (num_bits + 7) / 8; }
    bool starts_in_last_byte() const { return first() == size() - 1; }
    unsigned byte(unsigned index) const { return index < size() ? area[index] : 0U; }
};

unsigned low_mask(unsigned n) { return (1U << n) - 1; }
unsigned high_mask(unsigned n) { return 0xFFU & ~low_mask(8 - n); }

// Goes through the texts recorded at level 7.
class Traces {
public:
    explicit Traces(const std::string& func) {
        for (const test::Message& message : test::records().messages) {
            EXPECT_EQ(message.level, 7);
            EXPECT_EQ(message.func, func);
            EXPECT_EQ(message.file, "bitbuffer.c");
            EXPECT_GT(message.line, 0);
            EXPECT_EQ(message.text.back(), '\n');
        }
        texts_ = test::texts(7);
    }
    std::string next() { return next_ < texts_.size() ? texts_[next_++] : "no more text"; }
    bool at_end() const { return next_ == texts_.size(); }
    std::string remaining() const { return at_end() ? "" : texts_[next_]; }

private:
    std::vector<std::string> texts_;
    std::size_t next_ = 0;
};

void expect_shifts(int shift, int rest, const Access& access) {
    EXPECT_EQ(std::minmax(shift, rest), std::minmax(static_cast<int>(access.r()), static_cast<int>(access.s())));
}

void expect_guard(const std::string& text, const Access& access) {
    EXPECT_EQ(text, "ByteOffset:" + std::to_string(access.first()) +
                        ", LastByteIndexInBuffer:" + std::to_string(access.size() - 1) +
                        ", BufferSizeBytes:" + std::to_string(access.size()) + ". Cannot read past end of buffer.");
}

// Returns InValue, of which the meaning is left open for unaligned reads.
unsigned expect_fewer(const std::string& text, unsigned bits, unsigned value) {
    int left = 0;
    unsigned out = 0, in = 0, mask = 0;
    EXPECT_TRUE(parse_trace(text, "Fewer than 8 bits left:%d, OutValue=0x%02x, InValue:0x%02x, MSBitsMask:%#x.", &left,
                            &out, &in, &mask))
        << text;
    EXPECT_EQ(left, static_cast<int>(bits));
    EXPECT_EQ(out, value & high_mask(bits));
    EXPECT_EQ(mask, high_mask(bits));
    return in;
}

void expect_read_start(const std::string& text, const Access& access) {
    int offset = -1, byte_offset = -1, bit_in_byte = -1, shift = -1, rest = -1, bits = -1;
    unsigned value = 0, hi = 0, lo = 0;
    EXPECT_TRUE(parse_trace(text,
                            "BitOffset:%d ByteOff:%d(Value:0x%02x) BitOffInByte:%d ShiftBit:%d 8-ShiftBit:%d "
                            "HiMask:0x%02x LoMask:0x%02x DesiredBits:%d.",
                            &offset, &byte_offset, &value, &bit_in_byte, &shift, &rest, &hi, &lo, &bits))
        << text;
    EXPECT_EQ(offset, static_cast<int>(access.offset));
    EXPECT_EQ(byte_offset, static_cast<int>(access.first()));
    EXPECT_EQ(value, access.byte(access.first()));
    EXPECT_EQ(bit_in_byte, static_cast<int>(access.r()));
    expect_shifts(shift, rest, access);
    EXPECT_EQ(std::minmax(hi, lo), std::minmax(low_mask(access.s()), high_mask(access.r())));
    EXPECT_EQ(bits, static_cast<int>(access.n));
}

void expect_unaligned_byte(Traces& traces, const Access& access, unsigned k) {
    const unsigned index = access.first() + k;
    if (access.starts_in_last_byte()) expect_guard(traces.next(), access);
    const unsigned hi = (access.byte(index) & low_mask(access.s())) << access.r();
    const unsigned lo = access.starts_in_last_byte() ? 0 : access.byte(index + 1) >> access.s();
    unsigned hi_bits = 0, lo_bits = 0, value = 0;
    void *in = nullptr, *out = nullptr;
    const std::string text = traces.next();
    EXPECT_TRUE(parse_trace(text, "HiBits=0x%02x LoBits=0x%02x OutValue=0x%02x, InAddr:%p, OutAddr:%p.", &hi_bits,
                            &lo_bits, &value, &in, &out))
        << text;
    EXPECT_EQ(hi_bits, hi);
    EXPECT_EQ(lo_bits, lo);
    EXPECT_EQ(value, hi | lo);
    EXPECT_TRUE(in == access.area + index || in == access.area + index + 1) << text;
    EXPECT_EQ(out, access.string + k);
    if (access.n - 8 * k < 8) expect_fewer(traces.next(), access.n - 8 * k, hi | lo);
}

void expect_read_traces(const Access& access) {
    Traces traces("_GetNextNBitsAsString");
    expect_read_start(traces.next(), access);
    if (access.r() != 0) {
        for (unsigned k = 0; 8 * k < access.n; ++k) expect_unaligned_byte(traces, access, k);
    } else if (access.n % 8 != 0) {
        const unsigned last = access.byte(access.first() + access.n / 8);
        EXPECT_EQ(expect_fewer(traces.next(), access.n % 8, last), last);
    }
    EXPECT_TRUE(traces.at_end()) << traces.remaining();
}

void expect_write_start(Traces& traces, const Access& access) {
    int byte_offset = -1, bit_in_byte = -1, shift = -1, rest = -1;
    std::string text = traces.next();
    EXPECT_TRUE(parse_trace(text, "ByteOff=%d, BitOffInByte=%d, ShiftBit=%d, 8-ShiftBit=%d.", &byte_offset,
                            &bit_in_byte, &shift, &rest))
        << text;
    EXPECT_EQ(byte_offset, static_cast<int>(access.first()));
    EXPECT_EQ(bit_in_byte, static_cast<int>(access.r()));
    expect_shifts(shift, rest, access);
    unsigned hi_in = 0, low_in = 0, hi_out = 0, low_out = 0, value = 0;
    text = traces.next();
    EXPECT_TRUE(parse_trace(text, "HiMaskIn=0x%02x, LowMaskIn=0x%02x, HiMaskOut=0x%02x, LowMaskOut=0x%02x, InValue:%#x",
                            &hi_in, &low_in, &hi_out, &low_out, &value))
        << text;
    // The string's byte is split at s, the area's at r; which mask is called what is left open.
    EXPECT_EQ((std::multiset<unsigned>{hi_in, low_in, hi_out, low_out}),
              (std::multiset<unsigned>{high_mask(access.s()), low_mask(access.r()), high_mask(access.r()),
                                       low_mask(access.s())}));
    if (access.n > 0) {
        EXPECT_EQ(value, access.string[0]);
    }
}

void expect_write_traces(const Access& access) {
    Traces traces("SetNextNBitsFromString");
    expect_write_start(traces, access);
    for (unsigned k = 0; access.r() != 0 && k < access.n / 8; ++k) {
        unsigned value = 0, hi = 0, lo = 0;
        const std::string text = traces.next();
        EXPECT_TRUE(parse_trace(text, "InValue=0x%02x HiBitsOut=0x%02x LoBitsOut=0x%02x.", &value, &hi, &lo)) << text;
        EXPECT_EQ(value, access.string[k]);
        // The moved bits alone.
        EXPECT_EQ(hi, value >> access.r());
        EXPECT_EQ(lo, value << access.s() & 0xFF);
    }
    const unsigned m = access.n % 8;
    if (m != 0 && m <= access.s()) {
        unsigned out = 0, chi = 0, cho = 0, hi_mask = 0, low_mask_out = 0, low = 0;
        const std::string text = traces.next();
        EXPECT_TRUE(parse_trace(text,
                                "Result CHANGEBITS OutValue:%#x, chi:%#x cho:%#x, HMaskIn:%#x LMaskOut:%#x, "
                                "LBitsOut:%#x.",
                                &out, &chi, &cho, &hi_mask, &low_mask_out, &low))
            << text;
        EXPECT_EQ(out, access.byte((access.offset + access.n - 1) / 8));
    }
    EXPECT_TRUE(traces.at_end()) << traces.remaining();
}

constexpr unsigned kNumBits[] = {1, 3, 8, 12, 16, 31, 48, 53};

Bytes some_bytes(unsigned num_bits, unsigned char first) {
    Bytes bytes((num_bits + 7) / 8);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(first + 0x4D * i);
    return bytes;
}

template <typename Check>
void at_every_place(const Check& check) {
    for (const unsigned num_bits : kNumBits)
        for (unsigned offset = 0; offset <= num_bits; ++offset)
            for (unsigned n = 0; n <= num_bits - offset; ++n) {
                test::reset(7);
                check(num_bits, offset, n);
                if (testing::Test::HasFailure())
                    FAIL() << "num_bits " << num_bits << ", offset " << offset << ", n " << n;
            }
}

TEST(BitStringTraces, ReadAtEveryPlace) {
    at_every_place([](unsigned num_bits, unsigned offset, unsigned n) {
        GuardedBuffer area(some_bytes(num_bits, 0xE7));
        Bytes out((n + 7) / 8 + 1);
        bitbuffer_t bb = {area.data(), offset, num_bits};
        ASSERT_EQ(GetNextNBitsAsStringEx(&bb, n, out.data(), static_cast<unsigned>(out.size())), 0);
        expect_read_traces({offset, n, num_bits, area.data(), out.data()});
    });
}

TEST(BitStringTraces, WriteAtEveryPlace) {
    at_every_place([](unsigned num_bits, unsigned offset, unsigned n) {
        GuardedBuffer area(some_bytes(num_bits, 0x19));
        GuardedBuffer in(some_bytes(n, 0xC6));
        bitbuffer_t bb = {area.data(), offset, num_bits};
        ASSERT_EQ(SetNextNBitsFromString(&bb, n, in.data()), 0);
        expect_write_traces({offset, n, num_bits, area.data(), in.data()});
    });
}

TEST(BitStringTraces, EndGuardOnlyForAReadThatStartsUnalignedInTheLastByte) {
    const std::string guard =
        "ByteOffset:1, LastByteIndexInBuffer:1, BufferSizeBytes:2. Cannot read past end of buffer.";
    GuardedBuffer area(Bytes{0x12, 0x34});
    for (unsigned offset = 0; offset < 16; ++offset)
        for (unsigned n = 1; n <= 16 - offset; ++n) {
            test::reset(7);
            unsigned char out[2];
            bitbuffer_t bb = {area.data(), offset, 16};
            ASSERT_EQ(GetNextNBitsAsStringEx(&bb, n, out, 2), 0);
            EXPECT_EQ(test::count(guard), offset > 8 ? 1 : 0) << offset << ", " << n;
        }
}

// In 12 bits the last byte is the second one, of which a write may use half.
TEST(BitStringTraces, NoEndGuardForWrites) {
    GuardedBuffer area(2);
    const unsigned char in[2] = {0xFF, 0xFF};
    for (unsigned offset = 0; offset < 12; ++offset)
        for (unsigned n = 1; n <= 12 - offset; ++n) {
            test::reset(7);
            bitbuffer_t bb = {area.data(), offset, 12};
            ASSERT_EQ(SetNextNBitsFromString(&bb, n, in), 0);
            for (const std::string& text : test::texts(7))
                EXPECT_EQ(text.find("Cannot read past"), std::string::npos) << offset << ", " << n;
        }
}

// There is no string to show a byte of.
TEST(BitStringTraces, StartOfAWriteWithoutIn) {
    const Bytes zero(1);
    at_every_place([&](unsigned num_bits, unsigned offset, unsigned n) {
        GuardedBuffer area(some_bytes(num_bits, 0x19));
        bitbuffer_t bb = {area.data(), offset, num_bits};
        ASSERT_EQ(SetNextNBitsFromString(&bb, n, nullptr), 0);
        Traces traces("SetNextNBitsFromString");
        expect_write_start(traces, {offset, n, num_bits, area.data(), zero.data()});
        EXPECT_TRUE(traces.at_end()) << traces.remaining();
    });
}

TEST(BitStringTraces, NoneWithoutOutAndWithoutEnoughBits) {
    test::reset(8);
    GuardedBuffer area(2);
    unsigned char bytes[3] = {};
    bitbuffer_t bb = {area.data(), 1, 16};
    EXPECT_EQ(GetNextNBitsAsStringEx(&bb, 16, bytes, 3), -1);
    EXPECT_EQ(SetNextNBitsFromString(&bb, 16, bytes), -1);
    EXPECT_EQ(GetNextNBitsAsStringEx(&bb, 3, nullptr, 1), 0);
    EXPECT_EQ(bb.bit_offset, 4U);
    EXPECT_TRUE(test::records().messages.empty());
    EXPECT_TRUE(test::records().dumps.empty());
}

}  // namespace
