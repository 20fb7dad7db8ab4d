#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <functional>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "framework/Vellor/ArgumentReader.h"
#include "framework/Vellor/CollectionFace.h"
#include "framework/Vellor/FaceParts.h"
#include "framework/Vellor/GenericIf.h"
#include "framework/Vellor/Schema.h"

// Makes the face of a type from its schema lines and one list of its operations. For the type's own
// `...Reflect.cpp` alone: everything here is compiled once for each type that has a face.

namespace Vellor {
namespace Detail {

// ---- attributes ----

template <class T, AttributeKind kKind, class Face>
GenericIf::Ptr operatePlain(void* self,
                            const AttributeFace& face,
                            U8 kind,
                            const GenericIf::Ptr& arg) {
  using Value = std::remove_cvref_t<decltype(Face::get(std::declval<const T&>()))>;
  T& target = object<T>(self);
  const ArgumentReader reader(arg, face);
  if (kind == AttributeOp::get) {
    reader.check(nullptr, 0);
    return shown(Value(Face::get(target)), face);
  }
  if constexpr (kKind == AttributeKind::value && Reflected<Value>) {
    if (kind == AttributeOp::set) {
      reader.check(&kValue, 1);
      Face::is(target, reader.value<Value>(0, kValue));
      return nullptr;
    }
  }
  if constexpr (kKind == AttributeKind::child) {
    using Rest = typename ChildArguments<typename Value::Object>::Types;
    if (kind == AttributeOp::set) {
      return [&]<std::size_t... I>(std::index_sequence<I...>) {
        const std::array<std::string_view, sizeof...(I)> names{
            constructorArgumentName<typename Value::Object>(I)...};
        reader.check(names.data(), names.size());
        return shown(Face::is(target, reader.value<std::tuple_element_t<I, Rest>>(I, names[I])...),
                     face);
      }
      (std::make_index_sequence<std::tuple_size_v<Rest>>{});
    }
    if (kind == AttributeOp::remove) {
      Face::del(target);
      return nullptr;
    }
  }
  if (kind == AttributeOp::set) {
    throw ImmutableAttrMutationException(String8(face.name));
  }
  if (kind == AttributeOp::remove) {
    throw NondeletableAttrException(String8(face.name));
  }
  GenericIf::throwOpNotSupportedException(String8(face.name));
}

template <class T, AttributeId Id>
constexpr AttributeFace attributeFaceOf() {
  using Face = decltype(T::vellorFace_(AttributeIndex<Id>{}));
  constexpr AttributeRecord kRecord = T::vellorRecord_(AttributeIndex<Id>{});
  constexpr AttributeKind kKind = kRecord.kind;
  AttributeFace face{};
  face.name = kRecord.name;
  face.kind = kKind;
  if constexpr (kKind == AttributeKind::value || kKind == AttributeKind::constant ||
                kKind == AttributeKind::computed || kKind == AttributeKind::child) {
    face.type = &typeOf<std::remove_cvref_t<decltype(Face::get(std::declval<const T&>()))>>;
    face.operate = &operatePlain<T, kKind, Face>;
  } else {
    using Types = CollectionTypes<typename Face::template Collection<T>>;
    face.type = &typeOf<typename Types::Value>;
    face.keyType = &typeOf<typename Types::Key>;
    face.operate = &operateCollection<T, kKind, Face>;
    face.walk = &walkOf<T, Face>;
  }
  return face;
}

// ---- operations ----

template <class Function>
struct OperationTypes;

template <class C, class R, class... A>
struct OperationTypes<R (C::*)(A...)> {
  using Class = C;
  using Result = R;
  using Arguments = std::tuple<std::remove_cvref_t<A>...>;
  static constexpr bool kConst = false;
};

template <class C, class R, class... A>
struct OperationTypes<R (C::*)(A...) const> : OperationTypes<R (C::*)(A...)> {
  static constexpr bool kConst = true;
};

template <auto kOperation>
GenericIf::Ptr operateCall(void* self,
                           const AttributeFace& face,
                           U8 kind,
                           const GenericIf::Ptr& arg) {
  using Types = OperationTypes<decltype(kOperation)>;
  using Arguments = typename Types::Arguments;
  if (kind != AttributeOp::call && (kind != AttributeOp::callConst || !Types::kConst)) {
    GenericIf::throwOpNotSupportedException(String8(face.name));
  }
  const ArgumentReader reader(arg, face);
  std::array<std::string_view, AttributeFace::kMaxArguments> names;
  for (std::size_t i = 0; i < face.arguments; ++i) {
    names[i] = face.argument[i].name;
  }
  reader.check(names.data(), face.arguments);
  return [&]<std::size_t... I>(std::index_sequence<I...>) {
    // Read before the call, in order: an exception leaves the object alone.
    Arguments arguments{reader.value<std::tuple_element_t<I, Arguments>>(I, names[I])...};
    auto& target = object<typename Types::Class>(self);
    return shownResult([&] { return (target.*kOperation)(std::get<I>(arguments)...); }, face);
  }
  (std::make_index_sequence<std::tuple_size_v<Arguments>>{});
}

}  // namespace Detail

/// An operation of a class with the names of its arguments.
template <auto kOperation, class... Names>
constexpr AttributeFace operation(std::string_view name, Names... names) {
  using Types = Detail::OperationTypes<decltype(kOperation)>;
  using Arguments = typename Types::Arguments;
  static_assert(std::tuple_size_v<Arguments> == sizeof...(Names), "an argument lacks its name");
  static_assert(sizeof...(Names) <= AttributeFace::kMaxArguments);
  AttributeFace face{};
  face.name = name;
  face.kind = AttributeKind::operation;
  face.isConstOperation = Types::kConst;
  if constexpr (!std::is_void_v<typename Types::Result>) {
    face.type = &Detail::typeOf<std::remove_cvref_t<typename Types::Result>>;
  }
  face.arguments = sizeof...(Names);
  if constexpr (sizeof...(Names) != 0) {
    const std::array<std::string_view, sizeof...(Names)> given{std::string_view(names)...};
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      ((face.argument[I] = {given[I], &Detail::typeOf<std::tuple_element_t<I, Arguments>>}), ...);
    }
    (std::make_index_sequence<sizeof...(Names)>{});
  }
  face.operate = &Detail::operateCall<kOperation>;
  return face;
}

template <std::same_as<AttributeFace>... Faces>
constexpr std::array<AttributeFace, sizeof...(Faces)> operations(const Faces&... faces) {
  return {faces...};
}

/// The operations of a base with those of a class derived from it behind them.
template <std::size_t N, std::size_t M>
constexpr std::array<AttributeFace, N + M> operationsAfter(
    const std::array<AttributeFace, N>& base, const std::array<AttributeFace, M>& own) {
  std::array<AttributeFace, N + M> all{};
  for (std::size_t i = 0; i < N; ++i) {
    all[i] = base[i];
  }
  for (std::size_t i = 0; i < M; ++i) {
    all[N + i] = own[i];
  }
  return all;
}

/// What a child of the class is made of, its `ConstructorTypes`, by name.
template <class Child, class... Names>
constexpr std::array<AttributeFace::ArgumentFace, sizeof...(Names)> constructor(Names... names) {
  using Types = typename ChildArguments<Child>::Types;
  static_assert(std::tuple_size_v<Types> == sizeof...(Names), "an argument lacks its name");
  const std::array<std::string_view, sizeof...(Names)> given{std::string_view(names)...};
  return [&]<std::size_t... I>(std::index_sequence<I...>) {
    return std::array<AttributeFace::ArgumentFace, sizeof...(I)>{
        AttributeFace::ArgumentFace{given[I], &Detail::typeOf<std::tuple_element_t<I, Types>>}...};
  }
  (std::make_index_sequence<sizeof...(Names)>{});
}

inline constexpr std::array<AttributeFace::ArgumentFace, 0> kNoConstructor{};

/// An attribute of a value that no schema line tells: read by one function, written by another.
template <class T, auto kGet, auto kIs = nullptr>
struct PlainAccess {
  static auto get(const T& self) { return std::invoke(kGet, self); }

  template <class Value>
  static void is(T& self, const Value& value) {
    std::invoke(kIs, self, value);
  }
};

template <class T, auto kGet, auto kIs>
constexpr AttributeFace valueAttribute(std::string_view name) {
  using Access = PlainAccess<T, kGet, kIs>;
  AttributeFace face{};
  face.name = name;
  face.kind = AttributeKind::value;
  face.type = &Detail::typeOf<std::remove_cvref_t<decltype(Access::get(std::declval<T>()))>>;
  face.operate = &Detail::operatePlain<T, AttributeKind::value, Access>;
  return face;
}

template <class T, auto kGet>
constexpr AttributeFace computedAttribute(std::string_view name) {
  using Access = PlainAccess<T, kGet>;
  AttributeFace face{};
  face.name = name;
  face.kind = AttributeKind::computed;
  face.type = &Detail::typeOf<std::remove_cvref_t<decltype(Access::get(std::declval<T>()))>>;
  face.operate = &Detail::operatePlain<T, AttributeKind::computed, Access>;
  return face;
}

namespace Detail {

template <class T, auto kAt, auto kAtIs, auto kDel>
GenericIf::Ptr operateView(void* self,
                           const AttributeFace& face,
                           U8 kind,
                           const GenericIf::Ptr& arg) {
  using Value = std::remove_cvref_t<decltype(std::invoke(kAt, std::declval<const T&>(), U32{}))>;
  T& target = object<T>(self);
  const ArgumentReader reader(arg, face);
  switch (kind) {
    case AttributeOp::get:
      reader.check(&kKey, 1);
      return shown(std::invoke(kAt, std::as_const(target), reader.value<U32>(0, kKey)), face);
    case AttributeOp::set:
    case AttributeOp::insert: {
      constexpr std::string_view kNames[] = {kKey, kValue};
      reader.check(kNames, 2);
      std::invoke(kAtIs, target, reader.value<U32>(0, kKey), reader.value<Value>(1, kValue));
      return nullptr;
    }
    case AttributeOp::remove:
      reader.check(&kKey, 1);
      std::invoke(kDel, target, reader.value<U32>(0, kKey));
      return nullptr;
    default:
      GenericIf::throwOpNotSupportedException(String8(face.name));
  }
}

}  // namespace Detail

/// A computed attribute by index, which has no members to walk over.
template <class T, auto kAt, auto kAtIs, auto kDel>
constexpr AttributeFace viewAttribute(std::string_view name) {
  AttributeFace face{};
  face.name = name;
  face.kind = AttributeKind::view;
  face.type = &Detail::typeOf<
      std::remove_cvref_t<decltype(std::invoke(kAt, std::declval<const T&>(), U32{}))>>;
  face.keyType = &Detail::typeOf<U32>;
  face.operate = &Detail::operateView<T, kAt, kAtIs, kDel>;
  return face;
}

/// The faces of a type's schema lines, by id.
template <class T>
constexpr auto lineFaces() {
  return []<std::size_t... Id>(std::index_sequence<Id...>) {
    return std::array<AttributeFace, sizeof...(Id)>{
        Detail::attributeFaceOf<T, static_cast<AttributeId>(Id)>()...};
  }
  (std::make_index_sequence<T::VellorMark::kEnd>{});
}

}  // namespace Vellor

// In place of VELLOR_FWK_TYPE for a class with a face of its own; `operations` is an array of
// AttributeFace, empty for a class without operations.
#define VELLOR_REFLECTED_TYPE(Type, Name, operations) \
  VELLOR_REFLECTED_CHILD(Type, Name, operations, ::Vellor::kNoConstructor)

// The same for a class whose objects are owned children, with what constructor() yields.
#define VELLOR_REFLECTED_CHILD(Type, Name, operations, constructorFaces)                          \
  namespace {                                                                                     \
  constexpr auto kAttributes##Type =                                                              \
      ::Vellor::operationsAfter(::Vellor::lineFaces<Type>(), operations);                         \
  constexpr auto kConstructor##Type = constructorFaces;                                           \
  constexpr ::Vellor::TypeFace kFace##Type{kAttributes##Type.data(), kAttributes##Type.size(),    \
                                           &::Vellor::ObjectFace<Type>::make,                     \
                                           kConstructor##Type.data(), kConstructor##Type.size()}; \
  }                                                                                               \
  constinit const ::Vellor::FwkType Type::kVellorType_{Name, &VellorBase::kVellorType_,           \
                                                       &kFace##Type};                             \
  const ::Vellor::FwkType* Type::fwkType() const { return &kVellorType_; }                        \
  static_assert(true, "a semicolon follows here")

// The same for a value; `attributes` is an array of AttributeFace.
#define VELLOR_REFLECTED_VALUE(Type, Name, attributeFaces)                                     \
  namespace {                                                                                  \
  constexpr auto kAttributes##Type = attributeFaces;                                           \
  constexpr ::Vellor::TypeFace kFace##Type{kAttributes##Type.data(), kAttributes##Type.size(), \
                                           nullptr, nullptr, 0};                               \
  }                                                                                            \
  const ::Vellor::FwkType& vellorValueType(const Type*) {                                      \
    static constinit const ::Vellor::FwkType kType{Name, nullptr, &kFace##Type};               \
    return kType;                                                                              \
  }                                                                                            \
  static_assert(true, "a semicolon follows here")
