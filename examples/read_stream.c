// Reads an Annex B stream and prints a line about each parameter set, delimiter and slice: read_stream FILE
#include <h264.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>

// What a reader of one stream keeps. Zeroed before its first use; nothing in it has to be released.
struct reader {
    H264D_PARSE_CONTEXT context;  // answers repeated parameter sets
    sps_t sps;                    // this reader follows streams with one set of each kind at a time
    pps_t pps;
    BOOL has_sps, has_pps;
};

static void read_unit(struct reader* reader, const unsigned char* unit, int length) {
    BYTE type = 0, ref_idc = 0;
    if (length < 4 || !H264LIB_GetNALTypeAndNALRefIdc(unit, length, &type, &ref_idc)) return;
    if (type == 9) {
        printf("access unit delimiter\n");
    } else if (type == 7) {
        // Elements that the unit does not carry keep the values they have. The standard infers 4:2:0 for the first two.
        reader->sps = (sps_t){.chroma_format_idc = 1, .ChromaArrayType = 1};
        reader->has_sps = parse_sps_nal_ex(unit, (unsigned int)length, &reader->context, &reader->sps);
        reader->context.LastPPSLength = 0;  // a picture parameter set is read anew by a new sequence parameter set
        if (reader->has_sps)
            printf("SPS: profile_idc %d, level_idc %d\n", reader->sps.profile_idc, reader->sps.level_idc);
    } else if (type == 8 && reader->has_sps) {
        reader->has_pps =
            H264LIB_parse_pps_nal_ex(unit, (unsigned int)length, &reader->sps, &reader->context, &reader->pps);
        if (reader->has_pps) printf("PPS: %s\n", reader->pps.entropy_coding_mode_flag ? "CABAC" : "CAVLC");
    } else if ((type == 1 || type == 5) && reader->has_pps) {
        slice_header_t slice = {0};
        slice.num_ref_idx_l0_active_minus1 = reader->pps.num_ref_idx_l0_default_active_minus1;
        slice.num_ref_idx_l1_active_minus1 = reader->pps.num_ref_idx_l1_default_active_minus1;
        if (!parse_slice_header_nal(unit, length, &reader->sps, &reader->pps, &slice)) return;
        printf("%s slice: slice_type %lu, frame_num %lu\n", type == 5 ? "IDR" : "non-IDR", slice.slice_type,
               slice.frame_num);
    }
}

// The next start code, its first zero byte of four included; end when there is none.
static const unsigned char* find_start_code(const unsigned char* from, const unsigned char* end) {
    for (const unsigned char* p = from; end - p >= 3; ++p)
        if (p[0] == 0 && p[1] == 0 && p[2] == 1) return p > from && p[-1] == 0 ? p - 1 : p;
    return end;
}

static void read_stream(const unsigned char* stream, size_t size) {
    static struct reader reader;
    const unsigned char* const end = stream + size;
    for (const unsigned char* unit = find_start_code(stream, end); unit != end;) {
        const unsigned char* const next = find_start_code(unit + 3, end);
        if (next - unit <= INT_MAX) read_unit(&reader, unit, (int)(next - unit));
        unit = next;
    }
}

// Returns the file's bytes, to be given to free(); NULL on failure.
static unsigned char* load(const char* path, size_t* size) {
    FILE* file = fopen(path, "rb");
    if (file == NULL) return NULL;
    unsigned char* bytes = NULL;
    long length = -1;
    if (fseek(file, 0, SEEK_END) == 0 && (length = ftell(file)) > 0 && fseek(file, 0, SEEK_SET) == 0)
        bytes = malloc((size_t)length);
    if (bytes != NULL && fread(bytes, 1, (size_t)length, file) != (size_t)length) {
        free(bytes);
        bytes = NULL;
    }
    fclose(file);
    *size = bytes != NULL ? (size_t)length : 0;
    return bytes;
}

int main(int argc, char** argv) {
    size_t size = 0;
    unsigned char* stream = argc == 2 ? load(argv[1], &size) : NULL;
    if (stream == NULL) {
        fprintf(stderr, "read_stream: cannot read %s\n", argc == 2 ? argv[1] : "without the name of a file");
        return 1;
    }
    read_stream(stream, size);
    free(stream);
    return 0;
}
