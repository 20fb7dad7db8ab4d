#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "framework/Vellor/DynArray.h"
#include "framework/Vellor/GenericIf.h"
#include "framework/Vellor/HashMap.h"
#include "framework/Vellor/LinkQueue.h"
#include "framework/Vellor/RbTreeMap.h"
#include "framework/Vellor/Schema.h"

// Makes the face of a type from its schema lines and one list of its operations. For the type's own
// `...Reflect.cpp` alone: everything here is compiled once for each type that has a face.

namespace Vellor {

/// What a child of this class is made of beside its key: its `ConstructorTypes`, or nothing.
template <class Child>
struct ChildArguments {
  using Types = std::tuple<>;
};

template <class Child>
requires requires { typename Child::ConstructorTypes; }

struct ChildArguments<Child> {
  using Types = typename Child::ConstructorTypes;
};

namespace Detail {

// ---- arguments ----

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

// ---- collections ----

template <class Collection>
struct CollectionTypes;

template <class K, class V>
struct CollectionTypes<HashMap<K, V>> {
  using Key = K;
  using Value = V;
  static constexpr bool kSelfKeyed = false;
};

template <class K, class V>
struct CollectionTypes<RbTreeMap<K, V>> : CollectionTypes<HashMap<K, V>> {};

template <class K, class C>
struct CollectionTypes<ChildMap<K, C>> {
  using Key = K;
  using Value = Ptr<C>;
  using Child = C;
  static constexpr bool kSelfKeyed = true;
};

template <class V>
struct CollectionTypes<LinkQueue<V>> : CollectionTypes<HashMap<U32, V>> {};

template <class V>
struct CollectionTypes<DynArray<V>> : CollectionTypes<HashMap<U32, V>> {};

/// A walk by a collection's own iterator.
template <class Iterator>
class Walker final : public GenericIf::Iterator_ {
 public:
  Walker(GenericIf::Ptr holder, Iterator iterator, bool isConst)
      : holder_(std::move(holder)), iterator_(std::move(iterator)), isConst_(isConst) {}

  bool nonNull() const override { return static_cast<bool>(iterator_); }

  void inc() override { ++iterator_; }

  GenericIf::Ptr key() const override {
    return genericIf(std::remove_cvref_t<Key>(iterator_.key()));
  }

  GenericIf::Ptr obj() const override {
    if constexpr (ReflectedPtr<Value>) {
      using Object = typename ObjectOf<Value>::Type;
      const Value value = iterator_.value();
      return genericIfOfObject(Vellor::Ptr<PtrInterface>(const_cast<Object*>(value.get())),
                               Object::kVellorType_, isConst_);
    } else {
      return new ValueFace<Value>(iterator_.value(), isConst_);
    }
  }

  Ptr clone() const override { return new Walker(holder_, iterator_, isConst_); }

 private:
  using Key = decltype(std::declval<const Iterator&>().key());
  using Value = std::remove_cvref_t<decltype(std::declval<const Iterator&>().value())>;

  GenericIf::Ptr holder_;
  Iterator iterator_;
  bool isConst_;
};

template <class T, class Face>
GenericIf::Iterator_::Ptr walkOf(void* self, const GenericIf::Ptr& holder, bool isConst) {
  auto iterator = Face::iterator(std::as_const(object<T>(self)));
  return new Walker<decltype(iterator)>(holder, std::move(iterator), isConst);
}

// ---- attributes ----

/// Writes a member that comes with its key, a child by its constructor's arguments.
template <class T, AttributeKind kKind, class Face, class Types>
GenericIf::Ptr insertMember(T& target, const AttributeFace& face, const GenericIf::Ptr& arg) {
  using Key = typename Types::Key;
  using Value = typename Types::Value;
  const ArgumentReader reader(arg, face);
  if constexpr (kKind == AttributeKind::childMap) {
    using Rest = typename ChildArguments<typename Types::Child>::Types;
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
      const std::string_view names[] = {kKey, ((void)I, kValue)...};
      reader.check(names, 1 + sizeof...(I));
      return shown(Face::is(target, reader.value<Key>(0, kKey),
                            reader.value<std::tuple_element_t<I, Rest>>(1 + I, kValue)...),
                   face);
    }
    (std::make_index_sequence<std::tuple_size_v<Rest>>{});
  } else if constexpr (kKind == AttributeKind::map && Types::kSelfKeyed) {
    reader.check(&kValue, 1);
    Face::is(target, reader.value<Value>(0, kValue));
    return nullptr;
  } else {
    constexpr std::string_view kNames[] = {kKey, kValue};
    reader.check(kNames, 2);
    Face::is(target, reader.value<Key>(0, kKey), reader.value<Value>(1, kValue));
    return nullptr;
  }
}

template <class T, AttributeKind kKind, class Face>
GenericIf::Ptr operateCollection(void* self,
                                 const AttributeFace& face,
                                 U8 kind,
                                 const GenericIf::Ptr& arg) {
  using Types = CollectionTypes<typename Face::template Collection<T>>;
  using Key = typename Types::Key;
  using Value = typename Types::Value;
  T& target = object<T>(self);
  const auto key = [&] {
    const ArgumentReader reader(arg, face);
    reader.check(&kKey, 1);
    return reader.value<Key>(0, kKey);
  };
  switch (kind) {
    case AttributeOp::get:
      return shown(Value(Face::at(target, key())), face);
    case AttributeOp::count:
      return genericIf(Face::collection(target).count());
    case AttributeOp::isMember:
      if constexpr (kKind == AttributeKind::array || kKind == AttributeKind::queue) {
        const Key wanted = key();
        for (auto member = Face::iterator(std::as_const(target)); member; ++member) {
          if (member.key() == wanted) {
            return genericIf(true);
          }
        }
        return genericIf(false);
      } else {
        return genericIf(Face::collection(target).isMember(key()));
      }
    case AttributeOp::set:
    case AttributeOp::insert:
      return insertMember<T, kKind, Face, Types>(target, face, arg);
    case AttributeOp::remove:
      return shown(Value(Face::del(target, key())), face);
    case AttributeOp::removeAll:
      Face::delAll(target);
      return nullptr;
    case AttributeOp::enqueue:
    case AttributeOp::dequeue:
      if constexpr (kKind == AttributeKind::queue) {
        if (kind == AttributeOp::dequeue) {
          return shown(Value(Face::deq(target)), face);
        }
        const ArgumentReader reader(arg, face);
        reader.check(&kValue, 1);
        Face::enq(target, reader.value<Value>(0, kValue));
        return nullptr;
      }
      break;
    case AttributeOp::notify:
      if constexpr (requires { Face::notify(target, key()); }) {
        Face::notify(target, key());
        return nullptr;
      }
      break;
    default:
      break;
  }
  GenericIf::throwOpNotSupportedException(String8(face.name));
}

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
        const std::string_view names[] = {kValue, ((void)I, kValue)...};
        reader.check(names, sizeof...(I));
        return shown(Face::is(target, reader.value<std::tuple_element_t<I, Rest>>(I, kValue)...),
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
#define VELLOR_REFLECTED_TYPE(Type, Name, operations)                                          \
  namespace {                                                                                  \
  constexpr auto kAttributes##Type =                                                           \
      ::Vellor::operationsAfter(::Vellor::lineFaces<Type>(), operations);                      \
  constexpr ::Vellor::TypeFace kFace##Type{kAttributes##Type.data(), kAttributes##Type.size(), \
                                           &::Vellor::ObjectFace<Type>::make};                 \
  }                                                                                            \
  constinit const ::Vellor::FwkType Type::kVellorType_{Name, &VellorBase::kVellorType_,        \
                                                       &kFace##Type};                          \
  const ::Vellor::FwkType* Type::fwkType() const { return &kVellorType_; }                     \
  static_assert(true, "a semicolon follows here")

// The same for a value; `attributes` is an array of AttributeFace.
#define VELLOR_REFLECTED_VALUE(Type, Name, attributeFaces)                                     \
  namespace {                                                                                  \
  constexpr auto kAttributes##Type = attributeFaces;                                           \
  constexpr ::Vellor::TypeFace kFace##Type{kAttributes##Type.data(), kAttributes##Type.size(), \
                                           nullptr};                                           \
  }                                                                                            \
  const ::Vellor::FwkType& vellorValueType(const Type*) {                                      \
    static constinit const ::Vellor::FwkType kType{Name, nullptr, &kFace##Type};               \
    return kType;                                                                              \
  }                                                                                            \
  static_assert(true, "a semicolon follows here")
