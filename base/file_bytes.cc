#include "base/file_bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace velmar {

int readFileBytes(const std::string& path, std::string* bytes) {
  bytes->clear();
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno;
  struct stat st;
  if (::fstat(fd, &st) == 0 && st.st_size > 0) bytes->reserve(static_cast<size_t>(st.st_size));
  int err = 0;
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) err = errno;
    if (n <= 0) break;
    bytes->append(buffer, static_cast<size_t>(n));
  }
  ::close(fd);
  return err;
}

}  // namespace velmar
