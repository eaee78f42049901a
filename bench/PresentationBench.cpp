// From the service's texts and items to what the user sees; each source file beside this one
// measures a part of it.
#include <benchmark/benchmark.h>

BENCHMARK_MAIN();
