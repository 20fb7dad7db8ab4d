#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// Number of an attribute within its type, from 0 in declaration order; a derived type goes on from
/// its base.
using AttributeId = U32;

enum class AttributeKind : U8 {
  value,     // plain, mutable
  constant,  // fixed by the constructor
  computed,  // read only, no storage
  child,     // one owned object
  map,       // HashMap
  childMap,  // HashMap of owned children
  tree,      // RbTreeMap
  queue,     // LinkQueue
  array,     // DynArray
  view,      // indexed, computed, without storage of its own
  operation,
};

/// What a schema line says of its attribute.
struct AttributeRecord {
  std::string_view name;
  AttributeKind kind;
};

/// Overload ranking: a longer rank is a better match. Each schema line adds one overload of a
/// longer rank, which is how a line finds the line before it.
template <unsigned N>
struct Rank : Rank<N - 1> {};

template <>
struct Rank<0> {};

inline constexpr unsigned kMaxAttributes = 64;

/// Names one attribute in an overload set.
template <AttributeId Id>
using AttributeIndex = std::integral_constant<AttributeId, Id>;

/// Where the lines of a class have got to: attributes so far, and the last link of the Notifiee's
/// chain of handlers.
template <AttributeId End, class LinkType>
struct AttributeMark {
  static constexpr AttributeId kEnd = End;
  using Link = LinkType;
};

namespace Detail {

/// The two spellings of a line's name differ in the case of the first letter alone.
consteval bool spellingsInStep(std::string_view lower, std::string_view upper) {
  return !lower.empty() && lower.size() == upper.size() && lower.substr(1) == upper.substr(1) &&
         lower[0] >= 'a' && lower[0] <= 'z' && upper[0] == lower[0] - 'a' + 'A';
}

template <class T, std::size_t... Ids>
constexpr auto recordsOf(std::index_sequence<Ids...>) {
  return std::array<AttributeRecord, sizeof...(Ids)>{T::vellorRecord_(AttributeIndex<Ids>{})...};
}

}  // namespace Detail

/// The records of a type's attributes by id.
template <class T>
inline constexpr auto attributeRecords =
    Detail::recordsOf<T>(std::make_index_sequence<T::VellorMark::kEnd>{});

/// The name of an attribute, "unknown" for an id that is no attribute of the type.
template <class T>
String8 attributeString(AttributeId id) {
  return id < attributeRecords<T>.size() ? String8(attributeRecords<T>[id].name)
                                         : String8("unknown");
}

}  // namespace Vellor
