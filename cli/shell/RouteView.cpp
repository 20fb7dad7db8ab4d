#include "cli/shell/RouteView.h"

#include <algorithm>

#include "agent/ChipContexts.h"
#include "xdksim/Explanation.h"

namespace Quarle::Cli {

namespace {

using Agent::Family;
using TarnletNextHop::NextHopBlock;
using XdkSim::LpmKey;

// Next hops that are spelled out.
constexpr std::size_t kSpelled = 8;

/// Key bits `from` to `to`, in binary as long as they are few.
std::string leafText(const LpmKey& key, U32 from, U32 to) {
  constexpr U32 kMostBinary = 32;
  if (from == to) {
    return "no bits";
  }
  std::string text;
  if (to - from <= kMostBinary) {
    for (U32 bit = from; bit < to; ++bit) {
      text += key.bits(bit, 1) != 0 ? '1' : '0';
    }
  } else {
    text = "0x";
    for (U32 bit = from; bit < to; bit += 4) {
      const U32 count = std::min(4U, to - bit);
      text += "0123456789abcdef"[key.bits(bit, count) << (4 - count)];
    }
  }
  return text + "/" + std::to_string(to - from);
}

NextHopBlock blockOf(const XdkSim::LookupResult& result) {
  return result.hasNextHop() ? NextHopBlock(result.base, static_cast<U16>(result.size))
                             : NextHopBlock();
}

}  // namespace

XdkSim::LpmKey keyOf(const Tarnlet::SubTrieBranch& branch) {
  return {.words = {branch.u64(0), branch.u64(1), branch.u64(2)}};
}

std::string branchText(Family family, const LpmKey& key, U32 length) {
  return XdkSim::prefixText(Agent::chipFamily(family), key, length);
}

std::string rowsText(const NextHopBlock& block) {
  if (block == NextHopBlock()) {
    return "none";
  }
  const U32 first = block.base().value();
  const U32 size = block.size().value();
  return size <= 1 ? "row " + std::to_string(first)
                   : "rows " + std::to_string(first) + " to " + std::to_string(first + size - 1);
}

std::string nextHopsText(const std::vector<U64>& nextHops) {
  if (nextHops.empty()) {
    return "unknown";
  }
  std::string text;
  for (std::size_t i = 0; i < std::min(nextHops.size(), kSpelled); ++i) {
    text += (i == 0 ? "" : " ") + std::to_string(nextHops[i]);
  }
  return nextHops.size() <= kSpelled
             ? text
             : text + " and " + std::to_string(nextHops.size() - kSpelled) + " more";
}

Json RouteView::toJson() const {
  return {{"prefix", prefix},
          {"table", table},
          {"tread", tread},
          {"hash", hash},
          {"row", row},
          {"branch", branch},
          {"branch_bits", branchLen},
          {"stride", stride},
          {"leaf", leaf},
          {"slot", slot},
          {"nhi", {{"tile", tile}, {"entry", entry}, {"pair", pair}}},
          {"next_hop_rows", {{"base", block.base().value()}, {"size", block.size().value()}}},
          {"next_hops", nextHops}};
}

RouteView::Lines RouteView::lines() const {
  return {{"longest match", prefix},
          {"table", std::to_string(table) + ", tread " + std::to_string(tread)},
          {"hash", std::to_string(hash)},
          {"row", std::to_string(row)},
          {"branch", branch + ", " + std::to_string(branchLen) + " key bits"},
          {"stride", std::to_string(stride)},
          {"leaf", leaf},
          {"slot", std::to_string(slot)},
          {"NHI pair", "tile " + std::to_string(tile) + " entry " + std::to_string(entry) +
                           " pair " + std::to_string(pair)},
          {"next-hop rows", rowsText(block)},
          {"next hops", nextHopsText(nextHops)}};
}

std::optional<RouteView> chipView(const Session& session,
                                  U32 vrf,
                                  const Agent::IpAddress& address) {
  const XdkSim::Explanation seen = session.chip().explain(
      Agent::chipFamily(address.family), static_cast<U16>(vrf), address.bytes.data());
  const XdkSim::LookupResult& result = seen.result;
  if (!result.matched) {
    return std::nullopt;
  }
  const XdkSim::TableExplanation& table = seen.tables[result.table];
  RouteView view{.prefix = XdkSim::prefixText(seen.family, seen.key, result.matchLen),
                 .length = result.matchLen - LpmKey::kVrfBits,
                 .table = result.table,
                 .tread = table.tread,
                 .hash = table.row,
                 .row = result.row,
                 .branch = XdkSim::prefixText(seen.family, table.branch, table.branchLen),
                 .branchLen = table.branchLen,
                 .stride = table.stride,
                 .leaf = leafText(seen.key, table.branchLen, result.matchLen),
                 .slot = result.slot,
                 .tile = result.tile,
                 .entry = result.nhiRow,
                 .pair = result.pair,
                 .block = blockOf(result),
                 .nextHops = {}};
  for (const XdkSim::NextHopExplanation& nextHop : seen.nextHops) {
    if (nextHop.entry.valid != 0) {
      view.nextHops.push_back(nextHop.entry.nextHopId);
    }
  }
  return view;
}

std::optional<RouteView> softwareView(const Session& session, const Agent::RouteKey& key) {
  const Tarnlet::LpmPrefix::Ptr prefix = session.find(key);
  const Tarnlet::LpmSm::Ptr engine = session.engine(key.prefix.family);
  const Tarnlet::SubTrie::Ptr subTrie =
      prefix == nullptr ? nullptr : engine->prefixToSubTrie(prefix);
  if (subTrie == nullptr) {
    return std::nullopt;
  }
  const Tarnlet::PrefixTableConfig::Ptr table = subTrie->table()->tableConfig();
  const U32 slot = subTrie->prefixToSlot(prefix);
  const U32 pairs = std::max<U32>(engine->config()->nhiPairPerEntry(), 1);
  const NextHopBlock block = engine->status()->prefixToNextHopBlock(prefix);
  return RouteView{
      .prefix = Agent::toText(key),
      .length = key.prefix.length,
      .table = table->tableId().value(),
      .tread = table->tread(),
      .hash = table->hashFunc(prefix),
      .row = subTrie->index().value(),
      .branch = branchText(key.prefix.family, keyOf(subTrie->branch()), subTrie->branchLen()),
      .branchLen = subTrie->branchLen(),
      .stride = subTrie->stride(),
      .leaf = leafText(keyOf(prefix->branch(prefix->len())), subTrie->branchLen(), prefix->len()),
      .slot = slot,
      .tile = subTrie->nhiBaseIdx().tile().value(),
      .entry = subTrie->nhiBaseIdx().offset() + slot / pairs,
      .pair = slot % pairs,
      .block = block,
      .nextHops = session.nextHopsOf(block)};
}

std::optional<Agent::RouteKey> softwareMatch(const Session& session,
                                             U32 vrf,
                                             const Agent::IpAddress& address) {
  const Agent::PrefixStore store = session.store(address.family);
  const Tarnlet::Status::Ptr status = session.engine(address.family)->status();
  const Agent::AddressBits bits = Agent::AddressBits::of(address.bytes);
  for (U32 length = Agent::addressBits(address.family);; --length) {
    const Agent::RouteKey key{.vrf = vrf,
                              .prefix = Agent::RoutePrefix::of(address.family, bits, length)};
    const Tarnlet::LpmPrefix::Ptr prefix = store.find(key);
    if (prefix != nullptr && status->prefixToNextHopBlockCollection().isMember(prefix)) {
      return key;
    }
    if (length == 0) {
      return std::nullopt;
    }
  }
}

}  // namespace Quarle::Cli
