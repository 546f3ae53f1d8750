// What the library is told to report never changes what its writers do.
#include <functional>
#include <map>
#include <optional>
#include <set>

#include "caption_message.h"
#include "pic_timing_message.h"

namespace {

using test::Bytes;
using test::Lines;

constexpr int kNoHandle = -1;

struct Call {
    std::string name;
    std::function<int(unsigned char* buffer, int len)> write;
};

const Bytes& plain_payload() {
    static const Bytes payload(30, 0x41);
    return payload;
}

std::vector<Call> calls() {
    static const std::vector<vanc_t> entries = {test::caption_of(1, 2, 1, 2), test::entry_of(4),  test::afd_of(1, 9),
                                                test::caption_of(0, 1, 0, 0), test::afd_of(0, 3), test::entry_of(0)};
    static const Bytes zeros(40, 0);
    std::vector<Call> all;
    for (const bool bypass : {false, true})
        for (const unsigned size : {0U, 2U, 3U, 14U, 40U})
            all.push_back({test::text("encapsulation of %u zeros, %d", size, bypass), [=](unsigned char* out, int len) {
                               // With bypass a byte for each input byte is the caller's business.
                               const unsigned room = static_cast<unsigned>(std::max(len, 0));
                               if (bypass && room < size + size / 2) return 0;
                               return RBSP_encapsulation_within_NAL_Ex(zeros.data(), size, out, room, bypass);
                           }});
    for (const unsigned size : {0U, 6U, 30U, 300U})
        all.push_back({test::text("user data of %u bytes", size), [=](unsigned char* out, int len) {
                           const Bytes payload = size <= 6 ? Bytes(size + 1, 0) : Bytes(size, 7);
                           return format_sei_user_data_unregistered_nal(out, len, zeros.data(), payload.data(), size);
                       }});
    for (const unsigned type : {0U, 7U, 8U})
        all.push_back({test::text("delimiter of type %u", type), [=](unsigned char* out, int len) {
                           return format_au_delimiter_nalu(out, static_cast<unsigned>(std::max(len, 0)), type);
                       }});
    all.push_back({"end of sequence", [](unsigned char* out, int len) {
                       return format_end_of_sequence_nalu(out, static_cast<unsigned>(std::max(len, 0)));
                   }});
    for (const int scan_type : {0, 1, 2})
        for (const int rate : {25000, 29970, 59940})
            for (const int flags : {0, 1, 2, 3})
                for (const int minutes : {0, 1, 60})
                    all.push_back({test::text("timing %d, %d, %d, %d", scan_type, rate, flags, minutes),
                                   [=](unsigned char* out, int len) {
                                       vitc_t vitc = test::vitc_of(1, minutes, 0, 2);
                                       vitc.Flag1 = vitc.Flag2 = static_cast<unsigned char>(flags & 1);
                                       SEI_pictiming_info_t timing =
                                           test::timing_of(rate, static_cast<unsigned char>(scan_type));
                                       timing.BottomFieldFlag = static_cast<unsigned char>(flags >> 1);
                                       return format_sei_pictime_nal(out, len, &vitc, &timing);
                                   }});
    all.push_back({"timing without a timecode", [](unsigned char* out, int len) {
                       SEI_pictiming_info_t timing = test::timing_of(59940, 1, NTP_SERVER);
                       timing.NALTime.WallTime = test::time_of(0, 0, 0, 0);
                       return format_sei_pictime_nal(out, len, nullptr, &timing);
                   }});
    for (const unsigned cc_count : {0U, 1U, 2U, 5U, 40U, 515U, 1024U, 600U})
        for (const int count : {0, 1, 2, 5}) {
            all.push_back({test::text("captions %u of %d entries", cc_count, count), [=](unsigned char* out, int len) {
                               int records = 0;
                               const auto size = static_cast<unsigned>(count * 273);
                               const int result = format_sei_cc_nal(out, len, entries.data(), size, cc_count, &records);
                               return result * 1000 + records;
                           }});
            all.push_back({test::text("active format of %d entries", count), [=](unsigned char* out, int len) {
                               return format_sei_afd_nal(out, len, count == 0 ? nullptr : entries.data(), count * 273);
                           }});
        }
    for (const INT64 time : {INT64{0}, INT64{-1}, INT64{0x0102030405060708}})
        for (const int status : {0x1F, 0xFF, 0x1E})
            all.push_back({test::text("precision time %lld, %d", static_cast<long long>(time), status),
                           [=](unsigned char* out, int len) {
                               return FormatMISPMicroSecondTimeSEI(out, len, &time, static_cast<unsigned char>(status));
                           }});
    all.push_back({"null pointers", [](unsigned char* out, int len) {
                       int sum = format_sei_pictime_nal(out, len, nullptr, nullptr);
                       sum = sum * 7 + FormatMISPMicroSecondTimeSEI(nullptr, len, nullptr, 0);
                       sum = sum * 7 + format_sei_cc_nal(out, len, nullptr, 0, 0, nullptr);
                       sum = sum * 7 + format_au_delimiter_nalu(nullptr, 8, 0);
                       return sum * 7 + format_end_of_sequence_nalu(nullptr, 5);
                   }});
    return all;
}

class LevelsWriters : public test::WriterTest {
protected:
    struct Seen {
        int result;
        Bytes bytes;
        std::vector<std::string> assertions;
        Lines lines;
        bool operator==(const Seen& other) const {
            return result == other.result && bytes == other.bytes && assertions == other.assertions;
        }
    };

    // Every call starts when no message is held back.
    Seen run(const Call& call, int len, int level) {
        test::set_time(test::later_than_all_tests());
        std::optional<test::WithoutHandle> silent;
        if (level == kNoHandle) silent.emplace();
        test::reset(level == kNoHandle ? 8 : level);
        memory_.fill();
        unsigned char* out = memory_.data() + memory_.size() - std::max(len, 0);
        const int result = call.write(out, len);
        EXPECT_EQ(test::records().not_allowed, 0);
        return {result, {out, out + std::max(len, 0)}, test::assertions(), test::lines()};
    }

private:
    test::Output memory_{700};
};

// Addresses of the caller's records differ from one call to the next.
Lines without_addresses(const Lines& lines) {
    Lines all = lines;
    for (std::string& line : all)
        for (std::size_t at = line.find("0x"); at != std::string::npos; at = line.find("0x", at + 1))
            while (at + 2 < line.size() && std::isxdigit(static_cast<unsigned char>(line[at + 2])) != 0)
                line.erase(at + 2, 1);
    return all;
}

TEST_F(LevelsWriters, ResultsBytesAndAssertionsAreTheSame) {
    std::set<std::string> functions;
    int written = 0;
    for (const Call& call : calls()) {
        for (const int len : {-1, 0, 4, 5, 8, 20, 22, 23, 28, 29, 31, 39, 60, 149, 420}) {
            SCOPED_TRACE(call.name + test::text(", buffer of %d", len));
            const Seen loud = run(call, len, 8);
            written += loud.result > 5;
            for (const std::string& line : loud.lines) functions.insert(line.substr(2, line.find(':') - 2));
            for (const int level : {0, 3, 6, 7, kNoHandle}) {
                const Seen seen = run(call, len, level);
                ASSERT_TRUE(seen == loud) << level;
                Lines allowed;
                for (const std::string& line : loud.lines)
                    if (line[0] - '0' <= level) allowed.push_back(line);
                ASSERT_EQ(without_addresses(seen.lines), without_addresses(allowed)) << level;
            }
        }
    }
    EXPECT_GT(written, 300);
    EXPECT_EQ(functions, (std::set<std::string>{
                             "FormatMISPMicroSecondTimeSEI", "RBSP_encapsulation_within_NAL",
                             "RBSP_encapsulation_within_NAL_Ex", "_AssemblePicTimingSEI", "_SMPTEVitcToSEIPictiming",
                             "format_au_delimiter_nalu", "format_end_of_sequence_nalu", "format_sei_afd_nal",
                             "format_sei_cc_nal", "format_sei_pictime_nal", "format_sei_user_data_unregistered_nal"}));
}

TEST_F(LevelsWriters, TheBoundsOfTheEncapsulationAreTheSame) {
    for (int room = 0; room < 70; ++room)
        for (const Bytes& input : {Bytes(13, 0), Bytes(40, 0), plain_payload()}) {
            const Call call{"", [&](unsigned char* out, int len) {
                                return RBSP_encapsulation_within_NAL(input.data(), static_cast<unsigned>(input.size()),
                                                                     out, static_cast<unsigned>(len));
                            }};
            const Seen loud = run(call, room, 8);
            for (const int level : {0, 3, 7, kNoHandle}) ASSERT_TRUE(run(call, room, level) == loud) << room;
        }
}

}  // namespace
