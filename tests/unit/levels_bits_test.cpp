// Random programs of bit buffer operations give the same results at every level of diagnostics, namely the model's.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "bit_program.h"
#include "diagnostics.h"
#include "guarded_buffer.h"

namespace {

constexpr unsigned kPrograms = 500;
constexpr int kNoHandle = -1;

std::string describe(const test::BitProgram& program, std::size_t i, const test::Step& step) {
    const test::Instruction& instruction = program.instructions[i];
    std::string text = "instruction " + std::to_string(i) + ", operation " +
                       std::to_string(static_cast<int>(instruction.op)) + ", n " + std::to_string(instruction.n) +
                       ", member " + std::to_string(instruction.member) + ": result " + std::to_string(step.result) +
                       ", value " + std::to_string(step.value) + ", offset " + std::to_string(step.offset) + ", out";
    for (const unsigned char byte : step.out) text.append(" ").append(std::to_string(byte));
    return text;
}

void expect_same(const test::BitProgram& program, const test::ProgramOutcome& outcome,
                 const test::ProgramOutcome& expected) {
    ASSERT_EQ(outcome.steps.size(), expected.steps.size());
    for (std::size_t i = 0; i < outcome.steps.size(); ++i)
        ASSERT_EQ(describe(program, i, outcome.steps[i]), describe(program, i, expected.steps[i]))
            << "of " << program.num_bits << " bits";
    ASSERT_EQ(outcome.area, expected.area);
}

std::vector<std::string> reported() {
    std::vector<std::string> all;
    for (const test::Assertion& assertion : test::records().assertions)
        all.push_back(assertion.file + " " + assertion.func + " " + assertion.expression);
    return all;
}

class BitPrograms : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Levels, BitPrograms, testing::Values(kNoHandle, 0, 3, 6, 7, 8),
                         [](const testing::TestParamInfo<int>& level) {
                             return level.param == kNoHandle ? "NoHandle" : "Level" + std::to_string(level.param);
                         });

TEST_P(BitPrograms, GiveTheModelsResultsPositionsAndBytes) {
    for (unsigned seed = 0; seed < kPrograms; ++seed) {
        const test::BitProgram program = test::random_bit_program(seed);
        const test::ProgramOutcome expected = run_model(program);
        for (const test::Guard guard : {test::Guard::kBehind, test::Guard::kBefore}) {
            test::GuardedBuffer area(program.area.size(), guard);
            test::reset(GetParam() == kNoHandle ? 8 : GetParam());
            std::optional<test::WithoutHandle> silence;
            if (GetParam() == kNoHandle) silence.emplace();
            ASSERT_NO_FATAL_FAILURE(expect_same(program, run_library(program, area), expected)) << "program " << seed;
        }
    }
}

TEST(BitProgramAssertions, AreTheSameAtEveryLevelAndWithoutAHandle) {
    std::size_t seen = 0;
    for (unsigned seed = 0; seed < kPrograms / 5; ++seed) {
        const test::BitProgram program = test::random_bit_program(seed);
        test::GuardedBuffer area(program.area.size());
        test::reset(8);
        run_library(program, area);
        const std::vector<std::string> expected = reported();
        seen += expected.size();
        for (const int level : {0, 3, 6, 7}) {
            test::reset(level);
            run_library(program, area);
            ASSERT_EQ(reported(), expected) << "program " << seed << ", level " << level;
        }
        test::reset(8);
        const test::WithoutHandle silence;
        run_library(program, area);
        ASSERT_EQ(reported(), expected) << "program " << seed << " without a handle";
    }
    EXPECT_GT(seen, 100U);
}

// What the programs above are good for: each operation succeeds and fails often, but those that cannot fail.
TEST(BitProgramCoverage, EveryOperationSucceedsAndFails) {
    constexpr auto kOperations = static_cast<std::size_t>(test::Op::kEnd);
    std::vector<int> succeeded(kOperations), failed(kOperations);
    for (unsigned seed = 0; seed < kPrograms; ++seed) {
        const test::BitProgram program = test::random_bit_program(seed);
        const test::ProgramOutcome outcome = run_model(program);
        for (std::size_t i = 0; i < outcome.steps.size(); ++i)
            ++(outcome.steps[i].result == 0 ? succeeded : failed)[static_cast<std::size_t>(program.instructions[i].op)];
    }
    for (std::size_t op = 0; op < kOperations; ++op) {
        const bool can_fail = op != static_cast<std::size_t>(test::Op::kSeek) &&
                              op != static_cast<std::size_t>(test::Op::kDisplay) &&
                              op != static_cast<std::size_t>(test::Op::kDisplayInfo);
        EXPECT_GT(succeeded[op], 100) << op;
        EXPECT_EQ(failed[op] > 100, can_fail) << op;
    }
}

}  // namespace
