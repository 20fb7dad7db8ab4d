#pragma once

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>

#include "framework/Xdk/XpExport.h"
#include "xdksim/ChipProfile.h"
#include "xdksim/ImageFile.h"

namespace XdkSim {

/// The memories of a chip in a mapped file, so that the chip outlives the process that drives it.
/// `Chip` takes an image over; a later process opens the file and finds the chip as it was left.
///
///     offset  bytes  field
///          0      8  magic, "XDKSIMG" and a zero
///          8      8  format version, 1
///         16      8  checksum of the words count, the profile's length and the profile
///         24      8  words of the chip
///         32      8  length of the profile's text
///         64      8  redo record: 0, or 0x7265646f00000000 + words of a row
///         72      8  redo record: which word of the chip the row begins at
///         80     32  redo record: what the row shall hold
///        128         profile as JSON
///       next multiple of 4096: the words of the chip in the order of `ChipLayout`, to the end
///
/// Numbers are in host order; a file from a machine of the other order seems to be of another
/// version. The file is sparse: rows that were never written take no room on the disk.
///
/// 1. Whatever ends the process, kill -9 included, each row holds what was last written to it and
///    no mixture: the row goes to the redo record first, and opening finishes a write that it finds
///    there. The kernel keeps what a process stored, so nothing needs to be flushed. A crash of the
///    machine is not covered.
/// 2. One process at a time; see `ImageFile`.
/// 3. The header but for the redo record is never changed after the image was made. An image whose
///    making was cut short is refused by opening, and replaced by making.
class XDK_API ChipImage {
 public:
  /// Makes an image of a chip that nothing was written to. A file that is no image is never
  /// replaced, unless it is empty. Raises `ImageError`, and `ProfileError` for a profile that its
  /// `check` refuses.
  ChipImage(const std::filesystem::path& path,
            const ChipProfile& profile,
            ExistingFile existing = ExistingFile::refuse);

  /// Opens an image. Raises `ImageError`.
  explicit ChipImage(const std::filesystem::path& path);

  const std::filesystem::path& path() const { return file_.path(); }

  const ChipProfile& profile() const { return profile_; }

  /// Raises `ImageError` with the first difference if the image is of a chip of another shape than
  /// `wanted`. Name and description of a profile are no part of the shape.
  void requireShape(const ChipProfile& wanted) const;

  /// Whether opening finished a write that the last process was ended in.
  bool finishedWrite() const { return finishedWrite_; }

  std::span<U64> words() { return words_; }

  /// Stores `row` at word `first`, wholly or not at all.
  ///
  /// REQUIRES: 1 to 4 words, all within `words()`.
  void rowIs(std::size_t first, std::span<const U64> row);

 private:
  struct Header;

  void makeContent();
  void readHeader();
  void mapWords(U64 profileBytes);
  void finishWrite();

  ImageFile file_;
  ChipProfile profile_;
  Header* header_ = nullptr;
  std::span<U64> words_;
  bool finishedWrite_ = false;
};

}  // namespace XdkSim
