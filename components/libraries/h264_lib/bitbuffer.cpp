// Bit buffer: position, single bits, bit strings and display.
#include "bit_masks.h"
#include "bit_window.h"
#include "trace.h"

static constexpr char kModuleFile[] = "bitbuffer.c";

using h264::has_bits;
using h264::is_emitted;

int __DoInitBitBuffer(bitbuffer_t* bb, unsigned char* bit_buffer, int num_bits_in_buffer, const char* func,
                      const char* file, int line) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(bit_buffer != NULL);
    DO_ASSERT(num_bits_in_buffer > 0);
    DO_ASSERT_EX(((num_bits_in_buffer % NUM_BITS_IN_BYTE) == 0));
    if (bb != nullptr) *bb = {bit_buffer, 0, static_cast<unsigned int>(num_bits_in_buffer)};
    return 0;
}

int AdvanceBitOffset(bitbuffer_t* bb, unsigned int n) {
    DO_ASSERT(bb != NULL);
    if (bb == nullptr) return -1;
    const unsigned int advanced = bb->bit_offset + n;  // wraps modulo 2^32: an n close to 2^32 moves back
    if (advanced <= bb->num_bits) {
        bb->bit_offset = advanced;
        return 0;
    }
    LOG(3, "Trying to advance past the end of bit buffer. CurrentBitOffset:%d, Desired Increment:%d, TotalNumBits:%d.",
        static_cast<int>(bb->bit_offset), static_cast<int>(n), static_cast<int>(bb->num_bits));
    return -1;
}

// The bit at the position, without advancing.
static int _GetNextBit(const bitbuffer_t* bb, int* bit) {
    DO_ASSERT(bb != NULL);
    if (bb == nullptr || bb->bit_offset >= bb->num_bits) return -1;
    if (bit == nullptr) return 0;
    const unsigned int shift = 7 - bb->bit_offset % NUM_BITS_IN_BYTE;
    *bit = bb->bit_buffer[bb->bit_offset / NUM_BITS_IN_BYTE] >> shift & 1;
    return 0;
}

int GetNextBitEx(bitbuffer_t* bb, int* bit) {
    if (_GetNextBit(bb, bit) != 0) return -1;
    ++bb->bit_offset;
    return 0;
}

int __DoSetNextBit(bitbuffer_t* bb, unsigned int value, const char* func, const char* file, int line) {
    DO_ASSERT_EX(bb != NULL);
    DO_ASSERT_EX(value < 2);
    if (bb == nullptr || bb->bit_offset >= bb->num_bits) return -1;
    unsigned char& byte = bb->bit_buffer[bb->bit_offset / NUM_BITS_IN_BYTE];
    const unsigned int mask = 0x80U >> bb->bit_offset % NUM_BITS_IN_BYTE;
    byte = static_cast<unsigned char>(value != 0 ? byte | mask : byte & ~mask);
    ++bb->bit_offset;
    return 0;
}

static void _DisplayBitBuffer(const bitbuffer_t* bb, const char* label, BOOL bDisplayContents) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(label != NULL);
    if (bb == nullptr) return;
    LOG(5, "%s BB Addr=%p, NumBits=%d Current Bit Offset=%d (Byte=%d, BitOfByte=%d).", label != nullptr ? label : "",
        static_cast<void*>(bb->bit_buffer), static_cast<int>(bb->num_bits), static_cast<int>(bb->bit_offset),
        static_cast<int>(bb->bit_offset / NUM_BITS_IN_BYTE), static_cast<int>(bb->bit_offset % NUM_BITS_IN_BYTE));
    if (bDisplayContents != FALSE)
        LOG_BUFFER(6, bb->bit_buffer, static_cast<unsigned int>(h264::size_bytes(*bb)), "Bitbuffer data");
}

void DisplayBitBufferInfo(const bitbuffer_t* bb, const char* label) { _DisplayBitBuffer(bb, label, FALSE); }

void DisplayBitBuffer(const bitbuffer_t* bb, const char* label) { _DisplayBitBuffer(bb, label, TRUE); }

// The n bits at the position as a string, without advancing.
static int _GetNextNBitsAsString(const bitbuffer_t* bb, unsigned int n, unsigned char* out, unsigned int OutSizeBytes) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(OutSizeBytes >= (DIVIDE_AND_CEIL(n, NUM_BITS_IN_BYTE)));
    if (bb == nullptr || !has_bits(*bb, n)) return -1;
    if (out == nullptr) return 0;
    // Only as many bytes as the caller declared are stored.
    const auto stored =
        static_cast<unsigned int>(std::min<std::uint64_t>(n, std::uint64_t{OutSizeBytes} * NUM_BITS_IN_BYTE));
    if (!is_emitted(h264::kByteTraceLevel)) {
        h264::copy_bits_out(*bb, stored, out);
        return 0;
    }

    // The same byte by byte, with every step reported.
    const unsigned int byte_offset = bb->bit_offset / NUM_BITS_IN_BYTE;
    const unsigned int r = bb->bit_offset % NUM_BITS_IN_BYTE;
    const unsigned int s = NUM_BITS_IN_BYTE - r;
    const auto size = static_cast<unsigned int>(h264::size_bytes(*bb));
    const unsigned char* in = bb->bit_buffer + byte_offset;
    const unsigned char* const end = bb->bit_buffer + size;
    const auto hi_mask = static_cast<unsigned char>(_GetBitMask(s));
    const unsigned char lo_mask = _GetMSBitsMask(r);
    LOG(7,
        "BitOffset:%d ByteOff:%d(Value:0x%02x) BitOffInByte:%d ShiftBit:%d 8-ShiftBit:%d HiMask:0x%02x LoMask:0x%02x "
        "DesiredBits:%d.",
        static_cast<int>(bb->bit_offset), static_cast<int>(byte_offset), in < end ? *in : 0, static_cast<int>(r),
        static_cast<int>(s), static_cast<int>(r), hi_mask, lo_mask, static_cast<int>(n));

    for (unsigned int left = stored; left > 0; ++out) {
        const unsigned char current = *in;
        unsigned char value = current;
        if (r == 0) {
            ++in;
        } else {
            unsigned char next = 0;
            // The start of the read is compared, not the current byte: in every other case the read steps on, for the
            // last byte possibly to the end of the area, whose value is masked away.
            if (byte_offset == size - 1) {
                LOG(7, "ByteOffset:%d, LastByteIndexInBuffer:%d, BufferSizeBytes:%d. Cannot read past end of buffer.",
                    static_cast<int>(byte_offset), static_cast<int>(size - 1), static_cast<int>(size));
            } else if (++in < end) {
                next = *in;
            }
            const auto hi = static_cast<unsigned char>((current & hi_mask) << r);
            const auto lo = static_cast<unsigned char>((next & lo_mask) >> s);
            value = hi | lo;
            LOG(7, "HiBits=0x%02x LoBits=0x%02x OutValue=0x%02x, InAddr:%p, OutAddr:%p.", hi, lo, value,
                static_cast<const void*>(in), static_cast<void*>(out));
        }
        if (left < NUM_BITS_IN_BYTE) {
            const unsigned char mask = _GetMSBitsMask(left);
            *out = value & mask;
            LOG(7, "Fewer than 8 bits left:%d, OutValue=0x%02x, InValue:0x%02x, MSBitsMask:%#x.",
                static_cast<int>(left), *out, value, mask);
            return 0;
        }
        *out = value;
        left -= NUM_BITS_IN_BYTE;
    }
    return 0;
}

int GetNextNBitsAsStringEx(bitbuffer_t* bb, unsigned int n, unsigned char* out, unsigned int OutSizeBytes) {
    if (_GetNextNBitsAsString(bb, n, out, OutSizeBytes) != 0) return -1;
    return AdvanceBitOffset(bb, n);
}

int SetNextNBitsFromString(bitbuffer_t* bb, unsigned int n, const unsigned char* in) {
    DO_ASSERT(bb != NULL);
    DO_ASSERT(in != NULL);
    if (bb == nullptr || !has_bits(*bb, n)) return -1;
    if (!is_emitted(h264::kByteTraceLevel)) {
        if (in == nullptr) return AdvanceBitOffset(bb, n);
        h264::copy_bits_in(*bb, n, in);
        return 0;
    }

    // The same byte by byte, with every step reported. A write that starts in the last byte ends in it, so that a step
    // to the next byte never leaves the area.
    const unsigned int byte_offset = bb->bit_offset / NUM_BITS_IN_BYTE;
    const unsigned int r = bb->bit_offset % NUM_BITS_IN_BYTE;
    const unsigned int s = NUM_BITS_IN_BYTE - r;
    unsigned char* current = bb->bit_buffer + byte_offset;
    const unsigned char hi_mask_in = r == 0 ? 0xFF : _GetMSBitsMask(s);
    const auto lo_mask_in = static_cast<unsigned char>(~hi_mask_in);
    const auto hi_mask_out = static_cast<unsigned char>(_GetBitMask(s));
    const unsigned char lo_mask_out = _GetMSBitsMask(r);
    LOG(7, "ByteOff=%d, BitOffInByte=%d, ShiftBit=%d, 8-ShiftBit=%d.", static_cast<int>(byte_offset),
        static_cast<int>(r), static_cast<int>(s), static_cast<int>(r));
    LOG(7, "HiMaskIn=0x%02x, LowMaskIn=0x%02x, HiMaskOut=0x%02x, LowMaskOut=0x%02x, InValue:%#x", hi_mask_in,
        lo_mask_in, hi_mask_out, lo_mask_out, in != nullptr && n > 0 ? *in : 0U);
    if (in == nullptr) return AdvanceBitOffset(bb, n);

    unsigned int left = n;
    for (; left >= NUM_BITS_IN_BYTE; left -= NUM_BITS_IN_BYTE, ++in) {
        if (r == 0) {
            *current++ = *in;
            continue;
        }
        const auto hi = static_cast<unsigned char>(*in >> r);
        const auto lo = static_cast<unsigned char>(*in << s);
        *current = static_cast<unsigned char>((*current & ~hi_mask_out) | hi);
        ++current;
        *current = static_cast<unsigned char>((*current & ~lo_mask_out) | lo);
        LOG(7, "InValue=0x%02x HiBitsOut=0x%02x LoBitsOut=0x%02x.", *in, hi, lo);
    }
    if (left > s) {
        // The rest straddles a byte boundary.
        const unsigned char tail_mask = _GetMSBitsMask(left - s);
        *current = static_cast<unsigned char>((*current & ~hi_mask_out) | *in >> r);
        ++current;
        *current = static_cast<unsigned char>((*current & ~tail_mask) | ((*in << s) & tail_mask));
    } else if (left > 0) {
        const unsigned char in_mask = _GetMSBitsMask(left);
        const auto out_mask = static_cast<unsigned char>(in_mask >> r);
        const unsigned char cho = *current & static_cast<unsigned char>(~out_mask);
        const unsigned char chi = *in & in_mask;
        const auto bits = static_cast<unsigned char>(chi >> r);
        *current = cho | bits;
        LOG(7, "Result CHANGEBITS OutValue:%#x, chi:%#x cho:%#x, HMaskIn:%#x LMaskOut:%#x, LBitsOut:%#x.", *current,
            chi, cho, in_mask, out_mask, bits);
    }
    return AdvanceBitOffset(bb, n);
}
