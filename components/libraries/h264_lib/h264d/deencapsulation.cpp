// Removal of emulation prevention bytes, ITU-T H.264 7.3.1 and 7.4.1.
#include <bit>
#include <cstring>
#include <ctime>

#include "h264d/h264d.h"
#include "throttle.h"

namespace {

constexpr std::time_t kLengthErrorPeriod = 10;  // seconds between two reports of an output that is too small

// When an output that is too small was last reported.
h264::Throttle _tLastLogTime;

// The first 00 00 03 of the bytes from position to end; end when there is none.
const unsigned char* find_emulation_prevention(const unsigned char* position, const unsigned char* end) {
    // Only a 03 with two bytes before it can end the pattern.
    while (end - position >= 3) {
        const void* found = std::memchr(position + 2, 3, static_cast<std::size_t>(end - position) - 2);
        if (found == nullptr) return end;
        const auto* three = static_cast<const unsigned char*>(found);
        if (three[-1] == 0 && three[-2] == 0) return three - 2;
        position = three - 1;
    }
    return end;
}

}  // namespace

int SODB_deencapsulation_from_NAL(const unsigned char* input_buf, unsigned int inbuf_len, unsigned char* output_buf,
                                  unsigned int outbuf_len) {
    DO_ASSERT(input_buf != NULL);
    DO_ASSERT(output_buf != NULL);
    if (input_buf == nullptr || output_buf == nullptr) return -1;
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

    // nal_unit_type 14 and 20 have a header extension of three bytes.
    const unsigned int nal_unit_type = input_buf[0] & 0x1FU;
    const unsigned int header_bytes = nal_unit_type == 14 || nal_unit_type == 20 ? 4 : 1;
    if (inbuf_len <= header_bytes) return 0;

    const unsigned char* in = input_buf + header_bytes;
    const unsigned char* const end = input_buf + inbuf_len;
    unsigned char* out = output_buf;
    while (in < end) {
        const unsigned char* const pattern = find_emulation_prevention(in, end);
        // The two zeros of the pattern are copied with what stands before them.
        const auto copied = static_cast<std::size_t>(pattern - in) + (pattern < end ? 2 : 0);
        std::memcpy(out, in, copied);
        out += copied;
        in += copied + (pattern < end ? 1 : 0);
    }
    return static_cast<int>(out - output_buf);
}

unsigned int _FindNumberOfBitsToHoldInteger(unsigned int v) {
    return v == 0 ? 0 : static_cast<unsigned int>(std::bit_width(v)) - 1;
}
