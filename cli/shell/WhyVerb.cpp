// why: what each table that may hold a prefix has against it. The library tells nothing but that a
// route is not there, so its rules are followed here over the state that it left, without changing
// anything.

#include <algorithm>

#include "cli/Text.h"
#include "cli/shell/RouteView.h"
#include "cli/shell/ShellError.h"
#include "cli/shell/Verbs.h"
#include "cli/shell/Words.h"

namespace Quarle::Cli {

namespace {

using Tarnlet::ConfigBase;
using Tarnlet::LpmPrefix;
using Tarnlet::LpmSm;
using Tarnlet::PrefixTable;
using Tarnlet::SubTrie;

// Routes of a row that are named.
constexpr std::size_t kNamed = 3;

/// One table that may hold the prefix.
struct Candidate {
  U32 table = 0;
  U32 tread = 0;
  U32 row = 0;
  // Who stands there; empty for a free row.
  std::string occupant;
  // What is missing for the prefix to go there; empty when nothing is.
  std::string missing;
  std::string help;
};

U32 commonBits(const XdkSim::LpmKey& a, const XdkSim::LpmKey& b, U32 most) {
  U32 bits = 0;
  while (bits < most && a.bits(bits, 1) == b.bits(bits, 1)) {
    ++bits;
  }
  return bits;
}

std::string routesOf(Agent::Family family, const SubTrie& subTrie) {
  std::vector<std::string> routes;
  for (const auto& member : subTrie.prefixCollection()) {
    routes.push_back(Agent::toText(Agent::routeKeyOf(family, *member.value)));
  }
  std::sort(routes.begin(), routes.end());
  std::string text;
  for (std::size_t i = 0; i < std::min(routes.size(), kNamed); ++i) {
    text += (i == 0 ? "" : ", ") + routes[i];
  }
  return routes.size() <= kNamed
             ? text
             : text + " and " + std::to_string(routes.size() - kNamed) + " more";
}

class Candidates {
 public:
  Candidates(const Session& session, const Agent::RouteKey& key, LpmPrefix::Ptr prefix)
      : family_(key.prefix.family),
        engine_(session.engine(family_)),
        config_(*engine_->config()),
        prefix_(std::move(prefix)) {}

  /// In the order in which the library tries them.
  std::vector<Candidate> find() const;

 private:
  Candidate look(const PrefixTable& table) const;
  void lookForFreeRow(const PrefixTable& table, const SubTrie& subTrie, Candidate& seen) const;
  void lookAtRow(const PrefixTable& table, const SubTrie& subTrie, Candidate& seen) const;
  bool lookAtNhi(U32 slots, Candidate& seen) const;

  const Agent::Family family_;
  const LpmSm::Ptr engine_;
  const ConfigBase& config_;
  const LpmPrefix::Ptr prefix_;
};

std::vector<Candidate> Candidates::find() const {
  const U32 least = config_.leastTreadForPrefixLen(prefix_->len());
  std::vector<Candidate> found;
  std::vector<Candidate> last;
  for (U32 i = 0; i < engine_->prefixTables(); ++i) {
    const PrefixTable::Ptr table = config_.prefixTableSortedByTread(static_cast<U8>(i));
    if (table == nullptr) {
      continue;
    }
    const U32 tread = table->tableConfig()->tread();
    if (tread == prefix_->len() && tread >= least) {
      last.push_back(look(*table));
    } else if (tread >= least && tread < prefix_->len()) {
      found.push_back(look(*table));
    }
  }
  found.insert(found.end(), last.begin(), last.end());
  return found;
}

Candidate Candidates::look(const PrefixTable& table) const {
  const Tarnlet::PrefixTableConfig& config = *table.tableConfig();
  Candidate seen{.table = config.tableId().value(),
                 .tread = config.tread(),
                 .row = config.hashFunc(prefix_),
                 .occupant = {},
                 .missing = {},
                 .help = {}};
  const SubTrie::Ptr subTrie = table.subTrie(seen.row);
  if (subTrie == nullptr) {
    if (lookAtNhi(1, seen) && prefix_->len() > config.entrySize()) {
      seen.missing = "a row of " + std::to_string(prefix_->len()) + " bits, it has " +
                     std::to_string(config.entrySize());
      seen.help = "a chip whose tables of this tread are wider";
    }
    return seen;
  }
  seen.occupant = "branch " + branchText(family_, keyOf(subTrie->branch()), subTrie->branchLen()) +
                  " with " + routesOf(family_, *subTrie);
  const XdkSim::LpmKey mine = keyOf(prefix_->branch(prefix_->len()));
  const U32 common = commonBits(mine, keyOf(subTrie->branch()),
                                std::min<U32>(prefix_->len(), subTrie->branchLen()));
  if (common < config.tread()) {
    lookForFreeRow(table, *subTrie, seen);
  } else {
    lookAtRow(table, *subTrie, seen);
  }
  return seen;
}

/// The row belongs to other prefixes: whether they could stand elsewhere.
void Candidates::lookForFreeRow(const PrefixTable& table,
                                const SubTrie& subTrie,
                                Candidate& seen) const {
  const LpmPrefix::Ptr member = (*subTrie.prefixCollection().begin()).value;
  std::string free;
  for (const auto& other : engine_->prefixTableCollection()) {
    const Tarnlet::PrefixTableConfig& config = *other.value->tableConfig();
    if (other.value.get() == &table || config.tread() != table.tableConfig()->tread()) {
      continue;
    }
    const U32 row = config.hashFunc(member);
    if (other.value->subTrie(row) == nullptr && free.empty()) {
      free = "table " + std::to_string(config.tableId().value()) + " row " + std::to_string(row);
    }
  }
  seen.missing = "the row, another branch has it";
  if (free.empty()) {
    seen.help = "withdraw " + routesOf(family_, subTrie) +
                ", with no free row in the other tables of this tread";
  } else if (engine_->hashShufflingEnabled()) {
    seen.missing.clear();
    seen.help = "the occupant moves to " + free + " when the route is requested";
  } else {
    seen.help = "turn shuffling on: the occupant could move to " + free;
  }
}

/// The row's branch is the prefix's own: whether one leaf more fits in. First as the row stands,
/// then as its prefixes could be laid out anew.
void Candidates::lookAtRow(const PrefixTable& table,
                           const SubTrie& subTrie,
                           Candidate& seen) const {
  const U32 tread = table.tableConfig()->tread();
  const U32 size = table.tableConfig()->entrySize();
  const U32 slots = U32{subTrie.maxPrefixSlot()} + 1;
  const XdkSim::LpmKey mine = keyOf(prefix_->branch(prefix_->len()));
  const auto strideFor = [this](U32 bits) -> U32 {
    const auto& strides = config_.availableStrideCollection();
    const auto* next = strides.lowerBound(static_cast<U8>(bits));
    return next == strides.end() ? 255 : next->key;
  };
  const U32 branch =
      commonBits(mine, keyOf(subTrie.branch()), std::min<U32>(prefix_->len(), subTrie.branchLen()));
  const U32 reach = U32{subTrie.stride()} + subTrie.branchLen() - branch;
  const U32 stride = strideFor(std::max<U32>(reach, prefix_->len() - branch + 1));
  U32 needed = branch + stride * slots;
  if (needed > size) {
    U32 common = prefix_->len();
    U32 longest = prefix_->len();
    for (const auto& member : subTrie.prefixCollection()) {
      const U32 length = member.value->len();
      common = commonBits(mine, keyOf(member.value->branch(static_cast<U8>(length))),
                          std::min(common, length));
      longest = std::max(longest, length);
    }
    const U32 tight = strideFor(longest - common + 1);
    U32 tightBranch = common;
    if (longest < tight) {
      tightBranch = 0;
    } else if (longest + 1 - tight >= tread) {
      tightBranch = longest + 1 - tight;
    }
    needed = tightBranch + tight * slots;
  }
  if (needed > size) {
    seen.missing = std::to_string(needed - size) + " bits: " + std::to_string(slots) +
                   " leaves and their branch take " + std::to_string(needed) + " of " +
                   std::to_string(size);
    seen.help = "withdraw one of its " + std::to_string(subTrie.prefixs()) +
                " routes, the longest ones first";
    return;
  }
  if (slots > config_.nhiPairPerEntry() && !config_.supportMultiNhiEntriesPerSubTrie()) {
    seen.missing =
        "a pair: the row's " + std::to_string(subTrie.prefixs()) + " routes fill its one NHI entry";
    seen.help = "withdraw one of them, or let rows have several entries";
    return;
  }
  lookAtNhi(slots, seen);
}

/// Whether some tile has room for a block of this many pairs.
bool Candidates::lookAtNhi(U32 slots, Candidate& seen) const {
  const U32 pairs = std::max<U32>(config_.nhiPairPerEntry(), 1);
  const U32 entries = (slots + pairs - 1) / pairs;
  U64 most = 0;
  for (const auto& tile : engine_->nhiAllocatorCollection()) {
    most = std::max<U64>(most, tile.value->freeEntries());
  }
  if (most >= entries) {
    return true;
  }
  seen.missing = std::to_string(entries) + " NHI entries in one tile, the emptiest has " +
                 std::to_string(most);
  seen.help = "withdraw routes whose rows share their block with no other";
  return false;
}

/// What a refusal is about that no prefix table decides; both empty for one that they do.
struct Elsewhere {
  std::string missing;
  std::string help;
};

Elsewhere elsewhere(const Session& session, const Agent::RefusedWish* wish) {
  if (wish == nullptr) {
    return {};
  }
  const Agent::NextHopGroups& groups = session.client().groups();
  switch (wish->reason) {
    case Agent::RefusalReason::nextHopTableFull: {
      const Agent::NextHopStatistics statistics = groups.statistics();
      return {.missing = "next-hop rows: the group needs " +
                         std::to_string(groups.nextHops(wish->group).size()) + " in one run, " +
                         share(statistics.rowsUsed, statistics.rowCapacity) + " are taken",
              .help = "withdraw all routes of another group, or lead to a group that has rows"};
    }
    case Agent::RefusalReason::headroom: {
      const Agent::FamilyStatistics statistics =
          session.client().family(wish->key.prefix.family).statistics();
      return {.missing =
                  "NHI entries: " + share(statistics.nhiEntriesUsed, statistics.nhiEntryCapacity) +
                  " are taken, and the rest is kept for updates and withdrawals",
              .help = "withdraw routes whose rows share their block with no other"};
    }
    case Agent::RefusalReason::invalid:
      return {
          .missing = "sense: the length, the VRF or the number of next hops is beyond this chip",
          .help = "ask for a route that the chip can hold"};
    case Agent::RefusalReason::noRow:
    case Agent::RefusalReason::rowFull:
    case Agent::RefusalReason::nhiTableFull:
    case Agent::RefusalReason::nhiCapacityExceeded:
      return {};
  }
  return {};
}

/// A free object for a key that the configuration does not have.
LpmPrefix::Ptr prefixOf(const Session& session, const Agent::RouteKey& key) {
  if (LpmPrefix::Ptr known = session.find(key)) {
    return known;
  }
  if (key.prefix.family == Agent::Family::ipv6) {
    return Tarnlet::lpmPrefixV6Factory(
        Dunlix::VrfAndIp6Prefix(key.vrf, Corsel::Ip6Prefix(key.prefix.address, key.prefix.length)));
  }
  const auto& bytes = key.prefix.address;
  const U32 address = U32{bytes[0]} << 24 | U32{bytes[1]} << 16 | U32{bytes[2]} << 8 | bytes[3];
  return Tarnlet::lpmPrefixV4Factory(
      Dunlix::VrfAndPrefix(key.vrf, Corsel::Prefix(address, key.prefix.length)));
}

}  // namespace

Verdict why(Session& session, const Command& command, Output& output) {
  const Agent::RouteKey key = routeOf(command.words);
  const Agent::RefusedWish* wish = session.client().family(key.prefix.family).refused().find(key);
  if (const std::optional<RouteView> view = softwareView(session, key)) {
    if (output.json()) {
      output.object({{"route", Agent::toText(key)},
                     {"installed", true},
                     {"refused", wish == nullptr ? Json() : Json(Agent::toText(wish->reason))},
                     {"table", view->table},
                     {"row", view->row},
                     {"slot", view->slot}});
    } else {
      output.line(Agent::toText(key) + " is installed: table " + std::to_string(view->table) +
                  " row " + std::to_string(view->row) + " slot " + std::to_string(view->slot));
      if (wish != nullptr) {
        output.line(std::string("its last change was refused: ") + sentence(wish->reason));
      }
    }
    return Verdict::done;
  }
  const std::vector<Candidate> candidates = Candidates(session, key, prefixOf(session, key)).find();
  const Elsewhere other = elsewhere(session, wish);
  const bool fits = other.missing.empty() &&
                    std::any_of(candidates.begin(), candidates.end(),
                                [](const Candidate& seen) { return seen.missing.empty(); });
  if (output.json()) {
    output.object({{"route", Agent::toText(key)},
                   {"installed", false},
                   {"refused", wish == nullptr ? Json() : Json(Agent::toText(wish->reason))},
                   {"fits_now", fits},
                   {"missing", other.missing.empty() ? Json() : Json(other.missing)},
                   {"help", other.help.empty() ? Json() : Json(other.help)}});
    for (const Candidate& seen : candidates) {
      output.object({{"table", seen.table},
                     {"tread", seen.tread},
                     {"row", seen.row},
                     {"occupant", seen.occupant.empty() ? Json() : Json(seen.occupant)},
                     {"missing", seen.missing.empty() ? Json() : Json(seen.missing)},
                     {"help", seen.help.empty() ? Json() : Json(seen.help)}});
    }
    return Verdict::done;
  }
  output.line(Agent::toText(key) + " is not installed" +
              (wish == nullptr ? std::string(", and no request for it stands refused")
                               : std::string(", refused: ") + sentence(wish->reason)));
  if (!other.missing.empty()) {
    output.line("missing: " + other.missing);
    output.line("help:    " + other.help);
  }
  for (const Candidate& seen : candidates) {
    output.line("table " + std::to_string(seen.table) + " tread " + std::to_string(seen.tread) +
                " row " + std::to_string(seen.row) + ": " +
                (seen.occupant.empty() ? "free" : seen.occupant));
    output.line("  missing: " + (seen.missing.empty() ? "nothing" : seen.missing));
    if (!seen.help.empty()) {
      output.line("  help:    " + seen.help);
    }
  }
  if (candidates.empty()) {
    output.line("no table of this chip may hold its length");
  } else if (fits) {
    output.line("as things stand it would be placed");
  }
  return Verdict::done;
}

}  // namespace Quarle::Cli
