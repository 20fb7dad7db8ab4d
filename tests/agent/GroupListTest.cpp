#include "agent/GroupList.h"

#include <csignal>
#include <map>
#include <string>
#include <vector>

#include <sys/resource.h>

#include "agent/source/Random.h"
#include "tests/agent/LastingChip.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::bytesAre;
using Testing::bytesOf;
using Testing::TestFolder;

GroupRecord record(U64 number, U32 base, std::vector<U64> nextHops) {
  const auto ways = static_cast<U16>(nextHops.size());
  return {.group = SwId(number),
          .kind = GroupKind::shared,
          .block = NextHopBlock(base, ways),
          .nextHops = std::move(nextHops)};
}

std::string textOf(const GroupRecord& record) {
  constexpr const char* kKinds[] = {"shared", "own", "left", "stranger"};
  std::string text = std::to_string(record.group.value()) + " " +
                     kKinds[static_cast<std::size_t>(record.kind)] + " at " +
                     std::to_string(record.block.base().value()) + "+" +
                     std::to_string(record.block.size().value()) + ":";
  for (const U64 nextHop : record.nextHops) {
    text += " " + std::to_string(nextHop);
  }
  if (!record.former.empty()) {
    text += ", were";
    for (const U64 nextHop : record.former) {
      text += " " + std::to_string(nextHop);
    }
  }
  if (record.from != NextHopBlock()) {
    text += ", from " + std::to_string(record.from.base().value());
  }
  return text + "\n";
}

class GroupListTest : public ::testing::Test {
 protected:
  GroupList& list() {
    if (!list_) {
      list_.emplace(path, "chip", faults_);
    }
    return *list_;
  }

  void put(const GroupRecord& record) {
    const GroupList::Step step{.record = record};
    list().change({&step, 1});
  }

  void end(U64 number) {
    const GroupList::Step step{.record = {.group = SwId(number)}, .ends = true};
    list().change({&step, 1});
  }

  /// The groups, a line each, or the fault behind the file's name.
  std::string read(const std::string& chip = "chip") const {
    const GroupList::Contents contents = GroupList::read(path, chip);
    if (!contents.fault.empty()) {
      const std::string name = "next-hop groups " + path.string() + ": ";
      EXPECT_TRUE(contents.fault.starts_with(name)) << contents.fault;
      return contents.fault.substr(name.size());
    }
    std::string text;
    for (const GroupRecord& each : contents.groups) {
      text += textOf(each);
    }
    return text;
  }

  std::string fault() {
    try {
      faults_.raiseIfAny();
    } catch (const GroupListError& error) {
      return error.what();
    }
    return "none";
  }

  TestFolder folder;
  const std::filesystem::path path = folder / "groups";
  WriteFaults faults_;
  std::optional<GroupList> list_;
};

TEST_F(GroupListTest, tellsWhatWasWrittenLastOfEachGroup) {
  list().writeAll(std::vector{record(0, 0, {7}), record(1, 1, {8, 9})});
  put(record(5, 10, {1, 2, 3}));
  GroupRecord changing = record(1, 1, {8, 10});
  changing.former = {8, 9};
  changing.kind = GroupKind::own;
  put(changing);
  GroupRecord moving = record(0, 4, {7});
  moving.from = NextHopBlock(0, 1);
  moving.kind = GroupKind::left;
  put(moving);
  EXPECT_EQ(read(),
            "0 left at 4+1: 7, from 0\n"
            "1 own at 1+2: 8 10, were 8 9\n"
            "5 shared at 10+3: 1 2 3\n");
  end(1);
  EXPECT_EQ(read(),
            "0 left at 4+1: 7, from 0\n"
            "5 shared at 10+3: 1 2 3\n");
  EXPECT_EQ(fault(), "none");
}

TEST_F(GroupListTest, anEmptyListIsAList) {
  list().writeAll({});
  EXPECT_EQ(read(), "");
}

TEST_F(GroupListTest, aMissingFileTellsNothing) {
  EXPECT_EQ(read(), "cannot be read, expected a file");
}

TEST_F(GroupListTest, anotherFileIsNoList) {
  bytesAre(path, "10.0.0.0/8 1 2 3, a table of routes");
  EXPECT_EQ(read(), "is no list of next-hop groups, expected its mark in the first 16 bytes");
}

TEST_F(GroupListTest, anotherVersionIsToldByItsNumber) {
  list().writeAll({});
  std::string bytes = bytesOf(path);
  bytes[8] = 2;
  bytesAre(path, bytes);
  EXPECT_EQ(read(), "is a list of version 2, expected 1");
}

TEST_F(GroupListTest, anotherChipsListIsRefused) {
  list().writeAll(std::vector{record(0, 0, {7})});
  EXPECT_EQ(read("other"), "is the list of another chip, expected that of \"other\"");
  EXPECT_EQ(read("chip2"), "is the list of another chip, expected that of \"chip2\"");
}

TEST_F(GroupListTest, stepsOfOneChangeComeIntoEffectTogether) {
  list().writeAll(std::vector{record(0, 0, {7}), record(1, 4, {8, 9})});
  const std::string before = read();
  const std::size_t size = bytesOf(path).size();
  // The two exchange their rows: neither alone could be.
  const std::vector<GroupList::Step> steps = {{.record = record(0, 4, {8, 9})},
                                              {.record = record(1, 0, {7})}};
  list().change(steps);
  const std::string bytes = bytesOf(path);
  const std::string after = read();
  EXPECT_NE(before, after);
  for (std::size_t length = size; length < bytes.size(); ++length) {
    bytesAre(path, bytes.substr(0, length));
    ASSERT_EQ(read(), before) << "cut behind byte " << length;
  }
}

TEST_F(GroupListTest, whereverItIsCutItTellsWhatWasOrThatItIsCut) {
  list().writeAll(std::vector{record(0, 0, {7})});
  std::map<std::size_t, std::string> toldAt = {{bytesOf(path).size(), read()}};
  for (U32 i = 1; i < 6; ++i) {
    put(record(i, i * 4, std::vector<U64>(i, i)));
    toldAt[bytesOf(path).size()] = read();
  }
  end(3);
  toldAt[bytesOf(path).size()] = read();
  const std::string bytes = bytesOf(path);
  for (std::size_t length = 0; length <= bytes.size(); ++length) {
    bytesAre(path, bytes.substr(0, length));
    const auto behind = toldAt.upper_bound(length);
    if (behind == toldAt.begin()) {
      // Only a file that was not put in place by its rename can be so short.
      const std::string told = read();
      ASSERT_TRUE(told.empty() || told.find("expected") != std::string::npos) << told;
    } else {
      ASSERT_EQ(read(), std::prev(behind)->second) << "cut behind byte " << length;
    }
  }
}

TEST_F(GroupListTest, noDamagedByteGoesUnnoticed) {
  list().writeAll(std::vector{record(0, 0, {7}), record(1, 1, {8, 9})});
  put(record(2, 10, {1, 2, 3}));
  end(0);
  const std::string bytes = bytesOf(path);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    for (const int flip : {0x01, 0x80, 0xff}) {
      std::string damaged = bytes;
      damaged[i] = static_cast<char>(damaged[i] ^ flip);
      bytesAre(path, damaged);
      ASSERT_NE(read().find("expected"), std::string::npos)
          << "byte " << i << " flipped by " << flip << " reads as\n"
          << read();
    }
  }
}

TEST_F(GroupListTest, aFrameFromElsewhereInTheFileIsNotBelieved) {
  list().writeAll(std::vector{record(0, 0, {7})});
  const std::size_t first = bytesOf(path).size();
  put(record(1, 1, {8}));
  const std::size_t second = bytesOf(path).size();
  put(record(1, 1, {9}));
  std::string bytes = bytesOf(path);
  ASSERT_EQ(bytes.size() - second, second - first);
  bytes.erase(first, second - first);
  bytesAre(path, bytes);
  EXPECT_EQ(read(), "is damaged behind byte " + std::to_string(first) +
                        ", expected a record with its checksum");
}

TEST_F(GroupListTest, twoGroupsOnOneRowAreNoList) {
  list().writeAll(std::vector{record(0, 0, {7, 8}), record(1, 1, {9})});
  EXPECT_EQ(read(), "has two groups on next-hop row 1, expected one");
}

TEST_F(GroupListTest, theFileGrowsWithWhatIsInItAndNotWithWhatHappened) {
  list().writeAll({});
  std::map<U64, GroupRecord> groups;
  Random random(7);
  for (U32 i = 0; i < 20000; ++i) {
    const U64 number = random.below(50);
    if (random.chance(300)) {
      groups.erase(number);
      end(number);
    } else {
      groups[number] = record(number, static_cast<U32>(number) * 8, {i, i + 1});
      put(groups[number]);
    }
    if (list().isOvergrown()) {
      std::vector<GroupRecord> all;
      for (const auto& [each, of] : groups) {
        all.push_back(of);
      }
      list().writeAll(all);
    }
  }
  std::string expected;
  for (const auto& [number, of] : groups) {
    expected += textOf(of);
  }
  EXPECT_EQ(read(), expected);
  EXPECT_LT(std::filesystem::file_size(path), 100000U);
  EXPECT_FALSE(std::filesystem::exists(path.string() + ".new"));
}

TEST_F(GroupListTest, aFileThatCannotBeWrittenIsToldOnceAndGone) {
  list().writeAll(std::vector{record(0, 0, {7})});
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit none{.rlim_cur = bytesOf(path).size() + 20, .rlim_max = RLIM_INFINITY};
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
  put(record(1, 1, {8}));
  put(record(2, 2, {9}));
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_EQ(fault(), "next-hop groups " + path.string() +
                         ": cannot be written (File too large), expected a place with room; groups "
                         "are not kept for a restart now");
  EXPECT_EQ(fault(), "none");
  EXPECT_FALSE(std::filesystem::exists(path)) << "what it told is out of date";
  put(record(3, 3, {9}));
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(GroupList, aFolderThatIsNotThereIsToldAtTheFirstWrite) {
  WriteFaults faults;
  GroupList list("/nowhere/groups", "chip", faults);
  list.writeAll({});
  try {
    faults.raiseIfAny();
    FAIL() << "nothing was told";
  } catch (const GroupListError& error) {
    EXPECT_EQ(std::string(error.what()),
              "next-hop groups /nowhere/groups: cannot be written (No such file or directory), "
              "expected a place with room; groups are not kept for a restart now");
  }
}

}  // namespace
}  // namespace Quarle::Agent
