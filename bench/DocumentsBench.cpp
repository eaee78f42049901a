// Documents on their way in and out; each source file beside this one measures one of the formats.
#include <benchmark/benchmark.h>

BENCHMARK_MAIN();
