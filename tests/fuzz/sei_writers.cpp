// Every writer with records of any content, into outputs of every size around what it needs.
#include <algorithm>
#include <array>

#include "fuzz.h"
#include "guarded_buffer.h"
#include "h264.h"

namespace {

using test::Bytes;
using test::FuzzInput;
using test::GuardedBuffer;
using test::Observed;

// An output of the declared size, whose end is that of readable memory.
class Output {
public:
    explicit Output(std::size_t size) : area_(size) { std::fill_n(area_.data(), size, test::kUntouched); }
    unsigned char* data() { return area_.data(); }
    int size() const { return static_cast<int>(area_.size()); }

    void observe(int result, Observed& observed) const {
        observed.add(result);
        observed.add(area_.bytes());
    }

private:
    GuardedBuffer area_;
};

void write_pic_timing(FuzzInput& input, Observed& observed) {
    vitc_t vitc;
    SEI_pictiming_info_t info;
    input.fill(vitc);
    const bool has_vitc = input.flag();
    // Rates that mean something, mostly.
    constexpr std::array kRates{23976, 24000, 25000, 29970, 30000, 50000, 59940, 60000};
    const auto rate = input.below(kRates.size() + 1);
    const auto source = input.below(MISB605_DOUBLE_TIME_CODE + 1);
    Output out(input.below(64));
    input.fill(info);
    if (rate < kRates.size()) info.FrameRate = kRates.at(rate);
    info.enTimeSource = static_cast<enTimeSource>(source);
    const int result = format_sei_pictime_nal(out.data(), out.size(), has_vitc ? &vitc : nullptr, &info);
    FUZZ_CHECK(result <= out.size() || result == 5);
    out.observe(result, observed);
    observed.add(info);
}

// The entries, and behind them what the writer may look at: 14 bytes, of which it takes a caption's type.
GuardedBuffer make_entries(FuzzInput& input, std::size_t count, bool readable_behind) {
    Bytes bytes(count * sizeof(vanc_t) + (readable_behind ? 14 : 0));
    for (std::size_t i = 0; i < count; ++i) {
        vanc_t entry;
        std::memset(&entry, 0, sizeof entry);
        constexpr std::array kKinds{SEI_SUID_CLOSED_CAPTION, SEI_SUID_AFD, SEI_SUID_NONE};
        const auto kind = input.below(kKinds.size() + 1);
        entry.suid = kind < kKinds.size() ? static_cast<unsigned>(kKinds.at(kind)) : static_cast<unsigned>(input.any());
        for (unsigned char* byte : {&entry.vanc_data.caption.flag, &entry.vanc_data.caption.type,
                                    &entry.vanc_data.caption.data1, &entry.vanc_data.caption.data2})
            *byte = static_cast<unsigned char>(input.number(1));
        entry.vanc_data.klv_data.KLVPayload[1] = static_cast<unsigned char>(input.number(1));
        std::memcpy(bytes.data() + i * sizeof entry, &entry, sizeof entry);
    }
    if (readable_behind) {
        const Bytes behind = input.bytes(14);
        std::copy(behind.begin(), behind.end(), bytes.end() - 14);
    }
    return GuardedBuffer(bytes);
}

void write_captions(FuzzInput& input, Observed& observed) {
    const auto count = static_cast<std::size_t>(input.below(40));
    const auto cc_count = static_cast<unsigned>(input.flag() ? input.below(34) : input.below(0x10000));
    // What is read behind the entries when captions are missing must be there.
    GuardedBuffer entries = make_entries(input, count, true);
    const auto size = static_cast<unsigned>(count * sizeof(vanc_t) + input.below(3) * 100);
    Output out(input.below(400));
    int records = -1;
    const int result = format_sei_cc_nal(out.data(), out.size(), reinterpret_cast<const vanc_t*>(entries.data()),
                                         std::min(size, static_cast<unsigned>(count * sizeof(vanc_t))), cc_count,
                                         input.flag() ? &records : nullptr);
    FUZZ_CHECK(result <= out.size());
    out.observe(result, observed);
    observed.add(records);
}

void write_afd(FuzzInput& input, Observed& observed) {
    const auto count = static_cast<std::size_t>(input.below(8));
    GuardedBuffer entries = make_entries(input, count, false);
    const bool null = input.flag();
    const int size = static_cast<int>(count * sizeof(vanc_t)) - static_cast<int>(input.below(300));
    Output out(input.below(40));
    const int result = format_sei_afd_nal(out.data(), out.size(),
                                          null ? nullptr : reinterpret_cast<const vanc_t*>(entries.data()), size);
    FUZZ_CHECK(result <= out.size());
    out.observe(result, observed);
}

void write_user_data(FuzzInput& input, Observed& observed) {
    Bytes identifier = input.bytes(16);
    identifier.resize(16);
    GuardedBuffer uuid(identifier);
    GuardedBuffer payload(input.bytes(input.below(300)));
    Output out(input.below(500));
    const int result = format_sei_user_data_unregistered_nal(out.data(), out.size(), uuid.data(), payload.data(),
                                                             static_cast<unsigned>(payload.size()));
    // The result counts the stop byte also where there was no room for it.
    FUZZ_CHECK(result <= out.size() + 1);
    out.observe(result, observed);
}

void write_precision_time(FuzzInput& input, Observed& observed) {
    const auto time = static_cast<INT64>(input.any());
    const auto status = static_cast<unsigned char>(input.number(1) | (input.flag() ? 0x1F : 0));
    Output out(input.below(60));
    const int result = FormatMISPMicroSecondTimeSEI(out.data(), out.size(), &time, status);
    FUZZ_CHECK(result <= out.size() + 1);
    out.observe(result, observed);
}

void write_delimiters(FuzzInput& input, Observed& observed) {
    const auto type = static_cast<unsigned>(input.below(10));
    Output delimiter(input.below(12));
    delimiter.observe(format_au_delimiter_nalu(delimiter.data(), static_cast<unsigned>(delimiter.size()), type),
                      observed);
    Output end(input.below(8));
    end.observe(format_end_of_sequence_nalu(end.data(), static_cast<unsigned>(end.size())), observed);
}

}  // namespace

void test::fuzz(FuzzInput& input, Observed& observed) {
    constexpr std::array kWriters{write_pic_timing, write_captions,       write_afd,
                                  write_user_data,  write_precision_time, write_delimiters};
    while (input.left() > 0) kWriters.at(input.below(kWriters.size()))(input, observed);
}
