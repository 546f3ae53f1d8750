// scaling_list(), ITU-T H.264 7.3.2.1.1.1: the deltas as transmitted. The scaling values are not kept, nor whether the
// default matrix is selected.
#include "h264d/syntax_reader.h"

static int read_deltas(SyntaxReader in, scaling_list_t& sl, int size) {
    int lastScale = 8;
    int nextScale = 8;
    for (int j = 0; j < size; ++j) {
        if (nextScale != 0) {
            signed long dropped = 0;
            signed long& delta_scale = entry_or(sl.delta_scale, static_cast<unsigned long>(j), dropped);
            if (!in.se(delta_scale, indexed("delta_scale", static_cast<unsigned long>(j)))) return -1;
            // The delta is not range-checked, and the remainder keeps its sign: nextScale may become negative.
            nextScale = static_cast<int>(lastScale + delta_scale + 256) % 256;
        }
        lastScale = nextScale == 0 ? lastScale : nextScale;
    }
    return 0;
}

int _parse_scalingList(bitbuffer_t* sl_bb, scaling_list_t* sl, int nSlSize) {
    DO_ASSERT(sl_bb != NULL);
    DO_ASSERT(sl != NULL);
    DO_ASSERT(nSlSize <= SCALINGLIST_8X8_SIZE);
    LOG(7, "Called.");
    if (sl_bb == nullptr || sl == nullptr) return -1;
    const int result = read_deltas({sl_bb, __func__}, *sl, nSlSize);
    LOG(7, "Done.");
    return result;
}

void _display_scalingList(const scaling_list_t* sl, int nSlSize) {
    DO_ASSERT(sl != NULL);
    if (sl == nullptr) return;
    for (int i = 0; i < nSlSize && i < SCALINGLIST_8X8_SIZE; ++i)
        LOG(6, "delta_scale[%d]=%d.", i, h264::low32s(sl->delta_scale[i]));
}
