// When messages, dumps and assertions are emitted.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bit_program.h"
#include "diagnostics.h"
#include "guarded_buffer.h"
#include "trace.h"

namespace {

constexpr char kModuleFile[] = "emission.c";

using Texts = std::vector<std::string>;

int computed = 0;
int compute() { return ++computed; }

void log_at(int level) { LOG(level, "value %d of %s", compute(), "x"); }
void dump_at(int level, const unsigned char* byte) {
    LOG_BUFFER(level, byte, static_cast<unsigned>(compute()), "label");
}
void assert_below(int value, int limit) { DO_ASSERT(value < limit); }
void assert_below_ex(int value, int limit, const char* func, const char* file, int line) {
    DO_ASSERT_EX(value < limit);
}

TEST(Emission, MessageFromItsLevelUpwardAndArgumentsOnlyThen) {
    for (int max = -1; max <= 9; ++max)
        for (int level = 3; level <= 8; ++level) {
            test::reset(max);
            computed = 0;
            log_at(level);
            EXPECT_EQ(computed, max >= level ? 1 : 0) << max << ", " << level;
            ASSERT_EQ(test::records().messages.size(), max >= level ? 1U : 0U);
            if (max < level) continue;
            const test::Message& message = test::records().messages[0];
            EXPECT_EQ(message.level, level);
            EXPECT_EQ(message.func, "log_at");
            EXPECT_EQ(message.file, "emission.c");
            EXPECT_GT(message.line, 0);
            EXPECT_EQ(message.text, "value 1 of x\n");
            EXPECT_EQ(test::records().not_allowed, 0);
        }
}

TEST(Emission, DumpFromItsLevelUpwardAndArgumentsOnlyThen) {
    const unsigned char byte = 0x5A;
    for (int max = 5; max <= 8; ++max)
        for (int level = 6; level <= 8; ++level) {
            test::reset(max);
            computed = 0;
            dump_at(level, &byte);
            EXPECT_EQ(computed, max >= level ? 1 : 0);
            ASSERT_EQ(test::records().dumps.size(), max >= level ? 1U : 0U);
            if (max < level) continue;
            const test::Dump& dump = test::records().dumps[0];
            EXPECT_EQ(dump.level, level);
            EXPECT_EQ(dump.label, "label");
            EXPECT_EQ(dump.func, "dump_at");
            EXPECT_EQ(dump.file, "emission.c");
            EXPECT_EQ(dump.bytes, test::Bytes{0x5A});
            EXPECT_EQ(test::records().not_allowed, 0);
        }
}

TEST(Emission, NothingButAssertionsWithoutAHandle) {
    test::reset(8);
    const test::WithoutHandle silence;
    const unsigned char byte = 0x5A;
    computed = 0;
    for (int level = 3; level <= 8; ++level) {
        log_at(level);
        dump_at(level, &byte);
    }
    EXPECT_EQ(computed, 0);
    EXPECT_TRUE(test::records().messages.empty());
    EXPECT_TRUE(test::records().dumps.empty());
    assert_below(2, 2);
    EXPECT_EQ(test::assertions(), Texts{"value < limit"});
}

TEST(Emission, AssertionOnlyWhenThePreconditionFails) {
    test::reset(0);
    assert_below(1, 2);
    assert_below_ex(1, 2, "caller", "caller.c", 7);
    EXPECT_TRUE(test::records().assertions.empty());
    assert_below(2, 2);
    assert_below_ex(2, 2, "caller", "caller.c", 7);
    const auto& assertions = test::records().assertions;
    ASSERT_EQ(assertions.size(), 2U);
    EXPECT_EQ(assertions[0].expression, "value < limit");
    EXPECT_EQ(assertions[0].func, "assert_below");
    EXPECT_EQ(assertions[0].file, "emission.c");
    EXPECT_FALSE(assertions[0].with_caller);
    EXPECT_EQ(assertions[1].expression, "value < limit");
    EXPECT_EQ(assertions[1].func, "assert_below_ex");
    EXPECT_EQ(assertions[1].file, "emission.c");
    EXPECT_TRUE(assertions[1].with_caller);
    EXPECT_EQ(assertions[1].caller_func, "caller");
    EXPECT_EQ(assertions[1].caller_file, "caller.c");
    EXPECT_EQ(assertions[1].caller_line, 7);
}

TEST(Emission, LevelIsReadAfreshForEachMessage) {
    test::reset(2);
    unsigned char byte = 0;
    bitbuffer_t bb = {&byte, 0, 8};
    AdvanceBitOffset(&bb, 9);
    test::set_level(3);
    AdvanceBitOffset(&bb, 10);
    test::set_level(2);
    AdvanceBitOffset(&bb, 11);
    ASSERT_EQ(test::records().messages.size(), 1U);
    EXPECT_NE(test::records().messages[0].text.find("Increment:10,"), std::string::npos);
}

// Messages and dumps up to a level, in order of arrival. Addresses of the functions' own areas may change from one
// call to the next and are left out; they stand at the end of a text.
Texts recorded_up_to(int level) {
    std::map<std::size_t, std::string> ordered;
    const auto source = [](const auto& entry) {
        return std::to_string(entry.level) + " " + entry.file + ":" + std::to_string(entry.line) + " " + entry.func;
    };
    for (const test::Message& message : test::records().messages)
        if (message.level <= level)
            ordered[message.order] = source(message) + ": " + message.text.substr(0, message.text.find("OutAddr:"));
    for (const test::Dump& dump : test::records().dumps)
        if (dump.level <= level)
            ordered[dump.order] = source(dump) + ": " + dump.label + std::string(dump.bytes.begin(), dump.bytes.end());
    Texts texts;
    for (auto& entry : ordered) texts.push_back(std::move(entry.second));
    return texts;
}

TEST(Emission, EachLevelGivesTheMessagesAndDumpsOfLevel8UpToItself) {
    for (unsigned seed = 1000; seed < 1030; ++seed) {
        const test::BitProgram program = test::random_bit_program(seed);
        test::GuardedBuffer area(program.area.size());
        test::reset(8);
        run_library(program, area);
        std::vector<Texts> expected;
        for (int level = 0; level <= 8; ++level) expected.push_back(recorded_up_to(level));
        EXPECT_EQ(test::records().not_allowed, 0);
        EXPECT_TRUE(expected[2].empty());
        EXPECT_GT(expected[8].size(), expected[7].size());
        for (int level = 0; level <= 8; ++level) {
            test::reset(level);
            run_library(program, area);
            ASSERT_EQ(recorded_up_to(8), expected[static_cast<std::size_t>(level)])
                << "program " << seed << ", level " << level;
            EXPECT_EQ(test::records().not_allowed, 0);
        }
        test::reset(8);
        const test::WithoutHandle silence;
        run_library(program, area);
        EXPECT_TRUE(test::records().messages.empty());
        EXPECT_TRUE(test::records().dumps.empty());
    }
}

TEST(Emission, EveryMessageOfTheBitModulesBearsItsFunctionsNameAndEndsInALineFeed) {
    using Source = std::pair<int, std::string>;
    const std::map<std::string, std::set<Source>> expected = {
        {"bitbuffer.c",
         {{3, "AdvanceBitOffset"},
          {5, "_DisplayBitBuffer"},
          {6, "_DisplayBitBuffer"},
          {7, "SetNextNBitsFromString"},
          {7, "_GetNextNBitsAsString"}}},
        {"golomb.c", {{8, "GetUint32Golomb"}, {8, "SetUint32Golomb"}}}};
    std::map<std::string, std::set<Source>> seen;
    for (unsigned seed = 2000; seed < 2030; ++seed) {
        const test::BitProgram program = test::random_bit_program(seed);
        test::GuardedBuffer area(program.area.size());
        test::reset(8);
        run_library(program, area);
        for (const test::Message& message : test::records().messages) {
            seen[message.file].insert({message.level, message.func});
            EXPECT_EQ(std::count(message.text.begin(), message.text.end(), '\n'), 1) << message.text;
            EXPECT_EQ(message.text.back(), '\n');
            EXPECT_GT(message.line, 0);
        }
        for (const test::Dump& dump : test::records().dumps) seen[dump.file].insert({dump.level, dump.func});
    }
    EXPECT_EQ(seen, expected);
}

}  // namespace
