// velmarbs: strips a restore bundle down to chosen products and stations.

#include <string>
#include <vector>

#include "tool/run_tool.h"

int main(int argc, char** argv) {
  return velmar::tool::runTool(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
