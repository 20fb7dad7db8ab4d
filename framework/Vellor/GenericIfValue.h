#pragma once

#include <optional>
#include <type_traits>
#include <utility>

#include "framework/Vellor/Entity.h"
#include "framework/Vellor/GenericIf.h"
#include "framework/Vellor/Ptr.h"
#include "framework/Vellor/Strep.h"

// Faces of values and objects, and the way back from a face to a value. A value type says that it
// has a face by an overload in its namespace:
//
//   const FwkType& vellorValueType(const T*)

namespace Vellor {

VELLOR_API const FwkType& vellorValueType(const bool*);
VELLOR_API const FwkType& vellorValueType(const int*);
VELLOR_API const FwkType& vellorValueType(const U8*);
VELLOR_API const FwkType& vellorValueType(const U16*);
VELLOR_API const FwkType& vellorValueType(const U32*);
VELLOR_API const FwkType& vellorValueType(const U64*);
VELLOR_API const FwkType& vellorValueType(const String8*);

namespace Detail {

template <class T>
struct ObjectOf {};

template <class T>
struct ObjectOf<Ptr<T>> {
  using Type = std::remove_const_t<T>;
  static constexpr bool kConst = std::is_const_v<T>;
};

template <class T>
requires std::derived_from<std::remove_const_t<T>, PtrInterface>

struct ObjectOf<T*> {
  using Type = std::remove_const_t<T>;
  static constexpr bool kConst = std::is_const_v<T>;
};

}  // namespace Detail

/// A counted or plain pointer to a shared object of a class that says its type.
template <class T>
concept ReflectedPtr = requires {
  Detail::ObjectOf<T>::Type::kVellorType_;
};

template <class T>
concept ReflectedValue = requires(const T* value) {
  { vellorValueType(value) } -> std::same_as<const FwkType&>;
};

template <class T>
concept Reflected = ReflectedPtr<T> || ReflectedValue<T>;

template <class T>
GenericIf::Ptr genericIf(const T& value);

// ---- objects ----

/// Face of a shared object.
class VELLOR_API GenericIfPtrInterface : public GenericIf {
  VELLOR_POINTERS(GenericIfPtrInterface);

 public:
  /// `staticType` is what is told of a null pointer.
  GenericIfPtrInterface(Vellor::Ptr<PtrInterface> object, const FwkType& staticType, bool isConst)
      : GenericIf(isConst), object_(std::move(object)), staticType_(staticType) {}

  const Vellor::Ptr<PtrInterface>& object() const { return object_; }

  const FwkType& type() const override;
  String8 strRep() const override;
  GenericIf::Ptr clone() const override;

  bool isNull() const override { return object_ == nullptr; }

 private:
  void* self() override { return object_.get(); }

  Vellor::Ptr<PtrInterface> object_;
  const FwkType& staticType_;
};

/// Face of an entity, which has a name and notifies.
class VELLOR_API GenericIfEntity : public GenericIfPtrInterface {
  VELLOR_POINTERS(GenericIfEntity);

 public:
  using GenericIfPtrInterface::GenericIfPtrInterface;

  Vellor::Ptr<Entity> entity() const { return staticPtrCast<Entity>(object()); }
};

/// Face of an object of the class `T`, which calls it `T::GenericIf_`.
template <class T>
class ObjectFace final : public std::conditional_t<std::derived_from<T, Entity>,
                                                   GenericIfEntity,
                                                   GenericIfPtrInterface> {
 public:
  ObjectFace(const Vellor::Ptr<PtrInterface>& object, bool isConst)
      : std::conditional_t<std::derived_from<T, Entity>, GenericIfEntity, GenericIfPtrInterface>(
            object, T::kVellorType_, isConst) {}

  static GenericIf::Ptr make(const Vellor::Ptr<PtrInterface>& object, bool isConst) {
    return new ObjectFace(object, isConst);
  }

  Vellor::Ptr<T> typed() const { return staticPtrCast<T>(this->object()); }
};

/// The face of the object's own class, whatever class it is held by.
VELLOR_API GenericIf::Ptr genericIfOfObject(const Ptr<PtrInterface>& object,
                                            const FwkType& staticType,
                                            bool isConst);

// ---- values ----

/// Face of a value with a number in it, which other number types can be made of.
class VELLOR_API GenericIfNumber {
 public:
  virtual ~GenericIfNumber() = default;
  virtual U64 number() const = 0;
};

namespace Detail {

template <class T>
concept Wrapper = requires(const T& value) {
  requires StrepNumber<typename T::Value>;
  { value.value() } -> std::same_as<typename T::Value>;
};

template <class T>
concept NumberLike = StrepNumber<T> || Wrapper<T>;

struct NoNumber {};

/// The number in a face of `T`.
template <class T>
class NumberInFace : public GenericIfNumber {
 public:
  U64 number() const override {
    const T& value = static_cast<const ValueFace<T>*>(this)->value();
    if constexpr (StrepNumber<T>) {
      return value;
    } else {
      return value.value();
    }
  }
};

/// The number that a face holds; nothing when it holds none.
inline std::optional<U64> numberOf(const GenericIf::Ptr& face) {
  const auto* number = dynamic_cast<const GenericIfNumber*>(face.get());
  return number == nullptr ? std::nullopt : std::optional(number->number());
}

}  // namespace Detail

/// Face of a value, which it holds. `<Name>_GenericIf_` of an enumeration is one.
template <class T>
class ValueFace final
    : public GenericIf,
      public std::conditional_t<Detail::NumberLike<T>, Detail::NumberInFace<T>, Detail::NoNumber> {
 public:
  explicit ValueFace(T value, bool isConst = false)
      : GenericIf(isConst), value_(std::move(value)) {}

  const T& value() const { return value_; }

  const FwkType& type() const override { return vellorValueType(static_cast<const T*>(nullptr)); }

  String8 strRep() const override { return valueToStrep(value_); }

  GenericIf::Ptr clone() const override { return new ValueFace(value_); }

  GenericIf::Ptr genericIfListConstructor(const List_& list) const override;

 private:
  void* self() override { return &value_; }

  T value_;
};

/// The face of a value, or of the object that a pointer leads to; const for a pointer to const.
template <class T>
GenericIf::Ptr genericIf(const T& value) {
  if constexpr (ReflectedPtr<T>) {
    using Object = Detail::ObjectOf<T>;
    typename Object::Type* object = nullptr;
    if constexpr (std::is_pointer_v<T>) {
      object = const_cast<typename Object::Type*>(value);
    } else {
      object = const_cast<typename Object::Type*>(value.get());
    }
    return genericIfOfObject(Ptr<PtrInterface>(object), Object::Type::kVellorType_, Object::kConst);
  } else {
    static_assert(ReflectedValue<T>, "the type has no face");
    return new ValueFace<T>(value);
  }
}

/// A text as it stands in a program.
inline GenericIf::Ptr genericIf(const char* text) { return genericIf(String8(text)); }

template <class T>

requires(!std::convertible_to<T, GenericIf::Ptr>) GenericIf::Argument::Argument(const T& plain)
    : value(genericIf(plain)) {}

template <class T>

requires(!std::convertible_to<T, GenericIf::Ptr>) GenericIf::Argument::Argument(
    String8 argumentName, const T& plain)
    : name(std::move(argumentName)), value(genericIf(plain)) {}

namespace Detail {

/// A name as a form has it, between quotes, unless they are there already or it is `bare`.
inline String8 quoted(const String8& name, const char* bare = "") {
  const bool isForm =
      name == bare || (!name.empty() && (*name.begin() == '\'' || *name.begin() == '"'));
  return isForm ? name : valueToStrep(name);
}

}  // namespace Detail

/// The `T` in a face: of this very type, a number, which is cut to `T`, or a text that reads as one
/// (names of enumerators and objects need no quotes). `name` is the attribute or argument it is
/// for, which the exception tells.
template <class T>
T fromGenericIf(const GenericIf::Ptr& face, const String8& name) {
  if (face == nullptr) {
    GenericIf::throwTypeException(name);
  }
  if constexpr (ReflectedPtr<T>) {
    using Object = Detail::ObjectOf<T>;
    Ptr<PtrInterface> object;
    if (const auto* held = dynamic_cast<const GenericIfPtrInterface*>(face.get())) {
      if (held->isConst() && !Object::kConst) {
        GenericIf::throwConstException();
      }
      object = held->object();
    } else if (const auto* text = dynamic_cast<const ValueFace<String8>*>(face.get())) {
      try {
        strepToValue(Detail::quoted(text->value(), /*bare=*/"None"), &object);
      } catch (const RangeException& exception) {
        rethrowFromDeserializeAttr(exception, name);
      }
    } else {
      GenericIf::throwTypeException(name);
    }
    auto* typed = dynamic_cast<typename Object::Type*>(object.get());
    if (object != nullptr && typed == nullptr) {
      GenericIf::throwTypeException(name);
    }
    return T(typed);
  } else {
    if (const auto* same = dynamic_cast<const ValueFace<T>*>(face.get())) {
      return same->value();
    }
    if constexpr (Detail::NumberLike<T>) {
      if (const std::optional<U64> number = Detail::numberOf(face)) {
        if constexpr (Detail::Wrapper<T>) {
          return T(static_cast<typename T::Value>(*number));
        } else {
          return static_cast<T>(*number);
        }
      }
    }
    if constexpr (std::same_as<T, int>) {
      if (const std::optional<U64> number = Detail::numberOf(face)) {
        return static_cast<int>(*number);
      }
    }
    const auto* text = dynamic_cast<const ValueFace<String8>*>(face.get());
    if (text == nullptr) {
      GenericIf::throwTypeException(name);
    }
    try {
      String8 form = text->value();
      if constexpr (StrepNumber<T>) {
        U64 number = 0;
        strepToValue(form, &number);
        return static_cast<T>(number);
      }
      T value{};
      if constexpr (std::is_enum_v<T>) {
        form = Detail::quoted(form);
      }
      strepToValue(form, &value);
      return value;
    } catch (const RangeException& exception) {
      rethrowFromDeserializeAttr(exception, name);
    }
  }
}

template <class T>
GenericIf::Ptr ValueFace<T>::genericIfListConstructor(const List_& list) const {
  Ptr made = new ValueFace<T>(T{});
  AttributeId next = 0;
  for (const Argument& argument : list.arguments()) {
    const AttributeId id = argument.name.empty() ? next : made->attributeId(argument.name);
    if (id >= made->attributes()) {
      throwUnknownArgException(type().name);
    }
    Ptr ignored;
    made->attributeOp({id, AttributeOp::set}, argument.value, ignored);
    next = id + 1;
  }
  if constexpr (Detail::Wrapper<T>) {
    checkIdentifierFromText(static_cast<const ValueFace<T>&>(*made).value());
  }
  return made;
}

}  // namespace Vellor
