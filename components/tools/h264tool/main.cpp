// h264tool: shows and changes what the NAL units of H.264 byte streams contain.
#include "program.h"

int main(int argc, char** argv) { return h264tool::run_program(argc, argv); }
