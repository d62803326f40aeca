#include "bench/BenchData.h"
#include "core/ScriptSplitter.h"

#include <benchmark/benchmark.h>

using namespace tallowick;

namespace
{

constexpr std::size_t scriptBytes = 20'000'000;

void reportMegabytesPerSecond(benchmark::State &state, std::size_t bytes)
{
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    state.counters["MB/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * static_cast<double>(bytes) / 1e6, benchmark::Counter::kIsRate);
}

void splitMixedScript(benchmark::State &state)
{
    const std::string script = bench::mixedScript(scriptBytes);
    std::size_t count = 0;
    for (auto _ : state) {
        const auto statements = SQL::statements(script);
        count = statements.size();
        benchmark::DoNotOptimize(statements.data());
    }
    reportMegabytesPerSecond(state, script.size());
    state.counters["statements"] = static_cast<double>(count);
}
BENCHMARK(splitMixedScript)->Unit(benchmark::kMillisecond)->MinTime(2.0);

void splitUnbrokenScript(benchmark::State &state)
{
    const std::string script = bench::unbrokenScript(scriptBytes);
    for (auto _ : state) {
        const auto statements = SQL::statements(script);
        benchmark::DoNotOptimize(statements.data());
    }
    reportMegabytesPerSecond(state, script.size());
}
BENCHMARK(splitUnbrokenScript)->Unit(benchmark::kMillisecond)->MinTime(2.0);

} // namespace
