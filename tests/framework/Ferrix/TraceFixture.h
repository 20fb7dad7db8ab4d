#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "framework/Ferrix/Ferrix.h"
#include "framework/Ferrix/FileLayout.h"
#include "framework/Ferrix/TraceError.h"
#include "framework/Ferrix/TraceReader.h"

#include <gtest/gtest.h>

namespace Ferrix::Testing {

/// A directory for trace files; tracing is off at both ends of a test.
class TraceFixture : public testing::Test {
 protected:
  TraceFixture() {
    std::string form = (std::filesystem::temp_directory_path() / "ferrix-XXXXXX").string();
    EXPECT_NE(mkdtemp(form.data()), nullptr);
    directory_ = form;
    path_ = (directory_ / "trace").string();
  }

  ~TraceFixture() override {
    traceFileDel();
    std::filesystem::remove_all(directory_);
  }

  /// All messages that are new to the reader, "file:line:text\n" each.
  static std::string linesOf(TraceReader& reader) {
    std::string lines;
    while (const std::optional<TraceMessage> message = reader.next()) {
      lines += message->file + ":" + std::to_string(message->line) + ":" + message->text + "\n";
    }
    return lines;
  }

  static std::vector<std::string> textsOf(TraceReader& reader) {
    std::vector<std::string> texts;
    while (std::optional<TraceMessage> message = reader.next()) {
      texts.push_back(std::move(message->text));
    }
    return texts;
  }

  std::string lines() const {
    TraceReader reader(path_);
    return linesOf(reader);
  }

  std::vector<std::string> texts() const {
    TraceReader reader(path_);
    return textsOf(reader);
  }

  /// What is said of the file when it is read to its end; empty when it is sound.
  std::string faultOfReading() const {
    try {
      TraceReader reader(path_);
      linesOf(reader);
    } catch (const TraceError& error) {
      return withoutPath(error);
    }
    return "";
  }

  /// What is said of the file when it is to be continued.
  std::string faultOfWriting(U64 ringSize = kMinRingSize) const {
    try {
      traceFileIs(path_, ringSize);
    } catch (const TraceError& error) {
      EXPECT_EQ(theTraceFile, nullptr);
      return withoutPath(error);
    }
    traceFileDel();
    return "";
  }

  std::string withoutPath(const TraceError& error) const {
    const std::string what = error.what();
    EXPECT_EQ(what.substr(0, path_.size() + 2), path_ + ": ");
    EXPECT_EQ(what.find('\n'), std::string::npos) << what;
    return what.substr(path_.size() + 2);
  }

  std::string content() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  void contentIs(const std::string& bytes) const {
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << bytes;
  }

  /// The header as it stands in the file; one without messages while there is none.
  FileHeader header() const {
    std::array<char, sizeof(FileHeader)> bytes{};
    std::ifstream(path_, std::ios::binary).read(bytes.data(), bytes.size());
    return std::bit_cast<FileHeader>(bytes);
  }

  void headerIs(const FileHeader& header) const { overwrite(0, &header, sizeof header); }

  /// Writes over bytes of the file.
  void overwrite(U64 at, const void* from, std::size_t size) const {
    std::fstream file(path_, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(at));
    file.write(static_cast<const char*>(from), static_cast<std::streamsize>(size));
  }

  static U64 ringByte(U64 position) {
    return kHeaderSize + kDescTableSize + position % kMinRingSize;
  }

  std::filesystem::path directory_;
  std::string path_;
};

}  // namespace Ferrix::Testing
