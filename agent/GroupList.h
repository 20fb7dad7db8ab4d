#pragma once

#include <filesystem>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/WriteFaults.h"
#include "framework/Vellor/Types.h"
#include "model/NextHopBlock.h"

namespace Quarle::Agent {

/// The list of groups could not be written. One line with what failed and where. The groups go on
/// without a list.
class GroupListError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Who may lead routes to a group.
enum class GroupKind : U8 {
  /// Whoever asks for its list of next hops.
  shared,
  /// Its maker alone.
  own,
  /// Nobody new: old rows of a group, for the routes that have not left them yet.
  left,
  /// Nobody new: rows of which nothing is known but that adopted routes lead there.
  stranger,
};

/// What is to be known of a group beyond what the chip holds.
struct GroupRecord {
  TarnletNextHop::SwId group = {};
  GroupKind kind = GroupKind::shared;
  TarnletNextHop::NextHopBlock block = {};
  std::vector<U64> nextHops = {};
  // While the rows are being rewritten where they are: what they held before, else empty. Each row
  // holds the one or the other.
  std::vector<U64> former = {};
  // While the routes are on their way here: where the rows were before, else null.
  TarnletNextHop::NextHopBlock from = {};

  bool operator==(const GroupRecord&) const = default;
};

/// The groups of a `NextHopGroups` in a file, for the client that comes after this one: a next-hop
/// table tells neither where a group begins nor whose it is.
///
/// The file is a journal: a change is one checksummed record at its end, written by one call before
/// the chip is changed, so that whatever the chip's routes point to is in the file at any moment. A
/// change costs the same whatever the number of groups. When most of the journal is out of date a
/// new one is written beside it and renamed over it. A record that its writer died in has no
/// effect. All this is against the death of the process, which the kernel's copy of the file
/// outlives: nothing waits for the disk.
///
/// Layout, in 64-bit words of the machine: a mark and the version, then frames. A frame is the
/// number of words of its body and their checksum, the body, and its checksum. Each checksum goes
/// on from the one before it, so that no byte can change, and no frame be missing, unnoticed. The
/// first frame names the chip, each other one holds changes that come into effect together.
///
/// Written by `NextHopGroups`; read once by the client that restarts. A file that cannot be written
/// is removed, since a list that is out of date is worse than none: that is noted in the client's
/// faults, and nothing is written from then on.
class GroupList {
 public:
  /// What a file tells.
  struct Contents {
    // By rising number.
    std::vector<GroupRecord> groups;
    // Why the file tells nothing, in one line; empty when it does.
    std::string fault;
  };

  /// One step of a change.
  struct Step {
    GroupRecord record;
    // The group is no more; all but its number is without meaning.
    bool ends = false;
  };

  /// Reads the list that was written for the chip of this name.
  static Contents read(const std::filesystem::path& path, const std::string& chip);

  /// Nothing is written, and a file that is there stays, until `writeAll`.
  GroupList(std::filesystem::path path, std::string chip, WriteFaults& faults);
  ~GroupList();

  GroupList(const GroupList&) = delete;
  GroupList& operator=(const GroupList&) = delete;

  /// Makes these groups the whole list, at once or not at all.
  void writeAll(std::span<const GroupRecord> groups);

  /// Adds a change whose steps come into effect together.
  ///
  /// REQUIRES: `writeAll` came before.
  void change(std::span<const Step> steps);

  /// Whether most of the file is out of date, so that `writeAll` is due.
  bool isOvergrown() const { return words_ > 2 * liveWords_ + kSlackWords; }

 private:
  using Words = std::vector<U64>;

  // 64 KiB.
  static constexpr U64 kSlackWords = 8192;

  void noteStep(const Step& step, U64 words);
  void append(const Words& words);
  void fail(const std::string& what);
  void close();

  std::filesystem::path path_;
  const std::string chip_;
  WriteFaults& faults_;
  int file_ = -1;
  bool hasFailed_ = false;
  // Of the last frame written.
  U64 checksum_ = 0;
  U64 words_ = 0;
  U64 liveWords_ = 0;
  // Words of the last step of each group.
  std::vector<U32> wordsOf_;
};

}  // namespace Quarle::Agent
