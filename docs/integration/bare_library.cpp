// The library without the client above it: the entities, the engine and the command queue.

#include <cstdlib>
#include <iostream>

#include "agent/ChipContexts.h"
#include "config/TarnletConfigurator.h"
#include "engine/TarnletSm.h"
#include "model/Tarnlet.h"
#include "xdksim/Chip.h"

using namespace Quarle;

namespace {

/// Stands for the calls that write an entry through the SDK.
void write(const Tarnlet::CommandBase& command) {
  if (command.cmdType() == Tarnlet::commandTypeNhi) {
    const auto& nhi = static_cast<const Tarnlet::NhiCommand&>(command);
    std::cout << "NHI tile " << U32{nhi.index().tile().value()} << " row " << nhi.index().offset()
              << ": " << nhi.nextHopBlockList().nextHopBlocks() << " pairs\n";
    return;
  }
  const auto& prefix = static_cast<const Tarnlet::PrefixCommand&>(command);
  std::cout << "table " << U32{prefix.tableId().value()} << " row " << prefix.index().value()
            << ": " << prefix.prefixList().prefixs() << " leaves\n";
}

}  // namespace

int main() {
  // What the driver reports of the chip; here of a simulated one.
  const XdkSim::Chip chip(XdkSim::findProfile("lab"));
  const Sennet::SystemStatus::Ptr system = Agent::systemStatusOf(chip);

  // The configurations are filled first, from the table contexts, and stay as they are.
  const Tarnlet::ConfigV4::Ptr config = Tarnlet::configV4Factory("ipv4");
  const Tarnlet::ConfigV6::Ptr configV6 = Tarnlet::configV6Factory("ipv6");
  const TarnletNextHop::Config::Ptr nextHops = TarnletNextHop::configFactory("nextHops");
  const Config::LpmTreadCfg::Ptr treads(new Config::LpmTreadCfg());
  tarnletConfiguratorFactory(system, config, configV6, nextHops, treads)->doConfig();

  // One engine for each family; this program needs one.
  const Tarnlet::Status::Ptr status = Tarnlet::statusFactory("ipv4");
  const Tarnlet::LpmSm::Ptr engine = Tarnlet::lpmSmFactory("ipv4", config, status, nullptr);

  // A request is worked off when the write to `request` returns. The queue then holds what must be
  // written, in an order that is safe to carry out one by one.
  const Tarnlet::LpmPrefix::Ptr prefix = config->lpmPrefixIs({0, Corsel::Prefix("10.1.0.0/16")});
  const TarnletNextHop::NextHopBlock block(TarnletNextHop::NextHopTableIdx(40),
                                           TarnletNextHop::Nway(4));
  config->requestIs(prefix, block);
  while (const Tarnlet::CommandBase::Ptr command = status->pendingCmdDeq()) {
    write(*command);
  }

  // A refusal shows here alone, and the wish must then be taken back.
  if (status->prefixToNextHopBlock(prefix) != block) {
    config->requestDel(prefix);
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
