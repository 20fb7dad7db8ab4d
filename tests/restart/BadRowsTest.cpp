// Rows with random bits flipped: the walk takes a row over, refuses it, or ends in one of the ways
// that it is told to end, in a child process; behind pre-flight it takes over all that is left.

#include <algorithm>
#include <array>
#include <csignal>
#include <random>

#include "tests/restart/RestartChip.h"

#include <sys/wait.h>
#include <unistd.h>

namespace Quarle::Agent::Testing {
namespace {

/// The SDK over a chip with one row's record replaced. Damage may leave what no packed row can
/// hold.
class DamagedLpmMgr final : public xpIpRouteLpmMgr {
 public:
  DamagedLpmMgr(xpIpRouteLpmMgr& chip, const RowPlace& place, const xpLpmPrefixEntry& row)
      : chip_(chip), place_(place), row_(row) {}

  XP_STATUS readPrefixEntry(
      U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry, U8 flag) override {
    if (RowPlace{.table = tableId, .row = index} == place_) {
      *entry = row_;
      return XP_NO_ERR;
    }
    return chip_.readPrefixEntry(device, tableId, index, entry, flag);
  }

  XP_STATUS writePrefixEntry(U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry) override {
    if (RowPlace{.table = tableId, .row = index} == place_) {
      row_ = *entry;
      return XP_NO_ERR;
    }
    return chip_.writePrefixEntry(device, tableId, index, entry);
  }

  XP_STATUS readNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry, U8 flag) override {
    return chip_.readNhiEntry(device, tile, index, entry, flag);
  }

  XP_STATUS writeNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry) override {
    return chip_.writeNhiEntry(device, tile, index, entry);
  }

 private:
  xpIpRouteLpmMgr& chip_;
  const RowPlace place_;
  xpLpmPrefixEntry row_;
};

/// A few tables, so that a restart takes no time.
XdkSim::ChipProfile tinyChip() {
  XdkSim::ChipProfile profile = restartProfile();
  profile.ipv4.tables.erase(profile.ipv4.tables.begin() + 1);
  profile.ipv4.tables[0].rows = 4;
  profile.ipv4.tables[1].rows = 2;
  profile.ipv6.tables.resize(1);
  profile.ipv6.tables[0].rows = 4;
  profile.ipv4.nhi.entriesPerTile = 16;
  profile.ipv6.nhi.entriesPerTile = 16;
  return profile;
}

class DamagedRows : public ::testing::TestWithParam<bool> {
 protected:
  static constexpr U32 kRows = 50'000;
  static constexpr U32 kRowsPerChild = 1'000;

  enum Verdict : U8 { adopted, refused, raised, fatal, kVerdicts };

  using Counts = std::array<U32, kVerdicts>;

  void SetUp() override {
    restart = std::make_unique<RestartChip>(GetParam(), tinyChip());
    restart->start(/*warm=*/false);
    std::mt19937_64 random(Tarnlet::Testing::testSeed());
    for (U32 i = 0; i < 200; ++i) {
      Key key;
      key.longKey = GetParam();
      key.bytes = {0, 0, 10, 0};
      for (U32 byte = 4; byte < key.fullLength() / 8U; ++byte) {
        key.bytes[byte] = static_cast<U8>(random());
      }
      const U32 length = GetParam() ? 70 + random() % 70 : 30 + random() % 19;
      restart->tryRoute(key.cut(static_cast<U8>(length)), 1 + static_cast<U32>(random() % 3));
      restart->write();
    }
    restart->stop();
    restart->eachRow([this](const RowPlace& place, const xpLpmPrefixEntry& entry) {
      if (entry.stride != 0) {
        places.push_back(place);
        rows.push_back(entry);
      }
    });
    ASSERT_GE(rows.size(), 4U);
  }

  /// Row `number` of the run and where it stands: a row of the chip with one to four bits flipped,
  /// half of them in front of the leaves, which decide most.
  std::pair<RowPlace, xpLpmPrefixEntry> damaged(U32 number) const {
    std::mt19937_64 random(Tarnlet::Testing::testSeed() * kRows + number);
    const std::size_t which = random() % rows.size();
    xpLpmPrefixEntry row = rows[which];
    for (U64 flips = 1 + random() % 4; flips != 0; --flips) {
      const U64 bytes = random() % 2 == 0 ? 52 : sizeof row;
      U64 bit = random() % (bytes * 8);
      if (random() % 2 == 0) {
        // In the low byte of a header field: higher ones are refused at once.
        bit = random() % 6 * 32 + random() % 8;
      }
      reinterpret_cast<U8*>(&row)[bit / 8] ^= static_cast<U8>(1U << bit % 8);
    }
    return {places[which], row};
  }

  /// What the walk makes of the row. Fatal checks end the process.
  Verdict walk(const RowPlace& place, xpIpRouteLpmMgr& manager) {
    try {
      restart->start(/*warm=*/true, &manager);
    } catch (const BadRowError&) {
      return raised;
    } catch (const Vellor::RangeException&) {
      return raised;
    }
    const Tarnlet::PrefixTable::Ptr table = restart->sm->prefixTable(place.table);
    return table->subTrie(place.row) != nullptr ? adopted : refused;
  }

  /// Walks rows from `first` on in a child, which writes a byte for each; the number of bytes that
  /// came is that of rows that were not fatal.
  std::string walkInChild(U32 first, U32 count, std::string& words, int& status) {
    int verdicts[2];
    int errors[2];
    EXPECT_EQ(pipe(verdicts), 0);
    EXPECT_EQ(pipe(errors), 0);
    const pid_t child = fork();
    if (child == 0) {
      close(verdicts[0]);
      close(errors[0]);
      dup2(errors[1], STDERR_FILENO);
      for (U32 number = first; number < first + count; ++number) {
        const auto [place, row] = damaged(number);
        DamagedLpmMgr manager(restart->sdk, place, row);
        const char verdict = static_cast<char>(walk(place, manager));
        restart->stop();
        if (write(verdicts[1], &verdict, 1) != 1) {
          _exit(3);
        }
      }
      _exit(0);
    }
    close(verdicts[1]);
    close(errors[1]);
    const std::string seen = readAll(verdicts[0]);
    words = readAll(errors[0]);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return seen;
  }

  static std::string readAll(int file) {
    std::string text;
    std::array<char, 4096> buffer;
    for (ssize_t got = 0; (got = read(file, buffer.data(), buffer.size())) > 0;) {
      text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    close(file);
    return text;
  }

  /// The checks that a row may fail once it is taken over: in the walk, and in the sweep behind it
  /// when its block lies across another one.
  static bool isKnownEnd(const std::string& words) {
    for (const char* check : {"Failed(nhiBaseIdx == nhiInfo->nhiBaseIdx()) ", "Failed(blk) "}) {
      if (words.find(check) != words.npos) {
        return true;
      }
    }
    return false;
  }

  std::unique_ptr<RestartChip> restart;
  std::vector<RowPlace> places;
  std::vector<xpLpmPrefixEntry> rows;
};

INSTANTIATE_TEST_SUITE_P(BothFamilies, DamagedRows, ::testing::Bool(), [](const auto& info) {
  return info.param ? "ipv6" : "ipv4";
});

TEST_P(DamagedRows, areAdoptedOrRefusedOrEndInAKnownWay) {
  Counts counts{};
  for (U32 first = 0; first < kRows;) {
    std::string words;
    int status = 0;
    const U32 count = std::min(kRowsPerChild, kRows - first);
    const std::string seen = walkInChild(first, count, words, status);
    for (const char verdict : seen) {
      ++counts[static_cast<std::size_t>(verdict)];
    }
    first += static_cast<U32>(seen.size());
    if (seen.size() == count) {
      ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << words;
      continue;
    }
    // The row behind the last verdict ended the child.
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT && isKnownEnd(words))
        << "row " << first << ": " << words;
    ++counts[fatal];
    ++first;
  }
  RecordProperty("adopted", static_cast<int>(counts[adopted]));
  RecordProperty("fatal", static_cast<int>(counts[fatal]));
  EXPECT_GT(counts[adopted], kRows / 10);
  EXPECT_GT(counts[refused], kRows / 10);
  EXPECT_GT(counts[raised], 0U);
  // The long keys' rows share no block here.
  EXPECT_EQ(counts[fatal] > 0, !GetParam());
}

TEST_P(DamagedRows, areNoDangerBehindPreFlight) {
  U32 sound = 0;
  for (U32 number = 0; number < kRows; ++number) {
    const auto [place, row] = damaged(number);
    RestartChip copy(GetParam(), tinyChip());
    copy.copyFrom(*restart);
    DamagedLpmMgr manager(copy.sdk, place, row);
    PreFlightReport report;
    ASSERT_NO_THROW(report = preFlight(copy.agentFamily(), *copy.config, manager)) << number;
    ASSERT_NO_THROW(copy.start(/*warm=*/true, &manager)) << number;
    ASSERT_EQ(copy.subTries(), report.rowsSound) << number;
    ASSERT_EQ(copy.config->requests(), report.prefixes) << number;
    sound += copy.sm->prefixTable(place.table)->subTrie(place.row) != nullptr ? 1 : 0;
  }
  EXPECT_GT(sound, kRows / 10);
  EXPECT_LT(sound, kRows);
}

}  // namespace
}  // namespace Quarle::Agent::Testing
