#pragma once

#include <filesystem>
#include <string>

namespace Quarle::Cli {

/// A file's copy in a directory of its own, which goes with the object. There is no copy of a file
/// that cannot be read.
class FileCopy {
 public:
  /// Raises std::runtime_error when there is no place for the copy.
  explicit FileCopy(std::filesystem::path original);
  ~FileCopy();

  FileCopy(const FileCopy&) = delete;
  FileCopy& operator=(const FileCopy&) = delete;

  std::filesystem::path path() const { return directory_ / original_.filename(); }

  /// Names the original in a text that names the copy.
  void nameOriginal(std::string& text) const;

 private:
  std::filesystem::path original_;
  std::filesystem::path directory_;
};

}  // namespace Quarle::Cli
