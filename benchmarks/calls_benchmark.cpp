// The main calls; what they are compared with bears the name of its kind behind the same name.
#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <utility>

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

// What a call is compared with, by its name.
std::map<std::string, std::pair<const char*, std::function<void(benchmark::State&)>>> references() {
    std::map<std::string, std::pair<const char*, std::function<void(benchmark::State&)>>> list;
    list["sps_cached"] = {"copy", [](auto& state) { compare_and_copy<sps_t>(state, samples().sps); }};
    list["pps_cached"] = {"copy", [](auto& state) { compare_and_copy<pps_t>(state, samples().pps); }};
#ifdef WITH_GSTREAMER
    list["sps"] = {"gstreamer", gstreamer_sps};
    list["pps"] = {"gstreamer", gstreamer_pps};
    for (const auto& [name, bytes] : {std::pair("slice_200B", 200), {"slice_20KB", 20'000}, {"slice_1MB", 1'000'000}})
        list[name] = {"gstreamer", [size = bytes](auto& state) { gstreamer_slice(state, std::size_t(size)); }};
    for (const auto& [name, unit] : {std::pair("sei_pic_timing", &samples().pic_timing_sei),
                                     {"sei_buffering_period", &samples().buffering_period_sei},
                                     {"sei_four_messages", &samples().four_messages_sei}})
        list[name] = {"gstreamer", [bytes = unit](auto& state) { gstreamer_sei(state, *bytes); }};
#endif
    return list;
}

// Next to each other, so that what slows the machine down for a while slows both.
void register_all() {
    const auto compared = references();
    for (const bench::Call& call : bench::calls()) {
        benchmark::RegisterBenchmark(("call/" + call.name).c_str(), [run = call.run](benchmark::State& state) {
            for (auto _ : state) run();
        });
        if (const auto found = compared.find(call.name); found != compared.end())
            benchmark::RegisterBenchmark((found->second.first + ("/" + call.name)).c_str(), found->second.second);
    }
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
