// Records are for the same machine that wrote them, so words go out as they are.

#include "agent/GroupList.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fstream>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "agent/source/Random.h"

namespace Quarle::Agent {

namespace {

using TarnletNextHop::NextHopBlock;
using TarnletNextHop::SwId;
using Words = std::vector<U64>;

// "TNLGROUP", the first byte lowest.
constexpr U64 kMark = 0x50554f52474c4e54;
constexpr U64 kVersion = 1;
constexpr U64 kWord = sizeof(U64);

enum Operation : U64 { kPut = 1, kEnd = 2 };

/// One to one in `checksum` for each word: two runs of words that differ in one have different
/// checksums.
U64 checksumOf(U64 checksum, std::span<const U64> words) {
  for (const U64 word : words) {
    checksum = mixed(checksum ^ word) + kMark;
  }
  return checksum;
}

U64 startChecksum() {
  const std::array<U64, 2> start = {kMark, kVersion};
  return checksumOf(0, start);
}

/// Adds a frame with this body; the checksum that the next one goes on from.
U64 addFrame(Words& file, U64 checksum, std::span<const U64> body) {
  const U64 length = body.size();
  const U64 lengthChecksum = checksumOf(checksum, {&length, 1});
  const U64 bodyChecksum = checksumOf(lengthChecksum, body);
  file.push_back(length);
  file.push_back(lengthChecksum);
  file.insert(file.end(), body.begin(), body.end());
  file.push_back(bodyChecksum);
  return bodyChecksum;
}

void addBlock(Words& body, const NextHopBlock& block) {
  body.push_back(block.base().value());
  body.push_back(block.size().value());
}

void addList(Words& body, std::span<const U64> list) {
  body.push_back(list.size());
  body.insert(body.end(), list.begin(), list.end());
}

void addStep(Words& body, const GroupRecord& record, bool ends) {
  body.push_back(ends ? kEnd : kPut);
  body.push_back(record.group.value());
  if (ends) {
    return;
  }
  body.push_back(static_cast<U64>(record.kind));
  addBlock(body, record.block);
  addBlock(body, record.from);
  addList(body, record.nextHops);
  addList(body, record.former);
}

Words nameWords(const std::string& name) {
  Words words(1 + (name.size() + kWord - 1) / kWord);
  words[0] = name.size();
  std::memcpy(words.data() + 1, name.data(), name.size());
  return words;
}

/// Takes words out of a body, front to back.
class BodyReader {
 public:
  explicit BodyReader(std::span<const U64> words) : words_(words) {}

  bool done() const { return words_.empty() || isBroken_; }

  bool isBroken() const { return isBroken_; }

  U64 word() {
    const std::span<const U64> one = take(1);
    return one.empty() ? 0 : one.front();
  }

  NextHopBlock block() {
    const U64 base = word();
    return {static_cast<U32>(base), static_cast<U16>(word())};
  }

  std::vector<U64> list() {
    const std::span<const U64> all = take(word());
    return {all.begin(), all.end()};
  }

 private:
  std::span<const U64> take(U64 count) {
    if (count > words_.size()) {
      isBroken_ = true;
      return {};
    }
    const std::span<const U64> taken = words_.first(count);
    words_ = words_.subspan(count);
    return taken;
  }

  std::span<const U64> words_;
  bool isBroken_ = false;
};

GroupRecord recordOf(BodyReader& body) {
  GroupRecord record;
  record.kind = static_cast<GroupKind>(body.word());
  record.block = body.block();
  record.from = body.block();
  record.nextHops = body.list();
  record.former = body.list();
  return record;
}

class Reader {
 public:
  Reader(const Words& words, const std::string& chip) : left_(words), chip_(chip) {}

  /// The fault, or empty.
  std::string read() {
    if (left_.size() < 2 || left_[0] != kMark) {
      return "is no list of next-hop groups, expected its mark in the first 16 bytes";
    }
    if (left_[1] != kVersion) {
      return "is a list of version " + std::to_string(left_[1]) + ", expected " +
             std::to_string(kVersion);
    }
    left_ = left_.subspan(2);
    const std::optional<std::span<const U64>> name = frame();
    if (!name) {
      return isDamaged_ ? damaged() : "ends before it names its chip, expected \"" + chip_ + "\"";
    }
    if (const Words expected = nameWords(chip_);
        !std::equal(name->begin(), name->end(), expected.begin(), expected.end())) {
      return "is the list of another chip, expected that of \"" + chip_ + "\"";
    }
    while (const std::optional<std::span<const U64>> changes = frame()) {
      if (!carryOut(BodyReader(*changes))) {
        return damaged();
      }
    }
    if (isDamaged_ || !overlap().empty()) {
      return isDamaged_ ? damaged() : overlap();
    }
    return "";
  }

  std::vector<GroupRecord> groups() const {
    std::vector<GroupRecord> result;
    for (const auto& [number, record] : groups_) {
      result.push_back(record);
    }
    return result;
  }

 private:
  /// The body of the next frame; nothing at the end, before a frame that its writer died in, and
  /// before a damaged one.
  std::optional<std::span<const U64>> frame() {
    if (left_.size() < 2) {
      return std::nullopt;
    }
    const U64 lengthChecksum = checksumOf(checksum_, left_.first(1));
    if (lengthChecksum != left_[1]) {
      isDamaged_ = true;
      return std::nullopt;
    }
    const U64 length = left_[0];
    if (left_.size() - 2 <= length) {
      return std::nullopt;
    }
    const std::span<const U64> body = left_.subspan(2, length);
    checksum_ = checksumOf(lengthChecksum, body);
    if (checksum_ != left_[2 + length]) {
      isDamaged_ = true;
      return std::nullopt;
    }
    frameAt_ += 3 + length;
    left_ = left_.subspan(3 + length);
    return body;
  }

  bool carryOut(BodyReader body) {
    while (!body.done()) {
      const U64 operation = body.word();
      const U64 group = body.word();
      if (operation == kEnd) {
        groups_.erase(group);
        continue;
      }
      GroupRecord record = recordOf(body);
      record.group = SwId(group);
      if (operation != kPut || record.kind > GroupKind::left) {
        return false;
      }
      groups_[group] = std::move(record);
    }
    return !body.isBroken();
  }

  std::string damaged() const {
    return "is damaged behind byte " + std::to_string(frameAt_ * kWord) +
           ", expected a record with its checksum";
  }

  /// Two groups on one row are nothing that was ever written.
  std::string overlap() const {
    std::map<U32, const GroupRecord*> byBase;
    for (const auto& [number, record] : groups_) {
      byBase.emplace(record.block.base().value(), &record);
    }
    U64 end = 0;
    for (const auto& [base, record] : byBase) {
      if (base < end) {
        return "has two groups on next-hop row " + std::to_string(base) + ", expected one";
      }
      end = U64{base} + record->block.size().value();
    }
    return byBase.size() == groups_.size() ? "" : "has two groups that begin on one row";
  }

  std::span<const U64> left_;
  const std::string& chip_;
  U64 checksum_ = startChecksum();
  U64 frameAt_ = 2;
  bool isDamaged_ = false;
  std::map<U64, GroupRecord> groups_;
};

}  // namespace

GroupList::Contents GroupList::read(const std::filesystem::path& path, const std::string& chip) {
  const std::string name = "next-hop groups " + path.string() + ": ";
  std::error_code ignored;
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  const std::streamoff size = file ? static_cast<std::streamoff>(file.tellg()) : -1;
  // A folder opens like a file, and tells a size that means nothing.
  if (size < 0 || !std::filesystem::is_regular_file(path, ignored)) {
    return {.groups = {}, .fault = name + "cannot be read, expected a file"};
  }
  // Bytes of a last word that is not whole are those of a record that is not, too.
  Words words(static_cast<U64>(size) / kWord);
  file.seekg(0);
  file.read(reinterpret_cast<char*>(words.data()),
            static_cast<std::streamsize>(words.size() * kWord));
  if (!file) {
    return {.groups = {}, .fault = name + "cannot be read, expected a file"};
  }
  Reader reader(words, chip);
  if (const std::string fault = reader.read(); !fault.empty()) {
    return {.groups = {}, .fault = name + fault};
  }
  return {.groups = reader.groups(), .fault = ""};
}

GroupList::GroupList(std::filesystem::path path, std::string chip, WriteFaults& faults)
    : path_(std::move(path)), chip_(std::move(chip)), faults_(faults) {}

GroupList::~GroupList() { close(); }

void GroupList::writeAll(std::span<const GroupRecord> groups) {
  if (hasFailed_) {
    return;
  }
  Words words = {kMark, kVersion};
  checksum_ = addFrame(words, startChecksum(), nameWords(chip_));
  words_ = 0;
  liveWords_ = 0;
  wordsOf_.clear();
  Words body;
  for (const GroupRecord& record : groups) {
    const U64 before = body.size();
    addStep(body, record, /*ends=*/false);
    noteStep({.record = record}, body.size() - before);
  }
  checksum_ = addFrame(words, checksum_, body);
  const std::filesystem::path fresh = path_.string() + ".new";
  close();
  file_ = ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
  if (file_ < 0) {
    fail("cannot be written (" + std::string(std::strerror(errno)) + ")");
    return;
  }
  append(words);
  if (!hasFailed_ && ::rename(fresh.c_str(), path_.c_str()) != 0) {
    fail("cannot be put in place (" + std::string(std::strerror(errno)) + ")");
  }
}

void GroupList::change(std::span<const Step> steps) {
  if (hasFailed_) {
    return;
  }
  Words body;
  for (const Step& step : steps) {
    const U64 before = body.size();
    addStep(body, step.record, step.ends);
    noteStep(step, body.size() - before);
  }
  Words words;
  checksum_ = addFrame(words, checksum_, body);
  append(words);
}

/// Counts the words of a step, in place of the group's step before.
void GroupList::noteStep(const Step& step, U64 words) {
  const U64 group = step.record.group.value();
  if (group >= wordsOf_.size()) {
    wordsOf_.resize(group + 1);
  }
  const U32 now = step.ends ? 0 : static_cast<U32>(words);
  liveWords_ = liveWords_ - wordsOf_[group] + now;
  wordsOf_[group] = now;
}

void GroupList::append(const Words& words) {
  const char* bytes = reinterpret_cast<const char*>(words.data());
  std::size_t left = words.size() * kWord;
  while (left != 0) {
    const ssize_t written = ::write(file_, bytes, left);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      fail("cannot be written (" + std::string(std::strerror(errno)) + ")");
      return;
    }
    bytes += written;
    left -= static_cast<std::size_t>(written);
  }
  words_ += words.size();
}

void GroupList::fail(const std::string& what) {
  hasFailed_ = true;
  close();
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
  std::filesystem::remove(path_.string() + ".new", ignored);
  faults_.note(std::make_exception_ptr(
      GroupListError("next-hop groups " + path_.string() + ": " + what +
                     ", expected a place with room; groups are not kept for a restart now")));
}

void GroupList::close() {
  if (file_ >= 0) {
    ::close(file_);
    file_ = -1;
  }
}

}  // namespace Quarle::Agent
