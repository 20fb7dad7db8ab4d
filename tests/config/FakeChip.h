#pragma once

#include <cstdlib>
#include <string>

#include "config/TarnletConfigurator.h"

#include <gtest/gtest.h>

namespace Quarle::Testing {

/// A table context of a chip that exists in a test alone.
template <class Context>
class FakeContextEntry : public Halyard::TableContextEntry {
  VELLOR_POINTERS(FakeContextEntry);

 public:
  void xpTblContext(U8 id, xpTableContext* filled, bool flag) override {
    ++reads;
    EXPECT_EQ(id, 0);
    EXPECT_FALSE(flag);
    auto* typed = dynamic_cast<Context*>(filled);
    ASSERT_NE(typed, nullptr) << "the context is of another table's kind";
    *typed = context;
  }

  Context context;
  U32 reads = 0;
};

/// A chip with its three table contexts, the configurations and the configurator over them. Without
/// further words there is no table and no tile.
class FakeChip {
 public:
  using LpmEntry = FakeContextEntry<xpLpmTableContext>;
  using NextHopEntry = FakeContextEntry<xpNhTableContext>;

  FakeChip() {
    ipv4().keyWidth = 48;
    ipv6().keyWidth = 144;
    for (xpLpmTableContext* context : {&ipv4(), &ipv6()}) {
      context->vrfIdWidth = 16;
      context->nhiPairPerEntry = 6;
      context->nhiBlockBaseWidth = 16;
    }
    nextHop().rowBlkInc = 4096;
    status->tableContextIs(50, lpmV4);
    status->tableContextIs(51, lpmV6);
    status->tableContextIs(52, nh);
    system->chipIs("chip", status);
  }

  xpLpmTableContext& ipv4() { return lpmV4->context; }

  xpLpmTableContext& ipv6() { return lpmV6->context; }

  xpNhTableContext& nextHop() { return nh->context; }

  /// Fills one record of the IPv4 context.
  FakeChip& table(U32 id, xpLpmPrefixTableRecord record) {
    record.valid = 1;
    ipv4().prefixTableRecord[id] = record;
    return *this;
  }

  FakeChip& configure() {
    configurator->doConfig();
    return *this;
  }

  Tarnlet::XpPrefixTableConfig::Ptr tableV4(U8 id) const {
    return Vellor::dynamicPtrCast<Tarnlet::XpPrefixTableConfig>(configV4->prefixTableConfig(id));
  }

  LpmEntry::Ptr lpmV4 = new LpmEntry;
  LpmEntry::Ptr lpmV6 = new LpmEntry;
  NextHopEntry::Ptr nh = new NextHopEntry;
  Sennet::ChipStatus::Ptr status = new Sennet::ChipStatus;
  Sennet::SystemStatus::Ptr system = new Sennet::SystemStatus;
  Tarnlet::ConfigV4::Ptr configV4 = Tarnlet::configV4Factory("v4");
  Tarnlet::ConfigV6::Ptr configV6 = Tarnlet::configV6Factory("v6");
  TarnletNextHop::Config::Ptr configNh = TarnletNextHop::configFactory("nh");
  Config::LpmTreadCfg::Ptr treadCfg = new Config::LpmTreadCfg;
  TarnletConfigurator::Ptr configurator =
      tarnletConfiguratorFactory(system, configV4, configV6, configNh, treadCfg);
};

/// A variable of the environment while this object lives; afterwards it is unset.
class EnvironmentVariable {
 public:
  EnvironmentVariable(const char* name, const char* value) : name_(name) {
    ::setenv(name, value, /*replace=*/1);
  }

  ~EnvironmentVariable() { ::unsetenv(name_); }

  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

 private:
  const char* name_;
};

}  // namespace Quarle::Testing
