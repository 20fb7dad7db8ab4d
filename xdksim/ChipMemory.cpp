#include "xdksim/ChipMemory.h"

#include <new>

namespace XdkSim {

ChipMemory::ChipMemory(const ChipProfile& profile) {
  ipv4_ = placeFamily(profile.ipv4);
  ipv6_ = placeFamily(profile.ipv6);
  nextHopTable_ = size_;
  size_ += std::size_t{profile.nextHopRows} * kNextHopRowWords;
  words_.reset(static_cast<U64*>(std::calloc(size_, sizeof(U64))));
  if (words_ == nullptr) {
    throw std::bad_alloc();
  }
}

ChipMemory::FamilyPlace ChipMemory::placeFamily(const FamilyProfile& family) {
  FamilyPlace place;
  for (const PrefixTableProfile& table : family.tables) {
    place.prefixTables.push_back(size_);
    size_ += std::size_t{table.rows} * (table.sramWidth / 64);
  }
  place.nhi = size_;
  place.tileWords = std::size_t{family.nhi.entriesPerTile} * kNhiRowWords;
  size_ += place.tileWords * family.nhi.tiles();
  return place;
}

}  // namespace XdkSim
