// Insertion of emulation prevention bytes, ITU-T H.264 7.3.1 and 7.4.1.
#include <algorithm>
#include <bit>
#include <cstring>

#include "byte_block.h"
#include "h264/h264_module.h"

namespace {

using h264::kBlockBytes;
using h264::kBlockReach;
using h264::kWordBytes;

constexpr unsigned char kEmulationPrevention = 3;
constexpr unsigned char kAboveThree = 0xFC;  // bits that are 0 in bytes from 0 to 3

// Of candidates in a row, every second one: an emulation prevention byte ends the run of zeros before it, so that the
// byte next to the one it protects needs none.
std::uint64_t every_second(std::uint64_t candidates) {
    constexpr std::uint64_t kEven = 0x5555555555555555;
    const std::uint64_t first = candidates & ~(candidates << 1);
    const std::uint64_t from_even = candidates & ~(candidates + (first & kEven));
    return (from_even & kEven) | (candidates & ~from_even & ~kEven);
}

// A run of the algorithm over one input.
class Encapsulation {
public:
    Encapsulation(const unsigned char* in, std::size_t in_length, unsigned char* out, std::size_t out_length,
                  bool bypass_checks)
        : in_(in), in_end_(in + in_length), out_(out), out_end_(out + out_length), bypass_checks_(bypass_checks) {}

    // False when there is no room for the next byte, or for the emulation prevention byte before it.
    bool run() {
        while (in_ < in_end_) {
            if (!dense_ && zeros_ == 0 && left() >= h264::kLeastSearched && !copy_sparse()) return false;
            const bool has_block = std::min(left(), room()) >= kBlockBytes;
            if ((!has_block || !move_block()) && !move_bytes()) return false;
        }
        return true;
    }

    unsigned char* out() const { return out_; }

private:
    std::size_t left() const { return static_cast<std::size_t>(in_end_ - in_); }

    std::size_t room() const { return out_ < out_end_ ? static_cast<std::size_t>(out_end_ - out_) : 0; }

    // Copies up to two zeros in a row, or a zero soon after another one or the start.
    bool copy_sparse() {
        const unsigned char* stop = in_;
        while (in_end_ - stop >= 3) {
            const void* found = std::memchr(stop, 0, static_cast<std::size_t>(in_end_ - stop) - 2);
            if (found == nullptr) {
                stop = in_end_;
                break;
            }
            const auto* zero = static_cast<const unsigned char*>(found);
            const bool near = static_cast<std::size_t>(zero - stop) < h264::kNear;
            stop = zero;
            if (near || zero[1] == 0) break;
            stop += 2;
        }
        if (in_end_ - stop < 3) stop = in_end_;
        const auto wanted = static_cast<std::size_t>(stop - in_);
        const std::size_t copied = bypass_checks_ ? wanted : std::min(wanted, room());
        std::memcpy(out_, in_, copied);
        in_ += copied;
        out_ += copied;
        return copied == wanted;
    }

    // Moves a block, unless it must be copied in pieces and there are too few bytes behind it or too little room: a
    // block becomes at most 96 bytes, and the last copy writes up to 16 behind them.
    bool move_block() {
        const std::uint64_t zero = h264::find_bytes(in_, 0);
        const std::uint64_t one_before = zero << 1 | (zeros_ >= 1 ? 1U : 0U);
        const std::uint64_t two_before = one_before & (one_before << 1 | (zeros_ >= 2 ? 1U : 0U));
        std::uint64_t escaped = 0;
        if (two_before != 0) escaped = every_second(two_before & h264::find_bytes(in_, 0, kAboveThree));
        dense_ = two_before != 0;
        const unsigned char* in = in_;
        unsigned char* out = out_;
        const unsigned char* const end = in + kBlockBytes;
        if (escaped == 0) {
            std::memcpy(out, in, kBlockBytes);
            out += kBlockBytes;
        } else if (left() < kBlockReach || room() < 2 * kBlockReach) {
            return false;
        } else {
            // Locals: for all the compiler knows a byte that is written may be one of a member.
            for (std::uint64_t rest = escaped; rest != 0; rest &= rest - 1) {
                const unsigned char* const next = in_ + std::countr_zero(rest);
                out = h264::copy_loosely(out, in, next);
                *out++ = kEmulationPrevention;
                in = next;
            }
            out = h264::copy_loosely(out, in, end);
        }
        in_ = end;
        out_ = out;
        const bool last_zero = zero >> 63 != 0;
        const bool two_zeros = zero >> 62 == 3 && escaped >> 63 == 0;
        zeros_ = !last_zero ? 0 : two_zeros ? 2 : 1;
        return true;
    }

    // Moves up to a block: by words until zeros meet.
    bool move_bytes() {
        const unsigned char* const stop = in_ + std::min(left(), kBlockBytes);
        const auto still = [&] { return static_cast<std::size_t>(stop - in_); };
        while (!dense_ && still() >= kWordBytes && move_word()) {
        }
        return room() > 2 * still() + 2 ? move_singly<false>(stop) : move_singly<true>(stop);
    }

    // Moves a word in which, and before which, no zeros meet, when there is room.
    bool move_word() {
        const std::uint64_t zero = h264::mark_zeros(h264::load_word(in_));
        const std::uint64_t zero_before = zero << NUM_BITS_IN_BYTE | (zeros_ != 0 ? 0x80U : 0U);
        if ((zero & zero_before) != 0 || zeros_ > 1 || room() < kWordBytes) return false;
        std::memcpy(out_, in_, kWordBytes);
        in_ += kWordBytes;
        out_ += kWordBytes;
        zeros_ = zero >> 63 != 0 ? 1 : 0;
        return true;
    }

    template <bool kChecked>
    bool move_singly(const unsigned char* stop) {
        const unsigned char* in = in_;
        unsigned char* out = out_;
        int zeros = zeros_;
        for (; in < stop; ++in) {
            const bool escape = zeros == 2 && *in <= 3;
            if constexpr (kChecked) {
                out_ = out;
                // An escape wants one byte more than it takes: one that would fill the output is refused. This is
                // meant. Without checks the caller alone knows how much room there is for ordinary bytes.
                if (escape ? room() <= 2 : !bypass_checks_ && room() == 0) return false;
            }
            if (escape) *out++ = kEmulationPrevention;
            *out++ = *in;
            zeros = *in != 0 ? 0 : std::min(2, (escape ? 0 : zeros) + 1);
        }
        in_ = in;
        out_ = out;
        zeros_ = zeros;
        return true;
    }

    const unsigned char* in_;
    const unsigned char* in_end_;
    unsigned char* out_;
    unsigned char* out_end_;
    bool bypass_checks_;
    int zeros_ = 0;       // zero bytes at the end of the output, 2 for more
    bool dense_ = false;  // whether something stood behind two zeros in the last block
};

// function: the name messages are reported under. Not inlined, so that there is one place to inline the run into.
[[gnu::noinline]] int encapsulate(const unsigned char* input_buf, unsigned int inbuf_len, unsigned char* output_buf,
                                  unsigned int outbuf_len, bool bypass_checks, const char* function) {
    if (!bypass_checks) {
        const unsigned int required = DIVIDE_AND_CEIL(inbuf_len, 3) * 4;
        if (required > outbuf_len) {
            LOG_AS(function, 3,
                   "Output buffer length:%d must be at least %d for input buffer length:%d. Failed to encapsulate!",
                   static_cast<int>(outbuf_len), static_cast<int>(required), static_cast<int>(inbuf_len));
            return 0;
        }
    }
    if (input_buf == nullptr || output_buf == nullptr) return 0;
    Encapsulation encapsulation(input_buf, inbuf_len, output_buf, outbuf_len, bypass_checks);
    if (!encapsulation.run()) {
        LOG_AS(function, 3, "OuputBufferPtr:%p is near end of OutBufEndAddr=%p",
               static_cast<void*>(encapsulation.out()), static_cast<void*>(output_buf + outbuf_len));
        return 0;
    }
    if (inbuf_len > 2)
        LOG_AS(function, 8, "outbuf_start:%p, outbuf_end:%p, outbuf_curr:%p", static_cast<void*>(output_buf),
               static_cast<void*>(output_buf + outbuf_len), static_cast<void*>(encapsulation.out()));
    return static_cast<int>(encapsulation.out() - output_buf);
}

}  // namespace

int RBSP_encapsulation_within_NAL(const unsigned char* input_buf, unsigned int inbuf_len, unsigned char* output_buf,
                                  unsigned int outbuf_len) {
    return encapsulate(input_buf, inbuf_len, output_buf, outbuf_len, false, __func__);
}

int RBSP_encapsulation_within_NAL_Ex(const unsigned char* input_buf, unsigned int inbuf_len, unsigned char* output_buf,
                                     unsigned int outbuf_len, BOOL bBypassChecks) {
    return encapsulate(input_buf, inbuf_len, output_buf, outbuf_len, bBypassChecks != FALSE, __func__);
}
