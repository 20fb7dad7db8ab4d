#include <random>
#include <string>

#include "tests/fuzz/TextForms.h"
#include "tests/support/Seed.h"

#include <gtest/gtest.h>

namespace {

using namespace Quarle::Tarnlet;

/// Pieces of forms in any order, with a character here and there that belongs nowhere.
std::string madeUp(std::mt19937_64& random) {
  static const std::string kPieces[] = {"Value(",
                                        "'Quarle::Tarnlet::NhiTableIdx'",
                                        "'Quarle::Tarnlet::SubTrieBranch'",
                                        "'Quarle::TarnletNextHop::NextHopBlock'",
                                        "'Dunlix::VrfAndPrefix'",
                                        ", ** {",
                                        "'tile': ",
                                        "'offset': ",
                                        "'word0': ",
                                        "'word4': ",
                                        "'base': ",
                                        "'size': ",
                                        "'vrf': ",
                                        "'prefix': ",
                                        "'10.0.0.0/8'",
                                        "'2001:db8::/32'",
                                        "1",
                                        "65535",
                                        "65536",
                                        "18446744073709551616",
                                        ", ",
                                        "})",
                                        " ",
                                        "\t",
                                        "'modeRestartCli'",
                                        "'keyShort48b'",
                                        "\\",
                                        "'",
                                        "\"",
                                        "None",
                                        "pass"};
  std::string text;
  for (U64 left = random() % 12; left != 0; --left) {
    text += kPieces[random() % std::size(kPieces)];
    if (random() % 16 == 0) {
      text += static_cast<char>(random());
    }
  }
  return text;
}

/// A good form with a few characters changed, lost or doubled.
std::string damaged(std::mt19937_64& random) {
  const std::string kForms[] = {
      valueToStrep(NhiTableIdx(3, 77)).str(), valueToStrep(SubTrieBranch(1, 2, 3, 4, 5)).str(),
      valueToStrep(NextHopBlock(9, 4)).str(),
      valueToStrep(Dunlix::VrfAndPrefix(1, Corsel::Prefix("10.0.0.0/8"))).str(),
      valueToStrep(RouteReturnCode::nhiTableFull).str()};
  std::string text = kForms[random() % std::size(kForms)];
  for (U64 left = random() % 3; left != 0; --left) {
    const std::size_t at = random() % text.size();
    switch (random() % 3) {
      case 0:
        text[at] = static_cast<char>(random());
        break;
      case 1:
        text.erase(at, 1);
        break;
      default:
        text.insert(at, 1, text[at]);
    }
  }
  return text;
}

TEST(TextFormFuzz, everyTextIsRefusedOrComesBackEqual) {
  std::mt19937_64 random(Testing::testSeed());
  for (int i = 0; i < 200'000; ++i) {
    const std::string text = i % 2 == 0 ? madeUp(random) : damaged(random);
    Testing::readAndWriteAny(static_cast<char>(random()) + text);
  }
}

}  // namespace
