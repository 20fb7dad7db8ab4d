#include "tests/kill/Asker.h"

#include <set>
#include <stdexcept>
#include <utility>

#include "agent/ChipContexts.h"
#include "agent/PrefixStore.h"
#include "agent/restart/RestartHelperV4.h"
#include "agent/restart/RestartHelperV6.h"
#include "config/TarnletConfigurator.h"
#include "tests/support/EngineAudit.h"
#include "tests/support/Hardware.h"
#include "xdksim/SimLpmMgr.h"

namespace Quarle::Agent::Testing {

namespace {

constexpr U32 kLists = 60;

using Tarnlet::Testing::Hardware;

Tarnlet::Testing::ChipShape shapeOf(const XdkSim::ChipProfile& profile, Family family) {
  const XdkSim::FamilyProfile& side = profile.family(chipFamily(family));
  Tarnlet::Testing::ChipShape shape{.longKey = family == Family::ipv6};
  for (U32 table = 0; table < side.tables.size(); ++table) {
    shape.tables.push_back({.id = static_cast<U8>(table),
                            .tread = static_cast<U8>(side.tables[table].tread),
                            .depth = side.tables[table].rows,
                            .type = side.tables[table].sramWidth == 128
                                        ? Tarnlet::prefixTableNarrow128b
                                        : Tarnlet::prefixTableWide256b});
  }
  shape.pairsPerEntry = static_cast<U8>(side.nhi.pairsPerEntry);
  shape.tiles = static_cast<U8>(side.nhi.tiles());
  shape.entriesPerTile = static_cast<U16>(side.nhi.entriesPerTile);
  return shape;
}

/// The rows of one family in the chip: what a machine of its own, restarted there, would write.
Hardware hardwareOf(XdkSim::Chip& chip, Family family, std::string& faults) {
  const Tarnlet::ConfigV4::Ptr ipv4 = Tarnlet::configV4Factory("ipv4");
  const Tarnlet::ConfigV6::Ptr ipv6 = Tarnlet::configV6Factory("ipv6");
  tarnletConfiguratorFactory(systemStatusOf(chip), ipv4, ipv6,
                             TarnletNextHop::configFactory("nextHops"),
                             Config::LpmTreadCfg::Ptr(new Config::LpmTreadCfg()))
      ->doConfig();
  const bool isIpv4 = family == Family::ipv4;
  const Tarnlet::ConfigBase::Ptr config =
      isIpv4 ? Tarnlet::ConfigBase::Ptr(ipv4) : Tarnlet::ConfigBase::Ptr(ipv6);
  config->supportMultiNhiEntriesPerSubTrieIs(true);
  const Tarnlet::Status::Ptr status = Tarnlet::statusFactory("status");
  const Tarnlet::RestartHelperBase::Ptr helper =
      isIpv4 ? Tarnlet::RestartHelperBase::Ptr(new RestartHelperV4(ipv4, status))
             : Tarnlet::RestartHelperBase::Ptr(new RestartHelperV6(ipv6, status));
  XdkSim::SimLpmMgr manager(chip, chipFamily(family));
  helper->xdkLpmMgrIs(&manager);
  const Tarnlet::LpmSm::Ptr sm = Tarnlet::lpmSmFactory("sm", config, status, helper);
  Hardware hardware(shapeOf(chip.profile(), family));
  while (const Tarnlet::CommandBase::Ptr command = status->pendingCmdDeq()) {
    faults += hardware.apply(*command);
  }
  helper->xdkLpmMgrIs(nullptr);
  return hardware;
}

}  // namespace

Asker::Asker(Client& client, XdkSim::Chip& chip, Room room, Wishes& wishes, Note note)
    : client_(client), chip_(chip), room_(room), wishes_(wishes), note_(std::move(note)) {}

void Asker::begin(U32 route, U32 list) {
  wishes_.begin(route, list);
  if (note_) {
    note_(/*begins=*/true, route, list);
  }
}

void Asker::end(U32 route, U32 list) {
  wishes_.end(route, list);
  if (note_) {
    note_(/*begins=*/false, route, list);
  }
}

void Asker::request(U32 route, U32 list) {
  const RouteKey& key = wishes_.key(route);
  const bool stands = wishes_.isSettled(route) && wishes_.wanted(route) == list;
  begin(route, list);
  const Answer answer = list == Wishes::kNone
                            ? familyOf(route).routeDel(key)
                            : familyOf(route).routeIs(key, Wishes::nextHopsOf(list));
  if (!answer.refused()) {
    end(route, list);
  } else if (room_ == Room::ample) {
    if (stands || list == Wishes::kNone) {
      throw std::runtime_error(toText(key) + " is refused, " + toText(answer.reason));
    }
    request(route, Wishes::kNone);
  }
}

void Asker::resynchronise() {
  client_.resyncBegin();
  std::vector<U32> unwanted;
  for (U32 route = 0; route < wishes_.size(); ++route) {
    if (wishes_.wanted(route) != Wishes::kNone) {
      request(route, wishes_.wanted(route));
    } else {
      unwanted.push_back(route);
    }
  }
  client_.resyncEnd();
  for (const U32 route : unwanted) {
    if (room_ == Room::ample || !familyOf(route).groupOf(wishes_.key(route))) {
      end(route, Wishes::kNone);
    }
  }
}

void Asker::thinOut(U32 nth) {
  for (U32 route = 0; route < wishes_.size(); ++route) {
    if (route % nth != 0) {
      request(route, Wishes::kNone);
    }
  }
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    client_.family(family).retryRefused(wishes_.size());
  }
}

void Asker::change(Random& random) {
  const U32 route = random.below(wishes_.size());
  const U32 list = 1 + random.below(kLists);
  if (wishes_.wanted(route) != Wishes::kNone && random.chance(100)) {
    changeGroup(route, list);
  } else {
    request(route, random.chance(300) ? Wishes::kNone : list);
  }
}

/// The route's group, and with it all others that lead there, gets the next hops of `list`.
void Asker::changeGroup(U32 route, U32 list) {
  const SwId group = client_.groupIs(Wishes::nextHopsOf(wishes_.wanted(route)));
  std::vector<U32> followers;
  for (U32 other = 0; other < wishes_.size(); ++other) {
    const RefusedWish* wish = familyOf(other).refused().find(wishes_.key(other));
    if (familyOf(other).groupOf(wishes_.key(other)) == group ||
        (wish != nullptr && wish->group == group)) {
      followers.push_back(other);
      begin(other, list);
    }
  }
  const Answer answer = client_.groupNextHopsAre(group, Wishes::nextHopsOf(list));
  // Where room is scarce some routes may stay behind.
  if (room_ == Room::ample) {
    if (answer.refused()) {
      throw std::runtime_error(std::string("a group's change is refused, ") +
                               toText(answer.reason));
    }
    for (const U32 other : followers) {
      end(other, list);
    }
  }
  client_.groupDel(group);
}

std::string Asker::audited() {
  return auditedFamily(Family::ipv4) + auditedFamily(Family::ipv6) + auditedGroups();
}

std::string Asker::auditedFamily(Family family) {
  Tarnlet::Testing::Routes routes;
  U32 wanted = 0;
  const Tarnlet::LpmSm& sm = client_.family(family).engine();
  for (const auto& request : sm.config()->requestCollection()) {
    routes.add(Tarnlet::Testing::keyOf(*request.key), request.value);
  }
  for (U32 route = 0; route < wishes_.size(); ++route) {
    const bool isHere = wishes_.key(route).prefix.family == family;
    wanted += isHere && wishes_.wanted(route) != Wishes::kNone ? 1 : 0;
  }
  std::string faults;
  const Hardware hardware = hardwareOf(chip_, family, faults);
  faults += Tarnlet::Testing::audit(sm, hardware, routes);
  if (room_ == Room::ample && client_.family(family).routes() != wanted) {
    faults += std::to_string(client_.family(family).routes()) + " routes, expected " +
              std::to_string(wanted) + "\n";
  }
  return faults;
}

std::string Asker::auditedGroups() {
  std::set<SwId> inUse;
  for (U32 route = 0; route < wishes_.size(); ++route) {
    if (const auto group = familyOf(route).groupOf(wishes_.key(route))) {
      inUse.insert(*group);
    }
  }
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    client_.family(family).refused().forEach([&](const RefusedWish& wish) {
      if (wish.group != SwId() && !client_.groups().refusal(wish.group)) {
        inUse.insert(wish.group);
      }
    });
  }
  U64 ways = 0;
  for (const SwId group : inUse) {
    ways += client_.groups().nextHops(group).size();
  }
  U64 rows = 0;
  for (U32 row = 0; row < chip_.profile().nextHopRows; ++row) {
    xpNextHopEntry entry;
    rows += chip_.readNextHopRow(row, entry) == XP_NO_ERR && entry.valid == 1 ? 1 : 0;
  }
  const NextHopStatistics statistics = client_.groups().statistics();
  if (statistics.groups == inUse.size() && statistics.rowsUsed == ways && rows == ways) {
    return "";
  }
  return std::to_string(statistics.groups) + " groups in " + std::to_string(statistics.rowsUsed) +
         " rows, " + std::to_string(rows) + " in the chip, expected " +
         std::to_string(inUse.size()) + " in " + std::to_string(ways) + "\n";
}

}  // namespace Quarle::Agent::Testing
