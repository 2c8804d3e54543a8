// Coverage feedback for libFuzzer from g++'s -fsanitize-coverage=trace-pc.
//
// g++ calls __sanitizer_cov_trace_pc() at the start of every basic block.
// libFuzzer 14 no longer accepts that callback, but it does read any 8-bit
// counter array registered with it, so each block's return address is
// hashed into one counter (the collisions of a 128 Ki table over a few
// hundred KB of instrumented code cost little). The PC table only gives the
// counters names for libFuzzer's reports.
#include <cstddef>
#include <cstdint>

extern "C" void __sanitizer_cov_8bit_counters_init(uint8_t* start, uint8_t* stop);
extern "C" void __sanitizer_cov_pcs_init(const uintptr_t* start, const uintptr_t* stop);

namespace {

constexpr size_t kCounters = size_t{1} << 17;
uint8_t gCounters[kCounters];
uintptr_t gPcTable[2 * kCounters];  // {pc, flags} per counter

__attribute__((constructor)) void registerCounters() {
  for (size_t i = 0; i < kCounters; ++i) gPcTable[2 * i] = i + 1;
  __sanitizer_cov_8bit_counters_init(gCounters, gCounters + kCounters);
  __sanitizer_cov_pcs_init(gPcTable, gPcTable + 2 * kCounters);
}

}  // namespace

extern "C" __attribute__((no_sanitize("address", "undefined"))) void __sanitizer_cov_trace_pc() {
  const auto pc = reinterpret_cast<uintptr_t>(__builtin_return_address(0));
  gCounters[(pc ^ (pc >> 17)) & (kCounters - 1)]++;
}

// g++ also reports floating-point comparisons, which libFuzzer has no use for.
extern "C" void __sanitizer_cov_trace_cmpf(float, float) {}
extern "C" void __sanitizer_cov_trace_cmpd(double, double) {}
