#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "agent/source/RouteEntry.h"

namespace Quarle::Agent {

/// How the routes beneath one node of the binary trie of addresses are dealt out. All figures but
/// the shares count per mille of the nodes of one depth and one bucket of routes.
struct ShapeCell {
  /// Nodes that are themselves a route.
  std::uint16_t own;

  /// Nodes with all other routes on one side, of those with at least two others.
  std::uint16_t oneSided;

  /// Nodes whose halves look alike route by route, of those whose halves hold as many.
  std::uint16_t twin;

  /// Of the other routes the part on the emptier side, per mille, where neither side is empty: the
  /// middles of the five fifths of the nodes.
  std::array<std::uint16_t, 5> smallerShare;
};

/// Bounds of the buckets by routes beneath a node, low end each. Small numbers stand alone, as do
/// 16 and 32, which blocks cut into equal pieces make frequent.
inline constexpr std::array<std::uint32_t, 21> kShapeBuckets = {
    1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 16, 17, 25, 32, 33, 65, 129, 257, 513, 1025, 4097};

using ShapeLevel = std::array<ShapeCell, kShapeBuckets.size()>;

/// A point of a distribution: `perMille` of the population lie below `value`.
struct CurvePoint {
  std::uint32_t perMille;
  std::uint32_t value;
};

/// Groups by their first bits, `first` to `last`.
struct GroupRange {
  std::uint16_t first;
  std::uint16_t last;
};

/// Routes of one length among those too rare to follow the trie.
struct LengthCount {
  std::uint8_t length;
  std::uint16_t routes;
};

/// The shape of one family's public routing table, in figures.
///
/// The address space is seen in three grains: groups (what a registry hands out), blocks within
/// them and the trie beneath each block, down to `lastLength`. Few routes are shorter than a block
/// or longer than `lastLength`; they are told by length alone.
struct InternetShape {
  std::uint8_t groupLength;
  std::uint8_t blockLength;
  std::uint8_t lastLength;

  /// Routes, blocks and groups with any route in the measured table.
  std::uint32_t routes;
  std::uint32_t blocks;
  std::uint32_t groups;

  /// The groups in use, and those a table that needs more of them spreads to.
  std::span<const GroupRange> knownGroups;
  std::span<const GroupRange> spareGroups;

  /// Routes of `blockLength` to `lastLength` per block.
  std::span<const CurvePoint> blockSizes;

  /// Routes shorter than a block.
  std::span<const LengthCount> shortRoutes;

  /// Routes longer than `lastLength`. They come in clusters beneath one covering route, whose
  /// length is mostly within the host lengths.
  std::span<const LengthCount> longRoutes;
  std::span<const CurvePoint> clusterSizes;

  /// Clusters per 1000 of those routes.
  std::uint32_t clusters;
  std::uint8_t firstHostLength;
  std::uint8_t lastHostLength;

  /// One level for each depth from `blockLength` to `lastLength` - 1; cells that no node of the
  /// depth can need are left zero.
  std::span<const ShapeLevel> levels;
};

const InternetShape& internetShape(Family family);

}  // namespace Quarle::Agent
