// A chip image and the processes around it: ended at any moment, side by side, short of room.

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/Random.h"
#include "tests/xdksim/ImageDirectory.h"
#include "tests/xdksim/PrintRowPlace.h"
#include "tests/xdksim/SmallProfile.h"
#include "xdksim/Chip.h"

namespace XdkSim {
namespace {

/// A number that shows in every word of a row.
U64 spread(U64 stamp) { return stamp * 0x9e3779b97f4a7c15 | U64{1} << 63; }

xpLpmPrefixEntry prefixRecord(U64 stamp, U32 width) {
  xpLpmPrefixEntry entry;
  if (stamp != 0) {
    entry.mode = 1;
    entry.branchLen = 24;
    entry.stride = 64;
    std::memcpy(entry.branch, &stamp, 3);
    for (U32 slot = 0; slot < width / 64 - 1; ++slot) {
      entry.leafVal[slot] = spread(stamp);
    }
  }
  return entry;
}

xpLpmNhiEntry nhiRecord(U64 stamp) {
  xpLpmNhiEntry entry;
  for (U32 pair = 0; pair < 6 && stamp != 0; ++pair) {
    entry.base[pair] = static_cast<U32>(stamp >> (pair % 2 == 0 ? 0 : 12) & 0xfff);
    entry.size[pair] = static_cast<U32>(spread(stamp) >> 40 & 0xff);
  }
  return entry;
}

xpNextHopEntry nextHopRecord(U64 stamp) {
  if (stamp == 0) {
    return {};
  }
  return {.valid = 1, .way = static_cast<U32>(stamp & 0xffff), .nextHopId = spread(stamp)};
}

U32 widthOf(const Chip& chip, const RowPlace& place) {
  return chip.profile().family(place.family).tables[place.table].sramWidth;
}

void write(Chip& chip, const RowPlace& place, U64 stamp) {
  XP_STATUS status = XP_NO_ERR;
  switch (place.kind) {
    case RowKind::prefix:
      status = chip.writePrefixRow(place.family, place.table, place.row,
                                   prefixRecord(stamp, widthOf(chip, place)));
      break;
    case RowKind::nhi:
      status = chip.writeNhiRow(place.family, place.table, place.row, nhiRecord(stamp));
      break;
    case RowKind::nextHop:
      status = chip.writeNextHopRow(place.row, nextHopRecord(stamp));
      break;
  }
  ASSERT_EQ(status, XP_NO_ERR) << chip.lastError();
}

/// The stamp of a row that was written with it as a whole, nothing for a mixture.
std::optional<U64> stampOf(const Chip& chip, const RowPlace& place) {
  U64 stamp = 0;
  bool whole = false;
  if (place.kind == RowKind::prefix) {
    xpLpmPrefixEntry entry;
    EXPECT_EQ(chip.readPrefixRow(place.family, place.table, place.row, entry), XP_NO_ERR);
    std::memcpy(&stamp, entry.branch, 3);
    const xpLpmPrefixEntry expected = prefixRecord(stamp, widthOf(chip, place));
    whole = std::memcmp(&entry, &expected, sizeof entry) == 0;
  } else if (place.kind == RowKind::nhi) {
    xpLpmNhiEntry entry;
    EXPECT_EQ(chip.readNhiRow(place.family, place.table, place.row, entry), XP_NO_ERR);
    stamp = entry.base[0] | U64{entry.base[1]} << 12;
    const xpLpmNhiEntry expected = nhiRecord(stamp);
    whole = std::memcmp(&entry, &expected, sizeof entry) == 0;
  } else {
    xpNextHopEntry entry;
    EXPECT_EQ(chip.readNextHopRow(place.row, entry), XP_NO_ERR);
    // The inverse of the factor, modulo 2 to the power 63.
    stamp = entry.valid == 0 ? 0 : entry.nextHopId * 0xf1de83e19937733d & 0xffffff;
    const xpNextHopEntry expected = nextHopRecord(stamp);
    whole = entry.valid == expected.valid && entry.way == expected.way &&
            entry.nextHopId == expected.nextHopId;
  }
  return whole ? std::optional(stamp) : std::nullopt;
}

/// Where a writer that goes round and round over all rows stands.
struct Progress {
  U64 stamp = 1;
  std::size_t row = 0;
  // "" unless some row is a mixture or was skipped.
  std::string fault;
};

Progress progressOf(const Chip& chip) {
  const std::vector<RowPlace> rows = chip.memory().layout().rows();
  Progress progress;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::optional<U64> stamp = stampOf(chip, rows[i]);
    if (!stamp) {
      progress.fault = toText(rows[i]) + " is a mixture";
      return progress;
    }
    if (i == 0) {
      progress = {.stamp = *stamp, .row = rows.size(), .fault = ""};
    } else if (*stamp + 1 == progress.stamp) {
      progress.row = std::min(progress.row, i);
    } else if (*stamp != progress.stamp || progress.row != rows.size()) {
      progress.fault = toText(rows[i]) + " has stamp " + std::to_string(*stamp) + ", row 0 " +
                       std::to_string(progress.stamp);
      return progress;
    }
  }
  return progress;
}

/// A process that ends with this object at the latest, by SIGKILL.
class Child {
 public:
  /// `body` runs in the child and never returns from it: the child's exit code is what it yields.
  explicit Child(const std::function<int()>& body) : id_(fork()) {
    EXPECT_GE(id_, 0);
    if (id_ == 0) {
      _exit(body());
    }
  }

  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  ~Child() {
    if (id_ > 0) {
      killed();
    }
  }

  pid_t id() const { return id_; }

  void killed() {
    kill(id_, SIGKILL);
    ended();
  }

  /// Its wait status.
  int ended() {
    int status = 0;
    waitpid(id_, &status, 0);
    id_ = -1;
    return status;
  }

 private:
  pid_t id_;
};

/// Carries bytes from a child.
class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe(ends_), 0); }

  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  ~Pipe() {
    close(ends_[0]);
    close(ends_[1]);
  }

  bool put(const std::string& text) {
    return ::write(ends_[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }

  /// What was put in one go.
  std::string take() {
    std::string text(4096, '\0');
    const ssize_t count = ::read(ends_[0], text.data(), text.size());
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
  }

 private:
  int ends_[2];
};

class ChipImageProcess : public ImageDirectory {
 protected:
  void SetUp() override {
    ImageDirectory::SetUp();
    const ChipImage made(path_, smallProfile());
  }

  std::size_t filesInDirectory() const {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(directory_), {}));
  }
};

TEST_F(ChipImageProcess, killedAtRandomMomentsEveryRowIsOldOrNew) {
  Random random;
  SCOPED_TRACE(random.seedText());
  U32 finishedWrites = 0;
  for (int round = 0; round < 200; ++round) {
    Pipe ready;
    Child child([&] {
      Chip chip{ChipImage(path_)};
      Progress progress = progressOf(chip);
      const std::vector<RowPlace> rows = chip.memory().layout().rows();
      ready.put("!");
      for (;; ++progress.stamp, progress.row = 0) {
        for (; progress.row < rows.size(); ++progress.row) {
          write(chip, rows[progress.row], progress.stamp);
        }
      }
      return 0;
    });
    ASSERT_EQ(ready.take(), "!");
    usleep(random.between(0, 1500));
    child.killed();
    ChipImage image(path_);
    finishedWrites += U32{image.finishedWrite()};
    const Progress progress = progressOf(Chip(std::move(image)));
    ASSERT_EQ(progress.fault, "") << "round " << round;
  }
  RecordProperty("finishedWrites", static_cast<int>(finishedWrites));
  EXPECT_GT(progressOf(Chip{ChipImage(path_)}).stamp, 1U);
  EXPECT_EQ(filesInDirectory(), 1U);
}

/// The file's bytes while somebody else writes to it.
class Watched {
 public:
  explicit Watched(const std::filesystem::path& path)
      : descriptor_(open(path.c_str(), O_RDONLY)), bytes_(std::filesystem::file_size(path), '\0') {
    changed();
  }

  Watched(const Watched&) = delete;
  Watched& operator=(const Watched&) = delete;

  ~Watched() { close(descriptor_); }

  bool changed() {
    std::string now(bytes_.size(), '\0');
    EXPECT_EQ(pread(descriptor_, now.data(), now.size(), 0), static_cast<ssize_t>(now.size()));
    now.swap(bytes_);
    return now != bytes_;
  }

  const std::string& bytes() const { return bytes_; }

 private:
  int descriptor_;
  std::string bytes_;
};

class KilledAtAnyInstruction : public ChipImageProcess,
                               public testing::WithParamInterface<RowPlace> {
 protected:
  std::vector<U64> wordsAfter(const std::function<void(Chip&)>& change) const {
    Chip chip(smallProfile());
    change(chip);
    const std::span<const U64> words = chip.memory().words();
    return {words.begin(), words.end()};
  }
};

// The writer goes through a write instruction by instruction, and whenever the file has changed a
// copy of it is opened: that is what would be found had the writer been killed there.
TEST_P(KilledAtAnyInstruction, rowIsOldOrNew) {
  const RowPlace place = GetParam();
  // The write before goes elsewhere, so that what it left in the redo record belongs to no row
  // here.
  RowPlace elsewhere = place;
  --elsewhere.row;
  const auto prepare = [&](Chip& chip) {
    write(chip, place, 0x123456);
    write(chip, elsewhere, 0x777777);
  };
  const std::vector<U64> before = wordsAfter(prepare);
  const std::vector<U64> after = wordsAfter([&](Chip& chip) {
    prepare(chip);
    write(chip, place, 0xabcdef);
  });
  Child child([&] {
    Chip chip{ChipImage(path_)};
    prepare(chip);
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
      return 1;
    }
    ::raise(SIGSTOP);
    write(chip, place, 0xabcdef);
    return 0;
  });
  int status = 0;
  ASSERT_EQ(waitpid(child.id(), &status, 0), child.id());
  if (!WIFSTOPPED(status)) {
    GTEST_SKIP() << "a process may not be traced here";
  }

  Watched file(path_);
  const std::filesystem::path copy = directory_ / "copy.img";
  U32 states = 0;
  U32 finishedWrites = 0;
  bool isNew = false;
  while (true) {
    ASSERT_EQ(ptrace(PTRACE_SINGLESTEP, child.id(), nullptr, nullptr), 0) << std::strerror(errno);
    ASSERT_EQ(waitpid(child.id(), &status, 0), child.id());
    if (!WIFSTOPPED(status)) {
      break;
    }
    if (!file.changed()) {
      continue;
    }
    ++states;
    bytesAre(copy, file.bytes());
    ChipImage image(copy);
    finishedWrites += U32{image.finishedWrite()};
    const bool newNow = std::ranges::equal(image.words(), after);
    ASSERT_TRUE(newNow || std::ranges::equal(image.words(), before)) << "state " << states;
    ASSERT_TRUE(newNow || !isNew) << "state " << states;
    isNew = newNow;
  }
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(isNew);
  // At least with the record valid and with the row stored.
  EXPECT_GE(finishedWrites, 2U);
  EXPECT_GT(states, finishedWrites);
}

INSTANTIATE_TEST_SUITE_P(
    ChipImage,
    KilledAtAnyInstruction,
    testing::Values(
        RowPlace{.kind = RowKind::prefix, .family = Family::ipv4, .table = 1, .row = 15},
        RowPlace{.kind = RowKind::prefix, .family = Family::ipv4, .table = 2, .row = 3},
        RowPlace{.kind = RowKind::nhi, .family = Family::ipv6, .table = 1, .row = 63},
        RowPlace{.kind = RowKind::nextHop, .family = Family::ipv4, .table = 0, .row = 127}),
    [](const testing::TestParamInfo<RowPlace>& info) {
      std::string name = toText(info.param);
      std::ranges::replace_if(
          name, [](char c) { return c == ' ' || c == '-'; }, '_');
      return name;
    });

TEST_F(ChipImageProcess, theLockEndsWithTheProcess) {
  Pipe ready;
  Child child([&] {
    const Chip chip{ChipImage(path_)};
    ready.put("!");
    pause();
    return 0;
  });
  ASSERT_EQ(ready.take(), "!");
  EXPECT_EQ(errorOfOpening(), "chip.img: is in use by another chip, expected one at a time");
  child.killed();
  EXPECT_EQ(errorOfOpening(), "no error");
}

TEST_F(ChipImageProcess, aFileThatMayNotGrowIsToldAndLeavesNothing) {
  const std::filesystem::path path = directory_ / "new.img";
  Pipe told;
  Child child([&] {
    const rlimit limit{.rlim_cur = 8192, .rlim_max = 8192};
    signal(SIGXFSZ, SIG_IGN);
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) {
      return 1;
    }
    told.put(errorOf([&] { const ChipImage image(path, smallProfile()); }));
    return 0;
  });
  ASSERT_EQ(WEXITSTATUS(child.ended()), 0);
  EXPECT_EQ(told.take(), "new.img: cannot have " +
                             std::to_string(std::filesystem::file_size(path_)) +
                             " bytes (File too large), expected room for the whole chip");
  EXPECT_FALSE(std::filesystem::exists(path));
}

/// Whether this process now has a file system of 64 KiB of its own at `path`.
bool smallDiskAt(const std::filesystem::path& path) {
  const uid_t user = geteuid();
  if (unshare(CLONE_NEWNS) != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
      return false;
    }
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
  }
  // What is mounted here must not show in the parent's tree.
  return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("none", path.c_str(), "tmpfs", 0, "size=64k") == 0;
}

TEST_F(ChipImageProcess, aFullDiskIsToldAndLeavesNothing) {
  const std::filesystem::path disk = directory_ / "disk";
  std::filesystem::create_directory(disk);
  ChipProfile large = smallProfile();
  large.ipv4.tables[0].rows = 4096;
  const std::string needed = [&] {
    const std::filesystem::path path = directory_ / "large.img";
    const ChipImage made(path, large);
    return std::to_string(std::filesystem::file_size(path));
  }();
  Pipe told;
  Child child([&] {
    if (!smallDiskAt(disk)) {
      return 1;
    }
    const auto make = [&] { const ChipImage image(disk / "new.img", large); };
    const std::string tooLarge = errorOf(make);
    const bool left = std::filesystem::exists(disk / "new.img");
    told.put(tooLarge + (left ? " left" : "") + "\n" +
             errorOf([&] { const ChipImage image(disk / "new.img", smallProfile()); }));
    return 0;
  });
  if (WEXITSTATUS(child.ended()) == 1) {
    GTEST_SKIP() << "nothing may be mounted here";
  }
  EXPECT_EQ(told.take(), "disk/new.img: 65536 bytes free in its file system, expected " + needed +
                             " for the whole chip\nno error");
}

}  // namespace
}  // namespace XdkSim
