#pragma once

#include <cstddef>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "framework/Vellor/ArgumentReader.h"
#include "framework/Vellor/DynArray.h"
#include "framework/Vellor/FaceParts.h"
#include "framework/Vellor/GenericIf.h"
#include "framework/Vellor/HashMap.h"
#include "framework/Vellor/LinkQueue.h"
#include "framework/Vellor/RbTreeMap.h"
#include "framework/Vellor/SlotMap.h"

// How a face drives a collection attribute: walks over its members, and what attributeOp() does.

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

/// The name of one of a child's constructor arguments.
template <class Child>
std::string_view constructorArgumentName(std::size_t position) {
  const TypeFace* face = Child::kVellorType_.ownFace;
  return face == nullptr || position >= face->constructorArguments
             ? kValue
             : face->constructorArgument[position].name;
}

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

/// Writes a member that comes with its key, a child by its constructor's arguments.
template <class T, AttributeKind kKind, class Face, class Types>
GenericIf::Ptr insertMember(T& target, const AttributeFace& face, const GenericIf::Ptr& arg) {
  using Key = typename Types::Key;
  using Value = typename Types::Value;
  const ArgumentReader reader(arg, face);
  if constexpr (kKind == AttributeKind::childMap) {
    using Rest = typename ChildArguments<typename Types::Child>::Types;
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
      const std::string_view names[] = {kKey, constructorArgumentName<typename Types::Child>(I)...};
      reader.check(names, 1 + sizeof...(I));
      return shown(Face::is(target, reader.value<Key>(0, kKey),
                            reader.value<std::tuple_element_t<I, Rest>>(1 + I, names[1 + I])...),
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

}  // namespace Detail
}  // namespace Vellor
