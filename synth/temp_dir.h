// TempDir: a private folder under $TMPDIR (or /tmp), removed with everything
// in it when the object goes away. For tests, the demo and benchmarks.

#ifndef VELMAR_SYNTH_TEMP_DIR_H_
#define VELMAR_SYNTH_TEMP_DIR_H_

#include <cstdlib>
#include <filesystem>
#include <string>

namespace velmar::synth {

class TempDir {
 public:
  explicit TempDir(const std::string& prefix = "velmar") {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/" + prefix + "-XXXXXX";
    if (char* made = mkdtemp(pattern.data())) path_ = made;
  }
  ~TempDir() {
    if (path_.empty()) return;
    std::error_code ec;
    // Tests may leave read-only folders behind; make them writable first.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
      if (it->is_directory(ec) && !it->is_symlink(ec))
        std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ec);
    }
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& relative) const { return path_ + "/" + relative; }

 private:
  std::string path_;
};

}  // namespace velmar::synth

#endif  // VELMAR_SYNTH_TEMP_DIR_H_
