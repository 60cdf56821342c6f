// velmarbs: strips a restore bundle down to chosen products and stations.

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tool/run_tool.h"

int main(int argc, char** argv) {
  const int status =
      velmar::tool::runTool(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
  // The parsed build manifest stays cached until the process ends; freeing
  // its half a million values one by one would cost a query a third of its
  // time, and the kernel takes the memory back at once. Everything written
  // goes out first.
  if (std::fflush(nullptr) != 0) return 3;
  ::_exit(status);
}
