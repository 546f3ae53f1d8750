// The main calls; what they are compared with bears the name of its kind behind the same name.
#include <benchmark/benchmark.h>

#include <cstring>

#include "calls.h"
#include "dbgtrace.h"

#ifdef WITH_GSTREAMER
#define GST_USE_UNSTABLE_API
#include <gst/codecparsers/gsth264parser.h>
#endif

namespace {

using bench::Bytes;
using bench::Samples;
using bench::samples;

// A unit of work of this machine: 200 multiplications, each on the result of the one before.
void calibration(benchmark::State& state) {
    std::uint64_t value = 3;
    for (auto _ : state) {
        for (int i = 0; i < 200; ++i) value *= 0x9E3779B97F4A7C15;
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(calibration);

template <class Record>
void compare_and_copy(benchmark::State& state, const Bytes& unit) {
    const Bytes kept = unit;
    const Record from{};
    Record record;
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::memcmp(unit.data(), kept.data(), unit.size()));
        std::memcpy(&record, &from, sizeof record);
        benchmark::DoNotOptimize(record);
    }
}

// Two threads against one, on units of their own.
void read_units(benchmark::State& state) {
    const Bytes sps = samples().sps;
    const Bytes slice = bench::slice_of(200);
    sps_t record;
    slice_header_t header;
    for (auto _ : state) {
        parse_sps_nal(sps.data(), static_cast<int>(sps.size()), &record);
        for (int i = 0; i < 8; ++i)
            parse_slice_header_nal(slice.data(), static_cast<int>(slice.size()), &record, &samples().pps_record,
                                   &header);
        benchmark::DoNotOptimize(header);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(read_units)->Threads(1)->Threads(2)->UseRealTime();

#ifdef WITH_GSTREAMER
// A parser that knows the parameter sets, and a unit of the stream.
struct Parser {
    explicit Parser(const Bytes& bytes) {
        for (const Bytes* set : {&samples().sps, &samples().pps}) {
            GstH264NalUnit set_unit;
            identify(*set, set_unit);
            gst_h264_parser_parse_nal(parser, &set_unit);
        }
        identify(bytes, unit);
    }
    ~Parser() { gst_h264_nal_parser_free(parser); }
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    void identify(const Bytes& bytes, GstH264NalUnit& found) const {
        gst_h264_parser_identify_nalu_unchecked(parser, bytes.data(), 0, bytes.size(), &found);
    }

    GstH264NalParser* parser = gst_h264_nal_parser_new();
    GstH264NalUnit unit{};
};

void gstreamer_sps(benchmark::State& state) {
    const Bytes& bytes = samples().sps;
    Parser parser(bytes);
    GstH264SPS record;
    for (auto _ : state) {
        parser.identify(bytes, parser.unit);
        if (gst_h264_parse_sps(&parser.unit, &record) != GST_H264_PARSER_OK) state.SkipWithError("SPS");
        gst_h264_sps_clear(&record);
    }
}

void gstreamer_pps(benchmark::State& state) {
    const Bytes& bytes = samples().pps;
    Parser parser(bytes);
    GstH264PPS record;
    for (auto _ : state) {
        parser.identify(bytes, parser.unit);
        if (gst_h264_parse_pps(parser.parser, &parser.unit, &record) != GST_H264_PARSER_OK) state.SkipWithError("PPS");
        gst_h264_pps_clear(&record);
    }
}

void gstreamer_slice(benchmark::State& state, std::size_t size) {
    const Bytes bytes = bench::slice_of(size);
    Parser parser(bytes);
    GstH264SliceHdr record;
    for (auto _ : state) {
        parser.identify(bytes, parser.unit);
        if (gst_h264_parser_parse_slice_hdr(parser.parser, &parser.unit, &record, TRUE, TRUE) != GST_H264_PARSER_OK)
            state.SkipWithError("slice header");
    }
}

void gstreamer_sei(benchmark::State& state, const Bytes& bytes) {
    Parser parser(bytes);
    for (auto _ : state) {
        parser.identify(bytes, parser.unit);
        GArray* messages = nullptr;
        if (gst_h264_parser_parse_sei(parser.parser, &parser.unit, &messages) != GST_H264_PARSER_OK)
            state.SkipWithError("SEI");
        g_array_free(messages, TRUE);
    }
}
#endif

void register_all() {
    for (const bench::Call& call : bench::calls())
        benchmark::RegisterBenchmark(("call/" + call.name).c_str(), [run = call.run](benchmark::State& state) {
            for (auto _ : state) run();
        });
    benchmark::RegisterBenchmark("copy/sps_cached", compare_and_copy<sps_t>, samples().sps);
    benchmark::RegisterBenchmark("copy/pps_cached", compare_and_copy<pps_t>, samples().pps);
#ifdef WITH_GSTREAMER
    benchmark::RegisterBenchmark("gstreamer/sps", gstreamer_sps);
    benchmark::RegisterBenchmark("gstreamer/pps", gstreamer_pps);
    benchmark::RegisterBenchmark("gstreamer/slice_200B", gstreamer_slice, 200);
    benchmark::RegisterBenchmark("gstreamer/slice_20KB", gstreamer_slice, 20'000);
    benchmark::RegisterBenchmark("gstreamer/slice_1MB", gstreamer_slice, 1'000'000);
    benchmark::RegisterBenchmark("gstreamer/sei_pic_timing", gstreamer_sei, samples().pic_timing_sei);
    benchmark::RegisterBenchmark("gstreamer/sei_buffering_period", gstreamer_sei, samples().buffering_period_sei);
    benchmark::RegisterBenchmark("gstreamer/sei_four_messages", gstreamer_sei, samples().four_messages_sei);
#endif
}

}  // namespace

int main(int argc, char** argv) {
    DbgTraceSetLevel(DBG_LEVEL_ERROR);
    register_all();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
