#include "framework/Vellor/LinkQueue.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Random.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

constexpr U32 kLast = ~U32{0};

using Queue = LinkQueue<std::string>;

/// "index:value" from head to tail, and the next index where a test asks for it.
std::string text(const Queue& queue) {
  std::string all;
  for (auto member = queue.iterator(); member; ++member) {
    all += (all.empty() ? "" : " ") + std::to_string(member.key()) + ":" + member.value();
  }
  return all;
}

Queue queueOf(std::initializer_list<const char*> values, U32 first = 0) {
  Queue queue;
  queue.metadataIs({first, first});
  for (const char* value : values) {
    queue.enq(value);
  }
  return queue;
}

std::string deq(Queue& queue) {
  std::string value;
  U32 index = 0;
  return queue.deq(value, index) ? std::to_string(index) + ":" + value : "nothing";
}

void take(Queue& queue, U32 index) {
  bool removed = false;
  queue.take(index, removed);
  ASSERT_TRUE(removed) << index << " of " << text(queue);
}

TEST(LinkQueue, numbersFromZeroInOrderOfArrival) {
  Queue queue;
  EXPECT_EQ(queue.enq("a"), 0U);
  EXPECT_EQ(queue.enq("b"), 1U);
  EXPECT_EQ(queue.enq("c"), 2U);
  EXPECT_EQ(text(queue), "0:a 1:b 2:c");
  EXPECT_EQ(queue.count(), 3U);
}

TEST(LinkQueue, yieldsFromTheHead) {
  Queue queue = queueOf({"a", "b"});
  EXPECT_EQ(deq(queue), "0:a");
  EXPECT_EQ(deq(queue), "1:b");
  EXPECT_EQ(deq(queue), "nothing");
}

TEST(LinkQueue, numberingGoesOnAfterTheLastMemberWent) {
  Queue queue = queueOf({"a", "b"});
  deq(queue);
  deq(queue);
  EXPECT_EQ(queue.enq("c"), 2U);
  take(queue, 2);
  EXPECT_EQ(queue.enq("d"), 3U);
}

TEST(LinkQueue, readsTheDefaultOfAnAbsentIndex) {
  const Queue queue = queueOf({"a", "b"}, 5);
  EXPECT_EQ(queue.value(5), "a");
  for (const U32 absent : {0U, 4U, 7U, kLast}) {
    EXPECT_EQ(queue.value(absent), "") << absent;
    EXPECT_FALSE(queue.isMember(absent)) << absent;
  }
}

TEST(LinkQueue, anExplicitIndexIsSortedIn) {
  Queue queue = queueOf({"a"}, 10);
  EXPECT_TRUE(queue.set(20, "d"));
  EXPECT_TRUE(queue.set(5, "first"));
  EXPECT_TRUE(queue.set(15, "c"));
  EXPECT_EQ(text(queue), "5:first 10:a 15:c 20:d");
  EXPECT_FALSE(queue.set(15, "c"));
  EXPECT_TRUE(queue.set(15, "other"));
  EXPECT_EQ(text(queue), "5:first 10:a 15:other 20:d");
}

TEST(LinkQueue, numberingGoesOnBehindAnExplicitTail) {
  Queue queue = queueOf({"a"});
  queue.set(50, "b");
  EXPECT_EQ(queue.enq("c"), 51U);
  queue.set(30, "between");
  EXPECT_EQ(queue.enq("d"), 52U);
}

TEST(LinkQueue, anExplicitIndexNeverTakesNumberingBack) {
  Queue queue = queueOf({"a", "b", "c"});
  take(queue, 1);
  take(queue, 2);
  queue.set(1, "again");
  EXPECT_EQ(queue.enq("d"), 3U);
  Queue emptied = queueOf({"a"}, 100);
  deq(emptied);
  emptied.set(5, "b");
  EXPECT_EQ(emptied.enq("c"), 101U);
  EXPECT_EQ(text(emptied), "5:b 101:c");
}

TEST(LinkQueue, anExplicitIndexBelowTheHeadGoesBeforeItHoweverFar) {
  Queue queue = queueOf({"b"}, 3000000000U);
  queue.set(1, "a");
  queue.set(4000000000U, "c");
  EXPECT_EQ(text(queue), "1:a 3000000000:b 4000000000:c");
}

TEST(LinkQueue, membersLeaveFromTheMiddle) {
  Queue queue = queueOf({"a", "b", "c", "d", "e"});
  bool removed = false;
  EXPECT_EQ(queue.take(2, removed), "c");
  EXPECT_TRUE(removed);
  EXPECT_EQ(queue.take(2, removed), "");
  EXPECT_FALSE(removed);
  EXPECT_EQ(text(queue), "0:a 1:b 3:d 4:e");
  EXPECT_EQ(queue.value(3), "d");
  EXPECT_EQ(queue.value(4), "e");
  EXPECT_EQ(deq(queue), "0:a");
  EXPECT_EQ(deq(queue), "1:b");
  EXPECT_EQ(deq(queue), "3:d");
}

TEST(LinkQueue, indicesRunPastTheLastToZero) {
  Queue queue = queueOf({"a", "b", "c", "d"}, kLast - 1);
  EXPECT_EQ(text(queue), "4294967294:a 4294967295:b 0:c 1:d");
  EXPECT_EQ(queue.value(kLast), "b");
  EXPECT_EQ(queue.value(0), "c");
  EXPECT_EQ(queue.value(2), "");
  queue.set(0, "C");
  take(queue, kLast);
  EXPECT_EQ(text(queue), "4294967294:a 0:C 1:d");
  queue.set(kLast, "B");
  EXPECT_EQ(text(queue), "4294967294:a 4294967295:B 0:C 1:d");
  EXPECT_EQ(deq(queue), "4294967294:a");
  EXPECT_EQ(deq(queue), "4294967295:B");
  EXPECT_EQ(queue.enq("e"), 2U);
  EXPECT_EQ(text(queue), "0:C 1:d 2:e");
}

TEST(LinkQueue, numberingRoundTheEndSurvivesTheTail) {
  Queue queue = queueOf({"a", "b", "c"}, kLast - 1);
  take(queue, 0);
  take(queue, kLast);
  EXPECT_EQ(queue.enq("d"), 1U);
  EXPECT_EQ(text(queue), "4294967294:a 1:d");
}

void expectFull(Queue& queue) {
  const std::string before = text(queue);
  try {
    queue.enq("too many");
    FAIL() << "an index was found: " << text(queue);
  } catch (const RangeException& exception) {
    EXPECT_EQ(exception.message(), "linkqueue index space full");
  }
  EXPECT_EQ(text(queue), before);
}

TEST(LinkQueue, theLastFreeIndexIsNeverTaken) {
  Queue queue = queueOf({"a"});
  queue.metadataIs({0, kLast});
  expectFull(queue);
  queue.metadataIs({0, kLast - 1});
  EXPECT_EQ(queue.enq("b"), kLast - 1);
  expectFull(queue);
  deq(queue);
  EXPECT_EQ(queue.enq("c"), kLast);
  EXPECT_EQ(text(queue), "4294967294:b 4294967295:c");
}

TEST(LinkQueue, theSpaceIsFullJustBelowTheHead) {
  Queue queue = queueOf({"a"}, 10);
  queue.metadataIs({10, kLast});
  EXPECT_EQ(queue.enq("b"), kLast);
  EXPECT_EQ(queue.enq("c"), 0U);
  queue.metadataIs({10, 9});
  expectFull(queue);
  // An explicit index at the tail needs the same room.
  EXPECT_THROW(queue.set(9, "d"), RangeException);
  EXPECT_TRUE(queue.set(8, "d"));
  EXPECT_EQ(text(queue), "10:a 4294967295:b 0:c 8:d");
  expectFull(queue);
}

TEST(LinkQueue, metadataTellsHeadAndNextIndex) {
  Queue queue;
  EXPECT_EQ(queue.metadata(), (LinkQueueMetadata{0, 0}));
  queue = queueOf({"a", "b", "c"}, 7);
  EXPECT_EQ(queue.metadata(), (LinkQueueMetadata{7, 10}));
  deq(queue);
  EXPECT_EQ(queue.metadata(), (LinkQueueMetadata{8, 10}));
  deq(queue);
  deq(queue);
  EXPECT_EQ(queue.metadata(), (LinkQueueMetadata{10, 10}));
}

TEST(LinkQueue, metadataComparesBothFields) {
  EXPECT_EQ((LinkQueueMetadata{1, 2}), (LinkQueueMetadata{1, 2}));
  EXPECT_NE((LinkQueueMetadata{1, 2}), (LinkQueueMetadata{0, 2}));
  EXPECT_NE((LinkQueueMetadata{1, 2}), (LinkQueueMetadata{1, 3}));
}

TEST(LinkQueue, settingTheMetadataNeverTakesNumberingIntoTheMembers) {
  Queue queue = queueOf({"a", "b", "c"}, 5);
  for (const U32 tail : {0U, 4U, 5U, 6U, 7U, 8U}) {
    queue.metadataIs({5, tail});
    EXPECT_EQ(queue.metadata().tail, 8U) << tail;
  }
  queue.metadataIs({5, 100});
  EXPECT_EQ(queue.enq("d"), 100U);
  Queue wrapped = queueOf({"a", "b", "c"}, kLast);
  for (const U32 tail : {0U, 1U, 2U, kLast}) {
    wrapped.metadataIs({kLast, tail});
    EXPECT_EQ(wrapped.metadata().tail, 2U) << tail;
  }
}

TEST(LinkQueue, aCopyIsIndependent) {
  Queue queue = queueOf({"a", "b", "c", "d", "e", "f"});
  deq(queue);
  deq(queue);
  queue.enq("g");
  Queue copy = queue;
  EXPECT_EQ(text(copy), text(queue));
  EXPECT_EQ(copy.enq("x"), 7U);
  EXPECT_EQ(queue.enq("y"), 7U);
  deq(copy);
  EXPECT_EQ(text(queue), "2:c 3:d 4:e 5:f 6:g 7:y");
  EXPECT_EQ(text(copy), "3:d 4:e 5:f 6:g 7:x");
  copy = queue;
  EXPECT_EQ(text(copy), text(queue));
}

TEST(LinkQueue, equalityIsOfMembersInOrderNotOfNumbers) {
  EXPECT_EQ(queueOf({"a", "b"}), queueOf({"a", "b"}, 100));
  EXPECT_NE(queueOf({"a", "b"}), queueOf({"b", "a"}));
  EXPECT_NE(queueOf({"a", "b"}), queueOf({"a"}));
  EXPECT_EQ(Queue(), Queue());
}

TEST(LinkQueue, reservingKeepsMembersAndNumbers) {
  Queue queue = queueOf({"a", "b"});
  deq(queue);
  queue.reserve(100);
  EXPECT_EQ(text(queue), "1:b");
  EXPECT_EQ(queue.enq("c"), 2U);
}

TEST(LinkQueue, aWalkThatDeletesTheMemberItStandsOnReachesAllOthers) {
  for (const U32 first : {0U, kLast - 4}) {
    Queue queue = queueOf({"a", "b", "c", "d", "e", "f", "g", "h"}, first);
    std::string visited;
    for (auto member = queue.iterator(); member; ++member) {
      visited += member.value();
      take(queue, member.key());
      EXPECT_EQ(member.value().substr(0, 1), visited.substr(visited.size() - 1));
    }
    EXPECT_EQ(visited, "abcdefgh") << "from " << first;
    EXPECT_EQ(queue.count(), 0U);
  }
}

TEST(LinkQueue, aWalkGoesOnWhenItsMemberAndTheHeadHaveGone) {
  Queue queue = queueOf({"a", "b", "c", "d"}, kLast - 1);
  auto member = queue.iterator();
  ++member;
  EXPECT_EQ(member.value(), "b");
  deq(queue);
  deq(queue);
  queue.enq("e");
  EXPECT_EQ(member.value(), "b") << "what it saw when it came to stand there";
  ++member;
  EXPECT_EQ(member.value(), "c");
  deq(queue);
  deq(queue);
  ++member;
  EXPECT_EQ(member.value(), "e");
  ++member;
  EXPECT_FALSE(member);
}

TEST(LinkQueue, aWalkOfExplicitIndicesFarApartVisitsEachOnce) {
  Queue queue;
  for (const U32 index : {kLast - 1, 0U, 1000000000U, 2000000000U, 3000000000U}) {
    queue.set(index, "x");
  }
  std::string visited;
  for (auto member = queue.iterator(); member; ++member) {
    visited += std::to_string(member.key()) + " ";
  }
  EXPECT_EQ(visited, "0 1000000000 2000000000 3000000000 4294967294 ");
}

// Against a sorted map of positions that never wrap: a position's low half is the index.
TEST(LinkQueue, behavesAsASortedListOfPositions) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (U32 round = 0; round < 200; ++round) {
    U64 next = (U64{1} << 32) - random.between(0, 60);
    std::map<U64, std::string> model;
    Queue queue;
    queue.metadataIs({static_cast<U32>(next), static_cast<U32>(next)});
    for (U32 step = 0; step < 200; ++step) {
      const std::string value = std::to_string(step);
      switch (random.between(0, 4)) {
        case 0:
        case 1:
          ASSERT_EQ(queue.enq(value), static_cast<U32>(next));
          model[next++] = value;
          break;
        case 2: {
          const std::string expected =
              model.empty() ? "nothing"
                            : std::to_string(static_cast<U32>(model.begin()->first)) + ":" +
                                  model.begin()->second;
          ASSERT_EQ(deq(queue), expected);
          if (!model.empty()) {
            model.erase(model.begin());
          }
          break;
        }
        case 3: {
          if (model.empty()) {
            break;
          }
          // Between head and tail, where a member may stand or be missing.
          const U64 head = model.begin()->first;
          const U64 position = head + random.between(0, static_cast<U32>(next - 1 - head));
          queue.set(static_cast<U32>(position), value);
          model[position] = value;
          break;
        }
        default: {
          if (model.empty()) {
            break;
          }
          const auto victim =
              std::next(model.begin(), random.between(0, static_cast<U32>(model.size()) - 1));
          take(queue, static_cast<U32>(victim->first));
          model.erase(victim);
          break;
        }
      }
      std::string expected;
      for (const auto& [position, standing] : model) {
        expected += (expected.empty() ? "" : " ") + std::to_string(static_cast<U32>(position)) +
                    ":" + standing;
        ASSERT_EQ(queue.value(static_cast<U32>(position)), standing);
      }
      ASSERT_EQ(text(queue), expected) << "round " << round << " step " << step;
    }
  }
}

}  // namespace
}  // namespace Vellor
