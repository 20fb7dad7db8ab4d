// A forwarding agent in small: routes in, chip written, refusals handled.

#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "agent/ChipContexts.h"
#include "agent/Client.h"
#include "agent/source/RouteText.h"
#include "xdksim/SimLpmMgr.h"

namespace {

using namespace Quarle::Agent;

/// What the driver of a real chip provides: the table contexts and the SDK's two managers. Here the
/// chip is simulated; with a maker's SDK this class is all that changes.
class Driver {
 public:
  explicit Driver(const std::string& profile) : chip_(XdkSim::findProfile(profile)) {}

  ChipAccess access() {
    return {.systemStatus = systemStatusOf(chip_), .ipv4 = &ipv4_, .ipv6 = &ipv6_};
  }

  /// Where the chip sends a packet: the first next hop of the longest match, 0 for none.
  U64 nextHopOf(const IpAddress& address) const {
    const auto seen = chip_.explain(chipFamily(address.family), /*vrf=*/0, address.bytes.data());
    return seen.result.matched ? seen.nextHops.front().entry.nextHopId : 0;
  }

 private:
  XdkSim::Chip chip_;
  XdkSim::SimLpmMgr ipv4_{chip_, XdkSim::Family::ipv4};
  XdkSim::SimLpmMgr ipv6_{chip_, XdkSim::Family::ipv6};
};

RouteKey keyOf(const std::string& prefix) {
  const Parsed<RoutePrefix> parsed = parsePrefix(prefix);
  if (!parsed.ok()) {
    throw std::invalid_argument(parsed.fault);
  }
  return {.vrf = 0, .prefix = parsed.value};
}

class ForwardingAgent {
 public:
  explicit ForwardingAgent(const ChipAccess& chip)
      // This agent's peers send no IPv6 route beyond /64. A chip that cannot serve all lengths up
      // to these is refused here, before the first route.
      : client_(chip, {.maxLengthV4 = 32, .maxLengthV6 = 64}) {
    client_.answerHandlerIs([this](const RouteEvent& event) { take(event); });
  }

  /// A routing daemon's update. The answer stands in the chip already; there is nothing to drain.
  void announce(const std::string& prefix, const std::vector<U64>& nextHops) {
    const RouteKey key = keyOf(prefix);
    client_.family(key.prefix.family).routeIs(key, nextHops);
  }

  void withdraw(const std::string& prefix) {
    const RouteKey key = keyOf(prefix);
    client_.family(key.prefix.family).routeDel(key);
  }

  /// A table at once, over one group of next hops that the agent holds itself.
  void announceAll(const std::vector<std::string>& prefixes, SwId group) {
    std::vector<RouteChange> changes;
    for (const std::string& prefix : prefixes) {
      changes.push_back({.key = keyOf(prefix), .group = group});
    }
    client_.family(Family::ipv4).batch(changes, {});
  }

  Client& client() { return client_; }

  U64 served() const { return served_; }

  U64 servedLater() const { return servedLater_; }

 private:
  /// Every answer comes by, also those to wishes that the client tried again by itself.
  void take(const RouteEvent& event) {
    if (event.answer.refused()) {
      return;  // It stays on the list of refused, with its reason.
    }
    ++(event.cause == Cause::retry ? servedLater_ : served_);
  }

  Client client_;
  U64 served_ = 0;
  U64 servedLater_ = 0;
};

void expect(bool holds, const std::string& what) {
  if (!holds) {
    throw std::logic_error("expected that " + what);
  }
}

void run() {
  Driver driver("lab");  // A few tiny tables: soon full.
  ForwardingAgent agent(driver.access());
  const IpAddress somewhere = parseAddress("10.1.2.3").value;

  agent.announce("10.0.0.0/8", {7});
  agent.announce("10.1.0.0/16", {8, 9});
  agent.announce("2001:db8::/32", {7});
  expect(driver.nextHopOf(somewhere) == 8, "the longer prefix leads");

  // A group that many routes share. When its next hops change, all of them follow at once.
  const SwId uplinks = agent.client().ownGroupIs(std::vector<U64>{21, 22});
  std::vector<std::string> table;
  for (int i = 0; i < 200; ++i) {
    table.push_back("20." + std::to_string(i) + ".0.0/24");
  }
  agent.announceAll(table, uplinks);
  agent.client().groupNextHopsAre(uplinks, std::vector<U64>{23});
  expect(driver.nextHopOf(parseAddress("20.0.0.1").value) == 23, "routes follow their group");

  // The chip is full now. What found no room is kept as a wish, and comes in when others go.
  const FamilyClient& ipv4 = agent.client().family(Family::ipv4);
  const U64 refused = ipv4.refused().size();
  expect(refused > 0, "a table too large for the chip is refused in part");
  std::cout << "placed " << ipv4.routes() << ", refused " << refused << ":";
  for (const RefusalReason reason : kRefusalReasons) {
    if (ipv4.refused().count(reason) != 0) {
      std::cout << " " << ipv4.refused().count(reason) << " " << toText(reason);
    }
  }
  std::cout << '\n';

  for (int i = 0; i < 60; ++i) {
    agent.withdraw(table[i]);
  }
  agent.client().retryRefused(/*most=*/1000);  // When there is time: more than each event tries.
  std::cout << "after 60 withdrawals: placed " << ipv4.routes() << ", refused "
            << ipv4.refused().size() << ", served later " << agent.servedLater() << '\n';
  expect(agent.servedLater() > 0, "refused routes come in when there is room");
  agent.client().groupDel(uplinks);
}

}  // namespace

int main() {
  try {
    run();
    return 0;
  } catch (const ProfileError& error) {  // The chip cannot serve such lengths: nothing was done.
    std::cerr << "chip: " << error.what() << '\n';
  } catch (
      const ChipWriteError& error) {  // The SDK refused a write: one row is not as it should be.
    std::cerr << "write: " << error.what() << '\n';
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
  }
  return 1;
}
