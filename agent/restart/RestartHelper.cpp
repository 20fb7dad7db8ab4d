#include "agent/restart/RestartHelper.h"

#include <algorithm>

#include "agent/CommandConsumer.h"
#include "agent/restart/RowKey.h"
#include "engine/LpmSm.h"
#include "engine/PrefixEntryDecoding.h"

namespace Quarle::Agent {

namespace {

using Tarnlet::LpmPrefix;
using Tarnlet::SubTrieBranch;

RouteKey routeKeyOf(Family family, const SubTrieBranch& key, U32 length) {
  // What stands behind the length means nothing.
  return routeKeyOf(family, XdkSim::LpmKey{.words = {key.u64(0), key.u64(1), key.u64(2)}}, length);
}

bool hasBitsBehind(const SubTrieBranch& branch, U32 length) {
  const XdkSim::LpmKey key{.words = {branch.u64(0), branch.u64(1), branch.u64(2)}};
  return key.prefix(length) != key;
}

}  // namespace

RestartHelper::RestartHelper(const Tarnlet::ConfigV4::Ptr& config, Tarnlet::Status::Ptr status)
    : RestartHelperBase(config, std::move(status)), prefixes_(config) {}

RestartHelper::RestartHelper(const Tarnlet::ConfigV6::Ptr& config, Tarnlet::Status::Ptr status)
    : RestartHelperBase(config, std::move(status)), prefixes_(config) {}

LpmPrefix::Ptr RestartHelper::createPrefix(
    const SubTrieBranch& branch, U8 branchLen, U64 leafVal, U64 leafValHigh, U8 stride) {
  // A row is adopted as a whole. Those of a refused one have been taken back one by one.
  if (!made_.empty() && isAdopted(made_.front())) {
    made_.clear();
  }
  const Leaf leaf{.low = leafVal, .high = leafValHigh};
  if (leaf.empty()) {
    refuseRow("an empty leaf, expected a stop bit");
  }
  if (leaf.bits() >= stride) {
    refuseRow("a leaf of " + std::to_string(leaf.bits() + 1) +
              " bits, expected at most the stride of " + std::to_string(stride));
  }
  const U32 length = branchLen + leaf.bits();
  const U32 longest = lpmConfig()->keyLength();
  if (length < Tarnlet::kVrfBits || length > longest) {
    refuseRow("a key of " + std::to_string(length) + " bits, expected " +
              std::to_string(Tarnlet::kVrfBits) + " to " + std::to_string(longest));
  }
  if (hasBitsBehind(branch, branchLen)) {
    refuseRow("bits behind the branch of " + std::to_string(branchLen) + " bits, expected none");
  }
  SubTrieBranch key = branch;
  Tarnlet::combineBranchAndLeaf(key, branchLen, leafVal, leafValHigh);
  const PrefixStore::Interned interned =
      prefixes_.intern(routeKeyOf(prefixes_.family(), key, length));
  if (interned.made) {
    made_.push_back(interned.prefix);
  }
  return interned.prefix;
}

void RestartHelper::deletePrefix(const LpmPrefix::Ptr& prefix) {
  // A row may hold a prefix twice, and it may be one that an adopted row holds without next hops,
  // which is no duplicate to the walk.
  const auto found = std::find(made_.begin(), made_.end(), prefix);
  if (found == made_.end() || isAdopted(prefix)) {
    return;
  }
  made_.erase(found);
  drop(prefix);
}

void RestartHelper::lpmSmIs(Tarnlet::LpmSmRawPtr lpmSm) {
  RestartHelperBase::lpmSmIs(lpmSm);
  made_.clear();
}

bool RestartHelper::isAdopted(const LpmPrefix::Ptr& prefix) const {
  return lpmSm() != nullptr && lpmSm()->prefixToSubTrie(prefix) != nullptr;
}

void RestartHelper::drop(const LpmPrefix::Ptr& prefix) {
  prefixes_.forget(Agent::routeKeyOf(prefixes_.family(), *prefix));
}

void RestartHelper::refuseRow(const std::string& why) {
  for (const LpmPrefix::Ptr& prefix : made_) {
    drop(prefix);
  }
  made_.clear();
  throw BadRowError(std::string(familyName(prefixes_.family())) + " prefix row with " + why);
}

}  // namespace Quarle::Agent
