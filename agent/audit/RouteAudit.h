#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>

#include "engine/TarnletSm.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

/// Why the library's audit of a route has ended its process.
struct RouteVerdict {
  // The condition that did not hold, to the letter, or how the process ended without one.
  std::string condition;
  // What the library told beside it.
  std::string context;
};

/// Runs the library's audit, which ends the process at the first fault, for each of `routes` in a
/// forked child. A child that dies names its route and the reason, and the next one goes on behind
/// it. `failed` is called here for each, with the route's position, and yields whether to go on;
/// the number of routes that were audited comes back.
///
/// Children write nothing to the standard streams and leave no core file. What they copy of this
/// process's memory is bounded, to a fourteenth of it or 4 MiB; routes whose records lie together
/// make the fewest copies.
///
/// Raises std::system_error when no child can be made.
///
/// REQUIRES: no request is under way; the pointers stay where they are.
std::size_t verifyRoutes(const Tarnlet::LpmSm& engine,
                         std::span<const Tarnlet::LpmPrefix::Ptr* const> routes,
                         const std::function<bool(std::size_t, const RouteVerdict&)>& failed);

/// The same for one route, a null one too; nothing when it passes.
std::optional<RouteVerdict> verifyRoute(const Tarnlet::LpmSm& engine,
                                        const Tarnlet::LpmPrefix::Ptr& route);

}  // namespace Quarle::Agent
