#include "bench/OurSubjects.h"

#include <array>

#include "agent/ChipContexts.h"
#include "agent/Client.h"
#include "config/TarnletConfigurator.h"
#include "engine/TarnletSm.h"
#include "model/Tarnlet.h"

#include <nlohmann/json.hpp>

namespace Quarle::Bench {

namespace {

using Agent::Family;
using TarnletNextHop::NextHopBlock;

/// The configurations of one chip, filled. Only one family's is used.
struct Configs {
  explicit Configs(const XdkSim::Chip& chip)
      : ipv4(Tarnlet::configV4Factory("ipv4")),
        ipv6(Tarnlet::configV6Factory("ipv6")),
        nextHops(TarnletNextHop::configFactory("nextHops")) {
    const Config::LpmTreadCfg::Ptr treads(new Config::LpmTreadCfg());
    tarnletConfiguratorFactory(Agent::systemStatusOf(chip), ipv4, ipv6, nextHops, treads)
        ->doConfig();
    ipv4->supportMultiNhiEntriesPerSubTrieIs(true);
    ipv6->supportMultiNhiEntriesPerSubTrieIs(true);
  }

  Tarnlet::ConfigV4::Ptr ipv4;
  Tarnlet::ConfigV6::Ptr ipv6;
  TarnletNextHop::Config::Ptr nextHops;
};

Dunlix::VrfAndPrefix keyOf(const Agent::RoutePrefix& prefix, const Tarnlet::ConfigV4&) {
  const auto& bytes = prefix.address;
  const U32 address = U32{bytes[0]} << 24 | U32{bytes[1]} << 16 | U32{bytes[2]} << 8 | bytes[3];
  return {0, Corsel::Prefix(address, prefix.length)};
}

Dunlix::VrfAndIp6Prefix keyOf(const Agent::RoutePrefix& prefix, const Tarnlet::ConfigV6&) {
  return {0, Corsel::Ip6Prefix(prefix.address, prefix.length)};
}

/// The rows of a next hop of its own: a group of one way.
NextHopBlock blockOf(U8 nextHop) {
  return {TarnletNextHop::NextHopTableIdx(nextHop), TarnletNextHop::Nway(1)};
}

template <class Config, class Key>
class LibrarySubject final : public Subject {
 public:
  LibrarySubject(const typename Config::Ptr& config,
                 const std::vector<WorkRoute>& routes,
                 U32 drainEvery)
      : config_(config),
        status_(Tarnlet::statusFactory(config->name())),
        sm_(Tarnlet::lpmSmFactory(config->name(), config_, status_, nullptr)),
        drainEvery_(drainEvery) {
    keys_.reserve(routes.size());
    for (const WorkRoute& route : routes) {
      keys_.push_back(keyOf(route.prefix, *config_));
    }
  }

  void insert(std::size_t route, U8 nextHop) override {
    config_->requestIs(config_->lpmPrefixIs(keys_[route]), blockOf(nextHop));
    requestIsMade();
  }

  void update(std::size_t route, U8 nextHop) override {
    config_->requestIs(config_->lpmPrefix(keys_[route]), blockOf(nextHop));
    requestIsMade();
  }

  void remove(std::size_t route) override {
    config_->requestDel(config_->lpmPrefix(keys_[route]));
    config_->lpmPrefixDel(keys_[route]);
    requestIsMade();
  }

  void finish() override { drain(); }

  std::int64_t bytes() const override {
    return Subject::bytes() - static_cast<std::int64_t>(keys_.capacity() * sizeof(Key));
  }

  bool leadsTo(std::size_t route, std::optional<U8> nextHop) override {
    const Tarnlet::LpmPrefix::Ptr prefix = config_->lpmPrefix(keys_[route]);
    if (prefix == nullptr) {
      return !nextHop;
    }
    return status_->prefixToNextHopBlock(prefix) == (nextHop ? blockOf(*nextHop) : NextHopBlock());
  }

  void report(nlohmann::ordered_json& line) const override {
    line["commands"] = {{"prefix", commands_.prefix}, {"nhi", commands_.nhi}};
  }

 private:
  void requestIsMade() {
    if (++undrained_ >= drainEvery_) {
      drain();
    }
  }

  void drain() {
    while (const Tarnlet::CommandBase::Ptr command = status_->pendingCmdDeq()) {
      ++(command->cmdType() == Tarnlet::commandTypePrefix ? commands_.prefix : commands_.nhi);
    }
    undrained_ = 0;
  }

  typename Config::Ptr config_;
  Tarnlet::Status::Ptr status_;
  Tarnlet::LpmSm::Ptr sm_;
  std::vector<Key> keys_;
  U32 drainEvery_;
  U32 undrained_ = 0;
  Agent::CommandCounts commands_;
};

class ClientSubject final : public Subject {
 public:
  ClientSubject(const XdkSim::Chip& chip,
                Family family,
                const std::vector<WorkRoute>& routes,
                std::size_t batch)
      : client_({.systemStatus = Agent::systemStatusOf(chip), .ipv4 = nullptr, .ipv6 = nullptr}),
        family_(client_.family(family)),
        routes_(routes),
        batch_(batch) {
    changes_.reserve(batch);
    for (U64 nextHop = 0; nextHop < WorkRoute::kNextHops; ++nextHop) {
      groups_[nextHop] = client_.groupIs(std::array<U64, 1>{nextHop + 1});
    }
  }

  void insert(std::size_t route, U8 nextHop) override { request(route, groups_[nextHop]); }

  void update(std::size_t route, U8 nextHop) override { request(route, groups_[nextHop]); }

  void remove(std::size_t route) override {
    if (batch_ == 1) {
      family_.routeDel(keyOfRoute(route));
    } else {
      put(route, Agent::SwId());
    }
  }

  void finish() override {
    family_.batch(changes_, {});
    changes_.clear();
  }

  bool leadsTo(std::size_t route, std::optional<U8> nextHop) override {
    const std::optional<Agent::SwId> group = family_.groupOf(keyOfRoute(route));
    return nextHop ? group == groups_[*nextHop] : !group;
  }

  void report(nlohmann::ordered_json& line) const override {
    const Agent::CommandCounts& counts = family_.commands();
    line["commands"] = {{"prefix", counts.prefix}, {"nhi", counts.nhi}};
  }

 private:
  Agent::RouteKey keyOfRoute(std::size_t route) const {
    return {.vrf = 0, .prefix = routes_[route].prefix};
  }

  void request(std::size_t route, Agent::SwId group) {
    if (batch_ == 1) {
      family_.routeIs(keyOfRoute(route), group);
    } else {
      put(route, group);
    }
  }

  void put(std::size_t route, Agent::SwId group) {
    changes_.push_back({.key = keyOfRoute(route), .group = group});
    if (changes_.size() == batch_) {
      finish();
    }
  }

  Agent::Client client_;
  Agent::FamilyClient& family_;
  const std::vector<WorkRoute>& routes_;
  const std::size_t batch_;
  std::vector<Agent::RouteChange> changes_;
  std::array<Agent::SwId, WorkRoute::kNextHops> groups_;
};

}  // namespace

std::unique_ptr<Subject> makeLibrarySubject(const XdkSim::Chip& chip,
                                            Family family,
                                            const std::vector<WorkRoute>& routes,
                                            U32 drainEvery) {
  const Configs configs(chip);
  if (family == Family::ipv4) {
    return std::make_unique<LibrarySubject<Tarnlet::ConfigV4, Dunlix::VrfAndPrefix>>(
        configs.ipv4, routes, drainEvery);
  }
  return std::make_unique<LibrarySubject<Tarnlet::ConfigV6, Dunlix::VrfAndIp6Prefix>>(
      configs.ipv6, routes, drainEvery);
}

std::unique_ptr<Subject> makeClientSubject(const XdkSim::Chip& chip,
                                           Family family,
                                           const std::vector<WorkRoute>& routes,
                                           U32 batch) {
  return std::make_unique<ClientSubject>(chip, family, routes, batch);
}

}  // namespace Quarle::Bench
