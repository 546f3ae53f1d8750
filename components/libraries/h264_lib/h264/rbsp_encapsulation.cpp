// Insertion of emulation prevention bytes, ITU-T H.264 7.3.1 and 7.4.1.
#include <algorithm>
#include <cstring>

#include "h264/h264_module.h"

namespace {

constexpr std::size_t kStartCodeZeros = 2;

// The first index from start on at which 00 00 is followed by a byte up to 03; length when there is none.
std::size_t find_escape(const unsigned char* bytes, std::size_t start, std::size_t length) {
    std::size_t i = start;
    while (i + kStartCodeZeros < length) {
        if (bytes[i] != 0) {
            const void* zero = std::memchr(bytes + i, 0, length - kStartCodeZeros - i);
            if (zero == nullptr) return length;
            i = static_cast<std::size_t>(static_cast<const unsigned char*>(zero) - bytes);
        }
        if (bytes[i + 1] != 0) {
            i += 2;
        } else if (bytes[i + 2] > 3) {
            i += 3;
        } else {
            return i;
        }
    }
    return length;
}

// function: the name messages are reported under.
int encapsulate(const unsigned char* input_buf, unsigned int inbuf_len, unsigned char* output_buf,
                unsigned int outbuf_len, bool bypass_checks, const char* function) {
    if (input_buf == nullptr || output_buf == nullptr) return 0;
    if (!bypass_checks) {
        const unsigned int required = DIVIDE_AND_CEIL(inbuf_len, 3) * 4;
        if (required > outbuf_len) {
            LOG_AS(function, 3,
                   "Output buffer length:%d must be at least %d for input buffer length:%d. Failed to encapsulate!",
                   static_cast<int>(outbuf_len), static_cast<int>(required), static_cast<int>(inbuf_len));
            return 0;
        }
    }

    std::size_t written = 0;
    for (std::size_t in = 0; in < inbuf_len;) {
        // Up to an escape all bytes are copied in one go, its two zeros included.
        const std::size_t escape = find_escape(input_buf, in, inbuf_len);
        const std::size_t end = escape < inbuf_len ? escape + kStartCodeZeros : inbuf_len;
        const std::size_t room = bypass_checks ? end - in : outbuf_len - written;
        const std::size_t copied = std::min(end - in, room);
        std::memcpy(output_buf + written, input_buf + in, copied);
        in += copied;
        written += copied;
        if (in < end || (escape < inbuf_len && written + 2 >= outbuf_len)) {
            // An escape wants one byte more than it takes: one that would fill the output is refused. This is meant.
            LOG_AS(function, 3, "OuputBufferPtr:%p is near end of OutBufEndAddr=%p",
                   static_cast<void*>(output_buf + written), static_cast<void*>(output_buf + outbuf_len));
            return 0;
        }
        if (escape < inbuf_len) output_buf[written++] = 3;
    }
    if (inbuf_len > 2)
        LOG_AS(function, 8, "outbuf_start:%p, outbuf_end:%p, outbuf_curr:%p", static_cast<void*>(output_buf),
               static_cast<void*>(output_buf + outbuf_len), static_cast<void*>(output_buf + written));
    return static_cast<int>(written);
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
