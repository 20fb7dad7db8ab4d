#include "xdksim/Explanation.h"

#include <arpa/inet.h>

#include <array>
#include <cstdio>

namespace XdkSim {

namespace {

std::string addressText(Family family, const LpmKey& key) {
  std::array<U8, 16> bytes{};
  for (U32 i = 0; i < bytes.size(); ++i) {
    bytes[i] = key.byte(i + 2);
  }
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(family == Family::ipv4 ? AF_INET : AF_INET6, bytes.data(), text.data(), text.size());
  return text.data();
}

std::string pairText(const NhiPlace& place, const NhiPair& pair) {
  std::string text = "tile " + std::to_string(place.tile) + " entry " + std::to_string(place.row) +
                     " pair " + std::to_string(place.pair);
  if (pair.null()) {
    return text + ", no next hop";
  }
  if (pair.size <= 1) {
    return text + ", next-hop row " + std::to_string(pair.base);
  }
  return text + ", next-hop rows " + std::to_string(pair.base) + " to " +
         std::to_string(U64{pair.base} + pair.size - 1);
}

std::string nextHopText(const NextHopExplanation& seen) {
  const std::string text = "  next-hop row " + std::to_string(seen.row) + ": ";
  return seen.entry.valid == 0 ? text + "free\n"
                               : text + "way " + std::to_string(seen.entry.way) + ", next hop " +
                                     std::to_string(seen.entry.nextHopId) + "\n";
}

std::string tableText(Family family, const TableExplanation& table) {
  std::string text = "table " + std::to_string(table.table) + " tread " +
                     std::to_string(table.tread) + " row " + std::to_string(table.row) + ": ";
  if (!table.occupied) {
    return text + "empty\n";
  }
  text += "branch " + prefixText(family, table.branch, table.branchLen) + " stride " +
          std::to_string(table.stride);
  text += !table.readable       ? ", passed over\n"
          : table.branchMatches ? ", matches\n"
                                : ", another branch\n";
  for (const LeafExplanation& leaf : table.leaves) {
    text += "  slot " + std::to_string(leaf.slot) + ": " +
            prefixText(family, leaf.key, leaf.length) +
            (leaf.matches ? ", matches: " : ", other: ") + pairText(leaf.place, leaf.pair) + "\n";
  }
  return text;
}

}  // namespace

std::string prefixText(Family family, const LpmKey& key, U32 length) {
  if (length < LpmKey::kVrfBits) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%04x",
                  static_cast<unsigned>(key.prefix(length).bits(0, 16)));
    return text.data() + ("/" + std::to_string(length));
  }
  const U64 vrf = key.bits(0, LpmKey::kVrfBits);
  return (vrf == 0 ? "" : "vrf " + std::to_string(vrf) + " ") +
         addressText(family, key.prefix(length)) + "/" + std::to_string(length - LpmKey::kVrfBits);
}

std::string Explanation::toText() const {
  const U64 vrf = key.bits(0, LpmKey::kVrfBits);
  std::string text = familyName(family) + std::string(" ");
  text += vrf == 0 ? "" : "vrf " + std::to_string(vrf) + " ";
  text += addressText(family, key) + "\n";
  for (const TableExplanation& table : tables) {
    text += tableText(family, table);
  }
  if (!result.matched) {
    return text + "no match\n";
  }
  text += "longest match " + prefixText(family, key, result.matchLen) + " in table " +
          std::to_string(result.table) + " row " + std::to_string(result.row) + " slot " +
          std::to_string(result.slot) + ": " +
          pairText({.tile = result.tile, .row = result.nhiRow, .pair = result.pair},
                   {.base = result.base, .size = result.size}) +
          "\n";
  for (const NextHopExplanation& nextHop : nextHops) {
    text += nextHopText(nextHop);
  }
  return text;
}

}  // namespace XdkSim
