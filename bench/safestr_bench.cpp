// Formats of the kind that texts of a log have, printed by snprintf_s and by the platform's snprintf.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>

#include "safestr/safestr.h"

namespace {

constexpr size_t kBufferSize = 8192;
constexpr size_t kCount = kBufferSize - 1;
constexpr char kKernelLine[] =
    "<6>[  123.456789] (CPU:2-pid:1234:kworker/2:1) usb 1-1: new high-speed USB device number 4";
constexpr char kTag[] = "[kworker/u16:4-events]";
static_assert(sizeof kKernelLine - 1 == 90);

struct LineTexts {
  const char* clock = "11-22 20:17:29";
  long milliseconds = 123;
  const char* line = kKernelLine;
  const char* tag = kTag + 2;
  int tag_width = 23;
};

// Runs `print(buffer, texts)`; neither its input nor its result is known to the compiler.
template <typename Print>
void Measure(benchmark::State& state, Print print) {
  static char buffer[kBufferSize];
  LineTexts texts;
  benchmark::DoNotOptimize(texts);
  for (auto _ : state) {
    benchmark::DoNotOptimize(print(buffer, texts));
    benchmark::ClobberMemory();
  }
}

void BM_StampedLine_snprintf_s(benchmark::State& state) {
  Measure(state, [](char* buffer, const LineTexts& texts) {
    return snprintf_s(buffer, kBufferSize, kCount, "%s.%03ld %s\n", texts.clock, texts.milliseconds, texts.line);
  });
}
BENCHMARK(BM_StampedLine_snprintf_s);

void BM_StampedLine_snprintf(benchmark::State& state) {
  Measure(state, [](char* buffer, const LineTexts& texts) {
    return snprintf(buffer, kBufferSize, "%s.%03ld %s\n", texts.clock, texts.milliseconds, texts.line);
  });
}
BENCHMARK(BM_StampedLine_snprintf);

void BM_PaddedColumn_snprintf_s(benchmark::State& state) {
  Measure(state, [](char* buffer, const LineTexts& texts) {
    return snprintf_s(buffer, kBufferSize, kCount, "%-*s", texts.tag_width, texts.tag);
  });
}
BENCHMARK(BM_PaddedColumn_snprintf_s);

void BM_PaddedColumn_snprintf(benchmark::State& state) {
  Measure(state, [](char* buffer, const LineTexts& texts) {
    return snprintf(buffer, kBufferSize, "%-*s", texts.tag_width, texts.tag);
  });
}
BENCHMARK(BM_PaddedColumn_snprintf);

void BM_Line_snprintf_s(benchmark::State& state) {
  Measure(state, [](char* buffer, const LineTexts& texts) {
    return snprintf_s(buffer, kBufferSize, kCount, "%s\n", texts.line);
  });
}
BENCHMARK(BM_Line_snprintf_s);

void BM_Line_snprintf(benchmark::State& state) {
  Measure(state,
          [](char* buffer, const LineTexts& texts) { return snprintf(buffer, kBufferSize, "%s\n", texts.line); });
}
BENCHMARK(BM_Line_snprintf);

}  // namespace
