#include "xdksim/ChipMemory.h"

#include <new>
#include <utility>

namespace XdkSim {

ChipMemory::ChipMemory(const ChipProfile& profile)
    : layout_(profile),
      own_(static_cast<U64*>(std::calloc(layout_.words(), sizeof(U64)))),
      words_(own_.get()) {
  if (words_ == nullptr) {
    throw std::bad_alloc();
  }
}

ChipMemory::ChipMemory(ChipImage image)
    : layout_(image.profile()), image_(std::move(image)), words_(image_->words().data()) {}

}  // namespace XdkSim
