#pragma once

#include <functional>
#include <string>

#include "agent/Client.h"
#include "agent/source/Random.h"
#include "tests/kill/Wishes.h"
#include "xdksim/Chip.h"

namespace Quarle::Agent::Testing {

/// Makes random requests of a client and brings its chip to what was wanted, and keeps `Wishes` in
/// step.
class Asker {
 public:
  /// Told of each request: before it when `begins`, then once it is done.
  using Note = std::function<void(bool begins, U32 route, U32 list)>;

  /// Whether the chip has room for nearly all that may be wanted: what is refused all the same is
  /// given up. Where room is scarce a refused request stays a wish of the client's, which may be
  /// served at any time, and so is never noted as done.
  enum class Room { ample, scarce };

  /// The client, its chip and the wishes outlive the object.
  Asker(Client& client, XdkSim::Chip& chip, Room room, Wishes& wishes, Note note = {});

  /// Requests everything that is wanted, and withdraws the rest. Raises std::runtime_error where
  /// room is ample and a route is refused that stands already.
  void resynchronise();

  /// Withdraws all routes but every `nth` one, and has those served that were waiting for room.
  void thinOut(U32 nth);

  /// Whether the client tells of the route that it is not as wanted.
  bool isRefused(U32 route) {
    return familyOf(route).refused().find(wishes_.key(route)) != nullptr;
  }

  /// One random request: a route, a withdrawal, or other next hops for a whole group.
  void change(Random& random);

  /// What is wrong with the engines' state, with the next-hop rows and with the numbers of routes
  /// and groups, as the chip and the wishes have them.
  ///
  /// REQUIRES: the chip has one NHI tile in each family.
  std::string audited();

 private:
  void begin(U32 route, U32 list);
  void end(U32 route, U32 list);
  void request(U32 route, U32 list);
  void changeGroup(U32 route, U32 list);
  std::string auditedFamily(Family family);
  std::string auditedGroups();

  FamilyClient& familyOf(U32 route) { return client_.family(wishes_.key(route).prefix.family); }

  Client& client_;
  XdkSim::Chip& chip_;
  const Room room_;
  Wishes& wishes_;
  const Note note_;
};

}  // namespace Quarle::Agent::Testing
