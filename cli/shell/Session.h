#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/Client.h"
#include "agent/PrefixStore.h"
#include "agent/ReferenceTrie.h"
#include "cli/FileCopy.h"
#include "engine/TarnletSm.h"
#include "xdksim/Chip.h"
#include "xdksim/SimLpmMgr.h"

namespace Quarle::Cli {

/// How an image is taken over.
enum class ImageUse {
  // On a copy in memory: whatever is done, the files stay as they are.
  copy,
  // On the image itself and its list of groups.
  write,
};

/// A chip and the client on it, for whoever looks inside.
///
/// While a session lives it finds the objects that textual forms name, so there is one at a time.
class Session {
 public:
  /// An empty chip.
  explicit Session(const XdkSim::ChipProfile& profile);

  /// The chip in an image, taken over as by a client that comes back. Raises what opening the image
  /// and a warm start raise.
  Session(const std::filesystem::path& image, ImageUse use);

  ~Session();

  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const XdkSim::Chip& chip() const { return *chip_; }

  /// Whether the chip is a file, which changes with it.
  bool worksOnImage() const { return worksOnImage_; }

  /// The chip as the client reaches it.
  Agent::ChipAccess access() const;

  Agent::Client& client() { return *client_; }

  const Agent::Client& client() const { return *client_; }

  Tarnlet::LpmSm::Ptr engine(Agent::Family family) const {
    return client_->family(family).engineForDiagnosis(/*changes=*/false);
  }

  TarnletNextHop::LpmNextHopSm::Ptr nextHopEngine() const {
    return client_->groups().engineForDiagnosis();
  }

  /// The object of the route; null when there is none.
  Tarnlet::LpmPrefix::Ptr find(const Agent::RouteKey& key) const {
    return store(key.prefix.family).find(key);
  }

  /// The prefix objects of a family.
  Agent::PrefixStore store(Agent::Family family) const;

  /// What plain longest-prefix matching over the requested routes says.
  struct Reference {
    U32 length = 0;
    TarnletNextHop::NextHopBlock block;
  };

  /// Of the first call, and of the first after a change, all routes are taken up anew.
  std::optional<Reference> reference(U32 vrf, const Agent::IpAddress& address);

  /// The next hops that the client means by these rows; empty when no group begins there.
  std::vector<U64> nextHopsOf(const TarnletNextHop::NextHopBlock& block) const;

  /// To be called last before anything is changed past the client, so that a request finds the
  /// engines as one of the client's would.
  void aboutToChange();

 private:
  /// Plain tables by VRF. Their values are positions in `blocks`.
  struct References {
    std::map<U32, Agent::ReferenceTrie> tries;
    std::vector<TarnletNextHop::NextHopBlock> blocks;
  };

  /// A client on the chip, and the names of its objects.
  void start(const Agent::ClientOptions& options);
  void takeUp(Agent::Family family, References& references) const;

  bool worksOnImage_ = false;
  std::unique_ptr<XdkSim::Chip> chip_;
  std::unique_ptr<XdkSim::SimLpmMgr> manager4_;
  std::unique_ptr<XdkSim::SimLpmMgr> manager6_;
  std::optional<FileCopy> listCopy_;
  std::unique_ptr<Agent::Client> client_;
  std::optional<References> references_;
};

}  // namespace Quarle::Cli
