#include "agent/source/NextHopPlan.h"

#include "agent/source/Random.h"

namespace Quarle::Agent {

namespace {

// Each decision draws on its own hash, so that none follows from another.
constexpr std::uint64_t kLocalitySalt = 0x6c6f63616c697479;
constexpr std::uint64_t kGroupSalt = 0x67726f7570206f66;
constexpr std::uint64_t kWaysSalt = 0x776179732d6f662d;
constexpr std::uint64_t kShiftSalt = 0x73686966742d6279;

constexpr std::uint32_t kLocalPerMille = 800;

constexpr unsigned coverLength(Family family) { return family == Family::ipv4 ? 12 : 29; }

}  // namespace

std::uint32_t NextHopPlan::groupOf(const RoutePrefix& prefix) const {
  const bool local = Random(hashOf(prefix, seed_ ^ kLocalitySalt)).chance(kLocalPerMille);
  const RoutePrefix decides =
      local ? RoutePrefix::of(prefix.family, prefix.bits(), coverLength(prefix.family)) : prefix;
  const std::uint64_t base = Random(hashOf(decides, seed_ ^ kGroupSalt)).below(groups_);
  return static_cast<std::uint32_t>((base + shift_) % groups_);
}

std::uint32_t NextHopPlan::waysOf(std::uint32_t group) const {
  return 1 + Random(mixed(seed_ ^ kWaysSalt) + group).below(kMaxWays);
}

NextHopPlan NextHopPlan::changed() const {
  NextHopPlan plan = *this;
  if (groups_ > 1) {
    // Any step from 1 to groups - 1 leads elsewhere; the same step each time keeps that true from
    // one change to the next.
    const std::uint64_t step = 1 + Random(seed_ ^ kShiftSalt).below(groups_ - 1);
    plan.shift_ = static_cast<std::uint32_t>((shift_ + step) % groups_);
  }
  return plan;
}

}  // namespace Quarle::Agent
