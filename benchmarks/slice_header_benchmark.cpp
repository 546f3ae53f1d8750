// The time of a slice header must not depend on the size of its slice.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "h264.h"

namespace {

// A P slice header of nal_unit_type 1 (26 bits: first_mb_in_slice 0, slice_type 5, pic_parameter_set_id 0, frame_num 3,
// pic_order_cnt_lsb 6, no override, no modification, no marking, cabac_init_idc 0, slice_qp_delta -2) and random slice
// data without start codes behind it.
std::vector<unsigned char> slice_of(std::size_t bytes) {
    std::vector<unsigned char> unit = {0x00, 0x00, 0x00, 0x01, 0x41, 0x9A, 0x63, 0x09, 0x6A};
    std::minstd_rand random(1);
    while (unit.size() < bytes) unit.push_back(static_cast<unsigned char>(1 + random() % 255));
    return unit;
}

void slice_header(benchmark::State& state) {
    const std::vector<unsigned char> unit = slice_of(static_cast<std::size_t>(state.range(0)));
    sps_t sps{};
    sps.frame_mbs_only_flag = 1;
    sps.log2_max_pic_order_cnt_lsb_minus4 = 2;
    pps_t pps{};
    pps.entropy_coding_mode_flag = 1;
    slice_header_t header{};
    for (auto _ : state) {
        if (parse_slice_header_nal(unit.data(), static_cast<int>(unit.size()), &sps, &pps, &header) != 1) {
            state.SkipWithError("the header cannot be parsed");
            break;
        }
        benchmark::DoNotOptimize(header);
    }
}
BENCHMARK(slice_header)->Arg(200)->Arg(20'000)->Arg(1'000'000);

void slice_type_only(benchmark::State& state) {
    const std::vector<unsigned char> unit = slice_of(static_cast<std::size_t>(state.range(0)));
    const sps_t sps{};
    slice_header_t header{};
    for (auto _ : state) {
        if (parse_slice_type_only_nal(unit.data(), static_cast<int>(unit.size()), &sps, &header) != 1) {
            state.SkipWithError("the slice type cannot be parsed");
            break;
        }
        benchmark::DoNotOptimize(header);
    }
}
BENCHMARK(slice_type_only)->Arg(200)->Arg(20'000)->Arg(1'000'000);

}  // namespace
