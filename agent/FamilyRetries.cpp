// Which refused wishes are tried again, and when. Wishes stand in lines by what they wait for; one
// that is refused again goes to the end of its line, so that each gets its turn.

#include <algorithm>
#include <array>
#include <vector>

#include "agent/FamilyClient.h"

namespace Quarle::Agent {

namespace {

using Line = RefusedWishes::Line;

// The part of an event's tries that may come to nothing.
constexpr U64 kFruitlessPart = 4;

}  // namespace

void FamilyClient::useRoom(Room room) {
  if (room == Room::nhi && refused_.withdrawals().empty() && !room_.forNewRoute()) {
    return;
  }
  // By what they wait for: NHI room, then a leaf, then a row.
  const std::array<const Line*, 6> lines = {
      &refused_.withdrawals(),
      &refused_.of(RefusalReason::headroom),
      &refused_.of(RefusalReason::nhiTableFull),
      &refused_.of(RefusalReason::rowFull),
      &refused_.of(RefusalReason::nhiCapacityExceeded),
      &refused_.of(RefusalReason::noRow),
  };
  const std::size_t count = room == Room::nhi ? 3 : room == Room::leaf ? 5 : lines.size();
  retryAfterEvent(std::span(lines).first(count));
}

void FamilyClient::retryGroups() {
  const std::array<const Line*, 1> lines = {&refused_.of(RefusalReason::nextHopTableFull)};
  retryAfterEvent(lines);
}

void FamilyClient::retryAfterEvent(std::span<const Line* const> lines) {
  const U64 most = options_.retriesPerEvent;
  retry(lines, most, std::max(most / kFruitlessPart, U64{1}));
}

U64 FamilyClient::retryRefused(U64 most) {
  std::vector<const Line*> lines = {&refused_.withdrawals()};
  for (const RefusalReason reason : kRefusalReasons) {
    if (reason != RefusalReason::invalid) {
      lines.push_back(&refused_.of(reason));
    }
  }
  const U64 served = retry(lines, most, most);
  if (groups_.takeRoom()) {
    shared_.rowsCameFree();
  }
  shared_.faults.raiseIfAny();
  return served;
}

U64 FamilyClient::retry(std::span<const Line* const> lines, U64 most, U64 mostFruitless) {
  U64 waiting = 0;
  for (const Line* line : lines) {
    waiting += line->size();
  }
  U64 served = 0;
  U64 fruitless = 0;
  // Nor more than wait now: one that is refused again comes to stand behind them.
  for (U64 left = std::min(most, waiting); left != 0 && fruitless != mostFruitless; --left) {
    const Line* line = nextLine(lines);
    if (line == nullptr) {
      break;
    }
    const bool done = retryOne(line->front());
    served += done ? 1 : 0;
    fruitless += done ? 0 : 1;
  }
  return served;
}

const Line* FamilyClient::nextLine(std::span<const Line* const> lines) {
  // Withdrawals make room for all others.
  if (lines.front() == &refused_.withdrawals() && !lines.front()->empty()) {
    return lines.front();
  }
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const Line* line = lines[turn_++ % lines.size()];
    if (!line->empty()) {
      return line;
    }
  }
  return nullptr;
}

bool FamilyClient::retryOne(const RefusedWish& wish) {
  const RefusedWish tried = wish;
  const Request request = tried.isWithdrawal() ? withdraw(tried.key) : want(tried.key, tried.group);
  const Answer before = {.outcome = Outcome::refused, .reason = tried.reason};
  if (request.answer != before) {
    tell(tried.key, request.group, request.answer, Cause::retry);
  }
  return !request.answer.refused();
}

}  // namespace Quarle::Agent
