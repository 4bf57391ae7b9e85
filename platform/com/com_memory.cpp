#include "platform/com/com_memory.h"

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<int> g_failuresPending{0};

// Consumes one pending failure if any; concurrent callers never take the
// same one, and the count never goes below zero.
bool TakeInjectedFailure() {
  int pending = g_failuresPending.load(std::memory_order_relaxed);
  while (pending > 0) {
    if (g_failuresPending.compare_exchange_weak(pending, pending - 1, std::memory_order_relaxed)) {
      return true;
    }
  }
  return false;
}

}  // namespace

LPVOID CoTaskMemAlloc(SIZE_T cb) {
  if (TakeInjectedFailure()) return nullptr;
  return std::malloc(cb == 0 ? 1 : cb);
}

void CoTaskMemFree(LPVOID pv) { std::free(pv); }

void PlatformFailNextAllocations(int count) {
  g_failuresPending.store(count > 0 ? count : 0, std::memory_order_relaxed);
}
