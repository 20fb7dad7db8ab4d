#include "agent/LookupCheck.h"

#include "agent/ChipContexts.h"
#include "agent/source/RouteText.h"

namespace Quarle::Agent {

bool LookupCheck::checkAddress(const IpAddress& address) {
  ++lookups_;
  const std::optional<ReferenceTrie::Match> expected = expected_.longestMatch(address);
  const XdkSim::LookupResult seen =
      chip_.lookup(chipFamily(address.family), vrf_, address.bytes.data());
  bool right = seen.matched == expected.has_value();
  if (right && expected) {
    const TarnletNextHop::NextHopBlock block = blockOf_(expected->value);
    right = seen.matchLen == U32{XdkSim::LpmKey::kVrfBits} + expected->length &&
            seen.base == block.base().value() && seen.size == block.size().value();
  }
  if (!right) {
    ++wrong_;
    if (faults_.size() < kFaultsKept) {
      keepFault(address, expected);
    }
  }
  return right;
}

void LookupCheck::checkPrefix(const RoutePrefix& prefix) {
  const IpAddress first = prefix.firstAddress();
  const IpAddress last = prefix.lastAddress();
  checkAddress(first);
  if (first != last) {
    checkAddress(last);
  }
}

void LookupCheck::keepFault(const IpAddress& address,
                            const std::optional<ReferenceTrie::Match>& expected) {
  std::string text = toText(address) + ": expected ";
  if (expected) {
    const TarnletNextHop::NextHopBlock block = blockOf_(expected->value);
    const RoutePrefix prefix =
        RoutePrefix::of(address.family, AddressBits::of(address.bytes), expected->length);
    text += "a match of " + toText(prefix) + " to " + std::to_string(block.size().value()) +
            " next-hop rows from row " + std::to_string(block.base().value());
  } else {
    text += "no match";
  }
  text += ", the chip saw\n";
  text += chip_.explain(chipFamily(address.family), vrf_, address.bytes.data()).toText();
  faults_.push_back(std::move(text));
}

}  // namespace Quarle::Agent
