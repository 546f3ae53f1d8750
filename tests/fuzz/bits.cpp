// Programs of bit buffer operations against a model that knows nothing but bits.
#include "bit_program.h"
#include "fuzz.h"

void test::fuzz(FuzzInput& input, Observed& observed) {
    const auto bytes = static_cast<unsigned>(1 + input.below(200));
    const bool sparse = input.flag();
    const BitProgram program = make_bit_program(input, bytes, sparse, static_cast<int>(input.below(100)));
    GuardedBuffer area(program.area.size(), input.flag() ? Guard::kBehind : Guard::kBefore);
    const ProgramOutcome outcome = run_library(program, area);
    const ProgramOutcome expected = run_model(program);
    FUZZ_CHECK(outcome.steps == expected.steps);
    FUZZ_CHECK(outcome.area == expected.area);
    for (const Step& step : outcome.steps) {
        observed.add(step.result);
        observed.add(step.value);
        observed.add(step.offset);
        observed.add(step.out);
    }
    observed.add(outcome.area);
}
