/**
 * @file xtypes.h
 * Fixed-width names used across the public headers. Valid C11 and C++17.
 */
#ifndef H264_LIB_XTYPES_H
#define H264_LIB_XTYPES_H

#include <stdint.h>

/** Truth value: TRUE (1) or FALSE (0). */
typedef int32_t BOOL;
/** Unsigned 8-bit value. */
typedef uint8_t BYTE;
/** Unsigned 32-bit value. */
typedef uint32_t UINT;
/** Signed 64-bit value. */
typedef int64_t INT64;

#ifndef TRUE
#define TRUE 1 /**< BOOL: yes */
#endif
#ifndef FALSE
#define FALSE 0 /**< BOOL: no */
#endif

/** Marks what the shared library exports; everything else in it is hidden. */
#if defined(__GNUC__)
#define H264_API __attribute__((visibility("default")))
#else
#define H264_API
#endif

#endif
