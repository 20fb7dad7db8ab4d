#include "agent/ChipContexts.h"

#include <stdexcept>
#include <string>

namespace Quarle::Agent {

namespace {

constexpr U32 kContexts[] = {50, 51, 52};

/// One table context, read from the chip at each request.
class ChipContext final : public Halyard::TableContextEntry {
 public:
  ChipContext(const XdkSim::Chip& chip, U32 number) : chip_(chip), number_(number) {}

  void xpTblContext(U8 /*id*/, xpTableContext* context, bool /*flag*/) override {
    if (!chip_.fillTableContext(number_, context)) {
      throw std::logic_error("table context " + std::to_string(number_) +
                             ": the chip does not fill a record of this kind");
    }
  }

 private:
  const XdkSim::Chip& chip_;
  U32 number_;
};

}  // namespace

Sennet::SystemStatus::Ptr systemStatusOf(const XdkSim::Chip& chip) {
  const Sennet::ChipStatus::Ptr status(new Sennet::ChipStatus());
  for (const U32 number : kContexts) {
    status->tableContextIs(number, Halyard::TableContextEntry::Ptr(new ChipContext(chip, number)));
  }
  Sennet::SystemStatus::Ptr system(new Sennet::SystemStatus());
  system->chipIs(Vellor::Name(chip.profile().name.c_str()), status);
  return system;
}

}  // namespace Quarle::Agent
