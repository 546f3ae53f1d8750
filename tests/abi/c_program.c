/* A C program that uses the library and its diagnostics through the public headers. With the argument "replaced" it
   expects that another diagnostics library is in the place of libdbgtrace. */
#include <stdio.h>
#include <string.h>

#include "h264.h"

static int failures = 0;

#define CHECK(condition)                                                         \
    do {                                                                         \
        if (!(condition)) {                                                      \
            printf("%s:%d: %s does not hold\n", __func__, __LINE__, #condition); \
            ++failures;                                                          \
        }                                                                        \
    } while (0)

/* A sequence parameter set of Baseline profile for 176x144 samples. */
static const unsigned char sps_unit[] = {0x00, 0x00, 0x00, 0x01, 0x67, 0x42, 0xC0, 0x0A, 0xDA, 0x0B, 0x13, 0x90};

static void use_bit_buffer(void) {
    unsigned char area[2] = {0xA5, 0xFF};
    bitbuffer_t bb;
    int bit = -1;
    CHECK(DoInitBitBuffer(&bb, area, 16) == 0);
    CHECK(GetNextBitEx(&bb, &bit) == 0 && bit == 1);
    CHECK(AdvanceBitOffset(&bb, 10) == 0 && bb.bit_offset == 11);
    CHECK(DoSetNextBit(&bb, 0) == 0 && area[1] == 0xEF);
    CHECK(AdvanceBitOffset(&bb, 5) == -1 && bb.bit_offset == 12);
    DisplayBitBufferInfo(&bb, "c_program");
    DisplayBitBuffer(&bb, "c_program");
}

static void use_bit_strings_and_runs(void) {
    unsigned char area[2] = {0x1F, 0xFF};
    unsigned char string[2] = {0, 0};
    unsigned int run = 0;
    bitbuffer_t bb;
    DoInitBitBuffer(&bb, area, 16);
    CHECK(CountConsecutiveBits(&bb, 0, &run) == 0 && run == 3 && bb.bit_offset == 4);
    CHECK(GetNextNBitsAsStringEx(&bb, 12, string, sizeof string) == 0 && string[0] == 0xFF && string[1] == 0xF0);
    bb.bit_offset = 2;
    string[0] = 0x00;
    CHECK(SetNextNBitsFromString(&bb, 4, string) == 0 && area[0] == 0x03);
}

static void use_fields(void) {
    unsigned char area[32] = {0};
    bitbuffer_t bb;
    unsigned char u8 = 0;
    unsigned short u16 = 0;
    unsigned long u32 = 0;
    unsigned long long u64 = 0;
    char i8 = 0;
    short i16 = 0;
    long i32 = 0;
    long long i64 = 0;
    DoInitBitBuffer(&bb, area, 256);
    CHECK(SetNextNBitsFromUint8(&bb, 3, 5) == 0);
    CHECK(SetNextNBitsFromUint16(&bb, 13, 0x1234) == 0);
    CHECK(SetNextNBitsFromUint32(&bb, 32, 0xDEADBEEF) == 0);
    CHECK(SetNextNBitsFromUint64(&bb, 64, 0x0123456789ABCDEF) == 0);
    CHECK(SetNextNBitsFromInt8(&bb, 4, -3) == 0);
    CHECK(SetNextNBitsFromInt16(&bb, 12, -1000) == 0);
    CHECK(SetNextNBitsFromInt32(&bb, 32, -100000) == 0);
    CHECK(SetNextNBitsFromInt64(&bb, 64, -10000000000) == 0);
    CHECK(bb.bit_offset == 224);
    CHECK(area[0] == 0xB2 && area[1] == 0x34 && area[2] == 0xDE && area[13] == 0xEF && area[14] == 0xDC);
    bb.bit_offset = 0;
    CHECK(GetNextNBitsAsUint8(&bb, 3, &u8) == 0 && u8 == 5);
    CHECK(GetNextNBitsAsUint16(&bb, 13, &u16) == 0 && u16 == 0x1234);
    CHECK(GetNextNBitsAsUint32(&bb, 32, &u32) == 0 && u32 == 0xDEADBEEF);
    CHECK(GetNextNBitsAsUint64(&bb, 64, &u64) == 0 && u64 == 0x0123456789ABCDEF);
    CHECK(GetNextNBitsAsInt8(&bb, 4, &i8) == 0 && i8 == -3);
    CHECK(GetNextNBitsAsInt16(&bb, 12, &i16) == 0 && i16 == -1000);
    CHECK(GetNextNBitsAsInt32(&bb, 32, &i32) == 0 && i32 == -100000);
    CHECK(GetNextNBitsAsInt64(&bb, 64, &i64) == 0 && i64 == -10000000000);
}

static void use_exp_golomb(void) {
    unsigned char area[16] = {0};
    bitbuffer_t bb;
    unsigned long u32 = 0;
    unsigned long long u64 = 0;
    long i32 = 0;
    long long i64 = 0;
    int length = 0;
    DoInitBitBuffer(&bb, area, 128);
    CHECK(SetUint32Golomb(&bb, 3) == 0); /* 00100 */
    CHECK(SetInt32Golomb(&bb, -1) == 0); /* 011 */
    CHECK(SetUint64Golomb(&bb, 7) == 0); /* 0001000 */
    CHECK(SetInt64Golomb(&bb, 2) == 0);  /* 00100 */
    CHECK(bb.bit_offset == 20 && area[0] == 0x23 && area[1] == 0x10 && area[2] == 0x40);
    bb.bit_offset = 0;
    CHECK(GetUint32Golomb(&bb, &u32) == 0 && u32 == 3);
    CHECK(GetInt32Golomb(&bb, &i32) == 0 && i32 == -1);
    CHECK(GetUint64Golomb(&bb, &u64) == 0 && u64 == 7);
    CHECK(GetInt64Golomb(&bb, &i64) == 0 && i64 == 2);
    bb.bit_offset = 8;
    CHECK(SkipGolomb(&bb, &length) == 0 && length == 7 && bb.bit_offset == 15);
}

static void use_nal_units(void) {
    unsigned char payload[sizeof sps_unit];
    BYTE type = 0;
    BYTE ref_idc = 0;
    CHECK(H264LIB_GetNALTypeAndNALRefIdc(sps_unit, sizeof sps_unit, &type, &ref_idc) == TRUE);
    CHECK(type == 7 && ref_idc == 3);
    CHECK(SODB_deencapsulation_from_NAL(sps_unit + 4, sizeof sps_unit - 4, payload, sizeof payload) == 7);
    CHECK(memcmp(payload, sps_unit + 5, 7) == 0);
}

static void check_sps(const sps_t* sps) {
    CHECK(sps->profile_idc == 66 && sps->constraint_flags == 0xC0 && sps->level_idc == 10);
    CHECK(sps->pic_order_cnt_type == 2 && sps->max_num_ref_frames == 1);
    CHECK(sps->pic_width_in_mbs_minus1 == 10 && sps->pic_height_in_map_units_minus1 == 8);
    CHECK(sps->frame_mbs_only_flag == 1 && sps->vui_parameters_present_flag == 0);
}

static void count_line(void* context, const dbgtrace_record_t* record) {
    int* lines = context;
    if (strcmp(record->module, "H264LIB") == 0 && strcmp(record->file, "h264d.c") == 0) ++*lines;
}

static void use_sps(int diagnostics_are_replaced) {
    static sps_t sps, sps_of_unit, sps_of_stream;
    static H264D_PARSE_CONTEXT context;
    unsigned char payload[] = {0x42, 0xC0, 0x0A, 0xDA, 0x0B, 0x13, 0x90};
    bitbuffer_t bb;
    int frames_per_second = 0;
    int lines = 0;
    int level = DbgTraceGetLevel();
    DoInitBitBuffer(&bb, payload, 8 * (int)sizeof payload);
    CHECK(parse_sps(&bb, &sps) == 0 && bb.bit_offset == 51);
    check_sps(&sps);
    CHECK(parse_sps_nal(sps_unit, sizeof sps_unit, &sps_of_unit) == TRUE);
    check_sps(&sps_of_unit);
    CHECK(parse_sps_nal_ex(sps_unit, sizeof sps_unit, &context, &sps_of_stream) == TRUE);
    check_sps(&sps_of_stream);
    CHECK(context.LastSPSLength == sizeof sps_unit);
    CHECK(getMAXFPSForVUI(60000, 1001, &frames_per_second) == TRUE && frames_per_second == 30);

    DbgTraceSetSink(count_line, &lines);
    DbgTraceSetLevel(DBG_LEVEL_INFO);
    H264LIB_Display_sps(&sps);
    DbgTraceSetLevel(level);
    DbgTraceSetSink(NULL, NULL);
    CHECK(diagnostics_are_replaced ? lines == 0 : lines > 10);
}

int main(int argc, char** argv) {
    CHECK(g_hH264LibDbg != NULL);
    use_bit_buffer();
    use_bit_strings_and_runs();
    use_fields();
    use_exp_golomb();
    use_nal_units();
    use_sps(argc == 2 && strcmp(argv[1], "replaced") == 0);
    return failures == 0 ? 0 : 1;
}
