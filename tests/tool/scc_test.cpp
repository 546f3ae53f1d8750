#include "scc.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

using h264tool::format_scc;
using h264tool::read_scc;
using h264tool::SccLine;

std::vector<SccLine> read(const std::string& text) {
    std::istringstream in(text);
    std::vector<SccLine> lines = read_scc(in);
    for (SccLine& line : lines) line.number = 0;  // which is looked at on its own
    return lines;
}

std::string failure(const std::string& text) {
    try {
        read(text);
        return "none";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

const std::vector<SccLine> kLines{{{0, 0, 1, 2}, false, {0x9420, 0x9420, 0x94ad}},
                                  {{0, 1, 0, 2}, true, {0x942f}},
                                  {{23, 59, 59, 29}, false, {0x8080, 0xc1c2}}};
constexpr char kText[] =
    "Scenarist_SCC V1.0\n\n00:00:01:02\t9420 9420 94ad\n\n00:01:00;02\t942f\n\n23:59:59:29\t8080 c1c2\n";

TEST(Scc, IsWritten) {
    EXPECT_EQ(format_scc(kLines), kText);
    EXPECT_EQ(format_scc({}), "Scenarist_SCC V1.0\n");
}

TEST(Scc, IsReadBack) {
    EXPECT_EQ(read(kText), kLines);
    EXPECT_TRUE(read("Scenarist_SCC V1.0").empty());
}

TEST(Scc, LinesHaveTheirNumbers) {
    std::istringstream in(kText);
    const std::vector<SccLine> lines = read_scc(in);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].number, 3U);
    EXPECT_EQ(lines[1].number, 5U);
    EXPECT_EQ(lines[2].number, 7U);
}

TEST(Scc, FailureToReadIsNoEmptyFile) {
    std::ifstream directory(".");
    EXPECT_THROW(
        try { read_scc(directory); } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "line 1: cannot be read");
            throw;
        },
        std::runtime_error);
}

TEST(Scc, LineEndsBlanksAndCaseDoNotMatter) {
    EXPECT_EQ(
        read("\xEF\xBB\xBFScenarist_SCC V1.0 \r\n\r\n \t\r\n 00:00:01:02 \t9420  9420\t94AD \r\n00:01:00;02 942F\n"
             "23:59:59:29 8080 C1c2"),
        kLines);
}

TEST(Scc, FailuresNameTheLine) {
    const std::string header = "Scenarist_SCC V1.0\n\n";
    EXPECT_EQ(failure(""), "line 1: the file is empty");
    EXPECT_EQ(failure("00:00:00:00\t9420\n"), "line 1: is not 'Scenarist_SCC V1.0'");
    EXPECT_EQ(failure("\n" + header), "line 1: is not 'Scenarist_SCC V1.0'");
    EXPECT_EQ(failure(header + "00:00:00\t9420\n"), "line 3: '00:00:00' is no timecode HH:MM:SS:FF");
    EXPECT_EQ(failure(header + "9420 9420\n"), "line 3: '9420' is no timecode HH:MM:SS:FF");
    EXPECT_EQ(failure(header + "00:00:00:30\t9420\n"), "line 3: there is no timecode 00:00:00:30");
    EXPECT_EQ(failure(header + "\n00:01:00;01\t9420\n"), "line 4: there is no timecode 00:01:00;01");
    for (const std::string pair : {"942", "94200", "94g0", "-942", "+942", "0x94", "942 "}) {
        const std::string shown = pair == "942 " ? "942" : pair;
        EXPECT_EQ(failure(header + "00:00:00:00\t9420 " + pair + "\n"),
                  "line 3: '" + shown + "' is no byte pair of four hexadecimal digits");
    }
    EXPECT_EQ(failure(header + "00:00:00:00 \r\n"), "line 3: there are no byte pairs behind the timecode");
}

}  // namespace
