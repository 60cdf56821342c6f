// velmarbs: strips a restore bundle down to chosen products and stations.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/bundle_plist.h"
#include "base/parsed_file_store.h"
#include "tool/image_cache.h"
#include "tool/run_tool.h"

namespace {

// Writes the parsed files this run noted to the store in a child of its own,
// so that whoever waits for the run does not wait for that too. The child
// lets go of the run's output (a caller reading a pipe to its end would wait
// for it otherwise) and of the run's stop handlers (its work is done; a
// child stopped halfway leaves nothing, its files are unnamed until
// complete).
void storeParsedFilesInBackground() {
  if (!velmar::parsedFilesToStore()) return;
  const pid_t pid = ::fork();
  if (pid != 0) return;  // the run itself, or no child: nothing stored
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) ::signal(sig, SIG_DFL);
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  if (null < 0) ::_exit(0);
  for (int fd = 0; fd <= 2; ++fd) ::dup2(null, fd);
  velmar::storeParsedFiles();
  ::_exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  // The desktop asks a dozen questions about one bundle, each in a new
  // process: parsed manifests are kept for the next one, beside the images'
  // cache, each with a size bound of its own.
  const std::string cacheRoot = velmar::tool::defaultImageCacheRoot();
  if (!cacheRoot.empty())
    velmar::setParsedFileStore(std::make_shared<velmar::ParsedFileStore>(
                                   cacheRoot + "/" + velmar::tool::kParsedFilesFolder),
                               /*deferred=*/true);
  const int status =
      velmar::tool::runTool(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
  // The parsed build manifest stays cached until the process ends; freeing
  // its half a million values one by one would cost a query a third of its
  // time, and the kernel takes the memory back at once. Everything written
  // goes out first.
  if (std::fflush(nullptr) != 0) return 3;
  storeParsedFilesInBackground();
  ::_exit(status);
}
