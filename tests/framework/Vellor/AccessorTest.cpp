#include <string>
#include <vector>

#include "tests/framework/Vellor/SampleEntity.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

using Testing::DerivedSample;
using Testing::Recorder;
using Testing::Sample;
using Testing::Table;

/// An entity with one listener; what it heard is read and forgotten line by line.
class Accessor : public testing::Test {
 protected:
  Accessor() {
    recorder_->notifierIs(sample_);
    recorder_->isRegisteredNotifieeIs(true);
  }

  /// What was heard and how many versions it took since the last call.
  std::string heard() {
    std::string text;
    for (const std::string& line : log_) {
      text += line.substr(2) + "; ";
    }
    log_.clear();
    text += "versions " + std::to_string(sample_->version() - version_);
    version_ = sample_->version();
    return text;
  }

  static std::string id(const Table::Ptr& table) {
    return table == nullptr ? "null" : std::to_string(table->tableId()) + table->note();
  }

  const Sample::Ptr sample_{new Sample("sample")};
  std::vector<std::string> log_;
  const Recorder::Ptr recorder_{new Recorder("r", &log_)};
  U32 version_ = 0;
};

TEST_F(Accessor, anEntityHasANameAParentAndAVersion) {
  EXPECT_EQ(sample_->name(), "sample");
  EXPECT_EQ(sample_->fwkKey(), "sample");
  EXPECT_EQ(sample_->parent(), nullptr);
  const Sample::Ptr child(new Sample("child"));
  child->parentIs(sample_.get());
  EXPECT_EQ(child->parent(), sample_.get());
  EXPECT_EQ(sample_->references(), 2U) << "the parent is not counted, the reactor counts";
  EXPECT_EQ(child->version(), 0U);
}

TEST_F(Accessor, aPlainAttributeStoresCountsAndNotifies) {
  EXPECT_EQ(sample_->level(), 3U);
  sample_->levelIs(4);
  EXPECT_EQ(sample_->level(), 4U);
  EXPECT_EQ(heard(), "level=4; versions 1");
}

TEST_F(Accessor, writingTheValueThatIsStoredNotifiesNobodyAndLeavesTheVersionAlone) {
  sample_->levelIs(3);
  EXPECT_EQ(heard(), "versions 0");
  sample_->routeIs(7, "a");
  sample_->commandIs(2, new Table(1));
  sample_->sortedIs(0, new Table(2));
  sample_->strideIs(8, true);
  sample_->tableIs(new Table(3));
  heard();
  sample_->routeIs(7, "a");
  sample_->newRoute(7, "a");
  sample_->commandIs(2, sample_->command(2));
  sample_->sortedIs(0, sample_->sorted(0));
  sample_->strideIs(8, true);
  sample_->tableIs(sample_->table(3));
  EXPECT_EQ(heard(), "versions 0");
}

TEST_F(Accessor, aComputedAttributeIsComputed) {
  sample_->levelIs(21);
  EXPECT_EQ(sample_->twiceLevel(), 42U);
}

TEST_F(Accessor, aMapCreatesReplacesAndDeletes) {
  sample_->routeIs(7, "a");
  EXPECT_EQ(heard(), "route[7]=a; versions 1");
  sample_->newRoute(8, "b");
  EXPECT_EQ(heard(), "route[8]=b; versions 1");
  sample_->routeIs(7, "c");
  EXPECT_EQ(heard(), "route[7]=c; versions 1");
  EXPECT_EQ(sample_->routes(), 2U);
  EXPECT_EQ(sample_->routeDel(7), "c");
  EXPECT_EQ(heard(), "route[7] gone; versions 1");
  EXPECT_EQ(sample_->routes(), 1U);
}

TEST_F(Accessor, readingAnAbsentKeyYieldsTheDefaultAndCreatesNothing) {
  EXPECT_EQ(sample_->route(7), "");
  EXPECT_EQ(sample_->stride(7), false);
  EXPECT_EQ(sample_->command(7), nullptr);
  EXPECT_EQ(sample_->sorted(7), nullptr);
  EXPECT_EQ(sample_->child(7), nullptr);
  EXPECT_EQ(sample_->table(7), nullptr);
  EXPECT_EQ(sample_->routes() + sample_->strides() + sample_->commands() + sample_->sorteds() +
                sample_->childs() + sample_->tables(),
            0U);
  EXPECT_EQ(heard(), "versions 0");
}

TEST_F(Accessor, deletingAnAbsentKeyNotifiesNobodyAndYieldsTheDefault) {
  EXPECT_EQ(sample_->routeDel(7), "");
  EXPECT_EQ(sample_->strideDel(7), false);
  EXPECT_EQ(sample_->commandDel(7), nullptr);
  EXPECT_EQ(sample_->commandDeq(), nullptr);
  EXPECT_EQ(sample_->sortedDel(7), nullptr);
  EXPECT_EQ(sample_->childDel(7), nullptr);
  EXPECT_EQ(sample_->tableDel(7), nullptr);
  EXPECT_EQ(heard(), "versions 0");
}

TEST_F(Accessor, notifyTellsOfAMemberWithoutAChange) {
  sample_->routeIs(7, "a");
  heard();
  sample_->routeNotify(7);
  sample_->routeNotify(8);
  sample_->strideNotify(1);
  sample_->commandNotify(2);
  sample_->sortedNotify(3);
  sample_->childNotify(4);
  sample_->tableNotify(5);
  EXPECT_EQ(heard(),
            "route[7]=a; route[8] gone; stride[1]; command[2] gone; sorted[3]; child[4] gone; "
            "table[5]; versions 0");
}

TEST_F(Accessor, deletingAllTellsOfEachMember) {
  for (const U32 key : {0U, 1U, 2U, 3U}) {
    sample_->routeIs(key, "x");
    sample_->strideIs(static_cast<U8>(key), true);
  }
  heard();
  sample_->routeDelAll();
  EXPECT_EQ(heard(), "route[0] gone; route[2] gone; route[1] gone; route[3] gone; versions 4");
  sample_->strideDelAll();
  EXPECT_EQ(heard(), "stride[0]; stride[1]; stride[2]; stride[3]; versions 4");
  EXPECT_EQ(sample_->routes() + sample_->strides(), 0U);
}

TEST_F(Accessor, anIteratorDeletesWhatItStandsOn) {
  for (const U32 key : {0U, 1U, 2U, 3U}) {
    sample_->routeIs(key, std::to_string(key));
  }
  heard();
  auto member = sample_->routeIterator();
  ++member;
  EXPECT_EQ(sample_->routeDel(member), "2");
  EXPECT_EQ(heard(), "route[2] gone; versions 1");
  ++member;
  EXPECT_EQ(member.key(), 1U);
  EXPECT_TRUE(sample_->routeIteratorConst().isMemberOf(1));
  EXPECT_FALSE(sample_->routeIteratorConst().isMemberOf(2));
}

TEST_F(Accessor, aTreeIsWalkedByAscendingKey) {
  for (const U8 key : {U8{9}, U8{1}, U8{200}, U8{4}}) {
    sample_->strideIs(key, key % 2 == 0);
  }
  EXPECT_EQ(Testing::textOf(sample_->strideIterator(),
                            [](bool value) { return std::string(value ? "yes" : "no"); }),
            "1=no 4=yes 9=no 200=yes");
}

TEST_F(Accessor, aQueueTellsTheIndexOfWhatComesAndGoes) {
  const Table::Ptr first(new Table(1));
  sample_->commandEnq(first);
  sample_->commandEnq(new Table(2));
  sample_->commandEnq(new Table(3));
  EXPECT_EQ(heard(), "command[0]; command[1]; command[2]; versions 3");
  EXPECT_EQ(sample_->commandDeq(), first);
  EXPECT_EQ(heard(), "command[0] gone; versions 1");
  sample_->commandIs(9, new Table(4));
  EXPECT_EQ(heard(), "command[9]; versions 1");
  EXPECT_EQ(id(sample_->commandDel(2)), "3");
  EXPECT_EQ(heard(), "command[2] gone; versions 1");
  EXPECT_EQ(id(sample_->commandDel(sample_->commandIterator())), "2");
  EXPECT_EQ(heard(), "command[1] gone; versions 1");
  EXPECT_EQ(Testing::textOf(sample_->commandIteratorConst(), id), "9=4");
}

TEST_F(Accessor, queueNumberingGoesOnAcrossDeletingAll) {
  for (const U8 number : {U8{1}, U8{2}, U8{3}}) {
    sample_->commandEnq(new Table(number));
  }
  heard();
  sample_->commandDelAll();
  EXPECT_EQ(heard(), "command[0] gone; command[1] gone; command[2] gone; versions 3");
  sample_->commandEnq(new Table(4));
  EXPECT_EQ(heard(), "command[3]; versions 1");
}

TEST_F(Accessor, aFullQueueTellsNobodyOfTheRefusal) {
  sample_->commandEnq(new Table(1));
  sample_->commandMetadataIs({0, ~U32{0}});
  EXPECT_EQ(sample_->commandMetadata(), (Sample::CommandMetadata{0, ~U32{0}}));
  heard();
  EXPECT_THROW(sample_->commandEnq(new Table(2)), RangeException);
  EXPECT_EQ(heard(), "versions 0");
}

TEST_F(Accessor, anArrayTellsTheIndex) {
  sample_->sortedIs(2, new Table(1));
  EXPECT_EQ(heard(), "sorted[2]; versions 1");
  EXPECT_EQ(sample_->sorteds(), 3U);
  EXPECT_EQ(sample_->sorted(0), nullptr);
  EXPECT_EQ(sample_->sorted(200), nullptr);
  sample_->sortedIs(0, new Table(2));
  heard();
  EXPECT_EQ(id(sample_->sortedDel(0)), "2");
  EXPECT_EQ(heard(), "sorted[0]; versions 1");
  sample_->sortedDelAll();
  EXPECT_EQ(sample_->sorteds(), 0U);
}

TEST_F(Accessor, anOwnedChildIsBuiltOnce) {
  const Table::Ptr first = sample_->childIs(5, "first");
  EXPECT_EQ(heard(), "child[5]; versions 1");
  EXPECT_EQ(sample_->childIs(5, "second"), first);
  EXPECT_EQ(heard(), "versions 0");
  EXPECT_EQ(sample_->child(5), first);
  EXPECT_EQ(id(sample_->newChild(5, "third")), "5third");
  EXPECT_EQ(heard(), "child[5]; versions 1");
  EXPECT_EQ(sample_->childs(), 1U);
  EXPECT_EQ(id(sample_->childDel(5)), "5third");
  EXPECT_EQ(heard(), "child[5] gone; versions 1");
  EXPECT_EQ(first->references(), 1U);
}

TEST_F(Accessor, ownedChildrenAreDeletedOneByOne) {
  for (const U8 key : {U8{0}, U8{1}, U8{2}, U8{3}}) {
    sample_->childIs(key);
  }
  heard();
  sample_->childDel(sample_->childIterator());
  EXPECT_EQ(heard(), "child[0] gone; versions 1");
  sample_->childDelAll();
  EXPECT_EQ(heard(), "child[2] gone; child[1] gone; child[3] gone; versions 3");
}

TEST_F(Accessor, anObjectGoesUnderItsOwnKey) {
  sample_->tableIs(new Table(3, "a"));
  sample_->newTable(new Table(1));
  EXPECT_EQ(heard(), "table[3]; table[1]; versions 2");
  sample_->tableIs(new Table(3, "b"));
  EXPECT_EQ(heard(), "table[3]; versions 1");
  EXPECT_EQ(sample_->tables(), 2U);
  EXPECT_EQ(id(sample_->table(3)), "3b");
  EXPECT_EQ(id(sample_->tableDel(3)), "3b");
  EXPECT_EQ(heard(), "table[3]; versions 1");
  sample_->tableDel(sample_->tableIterator());
  EXPECT_EQ(heard(), "table[1]; versions 1");
}

TEST_F(Accessor, aNullObjectIsRefusedWithTheAttributesName) {
  try {
    sample_->tableIs(nullptr);
    FAIL() << "nothing was raised";
  } catch (const RangeException& exception) {
    EXPECT_EQ(exception.message(),
              "null _table parameter to mutator for Vellor::Testing::Sample::table not allowed");
  }
  EXPECT_EQ(heard(), "versions 0");
}

TEST_F(Accessor, twoEqualObjectsAreTwoKeys) {
  const Table::Ptr a(new Table(1));
  const Table::Ptr b(new Table(1));
  sample_->ownerIs(a, 10);
  sample_->ownerIs(b, 20);
  EXPECT_EQ(sample_->owners(), 2U);
  EXPECT_EQ(sample_->owner(a), 10U);
  EXPECT_EQ(sample_->owner(b), 20U);
  EXPECT_EQ(sample_->owner(Table::Ptr(new Table(1))), 0U);
}

TEST(SharedObject, writesPlainlyAndWraps) {
  const Table::Ptr table(new Table(1));
  EXPECT_EQ(table->row(), 7U);
  table->rowIs(8);
  EXPECT_EQ(table->row(), 8U);
  table->hitsInc(250);
  table->hitsInc(10);
  EXPECT_EQ(table->hits(), 4U);
  table->hitsDec(5);
  EXPECT_EQ(table->hits(), 255U);
}

TEST(SharedObject, keepsCollectionsWithTheSameAccessors) {
  const Table::Ptr table(new Table(1));
  table->rowToNoteIs(1, "a");
  table->newRowToNote(2, "b");
  EXPECT_EQ(table->rowToNotes(), 2U);
  EXPECT_EQ(table->rowToNoteDel(1), "a");
  EXPECT_EQ(table->rowToNoteDel(1), "");
  EXPECT_EQ(table->rowToNoteDel(table->rowToNoteIterator()), "b");
  table->moveEnq(5);
  table->moveIs(3, 6);
  EXPECT_EQ(table->moves(), 2U);
  EXPECT_EQ(table->moveDeq(), 5U);
  EXPECT_EQ(table->moveDel(3), 6U);
  table->moveEnq(7);
  EXPECT_EQ(table->move(4), 7U);
  table->moveDelAll();
  EXPECT_EQ(table->moveDeq(), 0U);
}

TEST(SharedObject, buildsItsOwnedChildFromTheArguments) {
  const Table::Ptr table(new Table(1));
  EXPECT_EQ(table->twin(), nullptr);
  const Table::Ptr first = table->twinIs(U8{2}, "twin");
  EXPECT_EQ(table->twin(), first);
  EXPECT_EQ(first->note(), "twin");
  EXPECT_NE(table->newTwin(U8{3}), first);
  EXPECT_EQ(table->twin()->tableId(), 3U);
  EXPECT_EQ(first->references(), 1U);
  table->twinDel();
  EXPECT_EQ(table->twin(), nullptr);
}

TEST(Schema, attributesAreNumberedInDeclarationOrderFromTheBase) {
  std::string names;
  for (AttributeId attribute = 0; attribute < attributeRecords<DerivedSample>.size(); ++attribute) {
    names += attributeString<DerivedSample>(attribute).str() + " ";
  }
  EXPECT_EQ(names, "name level route twiceLevel stride command sorted child table owner extra ");
  EXPECT_EQ(attributeRecords<Sample>.size(), 10U);
  EXPECT_EQ(attributeString<Sample>(10), "unknown");
  EXPECT_EQ(attributeString<DerivedSample>(11), "unknown");
  EXPECT_EQ(attributeString<Sample>(~AttributeId{0}), "unknown");
}

TEST(Schema, aLineRecordsItsKind) {
  const auto kind = [](AttributeId attribute) { return attributeRecords<Sample>[attribute].kind; };
  EXPECT_EQ(kind(0), AttributeKind::constant);
  EXPECT_EQ(kind(1), AttributeKind::value);
  EXPECT_EQ(kind(2), AttributeKind::map);
  EXPECT_EQ(kind(3), AttributeKind::computed);
  EXPECT_EQ(kind(4), AttributeKind::tree);
  EXPECT_EQ(kind(5), AttributeKind::queue);
  EXPECT_EQ(kind(6), AttributeKind::array);
  EXPECT_EQ(kind(7), AttributeKind::childMap);
  EXPECT_EQ(kind(8), AttributeKind::map);
  EXPECT_EQ(attributeRecords<Table>[6].kind, AttributeKind::child);
}

TEST(Schema, aTypeTellsItsFullName) {
  const Sample::Ptr sample(new DerivedSample("s"));
  EXPECT_STREQ(sample->fwkType()->name, "Vellor::Testing::DerivedSample");
}

}  // namespace
}  // namespace Vellor
