/**
 * @file bitbuffer.h
 * Bit buffer, bit field accessors and Exp-Golomb codes. Valid C11 and C++17.
 *
 * A bit buffer is a cursor over bytes that the caller owns. Bits are counted from the most significant bit of the
 * first byte, as in the syntax tables of ITU-T H.264. No function here allocates memory or keeps a pointer.
 *
 * Results: 0 for success, -1 for failure. A read or write that does not fit changes neither the buffer nor the
 * position; CountConsecutiveBits and the Exp-Golomb functions say where they differ. Null bit buffers are reported
 * through the diagnostics library's assertion functions; when these return, the call fails with -1, but for
 * __DoInitBitBuffer.
 */
#ifndef H264_LIB_BITBUFFER_H
#define H264_LIB_BITBUFFER_H

#include "xtypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Cursor over caller-owned bytes. A plain value: it may be copied, and bit_offset saved, set and restored. A write may
 * store bytes around its bits anew, with the values that they have: while one thread writes, no other may use the area.
 */
typedef struct bitbuffer_s {
    unsigned char* bit_buffer; /**< first byte of the area */
    unsigned int bit_offset;   /**< next bit to read or write; bit k is bit 7 - k % 8 of byte k / 8 */
    unsigned int num_bits;     /**< size of the area in bits; no bit at or behind it is ever used */
} bitbuffer_t;

/** Number of bits in a byte. */
#define NUM_BITS_IN_BYTE 8
/** Quotient of two unsigned numbers, rounded up. */
#define DIVIDE_AND_CEIL(dividend, divisor) ((dividend) / (divisor) + ((dividend) % (divisor) != 0 ? 1 : 0))

/** @name Bit buffer
 *  @{ */

/**
 * Sets a bit buffer over an area, positioned at its first bit. Use DoInitBitBuffer.
 * @param bb                  bit buffer to set
 * @param bit_buffer          the area; stays the caller's property and must outlive the use of bb
 * @param num_bits_in_buffer  size of the area in bits, above 0; another size is reported as a failed assertion (the
 *                            caller's when it is no multiple of 8) and used, a negative one modulo 2^32
 * @param func,file,line      the caller's function, source file and line
 * @return 0
 */
H264_API int __DoInitBitBuffer(bitbuffer_t* bb, unsigned char* bit_buffer, int num_bits_in_buffer, const char* func,
                               const char* file, int line);

/** __DoInitBitBuffer with the location of the call. */
#define DoInitBitBuffer(bb, area, num_bits_in_buffer) \
    __DoInitBitBuffer((bb), (area), (num_bits_in_buffer), __func__, __FILE__, __LINE__)

/**
 * Moves the position forward. The sum of position and n is computed modulo 2^32.
 * @param n  bits to pass over; up to the end of the area
 * @return 0, or -1 with a message at level 3 and the position unchanged when n goes past the end
 */
H264_API int AdvanceBitOffset(bitbuffer_t* bb, unsigned int n);

/**
 * Reads one bit.
 * @param bit  receives 0 or 1; null: the bit is passed over
 * @return 0, or -1 at the end of the area
 */
H264_API int GetNextBitEx(bitbuffer_t* bb, int* bit);

/**
 * Writes one bit; the other bits of its byte keep their values. Use DoSetNextBit.
 * @param value           0 or 1; another value is reported as a failed assertion and written as 1
 * @param func,file,line  the caller's function, source file and line
 * @return 0, or -1 at the end of the area
 */
H264_API int __DoSetNextBit(bitbuffer_t* bb, unsigned int value, const char* func, const char* file, int line);

/** __DoSetNextBit with the location of the call. */
#define DoSetNextBit(bb, value) __DoSetNextBit((bb), (value), __func__, __FILE__, __LINE__)

/**
 * Prints the position at level 5.
 * @param label  put before the line
 */
H264_API void DisplayBitBufferInfo(const bitbuffer_t* bb, const char* label);

/**
 * Prints the position at level 5 and a hex dump of the whole area, rounded up to bytes, at level 6.
 * @param label  put before the line
 */
H264_API void DisplayBitBuffer(const bitbuffer_t* bb, const char* label);

/** @} */

/** @name Bit strings
 *  A string of n bits fills (n + 7) / 8 bytes, first bit in the most significant position.
 *  @{ */

/**
 * Reads n bits as a string.
 * @param n             bits to read; 0 succeeds and changes nothing
 * @param out           receives the string, unused bits of its last byte zero; must not overlap the area; null: the
 *                      bits are passed over
 * @param OutSizeBytes  size of out in bytes, at least (n + 7) / 8; a smaller size is reported as a failed assertion and
 *                      only as many bytes as it says are stored
 * @return 0, or -1 when fewer than n bits are left
 */
H264_API int GetNextNBitsAsStringEx(bitbuffer_t* bb, unsigned int n, unsigned char* out, unsigned int OutSizeBytes);

/**
 * Writes a string of n bits; every other bit of the area keeps its value.
 * @param n   bits to write
 * @param in  the string, (n + 7) / 8 bytes, which must not overlap the area; null is reported as a failed assertion and
 *            passes over n bits
 * @return 0, or -1 when fewer than n bits are left
 */
H264_API int SetNextNBitsFromString(bitbuffer_t* bb, unsigned int n, const unsigned char* in);

/** @} */

/** @name Fields of 1 to 64 bits
 *  Readers take n bits, most significant first, and store them zero-extended (Uint) or as a sign-extended two's
 *  complement number (Int); with a null value the bits are passed over. Writers put the low n bits of value; its higher
 *  bits are dropped without a report. n counts bits: 1 (signed members: 2) to the width in the member's name. An n
 *  above the width is reported as a failed assertion. Except for a signed reader with n one above its width, which
 *  reads a sign and a full-width magnitude, every n outside the range fails with -1.
 *  @{ */
/** Reads n bits, at most 8, zero-extended. */
H264_API int GetNextNBitsAsUint8(bitbuffer_t* bb, unsigned int n, unsigned char* value);
/** Writes the low n bits of value, at most 8. */
H264_API int SetNextNBitsFromUint8(bitbuffer_t* bb, unsigned int n, unsigned char value);
/** Reads n bits, at most 16, zero-extended. */
H264_API int GetNextNBitsAsUint16(bitbuffer_t* bb, unsigned int n, unsigned short* value);
/** Writes the low n bits of value, at most 16. */
H264_API int SetNextNBitsFromUint16(bitbuffer_t* bb, unsigned int n, unsigned short value);
/** Reads n bits, at most 32, zero-extended. */
H264_API int GetNextNBitsAsUint32(bitbuffer_t* bb, unsigned int n, unsigned long* value);
/** Writes the low n bits of value, at most 32. */
H264_API int SetNextNBitsFromUint32(bitbuffer_t* bb, unsigned int n, unsigned long value);
/** Reads n bits, at most 64, zero-extended. */
H264_API int GetNextNBitsAsUint64(bitbuffer_t* bb, unsigned int n, unsigned long long* value);
/** Writes the low n bits of value, at most 64. */
H264_API int SetNextNBitsFromUint64(bitbuffer_t* bb, unsigned int n, unsigned long long value);
/** Reads n bits, at most 8, sign-extended. */
H264_API int GetNextNBitsAsInt8(bitbuffer_t* bb, unsigned int n, char* value);
/** Writes the low n bits of value, at most 8. */
H264_API int SetNextNBitsFromInt8(bitbuffer_t* bb, unsigned int n, char value);
/** Reads n bits, at most 16, sign-extended. */
H264_API int GetNextNBitsAsInt16(bitbuffer_t* bb, unsigned int n, short* value);
/** Writes the low n bits of value, at most 16. */
H264_API int SetNextNBitsFromInt16(bitbuffer_t* bb, unsigned int n, short value);
/** Reads n bits, at most 32, sign-extended. */
H264_API int GetNextNBitsAsInt32(bitbuffer_t* bb, unsigned int n, long* value);
/** Writes the low n bits of value, at most 32. */
H264_API int SetNextNBitsFromInt32(bitbuffer_t* bb, unsigned int n, long value);
/** Reads n bits, at most 64, sign-extended. */
H264_API int GetNextNBitsAsInt64(bitbuffer_t* bb, unsigned int n, long long* value);
/** Writes the low n bits of value, at most 64. */
H264_API int SetNextNBitsFromInt64(bitbuffer_t* bb, unsigned int n, long long value);
/** @} */

/**
 * Reads a run of equal bits and the bit that ends it.
 * @param test_value  value of the bits to count, 0 or 1; another value, which no bit has, is reported as a failed
 *                    assertion
 * @param num         receives the length of the run in bits, without the bit that ended it; also when the area ended
 *                    first; may be null
 * @return 0 when another bit ended the run (it has been read too), -1 with the position at the end when the area ended
 *         first
 */
H264_API int CountConsecutiveBits(bitbuffer_t* bb, unsigned int test_value, unsigned int* num);

/** @name Exp-Golomb codes, ue(v) and se(v) of ITU-T H.264 9.1
 *  The readers do not move the position back when they fail: at most the code is consumed.
 *  @{ */

/**
 * Passes over one code. Only its leading zeros and the one behind them are looked at: when the area ends inside the
 * suffix the call succeeds with the position behind the end, and the next access fails.
 * @param num  receives the length of the code in bits; may be null
 * @return 0, or -1 when the area ends inside the leading zeros
 */
H264_API int SkipGolomb(bitbuffer_t* bb, int* num);

/**
 * Reads ue(v) with at most 31 leading zeros.
 * @param value  receives 0 to 2^32 - 2; may be null
 */
H264_API int GetUint32Golomb(bitbuffer_t* bb, unsigned long* value);

/**
 * Reads ue(v) with at most 63 leading zeros.
 * @param value  receives 0 to 2^64 - 2; may be null
 */
H264_API int GetUint64Golomb(bitbuffer_t* bb, unsigned long long* value);

/**
 * Reads se(v) with at most 31 leading zeros.
 * @param value  receives -(2^31 - 1) to 2^31 - 1; may be null
 */
H264_API int GetInt32Golomb(bitbuffer_t* bb, long* value);

/**
 * Reads se(v) with at most 63 leading zeros.
 * @param value  receives -(2^63 - 1) to 2^63 - 1; may be null
 */
H264_API int GetInt64Golomb(bitbuffer_t* bb, long long* value);

/**
 * Writes ue(v). The prefix (zeros and a one) and the suffix are two writes: when only the suffix does not fit, the
 * prefix stays written.
 * @param value  0 to 2^32 - 2; larger values are not refused but coded modulo 2^32, 2^32 - 1 as 0
 */
H264_API int SetUint32Golomb(bitbuffer_t* bb, unsigned long value);

/**
 * Writes ue(v) in the same two steps.
 * @param value  0 to 2^32 - 2. From 2^32 - 1 upward the suffix is not that of the standard's code: from value + 1 the
 *               32-bit signed number 1 << (z % 32) is taken instead of 2^z, z being the number of leading zeros.
 */
H264_API int SetUint64Golomb(bitbuffer_t* bb, unsigned long long value);

/**
 * Writes se(v) through SetUint32Golomb.
 * @param value  -(2^31 - 1) to 2^31 - 1
 */
H264_API int SetInt32Golomb(bitbuffer_t* bb, long value);

/**
 * Writes se(v) through SetUint64Golomb.
 * @param value  -(2^31 - 1) to 2^31 - 1; beyond, the suffix rule of SetUint64Golomb applies
 */
H264_API int SetInt64Golomb(bitbuffer_t* bb, long long value);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
