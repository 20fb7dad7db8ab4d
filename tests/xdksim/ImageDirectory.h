#pragma once

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "framework/Vellor/Types.h"
#include "xdksim/ChipImage.h"

namespace XdkSim {

/// A directory for one test's images, gone with the test whatever became of it.
class ImageDirectory : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "images-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    directory_ = name;
    path_ = directory_ / "chip.img";
  }

  void TearDown() override { std::filesystem::remove_all(directory_); }

  static std::string bytesOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  static void bytesAre(const std::filesystem::path& path, const std::string& bytes) {
    // Not cut to nothing first: a file system may flush the old content to the disk then.
    std::ofstream(path, std::ios::binary | std::ios::app).close();
    std::fstream(path, std::ios::binary | std::ios::in | std::ios::out) << bytes;
    std::filesystem::resize_file(path, bytes.size());
  }

  /// What `operation` raises, without the directory: the text as a user in it would see it.
  template <typename Operation>
  std::string errorOf(const Operation& operation) const {
    try {
      operation();
    } catch (const ImageError& error) {
      std::string text = error.what();
      const std::string start = directory_.string() + "/";
      return text.starts_with(start) ? text.substr(start.size()) : text;
    }
    return "no error";
  }

  std::string errorOfOpening(const std::filesystem::path& path) const {
    return errorOf([&] { const ChipImage image(path); });
  }

  std::string errorOfOpening() const { return errorOfOpening(path_); }

  std::filesystem::path directory_;
  std::filesystem::path path_;
};

/// The number at byte `at` of an image, in host order.
inline U64 numberAt(const std::string& bytes, std::size_t at) {
  U64 number = 0;
  bytes.copy(reinterpret_cast<char*>(&number), sizeof number, at);
  return number;
}

inline void numberAtIs(std::string& bytes, std::size_t at, U64 number) {
  bytes.replace(at, sizeof number, reinterpret_cast<const char*>(&number), sizeof number);
}

}  // namespace XdkSim
