#include "calls.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace bench {
namespace {

constexpr std::size_t kMegabyte = 1'000'000;

void require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "benchmark: failed: %s\n", what);
    std::abort();
}

std::vector<Bytes> read_units(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string stream{std::istreambuf_iterator<char>(in), {}};
    constexpr std::string_view kPrefix("\0\0\1", 3);
    std::vector<Bytes> units;
    for (std::size_t start = stream.find(kPrefix); start != std::string::npos;) {
        const std::size_t next = stream.find(kPrefix, start + 3);
        std::string unit = stream.substr(start, next - start);
        unit.erase(unit.find_last_not_of('\0') + 1);
        units.emplace_back(unit.begin(), unit.end());
        start = next;
    }
    return units;
}

// The message of a unit: without start code, header and trailing bits.
Bytes message_of(const Bytes& unit) {
    const auto start = static_cast<std::ptrdiff_t>(unit[2] == 1 ? 4 : 5);
    return {unit.begin() + start, unit.end() - 1};
}

void append(Bytes& bytes, const Bytes& more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

std::array<vanc_t, 20> caption_entries() {
    std::array<vanc_t, 20> entries{};
    for (vanc_t& entry : entries) {
        entry.suid = SEI_SUID_CLOSED_CAPTION;
        entry.vanc_data.caption = {1, 0, 0x94, 0x20};
    }
    return entries;
}

constexpr std::array<unsigned char, 16> kUuid{0x4B, 0x1F, 0x73, 0x5D, 0x9E, 0x08, 0x42, 0xAC,
                                              0x8C, 0x55, 0x61, 0x37, 0xD2, 0x0B, 0x90, 0xE4};
constexpr std::string_view kUserData = "camera 3, lens 85 mm, take 14 of scene 7";
static_assert(kUserData.size() == 40);
const auto* const kUserBytes = reinterpret_cast<const unsigned char*>(kUserData.data());

// Both walk a unit and read what they find.
void read_messages(const Bytes& unit, const sps_t& sps, int expected) {
    int payload_offset = 0;
    int nal_type_offset = 0;
    int found = 0;
    const auto length = static_cast<int>(unit.size());
    for (BOOL more = TRUE; more != FALSE; ++found) {
        SEI_message_t header;
        int kind = 0;
        if (DetermineSEIType(unit.data(), length, &payload_offset, &nal_type_offset, &header, &kind, &more) == FALSE)
            break;
        BOOL read = TRUE;
        if (kind == SEI_SUID_PIC_TIMING) {
            sei_pic_timing_t record{};
            record.header = header;
            read = parse_sei_pictiming_nal(unit.data(), length, &sps, &record);
        } else if (kind == SEI_SUID_CLOSED_CAPTION) {
            SEI_cc_t record{};
            record.header = header;
            read = parse_sei_cc_nal(unit.data(), length, &record);
        } else if (kind == SEI_SUID_AFD) {
            SEI_afd_t record{};
            record.header = header;
            read = parse_sei_afd_nal(unit.data(), length, &record);
        } else if (header.payload_type == 0) {
            sei_buffering_period_t record;
            record.header = header;
            read = parse_sei_buffering_period_nal(unit.data(), length, &sps.vui, &record);
        }
        require(read != FALSE, "SEI message");
    }
    require(found == expected, "SEI unit");
}

Samples load() {
    Samples samples;
    const std::string directory = H264_SAMPLES;
    for (const Bytes& unit : read_units(directory + "/interlaced_hrd.h264")) {
        if (unit.size() < 4) continue;
        const int type = unit[3] & 0x1F;
        const auto keep = [&](Bytes& place) {
            if (place.empty()) place = unit;
        };
        if (type == 7) keep(samples.sps);
        if (type == 8) keep(samples.pps);
        if (type == 6 && unit[4] == 0) keep(samples.buffering_period_sei);
        if (type == 6 && unit[4] == 1) keep(samples.pic_timing_sei);
        if (type == 1) keep(samples.slice);
        if (type == 1 || type == 5) samples.slice_data.insert(samples.slice_data.end(), unit.begin() + 3, unit.end());
    }
    if (samples.sps.empty() || samples.pps.empty() || samples.buffering_period_sei.empty() ||
        samples.pic_timing_sei.empty() || samples.slice.empty())
        throw std::runtime_error("no sample of each kind of unit in " + directory);
    while (samples.slice_data.size() < kMegabyte)
        append(samples.slice_data, Bytes(samples.slice_data.begin(), samples.slice_data.end()));
    samples.slice_data.resize(kMegabyte);
    require(parse_sps_nal(samples.sps.data(), static_cast<int>(samples.sps.size()), &samples.sps_record) != FALSE,
            "sample SPS");
    require(H264LIB_parse_pps_nal(samples.pps.data(), static_cast<int>(samples.pps.size()), &samples.sps_record,
                                  &samples.pps_record) != FALSE,
            "sample PPS");

    // One unit of four messages, as encoders that carry ancillary data write it.
    std::array<unsigned char, 300> area{};
    const int size = static_cast<int>(area.size());
    Bytes& unit = samples.four_messages_sei;
    unit = {0, 0, 1, 6};
    append(unit, message_of(samples.buffering_period_sei));
    append(unit, message_of(samples.pic_timing_sei));
    const auto add = [&](int length) { append(unit, message_of(Bytes(area.begin(), area.begin() + length))); };
    const auto entries = caption_entries();
    // The caption reader takes units of up to 128 bytes.
    add(format_sei_cc_nal(area.data(), size, entries.data(), sizeof entries, 10, nullptr));
    add(format_sei_user_data_unregistered_nal(area.data(), size, kUuid.data(), kUserBytes, 16));
    unit.push_back(0x80);
    return samples;
}

}  // namespace

const Samples& samples() {
    static const Samples loaded = load();
    return loaded;
}

Bytes slice_of(std::size_t bytes) {
    const Samples& from = samples();
    Bytes unit = from.slice;
    append(unit, from.slice_data);
    // A start code may stand where two slices meet.
    for (std::size_t i = from.slice.size(); i + 2 < unit.size(); ++i)
        if (unit[i] == 0 && unit[i + 1] == 0 && unit[i + 2] < 3) unit[i + 2] = 0xFF;
    unit.resize(bytes);
    return unit;
}

std::vector<Call> calls() {
    std::vector<Call> list;
    const auto add = [&](const char* name, auto run) { list.push_back({name, run}); };
    const Samples& from = samples();
    const auto length = [](const Bytes& unit) { return static_cast<int>(unit.size()); };

    add("sps", [&from, length, record = std::make_shared<sps_t>()] {
        require(parse_sps_nal(from.sps.data(), length(from.sps), record.get()) != FALSE, "sps");
    });
    add("pps", [&from, length, record = std::make_shared<pps_t>()] {
        require(H264LIB_parse_pps_nal(from.pps.data(), length(from.pps), &from.sps_record, record.get()) != FALSE,
                "pps");
    });
    const auto context = std::make_shared<H264D_PARSE_CONTEXT>();
    add("sps_cached", [&from, context, record = std::make_shared<sps_t>()] {
        require(parse_sps_nal_ex(from.sps.data(), static_cast<unsigned>(from.sps.size()), context.get(),
                                 record.get()) != FALSE,
                "sps_cached");
    });
    add("pps_cached", [&from, context, record = std::make_shared<pps_t>()] {
        require(H264LIB_parse_pps_nal_ex(from.pps.data(), static_cast<unsigned>(from.pps.size()), &from.sps_record,
                                         context.get(), record.get()) != FALSE,
                "pps_cached");
    });
    for (const auto& [name, bytes] : {std::pair("slice_200B", std::size_t{200}),
                                      std::pair("slice_20KB", kMegabyte / 50), std::pair("slice_1MB", kMegabyte)})
        add(name, [&from, length, unit = slice_of(bytes), record = std::make_shared<slice_header_t>()] {
            require(parse_slice_header_nal(unit.data(), length(unit), &from.sps_record, &from.pps_record,
                                           record.get()) == 1,
                    "slice header");
        });
    add("slice_type", [&from, length, record = std::make_shared<slice_header_t>()] {
        require(parse_slice_type_only_nal(from.slice.data(), length(from.slice), &from.sps_record, record.get()) == 1,
                "slice type");
    });
    add("sei_pic_timing", [&from] { read_messages(from.pic_timing_sei, from.sps_record, 1); });
    add("sei_buffering_period", [&from] { read_messages(from.buffering_period_sei, from.sps_record, 1); });
    add("sei_four_messages", [&from] { read_messages(from.four_messages_sei, from.sps_record, 4); });

    const auto area = std::make_shared<std::array<unsigned char, 300>>();
    const int size = static_cast<int>(area->size());
    add("write_pic_timing", [area, size] {
        SEI_pictiming_info_t info{};
        info.FrameRate = 25000;
        info.enTimeSource = EMBEDDED_TIME_CODE;
        vitc_t vitc{};
        vitc.SecondUnits = 3;
        require(format_sei_pictime_nal(area->data(), size, &vitc, &info) > 5, "write_pic_timing");
    });
    add("write_captions", [area, size, entries = caption_entries()] {
        require(format_sei_cc_nal(area->data(), size, entries.data(), sizeof entries, 20, nullptr) > 0,
                "write_captions");
    });
    add("write_afd", [area, size] {
        vanc_t entry{};
        entry.suid = SEI_SUID_AFD;
        entry.vanc_data.afd_data = {1, 10};
        require(format_sei_afd_nal(area->data(), size, &entry, sizeof entry) > 0, "write_afd");
    });
    add("write_user_data", [area, size] {
        require(format_sei_user_data_unregistered_nal(area->data(), size, kUuid.data(), kUserBytes, 40) > 0,
                "write_user_data");
    });
    add("write_precision_time", [area, size] {
        const INT64 time = 1'700'000'000'000'000;
        require(FormatMISPMicroSecondTimeSEI(area->data(), size, &time, 0x1F) > 0, "write_precision_time");
    });
    add("rewrite_sps", [&from] {
        unsigned char* unit = nullptr;
        unsigned bytes = 0;
        require(H264Lib_Set_sps_vui_parameters_NAL(from.sps.data(), static_cast<unsigned>(from.sps.size()),
                                                   &from.sps_record, &unit, &bytes) != FALSE,
                "rewrite_sps");
        H26XLib_Release_sps_buffer(unit);
    });
    sei_pic_timing_t timing{};
    timing.header = {1, 0, 2};
    require(parse_sei_pictiming_nal(from.pic_timing_sei.data(), length(from.pic_timing_sei), &from.sps_record,
                                    &timing) != FALSE,
            "sample picture timing");
    add("rewrite_pic_timing", [&from, timing] {
        unsigned char* unit = nullptr;
        unsigned bytes = 0;
        require(
            H264Lib_Set_SEIPictiming_NAL(from.pic_timing_sei.data(), static_cast<unsigned>(from.pic_timing_sei.size()),
                                         &from.sps_record, &timing, &unit, &bytes) != FALSE,
            "rewrite_pic_timing");
        H26XLib_Release_sps_buffer(unit);
    });
    return list;
}

}  // namespace bench
