// Textual forms of the model's values: written, read back, and refused.

#include <string>

#include "model/Tarnlet.h"
#include "model/TarnletNextHop.h"

#include <gtest/gtest.h>

namespace Quarle::Tarnlet {
namespace {

using TarnletNextHop::NextHopBlockList;
using TarnletNextHop::NextHopTableIdx;
using TarnletNextHop::Nway;
using TarnletNextHop::SwId;
using Vellor::strepToValue;
using Vellor::String8;
using Vellor::valueToStrep;

template <class T>
T parsed(const std::string& text) {
  T value{};
  strepToValue(String8(text), &value);
  return value;
}

/// The words of the exception that reading the text raises.
template <class T>
std::string refusal(const std::string& text) {
  try {
    parsed<T>(text);
  } catch (const Vellor::RangeException& exception) {
    return exception.message().str();
  }
  return "none";
}

template <class T>
void expectRoundTrip(const T& value, const std::string& text) {
  EXPECT_EQ(valueToStrep(value).str(), text);
  EXPECT_EQ(parsed<T>(text), value) << text;
}

TEST(TextForm, structuredValuesComeBackEqual) {
  expectRoundTrip(NhiTableIdx(1, 300),
                  "Value('Quarle::Tarnlet::NhiTableIdx', ** {'tile': 1, 'offset': 300})");
  expectRoundTrip(
      SubTrieBranch(4294967295U, 1, 0, 77, 65535),
      "Value('Quarle::Tarnlet::SubTrieBranch', ** {'word0': 4294967295, 'word1': 1, 'word2': 0, "
      "'word3': 77, 'word4': 65535})");
  expectRoundTrip(NextHopBlock(12, 4),
                  "Value('Quarle::TarnletNextHop::NextHopBlock', ** {'base': 12, 'size': 4})");
}

TEST(TextForm, identifiersAreBareNumbers) {
  expectRoundTrip(PrefixTableId(7), "7");
  expectRoundTrip(PrefixTableIdx(4000000000U), "4000000000");
  expectRoundTrip(NhiTileIdx(255), "255");
  expectRoundTrip(SwId(), "18446744073709551615");
  expectRoundTrip(Nway(), "65535");
  expectRoundTrip(NextHopTableIdx(), "4294967295");
}

TEST(TextForm, enumeratorsAreNamesBetweenQuotes) {
  expectRoundTrip(keyLong144b, "'keyLong144b'");
  expectRoundTrip(prefixTableWide256b, "'prefixTableWide256b'");
  expectRoundTrip(modeBitmap, "'modeBitmap'");
  expectRoundTrip(commandTypeNhi, "'commandTypeNhi'");
  expectRoundTrip(modeRestartNormal, "'modeRestartNormal'");
  expectRoundTrip(RouteReturnCode::nhiCapacityExceeded, "'nhiCapacityExceeded'");
  EXPECT_EQ(refusal<RestartMode>("'modeRestart'"), "RestartMode");
  EXPECT_EQ(refusal<KeyType>("'keyshort48b'"), "KeyType");
}

TEST(TextForm, whiteSpaceBetweenTheTokensIsAccepted) {
  EXPECT_EQ(parsed<NhiTableIdx>(" Value ( 'Quarle::Tarnlet::NhiTableIdx' ,\n ** { 'tile' : 1\t, "
                                "'offset' :  300 } ) "),
            NhiTableIdx(1, 300));
  EXPECT_EQ(parsed<NhiTableIdx>("Value('Quarle::Tarnlet::NhiTableIdx',**{'tile':1,'offset':300})"),
            NhiTableIdx(1, 300));
}

TEST(TextForm, attributesStandInAnyOrderAndTheLastOfAKindWins) {
  EXPECT_EQ(
      parsed<NhiTableIdx>("Value('Quarle::Tarnlet::NhiTableIdx', ** {'offset': 300, 'tile': 1})"),
      NhiTableIdx(1, 300));
  EXPECT_EQ(parsed<NextHopBlock>("Value('Quarle::TarnletNextHop::NextHopBlock', ** {'base': 1, "
                                 "'size': 2, 'base': 3})"),
            NextHopBlock(3, 2));
}

TEST(TextForm, whatTheTextDoesNotNameKeepsItsDefault) {
  const NhiTableIdx none = parsed<NhiTableIdx>("Value('Quarle::Tarnlet::NhiTableIdx', ** {})");
  EXPECT_EQ(none.tile(), 255);
  EXPECT_EQ(parsed<NhiTableIdx>("Value('Quarle::Tarnlet::NhiTableIdx', ** {'offset': 4})").tile(),
            255);
  EXPECT_EQ(parsed<SubTrieBranch>("Value('Quarle::Tarnlet::SubTrieBranch', ** {'word3': 9})"),
            SubTrieBranch(0, 0, 0, 9, 0));
}

TEST(TextForm, aFormCutOffInsideItsBracesEndsPrematurely) {
  EXPECT_EQ(refusal<NhiTableIdx>("Value('Quarle::Tarnlet::NhiTableIdx', ** {"),
            "premature end of value type NhiTableIdx");
  EXPECT_EQ(refusal<NhiTableIdx>("Value('Quarle::Tarnlet::NhiTableIdx', ** {'tile': 1 "),
            "premature end of value type NhiTableIdx");
  EXPECT_EQ(refusal<SubTrieBranch>("Value('Quarle::Tarnlet::SubTrieBranch', ** {'word0': 1"),
            "premature end of value type SubTrieBranch");
  EXPECT_EQ(refusal<NextHopBlock>("Value('Quarle::TarnletNextHop::NextHopBlock', ** {'size': 1"),
            "premature end of value type NextHopBlock");
}

TEST(TextForm, anUnknownAttributeIsNamed) {
  EXPECT_EQ(refusal<NhiTableIdx>("Value('Quarle::Tarnlet::NhiTableIdx', ** {'row': 1})"),
            "NhiTableIdx has no such attribute: row");
  EXPECT_EQ(refusal<SubTrieBranch>("Value('Quarle::Tarnlet::SubTrieBranch', ** {'word5': 1})"),
            "SubTrieBranch has no such attribute: word5");
  EXPECT_EQ(refusal<NextHopBlock>("Value('Quarle::TarnletNextHop::NextHopBlock', ** {'hash': 1})"),
            "NextHopBlock has no such attribute: hash");
}

TEST(TextForm, aBadMemberIsNamed) {
  EXPECT_EQ(refusal<NhiTableIdx>("Value('Quarle::Tarnlet::NhiTableIdx', ** {'offset': x})"),
            "offset: expected a number, found \"x})\"");
  EXPECT_EQ(refusal<NhiTableIdx>("Value('Quarle::Tarnlet::NhiTableIdx', ** {'tile': })"),
            "tile: value: expected a number, found \"})\"");
}

TEST(TextForm, otherTextBehindAGoodFormIsJunk) {
  const std::string good = "Value('Quarle::Tarnlet::NhiTableIdx', ** {'tile': 1, 'offset': 300})";
  EXPECT_EQ(refusal<NhiTableIdx>(good + "x"),
            "junk at column " + std::to_string(good.size()) + " deserializing " + good + "x");
  EXPECT_EQ(refusal<PrefixTableIdx>("12 "), "junk at column 2 deserializing 12 ");
}

TEST(TextForm, numbersAreCutToTheirAttribute) {
  EXPECT_EQ(parsed<NhiTileIdx>("257"), 1);
  EXPECT_EQ(parsed<NhiTableIdx>(
                "Value('Quarle::Tarnlet::NhiTableIdx', ** {'tile': 256, 'offset': 65537})"),
            NhiTableIdx(0, 1));
  EXPECT_EQ(refusal<SwId>("18446744073709551616"), "value: number of more than 64 bits");
}

TEST(TextForm, aPrefixTableIdFromTextIsAtMost32) {
  EXPECT_EQ(parsed<PrefixTableId>("32"), 32);
  EXPECT_EQ(refusal<PrefixTableId>("33"), "PrefixTableId::value < 0 or > 32 not allowed");
}

TEST(TextForm, contentsOfListsAndKeysAreNotTold) {
  NhiInfoKey key;
  key.slotToNextHopBlockIs(0, NextHopBlock(1, 1));
  EXPECT_EQ(valueToStrep(key), "None");
  EXPECT_EQ(valueToStrep(LpmPrefixList()), "None");
  EXPECT_EQ(valueToStrep(NextHopBlockList()), "None");
}

TEST(TextForm, aKeyReadFromTextIsEmptyAndReadsNothing) {
  const String8 text = "None";
  Vellor::StrepIterator iterator = text.begin();
  EXPECT_EQ(NhiInfoKey(iterator, text.end()), NhiInfoKey());
  EXPECT_EQ(iterator, text.begin());
  EXPECT_EQ(refusal<NhiInfoKey>("None"), "junk at column 0 deserializing None");
}

TEST(TextFormDeathTest, listsCannotBeRead) {
  EXPECT_DEATH(parsed<LpmPrefixList>("None"), "LinkQueue");
  EXPECT_DEATH(parsed<NextHopBlockList>("None"), "LinkQueue");
}

TEST(TextForm, networkTypesComeBackEqual) {
  expectRoundTrip(Corsel::Prefix("10.0.0.0/8"), "'10.0.0.0/8'");
  expectRoundTrip(Dunlix::VrfAndPrefix(3, Corsel::Prefix("10.0.0.0/8")),
                  "Value('Dunlix::VrfAndPrefix', ** {'vrf': 3, 'prefix': '10.0.0.0/8'})");
  expectRoundTrip(Dunlix::VrfAndIp6Prefix(0, Corsel::Ip6Prefix("2001:db8::/32")),
                  "Value('Dunlix::VrfAndIp6Prefix', ** {'vrf': 0, 'prefix': '2001:db8::/32'})");
  EXPECT_EQ(refusal<Corsel::Prefix>("'10.0.0.1/8'"), "Prefix::validAsPrefix != true not allowed");
}

}  // namespace
}  // namespace Quarle::Tarnlet
