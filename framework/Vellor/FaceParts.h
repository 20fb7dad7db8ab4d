#pragma once

#include <concepts>
#include <string_view>
#include <type_traits>

#include "framework/Vellor/GenericIf.h"

// What the functions of every face are made of.

namespace Vellor::Detail {

inline constexpr std::string_view kKey = "key";
inline constexpr std::string_view kValue = "value";

template <class T>
const FwkType* typeOf() {
  if constexpr (ReflectedPtr<T>) {
    return &ObjectOf<T>::Type::kVellorType_;
  } else if constexpr (ReflectedValue<T>) {
    return &vellorValueType(static_cast<const T*>(nullptr));
  } else {
    return nullptr;
  }
}

/// The face of what was read; a type without one cannot be shown.
template <class T>
GenericIf::Ptr shown(const T& value, const AttributeFace& face) {
  if constexpr (Reflected<T>) {
    return genericIf(value);
  } else {
    GenericIf::throwOpNotSupportedException(String8(face.name));
  }
}

/// Calls `read()` and shows what it yields; nothing for an operation that yields nothing.
template <class Read>
GenericIf::Ptr shownResult(Read&& read, const AttributeFace& face) {
  if constexpr (std::is_void_v<decltype(read())>) {
    read();
    return nullptr;
  } else {
    return shown<std::remove_cvref_t<decltype(read())>>(read(), face);
  }
}

template <class T>
T& object(void* self) {
  if constexpr (std::derived_from<T, PtrInterface>) {
    return *static_cast<T*>(static_cast<PtrInterface*>(self));
  } else {
    return *static_cast<T*>(self);
  }
}

}  // namespace Vellor::Detail
