// A file descriptor closed when it goes out of scope.

#ifndef VELMAR_BASE_UNIQUE_FD_H_
#define VELMAR_BASE_UNIQUE_FD_H_

#include <unistd.h>

#include <utility>

namespace velmar {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(std::exchange(other.fd_, -1));
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }
  // Closes now and answers 0 or the errno of close (a late write error on
  // some file systems).
  int close() {
    int fd = std::exchange(fd_, -1);
    if (fd >= 0 && ::close(fd) != 0) return errno;
    return 0;
  }

 private:
  int fd_ = -1;
};

}  // namespace velmar

#endif  // VELMAR_BASE_UNIQUE_FD_H_
