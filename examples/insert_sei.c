// Writes a stream of four pictures, each with a timecode and a pair of caption bytes in front of it: insert_sei FILE
#include <h264.h>
#include <stdio.h>

enum { FRAME_RATE = 29970, TRIPLES = 20 };  // of 29.97 Hz: frames in 1000 s, caption triples a frame

// What an encoder makes: parameter sets whose VUI has pic_struct_present_flag 1 and no HRD, and grey pictures.
static const unsigned char parameter_sets[] = {0x00, 0x00, 0x00, 0x01, 0x67, 0x42, 0xc0, 0x0a, 0xda, 0x7a,
                                               0x10, 0x00, 0x00, 0x3e, 0x90, 0x00, 0x0e, 0xa6, 0x09, 0x40,
                                               0x00, 0x00, 0x00, 0x01, 0x68, 0xce, 0x38, 0x80};
static const unsigned char pictures[2][9] = {{0x00, 0x00, 0x00, 0x01, 0x65, 0x88, 0x84, 0x93, 0xc0},
                                             {0x00, 0x00, 0x00, 0x01, 0x65, 0x88, 0x82, 0x24, 0xf0}};
// CEA-608 pairs with odd parity: resume caption loading, then text.
static const unsigned char pairs[4][2] = {{0x94, 0x20}, {0xc8, 0x45}, {0x4c, 0x4c}, {0x4f, 0x80}};

static int put(FILE* out, const unsigned char* bytes, size_t size) {
    return fwrite(bytes, 1, size, out) == size ? 0 : -1;
}

static int put_delimiter(FILE* out) {
    unsigned char unit[8];
    const int length = format_au_delimiter_nalu(unit, sizeof unit, 0);  // I slices only
    return length > 0 ? put(out, unit, (size_t)length) : -1;
}

static int put_timecode(FILE* out, unsigned char frames) {
    vitc_t vitc = {0};  // 10:00:00 and frames, without drop frame counting
    vitc.HourTens = 1;
    vitc.FrameTens = frames / 10;
    vitc.FrameUnits = frames % 10;
    SEI_pictiming_info_t info = {0};
    info.FrameRate = FRAME_RATE;
    info.scan_type = H264_SCAN_TYPE_PROGRESSIVE;
    info.enTimeSource = EMBEDDED_TIME_CODE;
    unsigned char unit[29];
    const int length = format_sei_pictime_nal(unit, sizeof unit, &vitc, &info);
    // 5 is a unit without payload, negative numbers are other failures.
    return length > 5 ? put(out, unit, (size_t)length) : -1;
}

static int put_captions(FILE* out, const unsigned char pair[2]) {
    // One entry behind the last: the type of the padding is read from it. 2: no caption data.
    vanc_t entries[2] = {0};
    entries[0].suid = SEI_SUID_CLOSED_CAPTION;
    entries[0].vanc_data.caption.flag = 1;
    entries[0].vanc_data.caption.data1 = pair[0];
    entries[0].vanc_data.caption.data2 = pair[1];
    entries[1].vanc_data.caption.type = 2;
    unsigned char unit[5 + 4 * ((14 + 3 * TRIPLES + 2) / 3)];
    const int length = format_sei_cc_nal(unit, sizeof unit, entries, sizeof entries[0], TRIPLES, NULL);
    return length > 0 ? put(out, unit, (size_t)length) : -1;
}

// One access unit: delimiter, parameter sets, SEI, slices.
static int put_picture(FILE* out, unsigned char number) {
    if (put_delimiter(out) != 0) return -1;
    if (put(out, parameter_sets, sizeof parameter_sets) != 0) return -1;
    if (put_timecode(out, number) != 0) return -1;
    if (put_captions(out, pairs[number % 4]) != 0) return -1;
    return put(out, pictures[number % 2], sizeof pictures[0]);
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "Usage: insert_sei FILE\n");
        return 2;
    }
    FILE* out = fopen(argv[1], "wb");
    if (out == NULL) {
        perror(argv[1]);
        return 1;
    }
    int result = 0;
    for (unsigned char number = 0; number < 4 && result == 0; ++number) result = put_picture(out, number);
    if (fclose(out) != 0) result = -1;
    if (result != 0) fprintf(stderr, "insert_sei: cannot write %s\n", argv[1]);
    return result == 0 ? 0 : 1;
}
