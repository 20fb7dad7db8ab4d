#include <sstream>
#include <string>

#include "framework/Vellor/Hash.h"
#include "model/Identifiers.h"
#include "model/NextHopBlock.h"

#include <gtest/gtest.h>

namespace Quarle::Tarnlet {
namespace {

using TarnletNextHop::NextHopBlock;
using TarnletNextHop::NextHopBlockList;
using TarnletNextHop::NextHopTableIdx;
using TarnletNextHop::Nway;
using TarnletNextHop::SwId;

template <class T>
std::string streamed(const T& value) {
  std::ostringstream stream;
  stream << value;
  return stream.str();
}

TEST(Identifiers, defaultsAreTheNullValues) {
  EXPECT_EQ(PrefixTableId().value(), 0U);
  EXPECT_EQ(PrefixTableIdx().value(), 0U);
  EXPECT_EQ(NhiTileIdx().value(), 0U);
  EXPECT_EQ(SwId().value(), 18446744073709551615U);
  EXPECT_EQ(Nway().value(), 65535U);
  EXPECT_EQ(NextHopTableIdx().value(), 4294967295U);
}

TEST(Identifiers, haveTheirWidths) {
  static_assert(std::is_same_v<PrefixTableId::Value, U8>);
  static_assert(std::is_same_v<PrefixTableIdx::Value, U32>);
  static_assert(std::is_same_v<NhiTileIdx::Value, U8>);
  static_assert(std::is_same_v<SwId::Value, U64>);
  static_assert(std::is_same_v<Nway::Value, U16>);
  static_assert(std::is_same_v<NextHopTableIdx::Value, U32>);
  // Construction from a number is not checked, whatever a chip has.
  EXPECT_EQ(PrefixTableId(200).value(), 200U);
}

TEST(Identifiers, hashToTheirValue) {
  EXPECT_EQ(PrefixTableId(7).hash(), 7U);
  EXPECT_EQ(PrefixTableIdx(70000).hash(), 70000U);
  EXPECT_EQ(NhiTileIdx(255).hash(), 255U);
  EXPECT_EQ(NextHopTableIdx().hash(), 4294967295U);
  EXPECT_EQ(SwId(0x500000003).hash(), 3U) << "the low 32 bits";
  EXPECT_EQ(Vellor::placementHash(PrefixTableId(1)), 0x80000000U);
}

TEST(Identifiers, compareByValue) {
  EXPECT_EQ(PrefixTableId(3), PrefixTableId(3));
  EXPECT_NE(PrefixTableId(3), PrefixTableId(4));
  EXPECT_LT(PrefixTableId(3), PrefixTableId(4));
  EXPECT_LE(PrefixTableId(3), PrefixTableId(3));
  EXPECT_GT(PrefixTableId(200), PrefixTableId(4));
  EXPECT_GE(SwId(), SwId(1));
}

TEST(Identifiers, printAsBareNumbers) {
  EXPECT_EQ(valueToStrep(PrefixTableId(65)), "65");
  EXPECT_EQ(valueToStrep(NhiTileIdx(255)), "255");
  EXPECT_EQ(valueToStrep(PrefixTableIdx(4294967295U)), "4294967295");
  EXPECT_EQ(valueToStrep(SwId()), "18446744073709551615");
  EXPECT_EQ(valueToStrep(Nway()), "65535");
  EXPECT_EQ(valueToStrep(NextHopTableIdx(0)), "0");
  EXPECT_EQ(streamed(PrefixTableId(65)), "65") << "a number, never a character";
  EXPECT_EQ(streamed(SwId()), "18446744073709551615");
}

TEST(NhiTableIdx, defaultIsNoBlock) {
  EXPECT_EQ(NhiTableIdx().tile(), NhiTileIdx(255));
  EXPECT_EQ(NhiTableIdx().offset(), 65535U);
  EXPECT_NE(NhiTableIdx(0, 0), NhiTableIdx());
}

TEST(NhiTableIdx, ordersByTileThenOffset) {
  EXPECT_LT(NhiTableIdx(0, 65535), NhiTableIdx(1, 0));
  EXPECT_LT(NhiTableIdx(1, 0), NhiTableIdx(1, 1));
  EXPECT_LE(NhiTableIdx(1, 1), NhiTableIdx(1, 1));
  EXPECT_GT(NhiTableIdx(), NhiTableIdx(254, 65535));
  EXPECT_GE(NhiTableIdx(1, 1), NhiTableIdx(1, 0));
  EXPECT_EQ(NhiTableIdx(1, 300), NhiTableIdx(1, 300));
  EXPECT_NE(NhiTableIdx(1, 300), NhiTableIdx(2, 300));
  EXPECT_NE(NhiTableIdx(1, 300), NhiTableIdx(1, 301));
}

TEST(NhiTableIdx, hashesToTileAboveOffset) {
  EXPECT_EQ(NhiTableIdx(2, 3).hash(), 0x20003U);
  EXPECT_EQ(NhiTableIdx().hash(), 0xffffffU);
  EXPECT_EQ(Vellor::placementHash(NhiTableIdx(2, 3)), Vellor::bitReverse(0x20003));
}

TEST(NhiTableIdx, writesOnePartAlone) {
  NhiTableIdx index(1, 2);
  index.tileIs(9);
  EXPECT_EQ(index, NhiTableIdx(9, 2));
  index.offsetIs(300);
  EXPECT_EQ(index, NhiTableIdx(9, 300));
}

TEST(NhiTableIdx, printsInBothForms) {
  const NhiTableIdx index(1, 300);
  EXPECT_EQ(index.str(), "1,300");
  EXPECT_EQ(NhiTableIdx().str(), "255,65535");
  EXPECT_EQ(valueToStrep(index),
            "Value('Quarle::Tarnlet::NhiTableIdx', ** {'tile': 1, 'offset': 300})");
  EXPECT_EQ(streamed(index), valueToStrep(index).str());
}

TEST(NextHopBlock, defaultIsNoNextHop) {
  EXPECT_EQ(NextHopBlock().base().value(), 4294967295U);
  EXPECT_EQ(NextHopBlock().size().value(), 65535U);
  EXPECT_NE(NextHopBlock(0, 0), NextHopBlock());
}

TEST(NextHopBlock, comparesBaseAndSize) {
  EXPECT_EQ(NextHopBlock(1, 2), NextHopBlock(1, 2));
  EXPECT_NE(NextHopBlock(1, 2), NextHopBlock(2, 2));
  EXPECT_NE(NextHopBlock(1, 2), NextHopBlock(1, 1));
}

TEST(NextHopBlock, hashesSixBytesOneAtATime) {
  EXPECT_EQ(NextHopBlock(0, 0).hash(), 0U);
  EXPECT_EQ(NextHopBlock(1, 2).hash(), 0x3583837bU);
  EXPECT_EQ(NextHopBlock(0x12345678, 0x9abc).hash(), 0xe34a7275U);
  EXPECT_EQ(NextHopBlock().hash(), 0xd72d0592U);
}

TEST(NextHopBlock, writesOnePartAlone) {
  NextHopBlock block(1, 2);
  block.baseIs(70000);
  EXPECT_EQ(block, NextHopBlock(70000, 2));
  block.sizeIs(8);
  EXPECT_EQ(block, NextHopBlock(70000, 8));
}

TEST(NextHopBlock, printsInBothForms) {
  const NextHopBlock block(70000, 8);
  EXPECT_EQ(block.str(), "70000,8");
  EXPECT_EQ(NextHopBlock().str(), "4294967295,65535");
  EXPECT_EQ(valueToStrep(block),
            "Value('Quarle::TarnletNextHop::NextHopBlock', ** {'base': 70000, 'size': 8})");
  EXPECT_EQ(streamed(block), valueToStrep(block).str());
}

NextHopBlockList listOf(std::initializer_list<NextHopBlock> blocks) {
  NextHopBlockList list;
  for (const NextHopBlock& block : blocks) {
    list.nextHopBlockEnq(block);
  }
  return list;
}

TEST(NextHopBlockList, keepsItsBlocksInOrder) {
  const NextHopBlockList list = listOf({{1, 1}, {2, 2}, NextHopBlock()});
  EXPECT_EQ(list.nextHopBlocks(), 3U);
  EXPECT_EQ(list.nextHopBlock(1), NextHopBlock(2, 2));
  EXPECT_EQ(list.nextHopBlock(3), NextHopBlock());
  std::string text;
  for (auto block = list.nextHopBlockIterator(); block; ++block) {
    text += block.value().str().str() + " ";
  }
  EXPECT_EQ(text, "1,1 2,2 4294967295,65535 ");
}

TEST(NextHopBlockList, comparesAndCopiesByContent) {
  const NextHopBlockList list = listOf({{1, 1}, {2, 2}});
  NextHopBlockList copy = list;
  EXPECT_EQ(copy, list);
  copy.nextHopBlockEnq({3, 3});
  EXPECT_NE(copy, list);
  EXPECT_EQ(list.nextHopBlocks(), 2U);
  EXPECT_NE(listOf({{2, 2}, {1, 1}}), list);
  EXPECT_EQ(NextHopBlockList(), NextHopBlockList());
}

TEST(NextHopBlockList, metadataComparesFieldByField) {
  using TarnletNextHop::NextHopBlockMetadata;
  EXPECT_EQ(listOf({{1, 1}, {2, 2}}).nextHopBlockMetadata(), (NextHopBlockMetadata{0, 2}));
  EXPECT_NE((NextHopBlockMetadata{0, 2}), (NextHopBlockMetadata{1, 2}));
  EXPECT_NE((NextHopBlockMetadata{0, 2}), (NextHopBlockMetadata{0, 1}));
}

TEST(NextHopBlockList, hasNoTextForm) {
  EXPECT_EQ(valueToStrep(listOf({{1, 1}})), "None");
  EXPECT_EQ(streamed(listOf({{1, 1}})), "None");
}

}  // namespace
}  // namespace Quarle::Tarnlet
