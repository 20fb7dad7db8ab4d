#pragma once

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>

#include "framework/Xdk/XpExport.h"
#include "xdksim/ChipImage.h"
#include "xdksim/ChipLayout.h"

namespace XdkSim {

/// The memories of a chip, as one run of 64-bit words in the order of `ChipLayout`. They live in
/// this process and are all zero at first, or in a `ChipImage` and are what the image holds.
///
/// The words are the whole state of the chip: whatever else a chip keeps is derived from them.
class XDK_API ChipMemory {
 public:
  /// REQUIRES: `profile` passed its checks.
  explicit ChipMemory(const ChipProfile& profile);
  explicit ChipMemory(ChipImage image);

  const ChipLayout& layout() const { return layout_; }

  std::span<U64> words() { return {words_, layout_.words()}; }

  std::span<const U64> words() const { return {words_, layout_.words()}; }

  /// First word of row 0 of a prefix table.
  U64* prefixTable(Family family, U32 table) { return words_ + layout_.prefixTable(family, table); }

  /// First word of row 0 of an NHI tile.
  U64* nhiTile(Family family, U32 tile) { return words_ + layout_.nhiTile(family, tile); }

  /// First word of row 0 of the next-hop table.
  U64* nextHopTable() { return words_ + layout_.nextHopTable(); }

  const U64* nextHopTable() const { return words_ + layout_.nextHopTable(); }

  /// REQUIRES: `layout().has(place)`.
  std::span<U64> row(const RowPlace& place) {
    const WordRun run = layout_.wordsOf(place);
    return words().subspan(run.first, run.count);
  }

  std::span<const U64> row(const RowPlace& place) const {
    const WordRun run = layout_.wordsOf(place);
    return words().subspan(run.first, run.count);
  }

  /// Stores `content` in the row that begins at `first`. In an image it is stored wholly or not at
  /// all, whatever ends this process; words that are changed in any other way are not.
  ///
  /// REQUIRES: `first` points into `words()`, where a row of as many words begins.
  void rowIs(U64* first, std::span<const U64> content) {
    if (image_) {
      image_->rowIs(static_cast<std::size_t>(first - words_), content);
    } else {
      std::copy(content.begin(), content.end(), first);
    }
  }

 private:
  struct Free {
    void operator()(U64* words) const { std::free(words); }
  };

  ChipLayout layout_;
  std::optional<ChipImage> image_;
  // From calloc: the pages of rows that are never written are never touched.
  std::unique_ptr<U64[], Free> own_;
  U64* words_;
};

}  // namespace XdkSim
