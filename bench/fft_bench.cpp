// Forward + backward transform of a square FrequencyArray: warm (the size's plans
// already cached, as on every frame after the first), cold (the first use of a
// size: planning, then the transforms), and beside them the same transforms as
// bare FFTW calls on FFTW's own two-dimensional plans, made outside the timing.
//
// No wisdom file is used: it would turn the cold runs warm.
//
// The second argument picks the planning effort: 0 estimate, 1 measure. A size's
// plans are cached for the life of the process with the effort they were first made
// with, so run the two efforts as separate invocations:
//   bench_fft --benchmark_filter=/0/   and   bench_fft --benchmark_filter=/1/
#include "fft/FftBuffers.h"
#include "fft/FftPlans.h"
#include "fft/StagedTransform.h"
#include "fft/FrequencyArray.h"

#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <cstring>

namespace {

constexpr int kEstimate = 0;
constexpr int kMeasure = 1;

FftPlanning Planning(const benchmark::State& state)
{
    return state.range(1) == kMeasure ? FftPlanning::Measure : FftPlanning::Estimate;
}

// A zero plane: the transforms' cost does not depend on the values, and zeros do
// not grow by width * height on every round trip.
void FrequencyArrayWarm(benchmark::State& state)
{
    const auto side = static_cast<std::uint32_t>(state.range(0));
    SetFftPlanning(Planning(state), {});
    FrequencyArray array;
    array.Create(side, side);
    if (array.descriptor->planning != Planning(state)) {
        state.SkipWithError("this size was planned with the other effort earlier in the process");
        return;
    }
    const std::uint64_t plansBefore = FftPlansCreated();
    for (auto _ : state) {
        array.Forward();
        array.Backward();
        benchmark::ClobberMemory();
    }
    state.counters["plans_made"] = static_cast<double>(FftPlansCreated() - plansBefore);
    SetFftPlanning(FftPlanning::Estimate, {});
}

// The benchmark runs on one thread, so it may call FFTW's planner directly.
void BareFftw(benchmark::State& state)
{
    const auto side = static_cast<int>(state.range(0));
    const std::size_t length = static_cast<std::size_t>(side) * (side + 2);
    auto* buffer = static_cast<double*>(fftw_malloc(length * sizeof(double)));
    auto* spectrum = reinterpret_cast<fftw_complex*>(buffer);
    const unsigned flags = Planning(state) == FftPlanning::Measure ? FFTW_MEASURE : FFTW_ESTIMATE;
    fftw_plan forward = fftw_plan_dft_r2c_2d(side, side, buffer, spectrum, flags);
    fftw_plan backward = fftw_plan_dft_c2r_2d(side, side, spectrum, buffer, flags);
    std::memset(buffer, 0, length * sizeof(double));
    for (auto _ : state) {
        fftw_execute(forward);
        fftw_execute(backward);
        benchmark::ClobberMemory();
    }
    fftw_destroy_plan(forward);
    fftw_destroy_plan(backward);
    fftw_free(buffer);
}

// FFTW remembers every plan it has made as in-memory wisdom, which would make a
// second "first use" nearly free; forgetting it keeps every iteration cold.
void FrequencyArrayCold(benchmark::State& state)
{
    const auto side = static_cast<std::int32_t>(state.range(0));
    SetFftPlanning(Planning(state), {});
    FrequencyArray array;
    array.Create(static_cast<std::uint32_t>(side), static_cast<std::uint32_t>(side));
    for (auto _ : state) {
        state.PauseTiming();
        fftw_forget_wisdom();
        FftPlanPair plans;
        state.ResumeTiming();
        MakeFftPlans(side, side, false, plans);
        ExecuteForwardFft(plans, array.data);
        ExecuteBackwardFft(plans, array.data);
        benchmark::ClobberMemory();
        state.PauseTiming();
        DestroyFftPlans(plans);
        state.ResumeTiming();
    }
    SetFftPlanning(FftPlanning::Estimate, {});
}

void Sizes(benchmark::internal::Benchmark* benchmark, int planning)
{
    benchmark->Unit(benchmark::kMillisecond)->UseRealTime();
    for (const int side : {2048, 4096}) benchmark->Args({side, planning});
}

}  // namespace

BENCHMARK(FrequencyArrayWarm)->Apply([](auto* b) { Sizes(b, kEstimate); });
BENCHMARK(BareFftw)->Apply([](auto* b) { Sizes(b, kEstimate); });
BENCHMARK(FrequencyArrayCold)->Apply([](auto* b) { Sizes(b, kEstimate); });
BENCHMARK(FrequencyArrayWarm)->Apply([](auto* b) { Sizes(b, kMeasure); });
BENCHMARK(BareFftw)->Apply([](auto* b) { Sizes(b, kMeasure); });
BENCHMARK(FrequencyArrayCold)->Apply([](auto* b) { Sizes(b, kMeasure); })->Iterations(1);

BENCHMARK_MAIN();
