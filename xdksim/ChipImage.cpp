#include "xdksim/ChipImage.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <string_view>
#include <vector>

#include "xdksim/ChipLayout.h"

namespace XdkSim {

namespace {

constexpr std::array<char, 8> kMagic = {'X', 'D', 'K', 'S', 'I', 'M', 'G', '\0'};
constexpr U64 kVersion = 1;
constexpr U64 kProfileAt = 128;
constexpr U64 kWordsAlignment = 4096;
// Damage of the record is unlikely to leave a count behind it.
constexpr U64 kRedoMark = 0x7265646f00000000;

U64 wordsAt(U64 profileBytes) {
  return (kProfileAt + profileBytes + kWordsAlignment - 1) / kWordsAlignment * kWordsAlignment;
}

/// FNV-1a: any change of one byte changes the sum.
class Checksum {
 public:
  void add(std::span<const std::byte> bytes) {
    for (const std::byte byte : bytes) {
      sum_ = (sum_ ^ static_cast<U64>(byte)) * 0x100000001b3;
    }
  }

  U64 sum() const { return sum_; }

 private:
  U64 sum_ = 0xcbf29ce484222325;
};

U64 checksumOf(U64 words, std::string_view profile) {
  Checksum checksum;
  const std::array<U64, 2> counts = {words, profile.size()};
  checksum.add(std::as_bytes(std::span(counts)));
  checksum.add(std::as_bytes(std::span(profile)));
  return checksum.sum();
}

std::string hex(U64 value) {
  std::string text = "0x";
  for (int shift = 60; shift >= 0; shift -= 4) {
    text += "0123456789abcdef"[value >> shift & 15];
  }
  return text;
}

const char* const kAnImage = "a chip image, which begins with \"XDKSIMG\"";

ChipProfile checked(const ChipProfile& profile) {
  profile.check("chip profile \"" + profile.name + "\"");
  return profile;
}

/// A process is ended between two instructions: what stands before is in the file, what stands
/// behind is not. So it is enough to keep the compiler from moving stores across.
void storesEndHere() { std::atomic_signal_fence(std::memory_order_seq_cst); }

}  // namespace

struct ChipImage::Header {
  std::array<char, 8> magic;
  U64 version;
  U64 checksum;
  U64 words;
  U64 profileBytes;
  std::array<U64, 3> unused;
  // The redo record has a cache line of its own.
  U64 redoState;
  U64 redoFirst;
  std::array<U64, ChipLayout::kMaxRowWords> redoRow;

  void redoStateIs(U64 state) {
    storesEndHere();
    std::atomic_ref<U64>(redoState).store(state, std::memory_order_release);
    storesEndHere();
  }
};

ChipImage::ChipImage(const std::filesystem::path& path,
                     const ChipProfile& profile,
                     ExistingFile existing)
    : file_(ImageFile::make(path, existing)), profile_(checked(profile)) {
  static_assert(sizeof(Header) <= kProfileAt);
  makeContent();
  readHeader();
  file_.keep();
}

ChipImage::ChipImage(const std::filesystem::path& path) : file_(ImageFile::open(path)) {
  readHeader();
}

void ChipImage::makeContent() {
  const std::string profile = profileText(profile_);
  const U64 words = ChipLayout(profile_).words();
  const U64 bytes = wordsAt(profile.size()) + words * sizeof(U64);
  if (file_.bytes() != 0) {
    std::array<char, kMagic.size()> magic{};
    file_.read(0, std::as_writable_bytes(std::span(magic)));
    if (magic != kMagic) {
      file_.fails("is something else", kAnImage);
    }
  }
  file_.requireRoom(bytes);

  // Nothing of an older image remains. The words come last: as long as they are missing the file is
  // too short to be taken for an image.
  file_.bytesAre(0);
  const Header header{.magic = kMagic,
                      .version = kVersion,
                      .checksum = checksumOf(words, profile),
                      .words = words,
                      .profileBytes = profile.size(),
                      .unused = {},
                      .redoState = 0,
                      .redoFirst = 0,
                      .redoRow = {}};
  std::vector<std::byte> start(kProfileAt + profile.size());
  std::memcpy(start.data(), &header, sizeof header);
  std::memcpy(start.data() + kProfileAt, profile.data(), profile.size());
  file_.write(0, start);
  file_.bytesAre(bytes);
}

void ChipImage::readHeader() {
  const U64 bytes = file_.bytes();
  if (bytes == 0) {
    file_.fails("is empty", kAnImage);
  }
  Header header{};
  const std::size_t had = file_.read(0, std::as_writable_bytes(std::span(&header, 1)));
  if (header.magic != kMagic) {
    file_.fails("is something else", kAnImage);
  }
  if (had < sizeof header) {
    file_.fails(std::to_string(bytes) + " bytes", "a header of " + std::to_string(kProfileAt));
  }
  if (header.version != kVersion) {
    file_.fails("format version " + std::to_string(header.version), std::to_string(kVersion));
  }

  // A damaged length must not be believed before the checksum speaks for it.
  const U64 atMost = bytes > kProfileAt ? bytes - kProfileAt : 0;
  std::string profile(std::min(header.profileBytes, atMost), '\0');
  file_.read(kProfileAt, std::as_writable_bytes(std::span(profile)));
  const U64 checksum = checksumOf(header.words, profile);
  if (header.profileBytes > atMost || checksum != header.checksum) {
    file_.fails("header is damaged, its checksum is " + hex(checksum), hex(header.checksum));
  }
  try {
    profile_ = parseProfile(profile, path().string() + ": profile");
  } catch (const ProfileError& error) {
    throw ImageError(error.what());
  }
  const U64 words = ChipLayout(profile_).words();
  if (header.words != words) {
    file_.fails(std::to_string(header.words) + " words", std::to_string(words) + " by its profile");
  }
  const U64 expected = wordsAt(profile.size()) + words * sizeof(U64);
  if (bytes != expected) {
    file_.fails(std::to_string(bytes) + " bytes", std::to_string(expected) + " by its profile");
  }
  mapWords(profile.size());
  finishWrite();
}

void ChipImage::mapWords(U64 profileBytes) {
  std::byte* start = file_.map().data();
  header_ = reinterpret_cast<Header*>(start);
  words_ = {reinterpret_cast<U64*>(start + wordsAt(profileBytes)),
            static_cast<std::size_t>(header_->words)};
}

void ChipImage::finishWrite() {
  const U64 state = header_->redoState;
  if (state == 0) {
    return;
  }
  const U64 count = state - kRedoMark;
  const U64 first = header_->redoFirst;
  if (count < 1 || count > header_->redoRow.size() || first > words_.size() ||
      count > words_.size() - first) {
    file_.fails("redo record is damaged, state " + hex(state) + " at word " + std::to_string(first),
                "0, or 1 to 4 words of " + std::to_string(words_.size()));
  }
  std::copy_n(header_->redoRow.begin(), count, words_.begin() + static_cast<std::ptrdiff_t>(first));
  header_->redoStateIs(0);
  finishedWrite_ = true;
}

void ChipImage::requireShape(const ChipProfile& wanted) const {
  const std::string difference = shapeDifference(profile_, wanted);
  if (!difference.empty()) {
    throw ImageError(path().string() + ": chip \"" + profile_.name + "\": " + difference +
                     " of \"" + wanted.name + "\"");
  }
}

void ChipImage::rowIs(std::size_t first, std::span<const U64> row) {
  header_->redoFirst = first;
  std::copy(row.begin(), row.end(), header_->redoRow.begin());
  header_->redoStateIs(kRedoMark + row.size());
  std::copy(row.begin(), row.end(), words_.begin() + static_cast<std::ptrdiff_t>(first));
  header_->redoStateIs(0);
}

}  // namespace XdkSim
