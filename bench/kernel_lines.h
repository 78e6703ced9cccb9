#ifndef QUILCAT_BENCH_KERNEL_LINES_H_
#define QUILCAT_BENCH_KERNEL_LINES_H_

#include <cstddef>
#include <string>

/// Lines like those of a phone's kernel log, "<6>[  123.456789] text\n", about 100 bytes each. The same text for the
/// same `count` on every machine; no two lines are equal.
std::string KernelLines(size_t count);

#endif  // QUILCAT_BENCH_KERNEL_LINES_H_
