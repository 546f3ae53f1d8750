// Takes the messages of libdbgtrace: why a parameter set was refused, and what the display says about a good one.
#include <dbgtrace.h>
#include <h264.h>
#include <stdio.h>
#include <string.h>

// Keeps the first error, which says most; called by the thread that emits a line, one call at a time in the process.
struct first_error {
    char text[256];
};

static void keep_error(void* context, const dbgtrace_record_t* record) {
    struct first_error* error = context;
    if (record->level <= DBG_LEVEL_ERROR && error->text[0] == '\0')
        snprintf(error->text, sizeof error->text, "%s", record->text);
}

static void print_elements(void* context, const dbgtrace_record_t* record) {
    (void)context;
    if (strstr(record->text, "mbs") != NULL) printf("%s\n", record->text);
}

int main(void) {
    static const unsigned char unit[] = {0x00, 0x00, 0x00, 0x01, 0x67, 0x42, 0xc0, 0x0a, 0xda, 0x7a,
                                         0x10, 0x00, 0x00, 0x3e, 0x90, 0x00, 0x0e, 0xa6, 0x09, 0x40};
    struct first_error error = {""};
    sps_t sps = {0};
    DbgTraceSetSink(keep_error, &error);
    if (!parse_sps_nal(unit, 8, &sps)) printf("refused: %s\n", error.text);

    if (!parse_sps_nal(unit, sizeof unit, &sps)) return 1;
    DbgTraceSetSink(print_elements, NULL);
    DbgTraceSetLevel(DBG_LEVEL_INFO);
    H264LIB_Display_sps(&sps);
    DbgTraceSetLevel(DBG_LEVEL_ERROR);
    DbgTraceSetSink(NULL, NULL);
    return 0;
}
