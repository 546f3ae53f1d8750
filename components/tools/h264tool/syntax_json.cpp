#include "syntax_json.h"

namespace h264tool {
namespace {

using Json = nlohmann::ordered_json;

// scaling_list(), ITU-T H.264 7.3.2.1.1.1: deltas are transmitted until one makes nextScale 0.
Json deltas_to_json(const scaling_list_t& list, std::size_t size) {
    Json deltas = Json::array();
    long last_scale = 8;
    for (std::size_t i = 0; i < size; ++i) {
        deltas.push_back(list.delta_scale[i]);
        const long next_scale = (last_scale + list.delta_scale[i] + 256) % 256;
        if (next_scale == 0) break;
        last_scale = next_scale;
    }
    return deltas;
}

}  // namespace

Json scaling_lists_to_json(const scaling_list_t (&lists)[MAX_SCALING_LISTS], const sps_t& sps,
                           const std::string& flag_name) {
    Json json = Json::array();
    const std::size_t count = sps.chroma_format_idc == 3 ? MAX_SCALING_LISTS : 8;
    for (std::size_t i = 0; i < count; ++i) {
        Json list;
        list[flag_name] = lists[i].seq_scaling_list_present_flag;
        if (sps.scaling_list[i].seq_scaling_list_present_flag != 0)
            list["delta_scale"] = deltas_to_json(lists[i], i < 6 ? SCALINGLIST_4X4_SIZE : SCALINGLIST_8X8_SIZE);
        json.push_back(std::move(list));
    }
    return json;
}

}  // namespace h264tool
