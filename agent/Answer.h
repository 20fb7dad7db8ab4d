#pragma once

#include <functional>

#include "agent/Refusal.h"
#include "agent/RouteKey.h"
#include "model/NextHopBlock.h"

namespace Quarle::Agent {

/// What became of a request.
enum class Outcome : U8 {
  /// A new route is on the chip.
  placed,
  /// A route that was on the chip leads to the new group.
  updated,
  /// The route led there already.
  unchanged,
  /// The route, or the wish for it, is gone.
  withdrawn,
  /// There was no route to withdraw.
  absent,
  /// The chip has no room for the request, or it makes no sense; what was on the chip stays as it
  /// was.
  refused,
};

/// The outcome as one word for machines: "placed".
const char* toText(Outcome outcome);

struct Answer {
  Outcome outcome = Outcome::absent;
  // Of a refusal alone.
  RefusalReason reason = RefusalReason::invalid;

  bool operator==(const Answer&) const = default;

  bool refused() const { return outcome == Outcome::refused; }
};

/// What an answer is the answer to.
enum class Cause : U8 {
  /// The caller's own request.
  request,
  /// A wish that was refused before and was tried again.
  retry,
  /// The route's group has other rows now, and the route follows.
  groupMove,
  /// Nobody claimed the route by the end of a resynchronisation.
  resync,
};

/// One answer, as the handler of a `Client` is told.
struct RouteEvent {
  RouteKey key;
  // Where the route should lead; of a withdrawal, where it led or should have led, or null.
  TarnletNextHop::SwId group;
  Answer answer;
  Cause cause = Cause::request;
};

/// Told of every answer, in the order in which they come about. It may read the client; it must
/// neither request anything of it nor raise.
using AnswerHandler = std::function<void(const RouteEvent&)>;

}  // namespace Quarle::Agent
