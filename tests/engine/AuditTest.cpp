// The audit of one route: what is whole passes, and each of its checks finds what it is for.

#include <functional>
#include <string>

#include "framework/Vellor/GenericIf.h"
#include "tests/support/ChipStory.h"
#include "tests/support/TraceLines.h"

#include <gmock/gmock.h>

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Vellor::genericIf;
using Vellor::Testing::TraceLines;

class Audit : public ChipTest {
 protected:
  Audit() {
    chip.tables({{.id = 0, .tread = 16, .depth = 16}}).pairsPerEntry(8);
    chip.route("10.1.0.0/24", via(7)).route("10.1.1.0/24", via(8));
  }

  void verify(const std::string& prefix) {
    genericIf(&chip.sm())->call("verifyLpmRoute", {chip.prefix(prefix)});
  }
};

TEST_F(Audit, whatWasJustRequestedPasses) {
  verify("10.1.0.0/24");
  chip.route("10.1.1.0/24", via(9, 2));
  verify("10.1.1.0/24");
  chip.withdraw("10.1.0.0/24");
  verify("10.1.1.0/24");
}

TEST_F(Audit, usersOfAStandingBlockPass) {
  chip.route("20.0.0.0/24", via(7)).route("20.0.1.0/24", via(8));
  ASSERT_EQ(chip.sm().sharedNhis(), 1U);
  verify("10.1.0.0/24");
  verify("20.0.1.0/24");
}

TEST_F(Audit, changesNothing) {
  chip.commands();
  verify("10.1.0.0/24");
  EXPECT_EQ(chip.commands(), "");
  const U32 requests = chip.config()->requests();
  const LpmPrefix::Ptr stranger = chip.prefix("10.9.0.0/24");
  EXPECT_EXIT(
      {
        chip.sm().prefixToSubTrieIs(stranger, chip.subTrie("10.1.0.0/24"));
        chip.sm().verifyLpmRoute(stranger);
        _exit(chip.config()->requests() == requests ? 0 : 1);
      },
      ::testing::KilledBySignal(SIGABRT), "next hop block mismatch")
      << "a prefix without a request reads as the default block";
}

TEST_F(Audit, tellsItsProgressAtLevelNine) {
  TraceLines lines("TarnletSm", {9});
  verify("10.1.0.0/24");
  const SubTrie::Ptr subTrie = chip.subTrie("10.1.0.0/24");
  const NhiInfo::Ptr info = chip.sm().sharedNhi(subTrie->nhiInfoKey());
  const std::string expected =
      "9:LpmSm:: verifyLpmRoute Prefix:: vrf 0 prefix 10.1.0.0/24\n"
      "9: subtrie " +
      subTrie->str().str() + "\n9: nhiInfo " + info->str().str() + "\n";
  EXPECT_EQ(lines.take(), expected);
}

/// Damages the state by reflection and names what the audit says then.
class AuditDeathTest : public Audit {
 protected:
  AuditDeathTest()
      : prefix_(chip.prefix("10.1.0.0/24")),
        subTrie_(chip.subTrie("10.1.0.0/24")),
        info_(chip.sm().sharedNhi(subTrie_->nhiInfoKey())),
        sm_(genericIf(&chip.sm())),
        subTrieFace_(genericIf(subTrie_)) {}

  void TearDown() override {
    subTrieFace_ = nullptr;
    sm_ = nullptr;
    info_ = nullptr;
    subTrie_ = nullptr;
    Audit::TearDown();
  }

  void op(const Vellor::GenericIf::Ptr& face,
          const char* attribute,
          U8 kind,
          std::initializer_list<Vellor::GenericIf::Argument> arguments) {
    Vellor::GenericIf::Ptr result;
    face->attributeOp({face->attributeId(attribute), kind}, new Vellor::GenericIf::List_(arguments),
                      result);
  }

  void remove(const char* attribute, const Vellor::GenericIf::Argument& key) {
    op(sm_, attribute, Vellor::AttributeOp::remove, {key});
  }

  void insert(const char* attribute,
              const Vellor::GenericIf::Argument& key,
              const Vellor::GenericIf::Argument& value) {
    op(sm_, attribute, Vellor::AttributeOp::insert, {key, value});
  }

  /// Expects exactly this text, and then the assertion on the negated condition.
  void expectDeath(const std::function<void()>& damage,
                   const std::string& condition,
                   const std::function<std::string()>& context) {
    EXPECT_DEATH(
        {
          damage();
          expected_ = "Failed(" + condition + ") " + context();
          std::fprintf(stderr, "EXPECTED<%s>\n", expected_.c_str());
          sm_->call("verifyLpmRoute", {prefix_});
        },
        ::testing::Truly([&condition](const std::string& seen) {
          const std::string begin = "EXPECTED<";
          const std::size_t from = seen.find(begin);
          const std::size_t to = seen.find(">\n", from);
          if (from == std::string::npos || to == std::string::npos) {
            return false;
          }
          const std::string wanted = seen.substr(from + begin.size(), to - from - begin.size());
          const std::string rest = seen.substr(to + 2);
          return rest.rfind(wanted, 0) == 0 &&
                 rest.find("Assertion `! \"" + condition + "\"' failed.") != std::string::npos;
        }));
  }

  std::string prefixWords() const { return " prefix vrf 0 prefix 10.1.0.0/24"; }

  std::string infoWords(const std::string& label) const {
    return prefixWords() + label + info_->str().str();
  }

  LpmPrefix::Ptr prefix_;
  SubTrie::Ptr subTrie_;
  NhiInfo::Ptr info_;
  Vellor::GenericIf::Ptr sm_;
  Vellor::GenericIf::Ptr subTrieFace_;
  std::string expected_;
};

TEST_F(AuditDeathTest, aPrefixThatWasNeverInstalled) {
  prefix_ = chip.prefix("10.1.9.0/24");
  expectDeath([] {}, "subTrie", [] { return " prefix vrf 0 prefix 10.1.9.0/24"; });
  prefix_ = nullptr;
  expectDeath([] {}, "subTrie", [] { return " prefix "; });
  prefix_ = chip.prefix("10.1.0.0/24");
}

TEST_F(AuditDeathTest, aSubTrieWithoutAKey) {
  expectDeath([this] { subTrieFace_->set("nhiInfoKey", NhiInfoKey()); },
              "nhiInfoKey != NhiInfoKey()", [this] { return prefixWords(); });
}

TEST_F(AuditDeathTest, aKeyThatNobodyKnows) {
  expectDeath(
      [this] { remove("sharedNhi", subTrie_->nhiInfoKey()); }, "nhiInfo",
      [this] { return prefixWords() + " nhiInfoKey " + subTrie_->nhiInfoKey().str().str(); });
}

TEST_F(AuditDeathTest, aBaseThatIsNotTheSharedOne) {
  expectDeath([this] { subTrieFace_->set("nhiBaseIdx", NhiTableIdx(0, 9)); },
              "( nhiInfo->nhiBaseIdx() == subTrie->nhiBaseIdx() )",
              [this] { return infoWords(" nhiInfo ") + " base index mismatch "; });
}

TEST_F(AuditDeathTest, theNullBase) {
  expectDeath(
      [this] {
        subTrieFace_->set("nhiBaseIdx", NhiTableIdx());
        genericIf(info_)->set("nhiBaseIdx", NhiTableIdx());
      },
      "nhiBaseIdx != NhiTableIdx()",
      [this] { return prefixWords() + " nhiInfoKey " + subTrie_->nhiInfoKey().str().str(); });
}

TEST_F(AuditDeathTest, aRequestThatIsAheadOfTheKey) {
  expectDeath([this] { chip.wantSilently("10.1.0.0/24", via(99)); },
              "( nhiInfoKey.slotToNextHopBlock( slot ) == nhBlock )",
              [this] { return infoWords(" nhiInfo ") + " next hop block mismatch "; });
}

TEST_F(AuditDeathTest, aRecordWithoutUsers) {
  expectDeath([this] { genericIf(info_)->set("subTrieCount", U32{0}); }, "nhiInfo->subTrieCount()",
              [this] { return infoWords(" nhiInfoKey "); });
}

TEST_F(AuditDeathTest, aBlockWithoutASet) {
  expectDeath([this] { remove("nhiBaseIdxToSubTrie", subTrie_->nhiBaseIdx()); }, "subTrieSet",
              [this] { return infoWords(" nhiInfoKey "); });
}

TEST_F(AuditDeathTest, aSetWithoutTheSubTrie) {
  expectDeath(
      [this] {
        op(genericIf(chip.sm().nhiBaseIdxToSubTrie(subTrie_->nhiBaseIdx())), "subTrie",
           Vellor::AttributeOp::remove, {subTrie_});
      },
      "subTrieSet->subTrieIterator().isMemberOf( subTrie )",
      [this] { return infoWords(" nhiInfoKey "); });
}

TEST_F(AuditDeathTest, aSetOfAnotherSize) {
  expectDeath([this] { genericIf(info_)->set("subTrieCount", U32{2}); },
              "subTrieSet->subTries() == nhiInfo->subTrieCount()",
              [this] { return infoWords(" nhiInfoKey "); });
}

TEST_F(AuditDeathTest, aBaseWithoutABlock) {
  expectDeath(
      [this] { remove("nhiBaseIdxToBlk", subTrie_->nhiBaseIdx()); }, "blk",
      [this] { return prefixWords() + " nhiInfoKey " + subTrie_->nhiInfoKey().str().str(); });
}

TEST_F(AuditDeathTest, aSubTrieWithoutABitmap) {
  expectDeath([this] { op(subTrieFace_, "prefixBitmap", Vellor::AttributeOp::remove, {}); },
              "subTrie->prefixBitmap()", [this] { return " subTrie " + subTrie_->str().str(); });
}

TEST_F(AuditDeathTest, aSubTrieWithoutASlot) {
  expectDeath([this] { subTrieFace_->set("maxPrefixSlot", U8{0}); }, "subTrie->maxPrefixSlot() > 0",
              [this] { return " subtrie " + subTrie_->str().str(); });
}

TEST_F(AuditDeathTest, aBlockOfAnotherSize) {
  expectDeath(
      [this] { subTrieFace_->set("maxPrefixSlot", U8{9}); }, "blk->blkSz() == expectedBlkSize",
      [this] { return " subTrie " + subTrie_->str().str() + " blkSz 1 expectedBlkSize 2"; });
}

}  // namespace
