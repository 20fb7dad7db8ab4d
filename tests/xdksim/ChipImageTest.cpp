#include "xdksim/ChipImage.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/Random.h"
#include "tests/xdksim/ImageDirectory.h"
#include "tests/xdksim/SmallProfile.h"
#include "xdksim/Chip.h"
#include "xdksim/SimLpmMgr.h"

namespace XdkSim {
namespace {

// Offsets in the file.
constexpr std::size_t kVersionAt = 8;
constexpr std::size_t kChecksumAt = 16;
constexpr std::size_t kProfileLengthAt = 32;
constexpr std::size_t kHeaderEnd = 40;
constexpr std::size_t kRedoAt = 64;
constexpr std::size_t kProfileAt = 128;
constexpr U64 kRedoMark = 0x7265646f00000000;

class ImageOfAChip : public ImageDirectory {
 protected:
  void SetUp() override {
    ImageDirectory::SetUp();
    const ChipImage made(path_, smallProfile());
  }

  /// Changes the bytes of the image by hand.
  template <typename Spoil>
  void spoil(const Spoil& spoil) const {
    std::string bytes = bytesOf(path_);
    spoil(bytes);
    bytesAre(path_, bytes);
  }

  std::size_t wordsAt() const {
    return bytesOf(path_).size() - ChipLayout(smallProfile()).words() * sizeof(U64);
  }
};

/// A record with leaves of 120 bits (low and high words) under an odd branch length.
xpLpmPrefixEntry wideEntry(Random& random) {
  xpLpmPrefixEntry entry;
  entry.keySize = 2;
  entry.mode = 1;
  entry.branchLen = 83;
  entry.stride = 120;
  entry.nhiTile = 1;
  entry.nhiOffset = 16383;
  for (U32 byte = 0; byte < 10; ++byte) {
    entry.branch[byte] = random.byte();
  }
  entry.branch[10] = 5;
  entry.leafVal[0] = random.word();
  entry.leafValHigh[0] = random.word() & lowBits(56);
  return entry;
}

/// A record with 27 leaves of 8 bits and no branch.
xpLpmPrefixEntry fullEntry(Random& random) {
  xpLpmPrefixEntry entry;
  entry.mode = 1;
  entry.stride = 8;
  for (U32 slot = 0; slot < 27; ++slot) {
    entry.leafVal[slot] = random.between(1, 255);
  }
  return entry;
}

template <typename Record>
std::string bytesOfRecord(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

TEST_F(ImageOfAChip, recordsComeBackAsTheyWereWrittenAtAnyAddress) {
  Random random;
  SCOPED_TRACE(random.seedText());
  const xpLpmPrefixEntry wide = wideEntry(random);
  const xpLpmPrefixEntry full = fullEntry(random);
  xpLpmNhiEntry nhi;
  xpNextHopEntry nextHop{.valid = 1, .way = 65535, .nextHopId = random.word()};
  for (U32 pair = 0; pair < 6; ++pair) {
    nhi.base[pair] = random.between(0, 4094);
    nhi.size[pair] = random.between(0, 511);
  }

  // Packed records at odd addresses, as a client may hand them over.
  struct Odd {
    char shift;
    std::array<char, sizeof(xpLpmPrefixEntry)> bytes;

    xpLpmPrefixEntry* prefix() { return reinterpret_cast<xpLpmPrefixEntry*>(bytes.data()); }

    xpLpmNhiEntry* nhi() { return reinterpret_cast<xpLpmNhiEntry*>(bytes.data()); }
  };

  static_assert(offsetof(Odd, bytes) == 1);
  alignas(16) Odd odd{};
  {
    Chip chip{ChipImage(path_)};
    SimLpmMgr v4(chip, Family::ipv4);
    SimLpmMgr v6(chip, Family::ipv6);
    std::memcpy(odd.bytes.data(), &wide, sizeof wide);
    ASSERT_EQ(v6.writePrefixEntry(0, 1, 15, odd.prefix()), XP_NO_ERR) << chip.lastError();
    std::memcpy(odd.bytes.data(), &full, sizeof full);
    ASSERT_EQ(v4.writePrefixEntry(0, 0, 7, odd.prefix()), XP_NO_ERR) << chip.lastError();
    std::memcpy(odd.bytes.data(), &nhi, sizeof nhi);
    ASSERT_EQ(v6.writeNhiEntry(0, 1, 63, odd.nhi()), XP_NO_ERR) << chip.lastError();
    ASSERT_EQ(v4.writeNextHopEntry(0, 127, &nextHop), XP_NO_ERR) << chip.lastError();
  }
  Chip chip{ChipImage(path_)};
  SimLpmMgr v4(chip, Family::ipv4);
  SimLpmMgr v6(chip, Family::ipv6);
  ASSERT_EQ(v6.readPrefixEntry(0, 1, 15, odd.prefix(), 0), XP_NO_ERR);
  EXPECT_EQ(std::memcmp(odd.bytes.data(), &wide, sizeof wide), 0);
  ASSERT_EQ(v4.readPrefixEntry(0, 0, 7, odd.prefix(), 0), XP_NO_ERR);
  EXPECT_EQ(std::memcmp(odd.bytes.data(), &full, sizeof full), 0);
  ASSERT_EQ(v6.readNhiEntry(0, 1, 63, odd.nhi(), 0), XP_NO_ERR);
  EXPECT_EQ(std::memcmp(odd.bytes.data(), &nhi, sizeof nhi), 0);
  xpNextHopEntry back;
  ASSERT_EQ(v6.readNextHopEntry(0, 127, &back), XP_NO_ERR);
  EXPECT_EQ(back.valid, 1U);
  EXPECT_EQ(back.way, 65535U);
  EXPECT_EQ(back.nextHopId, nextHop.nextHopId);
  EXPECT_EQ(chip.rowsUsed(Family::ipv4, 0), 1U);
  EXPECT_EQ(chip.rowsUsed(Family::ipv6, 1), 1U);
  EXPECT_EQ(chip.rowsUsed(Family::ipv6), 1U);
  EXPECT_EQ(chip.counters().prefixWrites, 0U);
}

TEST_F(ImageOfAChip, isTheChipInMemoryBitForBit) {
  Random random;
  SCOPED_TRACE(random.seedText());
  Chip inMemory(smallProfile());
  {
    Chip inFile{ChipImage(path_)};
    for (int round = 0; round < 500; ++round) {
      const U32 row = random.between(0, 15);
      const xpLpmPrefixEntry entry = random.oneIn(4)   ? xpLpmPrefixEntry()
                                     : random.oneIn(2) ? wideEntry(random)
                                                       : fullEntry(random);
      xpLpmNhiEntry nhi;
      nhi.base[random.between(0, 5)] = random.between(0, 4094);
      xpNextHopEntry nextHop{.valid = 1, .way = row, .nextHopId = random.word()};
      for (Chip* chip : {&inMemory, &inFile}) {
        ASSERT_EQ(chip->writePrefixRow(Family::ipv6, row % 2, row, entry), XP_NO_ERR);
        ASSERT_EQ(chip->writeNhiRow(Family::ipv4, row % 2, row * 4, nhi), XP_NO_ERR);
        ASSERT_EQ(chip->writeNextHopRow(row * 8, nextHop), XP_NO_ERR);
      }
    }
  }
  const Chip inFile{ChipImage(path_)};
  EXPECT_TRUE(std::ranges::equal(inFile.memory().words(), inMemory.memory().words()));
  EXPECT_EQ(inFile.rowsUsed(Family::ipv6), inMemory.rowsUsed(Family::ipv6));
  EXPECT_GT(inFile.rowsUsed(Family::ipv6), 0U);
}

TEST_F(ImageOfAChip, aLookUpGoesTheSameWayAfterOpening) {
  const std::array<U8, 4> address{10, 1, 2, 3};
  const LpmKey key = LpmKey::of(0, address.data(), 4);
  U32 row = 0;
  {
    Chip chip{ChipImage(path_)};
    row = chip.explain(Family::ipv4, 0, address.data()).tables[0].row;
    xpLpmPrefixEntry entry;
    entry.mode = kSparseModeCode;
    entry.stride = 10;
    entry.nhiTile = 1;
    entry.nhiOffset = 7;
    setBranch(entry, key, 35);
    setLeaf(entry, 2, key, 40);
    xpLpmNhiEntry nhi;
    nhi.base[2] = 100;
    nhi.size[2] = 4;
    ASSERT_EQ(chip.writePrefixRow(Family::ipv4, 0, row, entry), XP_NO_ERR);
    ASSERT_EQ(chip.writeNhiRow(Family::ipv4, 1, 7, nhi), XP_NO_ERR);
  }
  const Chip chip{ChipImage(path_)};
  const LookupResult found = chip.lookup(Family::ipv4, 0, address.data());
  EXPECT_TRUE(found.matched);
  EXPECT_EQ(found.matchLen, 40U);
  EXPECT_EQ(found.base, 100U);
  EXPECT_EQ(found.size, 4U);
}

TEST_F(ImageOfAChip, tellsTheWholeProfile) {
  ChipProfile profile = smallProfile(8, 11);
  profile.description = "Two \"words\" and an umlaut: \u00fc.";
  profile.ipv6.nhi.groupMask = 0x81;
  profile.ipv6.nhi.tileBitmap = {5, 0, 0, 0, 0, 0, 0, 128};
  profile.ipv6.nhi.tableSize = 12345;
  const std::filesystem::path path = directory_ / "other.img";
  { const ChipImage made(path, profile); }
  const ChipImage opened(path);
  EXPECT_EQ(opened.profile().name, profile.name);
  EXPECT_EQ(opened.profile().description, profile.description);
  EXPECT_EQ(shapeDifference(opened.profile(), profile), "");
  EXPECT_EQ(opened.profile().ipv6.nhi.tiles(), 3U);
  EXPECT_EQ(opened.path(), path);
}

TEST_F(ImageOfAChip, rowsNeverWrittenTakeNoRoomOnTheDisk) {
  ChipProfile large = smallProfile();
  large.ipv4.tables.assign(16, {.tread = 35, .rows = 65536});
  const std::filesystem::path path = directory_ / "large.img";
  ChipImage image(path, large);

  struct stat status {};

  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_GT(status.st_size, 32 << 20);
  EXPECT_LT(status.st_blocks * 512, 128 << 10);
}

TEST_F(ImageOfAChip, isForOneChipAtATime) {
  {
    const Chip chip{ChipImage(path_)};
    EXPECT_EQ(errorOfOpening(), "chip.img: is in use by another chip, expected one at a time");
    EXPECT_EQ(errorOf([&] { const ChipImage other(path_, smallProfile(), ExistingFile::replace); }),
              "chip.img: is in use by another chip, expected one at a time");
  }
  EXPECT_EQ(errorOfOpening(), "no error");
}

TEST_F(ImageOfAChip, movedImageKeepsTheLock) {
  std::optional<ChipImage> first(path_);
  const ChipImage second(std::move(*first));
  first.reset();
  EXPECT_EQ(errorOfOpening(), "chip.img: is in use by another chip, expected one at a time");
}

TEST_F(ImageOfAChip, isReplacedOnlyWhenAskedTo) {
  spoil([this](std::string& bytes) { bytes[wordsAt() + 77] = 1; });
  EXPECT_EQ(errorOf([&] { const ChipImage image(path_, smallProfile()); }),
            "chip.img: exists, expected a new name, or leave to replace the image there");
  EXPECT_NE(numberAt(bytesOf(path_), wordsAt() + 72), 0U);
  // Of another shape, and damaged at that.
  spoil([](std::string& bytes) { bytes[kChecksumAt] ^= 1; });
  ChipProfile other = smallProfile();
  other.nextHopRows = 16;
  ChipImage image(path_, other, ExistingFile::replace);
  EXPECT_EQ(image.profile().nextHopRows, 16U);
  EXPECT_TRUE(std::ranges::all_of(image.words(), [](U64 word) { return word == 0; }));
}

TEST_F(ImageOfAChip, whatIsNoImageIsNeverReplaced) {
  const std::filesystem::path path = directory_ / "letter";
  bytesAre(path, "Dear friend,");
  const auto replace = [&] { const ChipImage image(path, smallProfile(), ExistingFile::replace); };
  EXPECT_EQ(errorOf(replace),
            "letter: is something else, expected a chip image, which begins with \"XDKSIMG\"");
  EXPECT_EQ(bytesOf(path), "Dear friend,");
  // What remains of a process that was ended while it made the file.
  bytesAre(path, "");
  EXPECT_EQ(errorOf(replace), "no error");
  EXPECT_EQ(errorOfOpening(path), "no error");
}

TEST_F(ImageOfAChip, cutAnywhereItIsRefusedAndCanBeReplaced) {
  const std::string whole = bytesOf(path_);
  for (std::size_t length = 0; length < whole.size(); length += length < 200 ? 1 : 97) {
    bytesAre(path_, whole.substr(0, length));
    const std::string error = errorOfOpening();
    ASSERT_TRUE(error.starts_with("chip.img: ")) << length << ": " << error;
    ASSERT_NE(error.find(", expected "), error.npos) << length << ": " << error;
    if (length == 0 || length >= 8) {
      ASSERT_EQ(
          errorOf([&] { const ChipImage image(path_, smallProfile(), ExistingFile::replace); }),
          "no error")
          << length;
    }
  }
  bytesAre(path_, whole.substr(0, 100));
  EXPECT_EQ(errorOfOpening(), "chip.img: 100 bytes, expected a header of 128");
  bytesAre(path_, whole.substr(0, whole.size() - 8));
  EXPECT_EQ(errorOfOpening(), "chip.img: " + std::to_string(whole.size() - 8) +
                                  " bytes, expected " + std::to_string(whole.size()) +
                                  " by its profile");
  bytesAre(path_, whole + "x");
  EXPECT_EQ(errorOfOpening(), "chip.img: " + std::to_string(whole.size() + 1) +
                                  " bytes, expected " + std::to_string(whole.size()) +
                                  " by its profile");
  bytesAre(path_, "");
  EXPECT_EQ(errorOfOpening(),
            "chip.img: is empty, expected a chip image, which begins with \"XDKSIMG\"");
}

TEST_F(ImageOfAChip, damageOfAnyByteOfTheHeaderIsSeen) {
  const std::string whole = bytesOf(path_);
  const std::size_t profileEnd = kProfileAt + numberAt(whole, kProfileLengthAt);
  for (std::size_t at = 0; at < profileEnd; ++at) {
    if (at == kHeaderEnd) {
      at = kProfileAt;
    }
    std::string bytes = whole;
    bytes[at] ^= static_cast<char>(1 << at % 8);
    bytesAre(path_, bytes);
    ASSERT_NE(errorOfOpening(), "no error") << "byte " << at;
  }
}

TEST_F(ImageOfAChip, otherFilesAndVersionsAreTold) {
  const std::string whole = bytesOf(path_);
  spoil([](std::string& bytes) { numberAtIs(bytes, kVersionAt, 2); });
  EXPECT_EQ(errorOfOpening(), "chip.img: format version 2, expected 1");
  spoil([](std::string& bytes) { bytes[0] = 'Y'; });
  EXPECT_EQ(errorOfOpening(),
            "chip.img: is something else, expected a chip image, which begins with \"XDKSIMG\"");
  bytesAre(path_, whole);
  spoil([](std::string& bytes) { numberAtIs(bytes, kChecksumAt, 0x1234); });
  EXPECT_TRUE(errorOfOpening().starts_with("chip.img: header is damaged, its checksum is 0x"));
  EXPECT_TRUE(errorOfOpening().ends_with(", expected 0x0000000000001234"));
}

TEST_F(ImageOfAChip, aDamagedRedoRecordIsRefused) {
  const std::string words = std::to_string(ChipLayout(smallProfile()).words());
  spoil([](std::string& bytes) { numberAtIs(bytes, kRedoAt, kRedoMark + 5); });
  EXPECT_EQ(errorOfOpening(),
            "chip.img: redo record is damaged, state 0x7265646f00000005 at word 0, expected 0, or "
            "1 to 4 words of " +
                words);
  spoil([](std::string& bytes) { numberAtIs(bytes, kRedoAt, 4); });
  EXPECT_TRUE(errorOfOpening().starts_with("chip.img: redo record is damaged")) << errorOfOpening();
  const U64 last = ChipLayout(smallProfile()).words() - 1;
  for (const U64 first : {last, last + 1, ~U64{0}, ~U64{0} - 1}) {
    spoil([first](std::string& bytes) {
      numberAtIs(bytes, kRedoAt, kRedoMark + 2);
      numberAtIs(bytes, kRedoAt + 8, first);
    });
    EXPECT_TRUE(errorOfOpening().starts_with("chip.img: redo record is damaged")) << first;
  }
}

TEST_F(ImageOfAChip, anUnfinishedWriteIsFinishedByOpening) {
  const std::size_t first = ChipLayout(smallProfile()).words() - 4;
  spoil([&](std::string& bytes) {
    numberAtIs(bytes, kRedoAt, kRedoMark + 3);
    numberAtIs(bytes, kRedoAt + 8, first);
    for (std::size_t word = 0; word < 4; ++word) {
      numberAtIs(bytes, kRedoAt + 16 + word * 8, 0x1111 * (word + 1));
    }
  });
  {
    ChipImage image(path_);
    EXPECT_TRUE(image.finishedWrite());
    EXPECT_EQ(image.words()[first - 1], 0U);
    EXPECT_EQ(image.words()[first], 0x1111U);
    EXPECT_EQ(image.words()[first + 1], 0x2222U);
    EXPECT_EQ(image.words()[first + 2], 0x3333U);
    EXPECT_EQ(image.words()[first + 3], 0U);
  }
  EXPECT_FALSE(ChipImage(path_).finishedWrite());
}

TEST_F(ImageOfAChip, chipsOfOtherShapesAreTold) {
  const ChipImage image(path_);
  const auto error = [&](void (*change)(ChipProfile&)) {
    ChipProfile wanted = smallProfile();
    wanted.name = "wanted";
    change(wanted);
    return errorOf([&] { image.requireShape(wanted); });
  };
  EXPECT_EQ(error([](ChipProfile&) {}), "no error");
  EXPECT_EQ(error([](ChipProfile& wanted) { wanted.ipv4.tables[2].rows = 32; }),
            "chip.img: chip \"small\": ipv4.tables[2].rows: 8, expected 32 of \"wanted\"");
  EXPECT_EQ(error([](ChipProfile& wanted) { wanted.ipv6.tables.pop_back(); }),
            "chip.img: chip \"small\": ipv6.tables: 6 in all, expected 5 of \"wanted\"");
  EXPECT_EQ(error([](ChipProfile& wanted) { wanted.ipv6.nhi.tileBitmap[3] = 1; }),
            "chip.img: chip \"small\": ipv6.nhi.tileBitmap[3]: 0, expected 1 of \"wanted\"");
  EXPECT_EQ(error([](ChipProfile& wanted) { wanted.nextHopRows = 64; }),
            "chip.img: chip \"small\": nextHopTable.rows: 128, expected 64 of \"wanted\"");
}

TEST_F(ImageDirectory, everyProfileComesBackFromItsText) {
  U32 profiles = 0;
  for (const auto& entry : std::filesystem::directory_iterator(TARNLET_SOURCE_DIR "/profiles")) {
    const ChipProfile profile = readProfile(entry.path().string());
    const ChipProfile back = parseProfile(profileText(profile), "text");
    EXPECT_EQ(shapeDifference(back, profile), "") << entry.path();
    EXPECT_EQ(back.name, profile.name);
    EXPECT_EQ(back.description, profile.description);
    ++profiles;
  }
  EXPECT_GT(profiles, 3U);
}

TEST_F(ImageDirectory, whatCannotBeOpenedIsTold) {
  EXPECT_EQ(errorOfOpening(),
            "chip.img: cannot be opened (No such file or directory), expected a chip image");
  std::filesystem::create_directory(directory_ / "dir");
  EXPECT_EQ(errorOfOpening(directory_ / "dir"),
            "dir: cannot be opened (Is a directory), expected a chip image");
  ASSERT_EQ(mkfifo((directory_ / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(errorOfOpening(directory_ / "fifo"),
            "fifo: is not a regular file, expected a chip image");
  EXPECT_EQ(errorOfOpening("/dev/null"), "/dev/null: is not a regular file, expected a chip image");
  EXPECT_EQ(errorOf([&] { const ChipImage image(directory_ / "no" / "chip.img", smallProfile()); }),
            "no/chip.img: cannot be made (No such file or directory), expected a place for a chip "
            "image");
}

TEST_F(ImageDirectory, whatIsForbiddenIsTold) {
  // Root may do everything, so it steps down.
  const bool root = geteuid() == 0;
  { const ChipImage made(path_, smallProfile()); }
  std::filesystem::permissions(path_, std::filesystem::perms::none);
  std::filesystem::permissions(directory_, std::filesystem::perms::owner_read |
                                               std::filesystem::perms::owner_exec |
                                               std::filesystem::perms::others_exec);
  if (root) {
    ASSERT_EQ(seteuid(65534), 0);
  }
  const std::string opened = errorOfOpening();
  const std::string made =
      errorOf([&] { const ChipImage image(directory_ / "new.img", smallProfile()); });
  if (root) {
    ASSERT_EQ(seteuid(0), 0);
  }
  std::filesystem::permissions(directory_, std::filesystem::perms::owner_all);
  EXPECT_EQ(opened, "chip.img: cannot be opened (Permission denied), expected a chip image");
  EXPECT_EQ(made, "new.img: cannot be made (Permission denied), expected a place for a chip image");
}

TEST_F(ImageDirectory, profileOfNoChipMakesNoFile) {
  ChipProfile profile = smallProfile();
  profile.nextHopRows = 0;
  EXPECT_THROW(ChipImage(path_, profile), ProfileError);
  EXPECT_FALSE(std::filesystem::exists(path_));
}

}  // namespace
}  // namespace XdkSim
