#include "agent/RefusedWishes.h"

namespace Quarle::Agent {

const RefusedWish* RefusedWishes::find(const RouteKey& key) const {
  const auto place = byKey_.find(key);
  return place == byKey_.end() ? nullptr : &**place;
}

U64 RefusedWishes::count(RefusalReason reason) const {
  // Nothing but lack of headroom keeps a withdrawal waiting.
  const U64 withdrawals = reason == RefusalReason::headroom ? lines_[kWithdrawals].size() : 0;
  return lines_[lineOf(reason)].size() + withdrawals;
}

void RefusedWishes::put(const RefusedWish& wish) {
  Line& line = lines_[lineOf(wish)];
  const auto present = byKey_.find(wish.key);
  if (present == byKey_.end()) {
    byKey_.insert(line.insert(line.end(), wish));
    return;
  }
  const Line::iterator place = *present;
  line.splice(line.end(), lines_[lineOf(*place)], place);
  place->group = wish.group;
  place->reason = wish.reason;
}

bool RefusedWishes::erase(const RouteKey& key) {
  const auto present = byKey_.find(key);
  if (present == byKey_.end()) {
    return false;
  }
  const Line::iterator place = *present;
  byKey_.erase(present);
  lines_[lineOf(*place)].erase(place);
  return true;
}

}  // namespace Quarle::Agent
