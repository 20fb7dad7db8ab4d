// libarchive unpacks: its "raw" format takes any content as one nameless entry, its filters find
// the compression by the first bytes. Only filters that it runs itself are asked for, so that no
// content can make it start a program.

#include "agent/source/InputFile.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <system_error>

#include <archive.h>
#include <archive_entry.h>

namespace Quarle::Agent {

void InputFile::Closer::operator()(std::FILE* file) const { std::fclose(file); }

void InputFile::Closer::operator()(archive* reader) const { archive_read_free(reader); }

InputFile::InputFile(const std::filesystem::path& path)
    : path_(path), file_(std::fopen(path.c_str(), "rb")) {
  if (!file_) {
    const char* reason = std::strerror(errno);
    throw RibError(path.string() + ": cannot be opened (" + reason +
                   "), expected a readable file of routes");
  }
  std::error_code none;
  if (std::filesystem::is_directory(path, none)) {
    throw RibError(path.string() + ": is a directory, expected a file of routes");
  }
  if (std::filesystem::is_regular_file(path, none)) {
    bytesTotal_ = std::filesystem::file_size(path, none);
  }
  reader_.reset(archive_read_new());
  if (!reader_) {
    throw std::bad_alloc();
  }
  archive_read_support_filter_gzip(reader_.get());
  archive_read_support_filter_bzip2(reader_.get());
  archive_read_support_filter_xz(reader_.get());
  archive_read_support_filter_zstd(reader_.get());
  archive_read_support_format_raw(reader_.get());
  archive_read_support_format_empty(reader_.get());
  if (archive_read_open_FILE(reader_.get(), file_.get()) != ARCHIVE_OK) {
    fail();
  }
  archive_entry* entry = nullptr;
  const int status = archive_read_next_header(reader_.get(), &entry);
  atEnd_ = status == ARCHIVE_EOF;
  if (!atEnd_ && status != ARCHIVE_OK) {
    fail();
  }
}

std::string_view InputFile::nextBlock() {
  while (!atEnd_) {
    const void* bytes = nullptr;
    std::size_t size = 0;
    la_int64_t offset = 0;
    const int status = archive_read_data_block(reader_.get(), &bytes, &size, &offset);
    if (status == ARCHIVE_EOF) {
      atEnd_ = true;
    } else if (status != ARCHIVE_OK) {
      fail();
    } else if (size > 0) {
      return {static_cast<const char*>(bytes), size};
    }
  }
  return {};
}

std::uint64_t InputFile::bytesRead() const {
  // The outermost filter is the one that reads the file.
  return static_cast<std::uint64_t>(archive_filter_bytes(reader_.get(), -1));
}

void InputFile::fail() const {
  const char* words = archive_error_string(reader_.get());
  throw RibError(path_.string() + ": damaged or cut off (" + (words ? words : "no more is known") +
                 "), expected a whole readable file");
}

}  // namespace Quarle::Agent
