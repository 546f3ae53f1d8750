// Removal of emulation prevention bytes, ITU-T H.264 7.3.1 and 7.4.1.
#include <algorithm>
#include <bit>
#include <cstring>
#include <ctime>

#include "byte_block.h"
#include "h264d/h264d.h"
#include "throttle.h"

namespace {

constexpr std::time_t kLengthErrorPeriod = 10;  // seconds between two reports of an output that is too small

// When an output that is too small was last reported.
h264::Throttle _tLastLogTime;

// Whether a byte and the two before it, which must be there, are 00 00 03.
bool ends_pattern(const unsigned char* byte) { return byte[0] == 3 && byte[-1] == 0 && byte[-2] == 0; }

// A run over the bytes behind a header. The output has room for all of them.
class Deencapsulation {
public:
    Deencapsulation(const unsigned char* in, const unsigned char* in_end, unsigned char* out)
        : in_begin_(in), in_(in), in_end_(in_end), out_(out) {}

    // Returns the end of what was written.
    unsigned char* run() {
        while (in_ < in_end_) {
            if (!dense_ && left() >= h264::kLeastSearched) copy_sparse();
            if (left() < h264::kBlockBytes || !move_block()) move_bytes();
        }
        return out_;
    }

private:
    std::size_t left() const { return static_cast<std::size_t>(in_end_ - in_); }
    // Whether the byte so many before in_ is 0.
    bool zero_before(std::ptrdiff_t distance) const { return in_ - in_begin_ >= distance && in_[-distance] == 0; }

    // Copies up to the end, or to behind a 3 soon after another one or the start. Bytes of emulation prevention are
    // left out.
    void copy_sparse() {
        const unsigned char* search = std::max(in_, in_begin_ + std::min<std::ptrdiff_t>(2, in_end_ - in_begin_));
        bool near = false;
        while (!near && search < in_end_) {
            const void* found = std::memchr(search, 3, static_cast<std::size_t>(in_end_ - search));
            if (found == nullptr) break;
            const auto* three = static_cast<const unsigned char*>(found);
            near = static_cast<std::size_t>(three - search) < h264::kNear;
            search = three + 1;
            if (ends_pattern(three)) {
                copy(three);
                in_ = search;
            }
        }
        copy(near ? search : in_end_);
    }
    void copy(const unsigned char* end) {
        const auto count = static_cast<std::size_t>(end - in_);
        std::memcpy(out_, in_, count);
        in_ += count;
        out_ += count;
    }

    // Moves a block, unless it must be copied in pieces and there are too few bytes behind it.
    bool move_block() {
        const std::uint64_t threes = h264::find_bytes(in_, 3);
        std::uint64_t dropped = 0;
        if (threes != 0) {
            const std::uint64_t one_before = h264::find_bytes(in_, 0) << 1 | (zero_before(1) ? 1U : 0U);
            const std::uint64_t two_before = one_before << 1 | (zero_before(2) ? 1U : 0U);
            dropped = threes & one_before & two_before;
        }
        dense_ = dropped != 0;
        if (!dense_) {
            copy(in_ + h264::kBlockBytes);
            return true;
        }
        if (left() < h264::kBlockReach) return false;
        // Locals: for all the compiler knows a byte that is written may be one of a member.
        const unsigned char* in = in_;
        unsigned char* out = out_;
        const unsigned char* const end = in + h264::kBlockBytes;
        for (std::uint64_t rest = dropped; rest != 0; rest &= rest - 1) {
            const unsigned char* const next = in_ + std::countr_zero(rest);
            out = h264::copy_loosely(out, in, next);
            in = next + 1;
        }
        out_ = h264::copy_loosely(out, in, end);
        in_ = end;
        return true;
    }

    // Moves what is left, at most a block and a half: by words where no 3 follows a 0.
    void move_bytes() {
        while (left() >= h264::kWordBytes)
            if (!move_word()) move_singly(in_ + h264::kWordBytes);
        move_singly(in_end_);
    }
    bool move_word() {
        constexpr std::uint64_t kEveryThree = 0x0303030303030303;
        const std::uint64_t word = h264::load_word(in_);
        const std::uint64_t after_zero = h264::mark_zeros(word) << NUM_BITS_IN_BYTE | (zero_before(1) ? 0x80U : 0U);
        if ((h264::mark_zeros(word ^ kEveryThree) & after_zero) != 0) return false;
        copy(in_ + h264::kWordBytes);
        return true;
    }
    void move_singly(const unsigned char* end) {
        bool one_before = zero_before(1);
        bool two_before = one_before && zero_before(2);
        const unsigned char* in = in_;
        unsigned char* out = out_;
        for (; in < end; ++in) {
            if (!two_before || *in != 3) *out++ = *in;
            two_before = one_before && *in == 0;
            one_before = *in == 0;
        }
        in_ = in;
        out_ = out;
    }

    const unsigned char* in_begin_;
    const unsigned char* in_;
    const unsigned char* in_end_;
    unsigned char* out_;
    bool dense_ = false;  // whether there was emulation prevention in the last block
};

}  // namespace

int SODB_deencapsulation_from_NAL(const unsigned char* input_buf, unsigned int inbuf_len, unsigned char* output_buf,
                                  unsigned int outbuf_len) {
    if (inbuf_len > outbuf_len) {
        // The time counts from the last report that was let out.
        if (h264::is_emitted(3) && _tLastLogTime.is_due(kLengthErrorPeriod))
            LOG(3, "Deencapsulation cannot be done as InputBufferLength:%d is longer than OutputBufferLength:%d.",
                static_cast<int>(inbuf_len), static_cast<int>(outbuf_len));
        return -1;
    }
    if (inbuf_len <= 2) {
        LOG(5, "Input buffer length is %d, too short to be de-encapsulated.", static_cast<int>(inbuf_len));
        return -1;
    }
    DO_ASSERT(input_buf != NULL);
    DO_ASSERT(output_buf != NULL);
    if (input_buf == nullptr || output_buf == nullptr) return -1;

    // nal_unit_type 14 and 20 have a header extension of three bytes.
    const unsigned int nal_unit_type = input_buf[0] & 0x1FU;
    const unsigned int header_bytes = nal_unit_type == 14 || nal_unit_type == 20 ? 4 : 1;
    if (inbuf_len <= header_bytes) return 0;

    unsigned char* const end = Deencapsulation(input_buf + header_bytes, input_buf + inbuf_len, output_buf).run();
    return static_cast<int>(end - output_buf);
}

unsigned int _FindNumberOfBitsToHoldInteger(unsigned int v) {
    return v == 0 ? 0 : static_cast<unsigned int>(std::bit_width(v)) - 1;
}
