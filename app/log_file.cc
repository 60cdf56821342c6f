#include "app/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "app/paths.h"
#include "app/utf8_text.h"
#include "base/file_bytes.h"
#include "base/format.h"

namespace velmar::app {

namespace {

void writeAll(int fd, const std::string& text) {
  const char* p = text.data();
  size_t left = text.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;  // a full disk loses the file copy, not the log window's
    p += n;
    left -= static_cast<size_t>(n);
  }
}

// The file's text, or an error description.
bool readWholeFile(const std::string& path, std::string* text, std::string* error) {
  if (path.empty()) {
    *error = "no log file";
    return false;
  }
  if (int err = readFileBytes(path, text)) {
    *error = std::strerror(err);
    return false;
  }
  if (!isValidUtf8(*text)) {
    *error = "the file is not UTF-8 text";
    text->clear();
    return false;
  }
  return true;
}

}  // namespace

LogFile::LogFile(TextSink systemLog) : systemLog_(std::move(systemLog)) {}

LogFile::~LogFile() {
  std::lock_guard lock(mutex_);
  closeFile();
}

void LogFile::closeFile() {
  if (writing_ < 0) return;
  ::fsync(writing_);
  ::close(writing_);
  writing_ = -1;
}

void LogFile::setLogFilename(const std::string& path) {
  std::lock_guard lock(mutex_);
  logFilename_ = expandTilde(path);
  closeFile();
  if (logFilename_.empty()) return;
  logFileExists(true);
  writing_ = ::open(logFilename_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  // Appending writes go to the end anyway; the seek is what makes isEmpty
  // tell an old, non-empty file from an empty one before the first write.
  if (writing_ >= 0) ::lseek(writing_, 0, SEEK_END);
}

bool LogFile::logFileExists(bool create) {
  namespace fs = std::filesystem;
  std::error_code ec;
  if (logFilename_.empty() || fs::exists(logFilename_, ec) || !create) return false;
  fs::path file(logFilename_);
  if (file.has_parent_path()) fs::create_directories(file.parent_path(), ec);
  int fd = ::open(logFilename_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  ::close(fd);
  return true;
}

void LogFile::addString(const std::string& text) {
  std::lock_guard lock(mutex_);
  if (!windowHasTakenOver_) offscreenBuffer_ += text;
  if (writing_ >= 0) writeAll(writing_, text);
}

std::string LogFile::readLogFile() {
  std::lock_guard lock(mutex_);
  std::string text, error;
  if (!readWholeFile(logFilename_, &text, &error)) {
    if (systemLog_) {
      Value name = logFilename_.empty() ? Value() : Value(logFilename_);
      systemLog_(format("cannot read logfile \"%@\" - %@", name, error));
    }
    text.clear();
  }
  offscreenBuffer_ = windowHasTakenOver_ ? std::string() : text;
  return text;
}

bool LogFile::writeLogFile() {
  std::lock_guard lock(mutex_);
  if (writing_ >= 0) ::fsync(writing_);
  return true;
}

void LogFile::zapLogAndWindowContents() {
  std::lock_guard lock(mutex_);
  offscreenBuffer_.clear();
  if (writing_ < 0) return;
  if (::ftruncate(writing_, 0) == 0) ::lseek(writing_, 0, SEEK_SET);
  ::fsync(writing_);
}

bool LogFile::isEmpty() const {
  std::lock_guard lock(mutex_);
  return writing_ < 0 || ::lseek(writing_, 0, SEEK_CUR) == 0;
}

std::string LogFile::takeOffscreenBuffer() {
  std::lock_guard lock(mutex_);
  windowHasTakenOver_ = true;
  return std::exchange(offscreenBuffer_, std::string());
}

bool LogFile::windowHasTakenOver() const {
  std::lock_guard lock(mutex_);
  return windowHasTakenOver_;
}

std::string LogFile::offscreenBuffer() const {
  std::lock_guard lock(mutex_);
  return offscreenBuffer_;
}

}  // namespace velmar::app
