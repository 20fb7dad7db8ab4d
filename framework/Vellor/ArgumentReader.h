#pragma once

#include <cstddef>
#include <string_view>

#include "framework/Vellor/GenericIf.h"

namespace Vellor::Detail {

/// The arguments of one operation, by position or by name.
class ArgumentReader {
 public:
  ArgumentReader(const GenericIf::Ptr& arg, const AttributeFace& face) : face_(face) {
    if (const auto* list = dynamic_cast<const GenericIf::List_*>(arg.get())) {
      list_ = list;
    } else if (arg != nullptr) {
      single_ = &arg;
    }
  }

  /// Each argument that comes is one of `names`, and there are no more than these.
  void check(const std::string_view* names, std::size_t count) const {
    if (list_ == nullptr) {
      if (single_ != nullptr && count == 0) {
        GenericIf::throwUnknownArgException(String8(face_.name));
      }
      return;
    }
    std::size_t position = 0;
    for (const GenericIf::Argument& argument : list_->arguments()) {
      if (argument.name.empty()) {
        if (position == count) {
          GenericIf::throwUnknownArgException(String8(face_.name));
        }
        ++position;
        continue;
      }
      bool known = false;
      for (std::size_t i = 0; i < count; ++i) {
        known = known || names[i] == std::string_view(argument.name);
      }
      if (!known) {
        GenericIf::throwUnknownArgException(argument.name);
      }
    }
  }

  template <class T>
  T value(std::size_t position, std::string_view name) const {
    const GenericIf::Ptr* found = find(position, name);
    if (found == nullptr) {
      GenericIf::throwUnknownArgException(String8(name));
    }
    return fromGenericIf<T>(*found, String8(name));
  }

 private:
  /// By name, else the argument without a name at this position among those.
  const GenericIf::Ptr* find(std::size_t position, std::string_view name) const {
    if (list_ == nullptr) {
      return position == 0 ? single_ : nullptr;
    }
    std::size_t unnamed = 0;
    const GenericIf::Ptr* atPosition = nullptr;
    for (const GenericIf::Argument& argument : list_->arguments()) {
      if (name == std::string_view(argument.name)) {
        return &argument.value;
      }
      if (argument.name.empty() && unnamed++ == position) {
        atPosition = &argument.value;
      }
    }
    return atPosition;
  }

  const AttributeFace& face_;
  const GenericIf::List_* list_ = nullptr;
  const GenericIf::Ptr* single_ = nullptr;
};

}  // namespace Vellor::Detail
