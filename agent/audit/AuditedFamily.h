#pragma once

#include <string>

#include "agent/CommandConsumer.h"
#include "agent/PrefixStore.h"
#include "engine/TarnletSm.h"
#include "framework/Xdk/Xdk.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

/// One family as an audit sees it: the library's state and the chip behind it. Nothing is written.
///
/// The engine has all its NHI tiles on view, no request is under way, and both outlive the audit.
struct AuditedFamily {
  Family family = Family::ipv4;
  const Tarnlet::LpmSm& engine;
  // Null: there is no chip to compare with.
  xpIpRouteLpmMgr* manager = nullptr;
  // Whether a refused route stays among the requests, as it does without a `FamilyClient`.
  bool refusedStayRequested = false;

  std::string routeText(const Tarnlet::LpmPrefix& prefix) const {
    return familyText() + toText(routeKeyOf(family, prefix));
  }

  std::string rowText(U32 table, U32 row) const {
    return familyText() + "table " + std::to_string(table) + " row " + std::to_string(row);
  }

  std::string nhiText(const Tarnlet::NhiTableIdx& place) const {
    return familyText() + "NHI tile " + std::to_string(place.tile().value()) + " entry " +
           std::to_string(place.offset());
  }

  std::string familyText() const { return std::string(familyName(family)) + " "; }
};

}  // namespace Quarle::Agent
