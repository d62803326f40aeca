#include "bench/BenchData.h"
#include "core/Csv.h"

#include <benchmark/benchmark.h>

using namespace tallowick;

namespace
{

constexpr std::size_t resultRows = 10'000;
constexpr std::size_t resultColumns = 20;

void setRates(benchmark::State &state, std::size_t bytes)
{
    const auto iterations = static_cast<double>(state.iterations());
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    state.counters["MB/s"]
        = benchmark::Counter(iterations * static_cast<double>(bytes) / 1e6, benchmark::Counter::kIsRate);
    state.counters["rows/s"]
        = benchmark::Counter(iterations * static_cast<double>(resultRows), benchmark::Counter::kIsRate);
}

void writeCsv(benchmark::State &state)
{
    const QueryResult result = bench::wideResult(resultRows, resultColumns);
    std::size_t bytes = 0;
    for (auto _ : state) {
        const std::string text = SQL::csv(result);
        bytes = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    setRates(state, bytes);
}
BENCHMARK(writeCsv)->Unit(benchmark::kMillisecond);

void parseCsv(benchmark::State &state)
{
    const std::string text = SQL::csv(bench::wideResult(resultRows, resultColumns));
    for (auto _ : state) {
        const auto rows = SQL::parseCSV(text);
        benchmark::DoNotOptimize(rows.data());
    }
    setRates(state, text.size());
}
BENCHMARK(parseCsv)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
