#pragma once

#include <utility>

#include "framework/Vellor/Attribute.h"
#include "framework/Vellor/Entity.h"
#include "framework/Vellor/PtrInterface.h"
#include "framework/Vellor/Types.h"

// Schema lines, first half: what opens and closes a class, and the plain attributes. Schema.h tells
// the whole.

// Opens a class: pointer names, base, and the mark from which its lines count on.
#define VELLOR_OBJECT(Type, Base)                    \
  VELLOR_POINTERS(Type);                             \
                                                     \
 public:                                             \
  using VellorSelf = Type;                           \
  using VellorBase = Base;                           \
  using Base::vellorRecord_;                         \
  using Base::vellorFace_;                           \
  using GenericIf_ = ::Vellor::ObjectFace<Type>;     \
  static const ::Vellor::FwkType kVellorType_;       \
  const ::Vellor::FwkType* fwkType() const override; \
                                                     \
 private:                                            \
  static VellorBase::VellorMark vellorMark_(::Vellor::Rank<0>)

#define VELLOR_ENTITY(Type, Base) VELLOR_OBJECT(Type, Base)

// Opens a value class, which has no base and no virtual operation.
#define VELLOR_VALUE(Type) \
 public:                   \
  using VellorSelf = Type; \
                           \
 private:                  \
  static ::Vellor::AttributeMark<0, void> vellorMark_(::Vellor::Rank<0>)

// Defines what VELLOR_OBJECT declared, for a class that shows the face of its base; `Name` is the
// type's full name. Reflect.h has the word for a class with a face of its own.
#define VELLOR_FWK_TYPE(Type, Name)                                                      \
  constinit const ::Vellor::FwkType Type::kVellorType_{Name, &VellorBase::kVellorType_}; \
  const ::Vellor::FwkType* Type::fwkType() const { return &kVellorType_; }               \
  static_assert(true, "a semicolon follows here")

// Closes the list of lines.
#define VELLOR_OBJ_END                                                                  \
 public:                                                                                \
  using VellorMark = decltype(vellorMark_(::Vellor::Rank<::Vellor::kMaxAttributes>{})); \
  static_assert(true, "a semicolon follows here")

#define VELLOR_END                                                                                 \
  VELLOR_OBJ_END;                                                                                  \
  using VellorLastLink = VellorMark::Link;                                                         \
  class Notifiee : public VellorLastLink {                                                         \
    VELLOR_POINTERS(Notifiee);                                                                     \
                                                                                                   \
   public:                                                                                         \
    Notifiee() : VellorLastLink(VellorSelf::VellorMark::kEnd) {}                                   \
    VellorSelf* notifier() const {                                                                 \
      return const_cast<VellorSelf*>(static_cast<const VellorSelf*>(this->attachedTo()));          \
    }                                                                                              \
    void notifierIs(const ::Vellor::Ptr<VellorSelf>& notifier) { this->attachTo(notifier.get()); } \
  };                                                                                               \
  class NotifieeConst : public VellorLastLink {                                                    \
    VELLOR_POINTERS(NotifieeConst);                                                                \
                                                                                                   \
   public:                                                                                         \
    NotifieeConst() : VellorLastLink(VellorSelf::VellorMark::kEnd) {}                              \
    const VellorSelf* notifier() const {                                                           \
      return static_cast<const VellorSelf*>(this->attachedTo());                                   \
    }                                                                                              \
    void notifierIs(const ::Vellor::Ptr<const VellorSelf>& notifier) {                             \
      this->attachTo(notifier.get());                                                              \
    }                                                                                              \
  };                                                                                               \
  static_assert(true, "a semicolon follows here")

// How a face reaches a line's accessors; each is compiled where a face is made of it, and only for
// the kinds that have it.
#define VELLOR_FACE_(name, Name)                                                      \
  struct VellorFace_##name {                                                          \
    template <class S>                                                                \
    using Collection = typename S::Name##Collection;                                  \
    template <class S>                                                                \
    static auto get(const S& self) {                                                  \
      return self.name();                                                             \
    }                                                                                 \
    template <class S, class... Args>                                                 \
    static auto is(S& self, const Args&... args) {                                    \
      return self.name##Is(args...);                                                  \
    }                                                                                 \
    template <class S, class Key>                                                     \
    static auto at(const S& self, const Key& key) {                                   \
      return self.name(key);                                                          \
    }                                                                                 \
    template <class S, class... Key>                                                  \
    static auto del(S& self, const Key&... key) {                                     \
      return self.name##Del(key...);                                                  \
    }                                                                                 \
    template <class S>                                                                \
    static void delAll(S& self) {                                                     \
      self.name##DelAll();                                                            \
    }                                                                                 \
    template <class S, class Key>                                                     \
    static auto notify(S& self, const Key& key) -> decltype(self.name##Notify(key)) { \
      self.name##Notify(key);                                                         \
    }                                                                                 \
    template <class S>                                                                \
    static auto iterator(const S& self) {                                             \
      return self.name##Iterator();                                                   \
    }                                                                                 \
    template <class S>                                                                \
    static const auto& collection(const S& self) {                                    \
      return self.name##Collection();                                                 \
    }                                                                                 \
    template <class S, class Value>                                                   \
    static void enq(S& self, const Value& value) {                                    \
      self.name##Enq(value);                                                          \
    }                                                                                 \
    template <class S>                                                                \
    static auto deq(S& self) {                                                        \
      return self.name##Deq();                                                        \
    }                                                                                 \
  }

// The number, record and face of a line; `LinkType` is the chain of handlers from here on.
#define VELLOR_MARK_(name, Name, kindOf, LinkType)                                           \
  static_assert(::Vellor::Detail::spellingsInStep(#name, #Name),                             \
                "the two spellings of a line differ");                                       \
                                                                                             \
 public:                                                                                     \
  static constexpr ::Vellor::AttributeRecord vellorRecord_(                                  \
      ::Vellor::AttributeIndex<VellorBefore_##name::kEnd>) {                                 \
    return {#name, ::Vellor::AttributeKind::kindOf};                                         \
  }                                                                                          \
  VELLOR_FACE_(name, Name);                                                                  \
  static VellorFace_##name vellorFace_(::Vellor::AttributeIndex<VellorBefore_##name::kEnd>); \
                                                                                             \
 private:                                                                                    \
  static ::Vellor::AttributeMark<VellorBefore_##name::kEnd + 1, LinkType> vellorMark_(       \
      ::Vellor::Rank<VellorBefore_##name::kEnd + 1>);                                        \
                                                                                             \
 public:                                                                                     \
  static_assert(true, "a semicolon follows here")

#define VELLOR_BEFORE_(name)                                                                     \
 private:                                                                                        \
  using VellorBefore_##name = decltype(vellorMark_(::Vellor::Rank<::Vellor::kMaxAttributes>{})); \
                                                                                                 \
 public:                                                                                         \
  static_assert(true, "a semicolon follows here")

// A line that never notifies.
#define VELLOR_SILENT_LINE_(name, Name, kindOf) \
  VELLOR_BEFORE_(name);                         \
  VELLOR_MARK_(name, Name, kindOf, VellorBefore_##name::Link)

// A line of an entity: a link with the handler, which takes `Argument` (nothing for a plain
// attribute).
#define VELLOR_KEYED_LINE_(name, Name, kindOf, Argument)                                  \
  VELLOR_BEFORE_(name);                                                                   \
  using VellorPrevious_##name = VellorBefore_##name::Link;                                \
  class VellorLink_##name : public VellorPrevious_##name {                                \
   public:                                                                                \
    virtual void on##Name(const Argument&) {}                                             \
                                                                                          \
   protected:                                                                             \
    explicit VellorLink_##name(::Vellor::AttributeId end) : VellorPrevious_##name(end) {} \
  };                                                                                      \
  VELLOR_MARK_(name, Name, kindOf, VellorLink_##name);                                    \
                                                                                          \
 private:                                                                                 \
  auto vellorHandler_##name(const Argument& key) const {                                  \
    return [&key](::Vellor::NotifieeBase& notifiee) {                                     \
      static_cast<VellorLink_##name&>(notifiee).on##Name(key);                            \
    };                                                                                    \
  }                                                                                       \
                                                                                          \
 public:                                                                                  \
  static_assert(true, "a semicolon follows here")

// ---- plain attributes ----

#define VELLOR_ATTR(name, Name, Type, initial)                                            \
  VELLOR_BEFORE_(name);                                                                   \
  using VellorPrevious_##name = VellorBefore_##name::Link;                                \
  class VellorLink_##name : public VellorPrevious_##name {                                \
   public:                                                                                \
    virtual void on##Name() {}                                                            \
                                                                                          \
   protected:                                                                             \
    explicit VellorLink_##name(::Vellor::AttributeId end) : VellorPrevious_##name(end) {} \
  };                                                                                      \
  VELLOR_MARK_(name, Name, value, VellorLink_##name);                                     \
  Type name() const { return name##_; }                                                   \
  virtual void name##Is(Type value) {                                                     \
    if (name##_ == value) {                                                               \
      return;                                                                             \
    }                                                                                     \
    name##_ = value;                                                                      \
    this->vellorChanged(VellorBefore_##name::kEnd, [](::Vellor::NotifieeBase& notifiee) { \
      static_cast<VellorLink_##name&>(notifiee).on##Name();                               \
    });                                                                                   \
  }                                                                                       \
                                                                                          \
 private:                                                                                 \
  Type name##_ = initial;                                                                 \
                                                                                          \
 public:                                                                                  \
  static_assert(true, "a semicolon follows here")

#define VELLOR_OBJ_ATTR(name, Name, Type, initial)          \
  VELLOR_SILENT_LINE_(name, Name, value);                   \
  const Type& name() const { return name##_; }              \
  void name##Is(Type value) { name##_ = std::move(value); } \
                                                            \
 private:                                                   \
  Type name##_ = initial;                                   \
                                                            \
 public:                                                    \
  static_assert(true, "a semicolon follows here")

// Fixed by the constructor, which sets `name_`.
#define VELLOR_CONST(name, Name, Type)         \
  VELLOR_SILENT_LINE_(name, Name, constant);   \
  const Type& name() const { return name##_; } \
                                               \
 private:                                      \
  const Type name##_;                          \
                                               \
 public:                                       \
  static_assert(true, "a semicolon follows here")

// A counter of a shared object; it wraps.
#define VELLOR_OBJ_COUNTER(name, Name, Type)                                     \
  VELLOR_OBJ_ATTR(name, Name, Type, 0);                                          \
  void name##Inc(Type amount) { name##_ = static_cast<Type>(name##_ + amount); } \
  void name##Dec(Type amount) { name##_ = static_cast<Type>(name##_ - amount); } \
  static_assert(true, "a semicolon follows here")

// A computed read; the class defines `Type name() const`.
#define VELLOR_READ(name, Name, Type)        \
  VELLOR_SILENT_LINE_(name, Name, computed); \
  Type name() const

// A line without field or accessor, for an attribute that the class spells out by itself.
#define VELLOR_RECORD(name, Name, kindOf) VELLOR_SILENT_LINE_(name, Name, kindOf)

// An owned single child of a shared object; its mutators take the child's constructor arguments.
#define VELLOR_OBJ_CHILD(name, Name, Type)                                \
  VELLOR_SILENT_LINE_(name, Name, child);                                 \
  const ::Vellor::Ptr<Type>& name() const { return name##_; }             \
  template <class... Args>                                                \
  ::Vellor::Ptr<Type> name##Is(Args&&... args) {                          \
    name##_ = ::Vellor::Ptr<Type>(new Type(std::forward<Args>(args)...)); \
    return name##_;                                                       \
  }                                                                       \
  template <class... Args>                                                \
  ::Vellor::Ptr<Type> new##Name(Args&&... args) {                         \
    return name##Is(std::forward<Args>(args)...);                         \
  }                                                                       \
  void name##Del() { name##_ = nullptr; }                                 \
                                                                          \
 private:                                                                 \
  ::Vellor::Ptr<Type> name##_;                                            \
                                                                          \
 public:                                                                  \
  static_assert(true, "a semicolon follows here")
