#include "base/staging_name.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

namespace velmar {

std::string stagingPrefix(std::string_view targetName) {
  constexpr size_t kNameMax = 255;
  constexpr size_t kAround = 1 + 10 + 10 + 1 + 6;  // ".", ".velmarbs-", pid, "-", XXXXXX
  std::string name(targetName);
  if (name.size() > kNameMax - kAround) {
    size_t cut = kNameMax - kAround;
    while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80) --cut;
    name.resize(cut);
  }
  return "." + name + ".velmarbs-";
}

std::optional<pid_t> stagingOwner(std::string_view name, std::string_view prefix) {
  if (name.substr(0, prefix.size()) != prefix) return std::nullopt;
  std::string_view rest = name.substr(prefix.size());
  size_t dash = rest.find('-');
  if (dash == 0 || dash == std::string_view::npos || dash > 10) return std::nullopt;
  if (rest.size() != dash + 1 + 6) return std::nullopt;  // mkdtemp's six letters
  pid_t pid = 0;
  for (char c : rest.substr(0, dash)) {
    if (c < '0' || c > '9') return std::nullopt;
    pid = pid * 10 + (c - '0');
  }
  if (pid <= 0) return std::nullopt;
  return pid;
}

bool leftByDeadProcess(std::string_view name, std::string_view prefix) {
  if (name.substr(0, prefix.size()) != prefix) return false;
  const std::string rest(name.substr(prefix.size()));
  long pid = std::strtol(rest.c_str(), nullptr, 10);
  return pid > 0 && pid != ::getpid() && ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
}

}  // namespace velmar
