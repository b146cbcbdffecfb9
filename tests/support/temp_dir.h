// A directory of a test's own, removed with all that is in it.
#ifndef SUPPORT_TEMP_DIR_H_
#define SUPPORT_TEMP_DIR_H_

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

class TempDir {
 public:
  TempDir() {
    std::string name = (std::filesystem::temp_directory_path() / "krt-XXXXXX");
    if (mkdtemp(name.data()) == nullptr) abort();  // no test can go on
    path_ = name;
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::string& path() const { return path_; }
  // The path of `name` in it.
  std::string operator/(const std::string& name) const {
    return path_ + "/" + name;
  }

 private:
  std::string path_;
};

inline void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

inline std::string ReadFile(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

// The names in the folder, sorted.
inline std::vector<std::string> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  std::ranges::sort(names);
  return names;
}

// Of the entry itself, and zeroes where there is none.
inline struct stat StatusOf(const std::string& path) {
  struct stat status = {};
  lstat(path.c_str(), &status);
  return status;
}
inline mode_t PermsOf(const std::string& path) {
  return StatusOf(path).st_mode & 07777;
}

#endif  // SUPPORT_TEMP_DIR_H_
