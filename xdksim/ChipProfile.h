#pragma once

#include <array>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "framework/Vellor/Types.h"
#include "framework/Xdk/XpExport.h"

namespace XdkSim {

enum class Family : U8 { ipv4, ipv6 };

constexpr const char* familyName(Family family) { return family == Family::ipv4 ? "ipv4" : "ipv6"; }

/// A profile that cannot be used. The text is one line: where, what stands there, what was
/// expected.
class XDK_API ProfileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One prefix table.
struct PrefixTableProfile {
  // Leading key bits that are hashed.
  U32 tread = 0;
  U32 rows = 0;
  // Bits of a row: 128 or 256.
  U32 sramWidth = 256;
  // Column of the polynomial table.
  U32 hashPolySelect = 0;
};

/// The NHI memory of one family: tiles of rows of pairs.
struct XDK_API NhiProfile {
  static constexpr U32 kMaxTiles = 64;
  static constexpr U32 kMaxEntriesPerTile = 16384;

  U32 pairsPerEntry = 6;
  U32 blockBaseWidth = 16;
  // Bit i says that byte i of the bitmap counts; each bit of the bitmap is one tile.
  U32 groupMask = 0;
  std::array<U8, 8> tileBitmap{};
  U32 entriesPerTile = kMaxEntriesPerTile;
  // What the chip reports as the size of the whole memory; 0 stands for tiles times entries.
  U32 tableSize = 0;

  /// Tiles that the mask and the bitmap grant.
  U32 tiles() const;

  /// Grants the first `count` tiles.
  ///
  /// REQUIRES: `count` <= 64.
  void tilesIs(U32 count);

  /// Bits of one pair; 0 for a number of pairs that no chip has.
  U32 pairWidth() const;
};

/// The memories of one address family. A table's position in the list is its number.
struct FamilyProfile {
  U32 keyWidth = 0;
  U32 vrfIdWidth = 16;
  std::vector<PrefixTableProfile> tables;
  NhiProfile nhi;
};

/// The shape of a chip: what its table contexts report and how large its memories are.
///
/// Read from a JSON file, or filled in by a test. `Chip` refuses one that `check` refuses.
struct XDK_API ChipProfile {
  static constexpr U32 kMaxTables = 32;
  static constexpr U32 kMaxRows = 65536;
  static constexpr U32 kMaxNextHopRows = 1U << 20;

  std::string name;
  std::string description;
  FamilyProfile ipv4{.keyWidth = 48, .vrfIdWidth = 16, .tables = {}, .nhi = {}};
  FamilyProfile ipv6{.keyWidth = 144, .vrfIdWidth = 16, .tables = {}, .nhi = {}};
  U32 nextHopRows = 0;

  const FamilyProfile& family(Family which) const { return which == Family::ipv4 ? ipv4 : ipv6; }

  /// Raises `ProfileError` unless a chip of this shape can be built. `source` begins the text.
  void check(const std::string& source) const;
};

/// The profile spelled by the JSON text `text`; `source` is the file that error texts name. Raises
/// `ProfileError` on anything that is not exactly a profile, unknown fields included.
XDK_API ChipProfile parseProfile(std::string_view text, const std::string& source);

/// `profile` as JSON text; `parseProfile` gives it back.
XDK_API std::string profileText(const ChipProfile& profile);

/// "" for profiles that describe chips of the same shape, else the first field that differs:
/// "FIELD: value of `one`, expected value of `other`". Name and description are no part of the
/// shape.
XDK_API std::string shapeDifference(const ChipProfile& one, const ChipProfile& other);

/// The profile in the file at `path`. Raises `ProfileError`.
XDK_API ChipProfile readProfile(const std::string& path);

/// The profile called `nameOrPath`. A text with a slash or ending in ".json" is a path; any other
/// is looked up in the directory that the environment's TARNLET_PROFILES names, or, without it, in
/// the profiles that come with this library. Raises `ProfileError`.
XDK_API ChipProfile findProfile(const std::string& nameOrPath);

}  // namespace XdkSim
