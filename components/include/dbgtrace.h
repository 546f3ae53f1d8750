/**
 * @file dbgtrace.h
 * The diagnostics interface: the functions through which h264_lib reports messages, hex dumps and failed assertions,
 * and the few more by which a program steers the stand-alone implementation (libdbgtrace). Valid C11 and C++17.
 *
 * A program or appliance may put its own implementation in the place of libdbgtrace, at link time or at load time.
 * h264_lib needs the seven functions whose names stand under "Called by h264_lib"; of the record behind HDBG it reads
 * nMaxLevel only, afresh for each message and without a lock. h264_lib calls from its load-time constructor and its
 * unload-time destructor: an implementation must work before its own constructors ran and after its destructors did.
 *
 * libdbgtrace writes a line a message to standard error, "MODULE level func (file:line): text", in one write each.
 * Its functions may be called by any thread at any time, take null for any text, and keep no pointer they are given
 * except a sink and its context. Two environment variables steer it. They are read once, at the first call, which
 * usually is that of h264_lib when it is loaded:
 * - DBGTRACE_LEVEL   highest level that is emitted, as DbgTraceSetLevel takes it. A value that is no decimal number is
 *                    reported and ignored.
 * - DBGTRACE_ASSERT  "abort": a failed assertion ends the process, once it is reported. Otherwise assertions return.
 */
#ifndef H264_LIB_DBGTRACE_H
#define H264_LIB_DBGTRACE_H

#include <stddef.h>

/** @def DBGTRACE_API
 *  Marks what the shared library exports.
 *  @def DBGTRACE_PRINTF
 *  Has the compiler check a printf format against its arguments: the numbers of both, from 1. */
#if defined(__GNUC__)
#define DBGTRACE_API __attribute__((visibility("default")))
#define DBGTRACE_PRINTF(format_index, first_argument) __attribute__((format(printf, format_index, first_argument)))
#else
#define DBGTRACE_API
#define DBGTRACE_PRINTF(format_index, first_argument)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** The levels that h264_lib uses. A message appears when its level is not above the handle's nMaxLevel. */
enum {
    DBG_LEVEL_ERROR = 3,   /**< a field that cannot be read or written, a buffer too small, a null argument */
    DBG_LEVEL_WARNING = 4, /**< doubtful but usable input */
    DBG_LEVEL_INFO = 5,    /**< notes, display of SPS and VUI */
    DBG_LEVEL_DETAIL = 6,  /**< display of HRD, PPS and slice headers, more notes */
    DBG_LEVEL_DEBUG = 7,   /**< entry traces, debug detail */
    DBG_LEVEL_TRACE = 8    /**< finest traces */
};

/** A module's diagnostics record. Only the first two fields are common to all implementations. */
struct tagHDBG {
    unsigned int dwReserved; /**< for the implementation's use */
    int nMaxLevel;           /**< highest level that is emitted; may change at any time */
};
/** Handle of a module's diagnostics record; null: the module is silent. */
typedef struct tagHDBG* HDBG;

/** @name Called by h264_lib
 *  @{ */

/**
 * Opens a module's diagnostics record. libdbgtrace has DBGTRACE_MAX_MODULES of them.
 * @param module  name of the module, for example "H264LIB"; copied
 * @param handle  receives the record, which stays the implementation's property; left null on failure
 * @return 0, or -1 when no record could be opened
 */
DBGTRACE_API int _DoDbgInit(const char* module, HDBG* handle);

/**
 * Releases a module's record and sets the handle variable to null.
 * @param handle  address of the variable that _DoDbgInit filled; it may hold null
 * @param func,file,line  the caller's function, source file and line
 */
DBGTRACE_API void _DoDbgUninitEx(HDBG* handle, const char* func, const char* file, int line);

/**
 * Emits one message. The caller has already compared the level with the handle's nMaxLevel.
 * @param handle  the module's record
 * @param level   level of the message
 * @param func,file,line  function, source file and line the message comes from
 * @param format  printf format; the text it gives ends in a line feed
 */
DBGTRACE_API void _DoDbgPrintEx(HDBG handle, int level, const char* func, const char* file, int line,
                                const char* format, ...) DBGTRACE_PRINTF(6, 7);

/**
 * Emits a hex dump: the label with the number of bytes, then sixteen bytes a line with their offset and ASCII.
 * The caller has already compared the level with the handle's nMaxLevel.
 * @param handle  the module's record
 * @param level   level of the dump
 * @param start   first byte; null: the heading alone is emitted
 * @param length  number of bytes
 * @param label   heading of the dump
 * @param func,file,line  function, source file and line the dump comes from
 */
DBGTRACE_API void _DoDbgPrintBuffer(HDBG handle, int level, const void* start, unsigned int length, const char* label,
                                    const char* func, const char* file, int line);

/**
 * Reports a failed precondition, whatever the level. It may return: h264_lib does not rely on being stopped.
 * @param expression  text of the condition that does not hold
 * @param func,file,line  function, source file and line of the condition
 */
DBGTRACE_API void _DoAssert(const char* expression, const char* func, const char* file, int line);

/**
 * Reports a failed precondition of a function that was told where it was called from.
 * @param expression  text of the condition that does not hold
 * @param func,file,line  function, source file and line of the condition
 * @param caller_func,caller_file,caller_line  the same of the call that broke it
 */
DBGTRACE_API void _DoAssertEx(const char* expression, const char* func, const char* file, int line,
                              const char* caller_func, const char* caller_file, int caller_line);

/**
 * Copies a text, cut where it does not fit; the copy always ends in a zero byte.
 * @param destination  receives the text
 * @param source       text to copy
 * @param capacity     size of destination in bytes; with 0 nothing is written
 */
DBGTRACE_API void CopyString(char* destination, const char* source, size_t capacity);

/** @} */

/** @name For programs that use libdbgtrace
 *  Another implementation need not have these.
 *  @{ */

#define DBGTRACE_MAX_MODULES 64     /**< records that can be open at a time */
#define DBGTRACE_MAX_MODULE_NAME 64 /**< bytes of a module name that are kept, with the closing zero byte */

/** One line of diagnostics as a sink receives it. All texts live until the sink returns. */
typedef struct dbgtrace_record_s {
    const char* module; /**< module name given to _DoDbgInit; empty for assertions, which belong to no module */
    int level;          /**< level of the message; DBG_LEVEL_ERROR for assertions */
    const char* func;   /**< function the line comes from */
    const char* file;   /**< source file the line comes from */
    int line;           /**< source line the line comes from */
    const char* text;   /**< the text without its closing line feed; a hex dump comes as one record a line */
} dbgtrace_record_t;

/**
 * Takes a line of diagnostics. It is called by the thread that emits the line, one call at a time in the process,
 * and must not call h264_lib or dbgtrace functions itself, nor fork, nor exit.
 */
typedef void (*dbgtrace_sink_t)(void* context, const dbgtrace_record_t* record);

/**
 * Sends all diagnostics of the process to a sink instead of standard error.
 * On return no earlier sink is running any more, so that its context may be released.
 * @param sink     takes the lines; null: standard error again
 * @param context  handed to every call of sink; stays the caller's property
 */
DBGTRACE_API void DbgTraceSetSink(dbgtrace_sink_t sink, void* context);

/**
 * Sets the highest level that is emitted, for all modules loaded now and later. At start it comes from the
 * environment variable DBGTRACE_LEVEL, and is DBG_LEVEL_ERROR when that is not set.
 * @param level  0 (silent) to 8 (everything); below counts as 0, above as 8. Failed assertions are always reported.
 */
DBGTRACE_API void DbgTraceSetLevel(int level);

/** @return the highest level that is emitted */
DBGTRACE_API int DbgTraceGetLevel(void);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
