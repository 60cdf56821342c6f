// velmar-plist-memory FILE...: reads each property list into a Value and
// prints how long the read took, how much heap the Value holds once the
// file's bytes are gone, and the process's peak resident size, each against
// the file's size. A plain program rather than a Google Benchmark, because
// peak memory is a property of one process.
//
//   build/bench/velmar-plist-memory /tmp/large/Restore/BuildManifest.plist

#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <cstdio>
#include <string>
#include <vector>

#include "base/file_bytes.h"
#include "base/plist_io.h"

namespace {

size_t heapInUse() {
  struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// Processor time of this process: on a shared machine it says more about
// the reader than the wall clock does.
double cpuMs() {
  struct timespec ts;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

double peakResidentMb() {
  struct rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024.0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: velmar-plist-memory FILE...\n");
    return 2;
  }
  for (int i = 1; i < argc; ++i) {
    std::string bytes;
    if (velmar::readFileBytes(argv[i], &bytes) != 0) {
      std::fprintf(stderr, "cannot read %s\n", argv[i]);
      return 1;
    }
    const double fileMb = bytes.size() / 1048576.0;
    // Median of five reads for the time; the last Value is kept for the size.
    std::vector<double> ms, cpu;
    velmar::Value value;
    size_t held = 0;
    for (int run = 0; run < 5; ++run) {
      value = velmar::Value();
      size_t before = heapInUse();
      double cpuStart = cpuMs();
      auto start = std::chrono::steady_clock::now();
      value = velmar::parsePropertyList(bytes);
      auto end = std::chrono::steady_clock::now();
      cpu.push_back(cpuMs() - cpuStart);
      held = heapInUse() - before;
      ms.push_back(std::chrono::duration<double, std::milli>(end - start).count());
    }
    std::sort(ms.begin(), ms.end());
    std::sort(cpu.begin(), cpu.end());
    std::printf("%s: %.1f MB, %s, read %.1f ms (%.1f ms processor time; medians of 5), Value holds %.1f MB (%.2f x file), "
                "peak resident %.1f MB\n",
                argv[i], fileMb, value.isNull() ? "NOT READ" : "read", ms[2], cpu[2], held / 1048576.0,
                held / 1048576.0 / fileMb, peakResidentMb());
  }
  return 0;
}
