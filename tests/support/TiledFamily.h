#pragma once

#include <map>
#include <optional>
#include <string>

#include "agent/NhiRoom.h"
#include "agent/TileWindow.h"
#include "engine/TarnletSm.h"
#include "tests/support/ChipShape.h"
#include "tests/support/Hardware.h"
#include "tests/support/Key.h"

namespace Quarle::Tarnlet::Testing {

/// One family on several NHI tiles as a client drives it: narrow window before each request, room
/// asked for, refused updates put back, every command carried out on a model of the chip. Without
/// the window the same by the library alone, all tiles in view.
class TiledFamily {
 public:
  enum class Tiles { allInView, oneInView };

  explicit TiledFamily(const ChipShape& shape,
                       Tiles tiles = Tiles::oneInView,
                       const Agent::HeadroomOptions& headroom = {.share = 0,
                                                                 .minLargestBlocks = 0});

  TiledFamily(const TiledFamily&) = delete;
  TiledFamily& operator=(const TiledFamily&) = delete;

  /// What became of it: "placed", "updated", "refused", "withdrawn", "absent", or "headroom" when
  /// the engine was not asked.
  std::string route(const Key& prefix, NextHopBlock block);
  std::string withdraw(const Key& prefix);

  std::string route(const std::string& prefix, U32 base) {
    return route(key(prefix), NextHopBlock(base, 1));
  }

  std::string withdraw(const std::string& prefix) { return withdraw(key(prefix)); }

  /// Where the chip sends an address: the base of the next-hop block, "none", or how it is torn.
  std::string lookup(const std::string& address) const;

  /// The block of the prefix's row as it is named and as it lies in a tile: "1:0 in 0:2".
  std::string block(const std::string& prefix);

  /// What is wrong, a line each: names that stand for two blocks, blocks that lie elsewhere than
  /// they are named or over each other, entries lost, rows of the chip that do not show the routes.
  std::string faults();

  /// What is wrong with the first and last address of every route, and with the engine's maps. All
  /// tiles come into view for it.
  std::string thoroughFaults();

  /// Per cent of the NHI entries in use.
  U32 fill() const;

  const std::map<Key, NextHopBlock>& routes() const { return routes_; }

  LpmSm& sm() { return *sm_; }

  Agent::TileWindow& window() { return *window_; }

  const Agent::NhiRoom& room() const { return *room_; }

  /// A new window over the same engine, as after a change of hands.
  void windowAnew();

 private:
  Key key(const std::string& text) const { return keyFrom(text, shape_.longKey); }

  LpmPrefix::Ptr prefixOf(const Key& key);
  void narrow();
  void carryOut();
  bool installed(const LpmPrefix::Ptr& prefix) const;
  std::string blockFaults();
  std::string rowFaults() const;

  ChipShape shape_;
  Agent::HeadroomOptions headroom_;
  ConfigBase::Ptr config_;
  Status::Ptr status_;
  LpmSm::Ptr sm_;
  // All of the family's, held beside the machine and the window.
  std::map<U8, Brumel::BestFitAllocator::Ptr> allocators_;
  std::optional<Agent::TileWindow> window_;
  std::optional<Agent::NhiRoom> room_;
  Hardware hardware_;
  std::map<Key, NextHopBlock> routes_;
  std::string commandFaults_;
};

}  // namespace Quarle::Tarnlet::Testing
