#include "cli/shell/TableCandidates.h"

#include "cli/shell/RouteView.h"

#include <algorithm>
#include <utility>

namespace Quarle::Cli {

namespace {

using Tarnlet::ConfigBase;
using Tarnlet::LpmPrefix;
using Tarnlet::LpmSm;
using Tarnlet::PrefixTable;
using Tarnlet::SubTrie;

// Routes of a row that are named.
constexpr std::size_t kNamed = 3;

U32 commonBits(const XdkSim::LpmKey& a, const XdkSim::LpmKey& b, U32 most) {
  U32 bits = 0;
  while (bits < most && a.bits(bits, 1) == b.bits(bits, 1)) {
    ++bits;
  }
  return bits;
}

/// Names the first few.
std::string routesText(Agent::Family family, const std::vector<LpmPrefix::Ptr>& prefixes) {
  std::vector<std::string> routes;
  routes.reserve(prefixes.size());
  for (const LpmPrefix::Ptr& prefix : prefixes) {
    routes.push_back(Agent::toText(Agent::routeKeyOf(family, *prefix)));
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

std::vector<LpmPrefix::Ptr> prefixesOf(const SubTrie& subTrie) {
  std::vector<LpmPrefix::Ptr> prefixes;
  for (const auto& member : subTrie.prefixCollection()) {
    prefixes.push_back(member.value);
  }
  return prefixes;
}

std::string routesOf(Agent::Family family, const SubTrie& subTrie) {
  return routesText(family, prefixesOf(subTrie));
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
  U32 bitsNeeded(const PrefixTable& table,
                 const SubTrie& subTrie,
                 std::span<const LpmPrefix::Ptr> members) const;

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
                 .help = {},
                 .toWithdraw = 0};
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
    seen.missing += ", for which the other tables of this tread have none";
    seen.help = "withdraw " + routesOf(family_, subTrie);
    seen.toWithdraw = subTrie.prefixs();
  } else if (engine_->hashShufflingEnabled()) {
    seen.missing.clear();
    seen.help = "the occupant moves to " + free + " when the route is requested";
  } else {
    seen.help = "turn shuffling on: the occupant could move to " + free;
  }
}

/// The bits that the prefix takes in a row together with these members: first as the row is laid
/// out now, and when that is more than it has, as they could be laid out anew.
U32 Candidates::bitsNeeded(const PrefixTable& table,
                           const SubTrie& subTrie,
                           std::span<const LpmPrefix::Ptr> members) const {
  const U32 tread = table.tableConfig()->tread();
  const U32 slots = static_cast<U32>(members.size()) + 1;
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
  const U32 needed = branch + stride * slots;
  if (needed <= table.tableConfig()->entrySize()) {
    return needed;
  }
  U32 common = prefix_->len();
  U32 longest = prefix_->len();
  for (const LpmPrefix::Ptr& member : members) {
    const U32 length = member->len();
    common =
        commonBits(mine, keyOf(member->branch(static_cast<U8>(length))), std::min(common, length));
    longest = std::max(longest, length);
  }
  const U32 tight = strideFor(longest - common + 1);
  U32 tightBranch = common;
  if (longest < tight) {
    tightBranch = 0;
  } else if (longest + 1 - tight >= tread) {
    tightBranch = longest + 1 - tight;
  }
  return tightBranch + tight * slots;
}

/// The row's branch is the prefix's own: whether one leaf more fits in.
void Candidates::lookAtRow(const PrefixTable& table,
                           const SubTrie& subTrie,
                           Candidate& seen) const {
  const U32 size = table.tableConfig()->entrySize();
  const U32 slots = U32{subTrie.maxPrefixSlot()} + 1;
  std::vector<LpmPrefix::Ptr> members = prefixesOf(subTrie);
  const U32 needed = bitsNeeded(table, subTrie, members);
  if (needed > size) {
    seen.missing = std::to_string(needed - size) + " bits: " + std::to_string(slots) +
                   " leaves and their branch take " + std::to_string(needed) + " of " +
                   std::to_string(size);
    // The longest ones make the leaves long.
    std::sort(members.begin(), members.end(),
              [](const LpmPrefix::Ptr& a, const LpmPrefix::Ptr& b) { return a->len() < b->len(); });
    std::vector<LpmPrefix::Ptr> tooMany;
    while (!members.empty() && bitsNeeded(table, subTrie, members) > size) {
      tooMany.push_back(members.back());
      members.pop_back();
    }
    seen.help = "withdraw " + routesText(family_, tooMany);
    seen.toWithdraw = static_cast<U32>(tooMany.size());
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

}  // namespace

std::vector<Candidate> candidatesFor(const Session& session,
                                     const Agent::RouteKey& key,
                                     const LpmPrefix::Ptr& prefix) {
  return Candidates(session, key, prefix).find();
}

const Candidate* leastOf(const std::vector<Candidate>& candidates) {
  const Candidate* least = nullptr;
  for (const Candidate& seen : candidates) {
    if (seen.toWithdraw != 0 && (least == nullptr || seen.toWithdraw < least->toWithdraw)) {
      least = &seen;
    }
  }
  return least;
}

}  // namespace Quarle::Cli
