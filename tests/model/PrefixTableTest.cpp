#include "model/PrefixTable.h"

#include <string>

#include "framework/Vellor/Exception.h"

#include <gtest/gtest.h>

namespace Quarle::Tarnlet {
namespace {

PrefixTableConfig::Ptr config(PrefixTableType type, U32 depth = 4096) {
  return new PrefixTableConfig(3, type, depth, 35);
}

TEST(PrefixTableConfig, keepsItsShape) {
  const PrefixTableConfig::Ptr shape = config(prefixTableWide256b);
  EXPECT_EQ(shape->tableId(), PrefixTableId(3));
  EXPECT_EQ(shape->fwkKey(), PrefixTableId(3));
  EXPECT_EQ(shape->tableType(), prefixTableWide256b);
  EXPECT_EQ(shape->depth(), 4096U);
  EXPECT_EQ(shape->tread(), 35U);
}

TEST(PrefixTableConfig, aRowHas88Or216UsableBits) {
  static_assert(std::is_same_v<decltype(config(prefixTableWide256b)->entrySize()), U8>);
  EXPECT_EQ(config(prefixTableNarrow128b)->entrySize(), 88U);
  EXPECT_EQ(config(prefixTableWide256b)->entrySize(), 216U);
}

TEST(PrefixTableConfigDeathTest, anotherTypeIsFatal) {
  const PrefixTableConfig::Ptr shape = config(static_cast<PrefixTableType>(2));
  EXPECT_DEATH(shape->entrySize(), "Assertion `tableType\\(\\) == prefixTableWide256b_' failed");
}

TEST(PrefixTableConfig, itsHashIsForADerivedClassToGive) {
  try {
    config(prefixTableWide256b)->hashFunc(nullptr);
    FAIL() << "nothing was raised";
  } catch (const Vellor::NoImplementationException& exception) {
    EXPECT_EQ(exception.message(), "hashFunc must be implemented in the derived class");
  }
}

TEST(PrefixTableConfig, printsTheLow16BitsOfItsDepth) {
  EXPECT_EQ(config(prefixTableNarrow128b)->str(), "3,0,4096,35");
  EXPECT_EQ(config(prefixTableWide256b, 65535)->str(), "3,1,65535,35");
  EXPECT_EQ(config(prefixTableWide256b, 65536)->str(), "3,1,0,35");
  EXPECT_EQ(config(prefixTableWide256b, 65536 + 16)->str(), "3,1,16,35");
}

TEST(PrefixTable, printsItsConfigurationBehindItsId) {
  EXPECT_EQ(prefixTableFactory(7, config(prefixTableWide256b))->str(), "7, tcfg 3,1,4096,35");
}

TEST(PrefixTable, aRowThatIsAbsentIsFree) {
  const PrefixTable::Ptr table = prefixTableFactory(3, config(prefixTableWide256b));
  EXPECT_EQ(table->tableId(), PrefixTableId(3));
  EXPECT_EQ(table->fwkKey(), PrefixTableId(3));
  EXPECT_EQ(table->tableConfig()->depth(), 4096U);
  EXPECT_EQ(table->subTries(), 0U);
  EXPECT_EQ(table->subTrie(5), nullptr);
  const SubTrie::Ptr subTrie = subTrieFactory(5, {}, 40, 0, modeSparse, table);
  table->subTrieIs(5, subTrie);
  EXPECT_EQ(table->subTrie(5), subTrie);
  EXPECT_EQ(table->subTrieDel(5), subTrie);
  EXPECT_EQ(table->subTries(), 0U);
}

TEST(SubTrieSet, holdsSubTriesByIdentity) {
  const PrefixTable::Ptr table = prefixTableFactory(3, config(prefixTableWide256b));
  const SubTrieSet::Ptr set = subTrieSetFactory();
  EXPECT_EQ(set->subTries(), 0U);
  const SubTrie::Ptr a = subTrieFactory(5, {}, 40, 0, modeSparse, table);
  const SubTrie::Ptr twin = subTrieFactory(5, {}, 40, 0, modeSparse, table);
  set->subTrieIs(a, true);
  EXPECT_TRUE(set->subTrie(a));
  EXPECT_FALSE(set->subTrie(twin));
  set->subTrieIs(twin, true);
  EXPECT_EQ(set->subTries(), 2U);
}

}  // namespace
}  // namespace Quarle::Tarnlet
