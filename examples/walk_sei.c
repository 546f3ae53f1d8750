// Walks the messages of SEI units and prints the captions and the active format description that they carry.
#include <h264.h>
#include <stdio.h>

static const unsigned char captions_and_format[] = {
    0x00, 0x00, 0x00, 0x01, 0x06, 0x04, 0x11, 0xb5, 0x00, 0x31, 0x47, 0x41, 0x39, 0x34, 0x03, 0xc2, 0xff, 0xfc,
    0xc8, 0x45, 0xfc, 0x4c, 0x4c, 0xff, 0x04, 0x09, 0xb5, 0x00, 0x31, 0x44, 0x54, 0x47, 0x31, 0x41, 0xfa, 0x80};
static const unsigned char user_data[] = {0x00, 0x00, 0x00, 0x01, 0x06, 0x05, 0x14, 0x10, 0x11, 0x12,
                                          0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x1b, 0x1c,
                                          0x1d, 0x1e, 0x1f, 't',  'e',  'x',  't',  0x80};

static void show_captions(const unsigned char* unit, int length, const SEI_message_t* message) {
    SEI_cc_t captions = {0};
    captions.header = *message;
    if (!parse_sei_cc_nal(unit, length, &captions)) return;
    for (int i = 0; i < captions.cc_data.cc_count; ++i) {
        const caption_t* triple = &captions.cc_bytes[i];
        printf("  %s type %d: %02x %02x\n", triple->flag ? "valid" : "padding", triple->type, triple->data1,
               triple->data2);
    }
}

static void show_format(const unsigned char* unit, int length, const SEI_message_t* message) {
    SEI_afd_t format = {0};
    format.header = *message;
    if (!parse_sei_afd_nal(unit, length, &format)) return;
    if (format.afd_data.active_format_flag)
        printf("  active_format %d\n", format.afd_data.active_format);
    else
        printf("  no active format\n");
}

// Returns 0 when all messages were walked, -1 when one ended the walk.
static int walk(const unsigned char* unit, int length) {
    int payload_offset = 0, nal_type_offset = 0;
    BOOL more = TRUE;
    while (more) {
        SEI_message_t message;
        int kind = SEI_SUID_NONE;
        if (!DetermineSEIType(unit, length, &payload_offset, &nal_type_offset, &message, &kind, &more)) return -1;
        printf("payload_type %d, %u bytes\n", message.payload_type, message.payload_size);
        switch (kind) {
            case SEI_SUID_CLOSED_CAPTION:
                show_captions(unit, length, &message);
                break;
            case SEI_SUID_AFD:
                show_format(unit, length, &message);
                break;
            default:
                break;  // picture timing is read with parse_sei_pictiming_nal, which wants the parameter set
        }
    }
    return 0;
}

int main(void) {
    if (walk(captions_and_format, sizeof captions_and_format) != 0) return 1;
    if (walk(user_data, sizeof user_data) != 0) return 1;
    return 0;
}
