#pragma once

#include "framework/Vellor/Attribute.h"
#include "framework/Vellor/DynArray.h"
#include "framework/Vellor/Entity.h"
#include "framework/Vellor/Exception.h"
#include "framework/Vellor/HashMap.h"
#include "framework/Vellor/Invariant.h"
#include "framework/Vellor/LinkQueue.h"
#include "framework/Vellor/PtrInterface.h"
#include "framework/Vellor/RbTreeMap.h"
#include "framework/Vellor/SlotMap.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

// Schema lines: one line in a class body declares an attribute, with its field, its accessors, its
// number, its record and, in an entity, its handler in `Notifiee`.
//
//   class Status : public Vellor::Entity {
//     VELLOR_ENTITY(Status, Vellor::Entity);
//
//    public:
//     VELLOR_MAP(prefixToNextHopBlock, PrefixToNextHopBlock, LpmPrefix::Ptr, NextHopBlock);
//     VELLOR_QUEUE(pendingCmd, PendingCmd, CommandBase::Ptr);
//
//     VELLOR_END;
//   };
//
// An entity's words make its mutators virtual and notify. The words with OBJ stand in shared
// objects and values: no virtual operation, no notification. What the accessors of a line `foo` do:
//
//   foo(), fooIs(v)          fooIs of an equal value does nothing; else it stores, counts a version
//   and notifies foo(key)                 the value, or the default of its type when absent; never
//   creates fooIs(key, value)        creates or replaces; with an equal value nothing at all
//   happens fooDel(key | iterator)   removes and yields the old value; of an absent key nothing
//   happens newFoo(key, value)       the same as fooIs; for owned children builds the child in
//   place of any that stands there fooDelAll()              member by member, each with its
//   notification fooNotify(key)           runs the handlers as if the member had changed foos()
//   member count fooIterator(), fooIteratorConst()   walks that tolerate any change meanwhile
//   fooEnq(value), fooDeq()  at the tail, from the head
//   fooCollection()          the collection itself, read only: for raw walks and references
//
// Macros only forward; the work is in the collections.

// Opens a class: pointer names, base, and the mark from which its lines count on.
#define VELLOR_OBJECT(Type, Base)                    \
  VELLOR_POINTERS(Type);                             \
                                                     \
 public:                                             \
  using VellorSelf = Type;                           \
  using VellorBase = Base;                           \
  using Base::vellorRecord_;                         \
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

// Defines what VELLOR_OBJECT declared; `Name` is the type's full name.
#define VELLOR_FWK_TYPE(Type, Name)                 \
  const ::Vellor::FwkType* Type::fwkType() const {  \
    static constexpr ::Vellor::FwkType kType{Name}; \
    return &kType;                                  \
  }                                                 \
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

// The number and record of a line; `LinkType` is the chain of handlers from here on.
#define VELLOR_MARK_(name, Name, kindOf, LinkType)                                     \
  static_assert(::Vellor::Detail::spellingsInStep(#name, #Name),                       \
                "the two spellings of a line differ");                                 \
                                                                                       \
 public:                                                                               \
  static constexpr ::Vellor::AttributeRecord vellorRecord_(                            \
      ::Vellor::AttributeIndex<VellorBefore_##name::kEnd>) {                           \
    return {#name, ::Vellor::AttributeKind::kindOf};                                   \
  }                                                                                    \
                                                                                       \
 private:                                                                              \
  static ::Vellor::AttributeMark<VellorBefore_##name::kEnd + 1, LinkType> vellorMark_( \
      ::Vellor::Rank<VellorBefore_##name::kEnd + 1>);                                  \
                                                                                       \
 public:                                                                               \
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

// --- plain attributes
// -------------------------------------------------------------------------------------------------

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

// --- keyed collections
// ------------------------------------------------------------------------------------------------

#define VELLOR_READ_KEYED_(name, Name, Key, Value)                          \
  using Name##Iterator = Name##Collection::Iterator;                        \
  Value name(const Key& key) const { return name##_.value(key); }           \
  U32 name##s() const { return name##_.count(); }                           \
  Name##Iterator name##Iterator() const { return name##_.iterator(); }      \
  Name##Iterator name##IteratorConst() const { return name##_.iterator(); } \
  const Name##Collection& name##Collection() const { return name##_; }      \
  static_assert(true, "a semicolon follows here")

#define VELLOR_NOTIFYING_KEYED_(name, Name, kindOf, Key, Value)                      \
  VELLOR_KEYED_LINE_(name, Name, kindOf, Key);                                       \
  VELLOR_READ_KEYED_(name, Name, Key, Value);                                        \
  virtual Value name##Del(const Key& key) {                                          \
    bool removed = false;                                                            \
    Value old = name##_.take(key, removed);                                          \
    if (removed) {                                                                   \
      this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(key));     \
    }                                                                                \
    return old;                                                                      \
  }                                                                                  \
  virtual Value name##Del(const Name##Iterator& iterator) {                          \
    return this->name##Del(iterator.key());                                          \
    \                                                                                \
  }                                                                                  \
  virtual void name##Notify(const Key& key) {                                        \
    this->vellorNotify(VellorBefore_##name::kEnd, vellorHandler_##name(key));        \
  }                                                                                  \
  virtual void name##Is(const Key& key, const Value& value) {                        \
    if (name##_.set(key, value)) {                                                   \
      this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(key));     \
    }                                                                                \
  }                                                                                  \
  void new##Name(const Key& key, const Value& value) { this->name##Is(key, value); } \
  void name##DelAll() {                                                              \
    for (auto member = name##Iterator(); member; ++member) {                         \
      this->name##Del(member);                                                       \
    }                                                                                \
  }                                                                                  \
                                                                                     \
 private:                                                                            \
  Name##Collection name##_;                                                          \
                                                                                     \
 public:                                                                             \
  static_assert(true, "a semicolon follows here")

#define VELLOR_MAP(name, Name, Key, Value)                \
  using Name##Collection = ::Vellor::HashMap<Key, Value>; \
  VELLOR_NOTIFYING_KEYED_(name, Name, map, Key, Value)

#define VELLOR_TREE(name, Name, Key, Value)                 \
  using Name##Collection = ::Vellor::RbTreeMap<Key, Value>; \
  VELLOR_NOTIFYING_KEYED_(name, Name, tree, Key, Value)

#define VELLOR_SILENT_KEYED_(name, Name, kindOf, Key, Value)                      \
  VELLOR_SILENT_LINE_(name, Name, kindOf);                                        \
  VELLOR_READ_KEYED_(name, Name, Key, Value);                                     \
  Value name##Del(const Key& key) {                                               \
    bool removed = false;                                                         \
    return name##_.take(key, removed);                                            \
  }                                                                               \
  Value name##Del(const Name##Iterator& iterator) {                               \
    return this->name##Del(iterator.key());                                       \
    \                                                                             \
  }                                                                               \
  void name##Is(const Key& key, const Value& value) { name##_.set(key, value); }  \
  void new##Name(const Key& key, const Value& value) { name##_.set(key, value); } \
  void name##DelAll() { name##_.clear(); }                                        \
                                                                                  \
 private:                                                                         \
  Name##Collection name##_;                                                       \
                                                                                  \
 public:                                                                          \
  static_assert(true, "a semicolon follows here")

#define VELLOR_OBJ_MAP(name, Name, Key, Value)            \
  using Name##Collection = ::Vellor::HashMap<Key, Value>; \
  VELLOR_SILENT_KEYED_(name, Name, map, Key, Value)

#define VELLOR_OBJ_TREE(name, Name, Key, Value)             \
  using Name##Collection = ::Vellor::RbTreeMap<Key, Value>; \
  VELLOR_SILENT_KEYED_(name, Name, tree, Key, Value)

// A collection of owned children; `fooIs(key, args...)` builds the child from the key and the
// arguments, or yields the one that stands at the key.
#define VELLOR_CHILD_MAP_BODY_(name, Name, Key, Child, onChange)                \
  using Name##Collection = ::Vellor::ChildMap<Key, Child>;                      \
  VELLOR_READ_KEYED_(name, Name, Key, ::Vellor::Ptr<Child>);                    \
  template <class... Args>                                                      \
  ::Vellor::Ptr<Child> name##Is(const Key& key, Args&&... args) {               \
    bool made = false;                                                          \
    ::Vellor::Ptr<Child> child = name##_.getOrMake(key, made, [&] {             \
      return ::Vellor::Ptr<Child>(new Child(key, std::forward<Args>(args)...)); \
    });                                                                         \
    if (made) {                                                                 \
      onChange;                                                                 \
    }                                                                           \
    return child;                                                               \
  }                                                                             \
  template <class... Args>                                                      \
  ::Vellor::Ptr<Child> new##Name(const Key& key, Args&&... args) {              \
    ::Vellor::Ptr<Child> child(new Child(key, std::forward<Args>(args)...));    \
    name##_.put(child);                                                         \
    onChange;                                                                   \
    return child;                                                               \
  }                                                                             \
  ::Vellor::Ptr<Child> name##Del(const Key& key) {                              \
    bool removed = false;                                                       \
    ::Vellor::Ptr<Child> old = name##_.take(key, removed);                      \
    if (removed) {                                                              \
      onChange;                                                                 \
    }                                                                           \
    return old;                                                                 \
  }                                                                             \
  ::Vellor::Ptr<Child> name##Del(const Name##Iterator& iterator) {              \
    return this->name##Del(iterator.key());                                     \
    \                                                                           \
  }                                                                             \
  void name##DelAll() {                                                         \
    for (auto member = name##Iterator(); member; ++member) {                    \
      name##Del(member);                                                        \
    }                                                                           \
  }                                                                             \
                                                                                \
 private:                                                                       \
  Name##Collection name##_;                                                     \
                                                                                \
 public:                                                                        \
  static_assert(true, "a semicolon follows here")

#define VELLOR_CHILD_MAP(name, Name, Key, Child)                              \
  VELLOR_KEYED_LINE_(name, Name, childMap, Key);                              \
  void name##Notify(const Key& key) {                                         \
    this->vellorNotify(VellorBefore_##name::kEnd, vellorHandler_##name(key)); \
  }                                                                           \
  VELLOR_CHILD_MAP_BODY_(                                                     \
      name, Name, Key, Child,                                                 \
      this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(key)))

#define VELLOR_OBJ_CHILD_MAP(name, Name, Key, Child) \
  VELLOR_SILENT_LINE_(name, Name, childMap);         \
  VELLOR_CHILD_MAP_BODY_(name, Name, Key, Child, static_cast<void>(0))

// A collection of objects that tell their own key by `fwkKey()`: `fooIs(object)` takes the object
// alone, which replaces one of the same key. A null object raises RangeException.
#define VELLOR_SELF_KEYED_MAP(name, Name, Key, Object)                            \
  VELLOR_KEYED_LINE_(name, Name, map, Key);                                       \
  using Name##Collection = ::Vellor::ChildMap<Key, Object>;                       \
  VELLOR_READ_KEYED_(name, Name, Key, ::Vellor::Ptr<Object>);                     \
  virtual ::Vellor::Ptr<Object> name##Del(const Key& key) {                       \
    bool removed = false;                                                         \
    ::Vellor::Ptr<Object> old = name##_.take(key, removed);                       \
    if (removed) {                                                                \
      this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(key));  \
    }                                                                             \
    return old;                                                                   \
  }                                                                               \
  virtual ::Vellor::Ptr<Object> name##Del(const Name##Iterator& iterator) {       \
    return this->name##Del(iterator.key());                                       \
    \                                                                             \
  }                                                                               \
  virtual void name##Notify(const Key& key) {                                     \
    this->vellorNotify(VellorBefore_##name::kEnd, vellorHandler_##name(key));     \
  }                                                                               \
  virtual void name##Is(const ::Vellor::Ptr<Object>& object) {                    \
    if (object == nullptr) {                                                      \
      ::Vellor::throwNullParameter(#name, VellorSelf::fwkType());                 \
    }                                                                             \
    const Key key = object->fwkKey();                                             \
    if (name##_.value(key) == object) {                                           \
      return;                                                                     \
    }                                                                             \
    name##_.put(object);                                                          \
    this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(key));    \
  }                                                                               \
  void new##Name(const ::Vellor::Ptr<Object>& object) { this->name##Is(object); } \
  void name##DelAll() {                                                           \
    for (auto member = name##Iterator(); member; ++member) {                      \
      this->name##Del(member);                                                    \
    }                                                                             \
  }                                                                               \
                                                                                  \
 private:                                                                         \
  Name##Collection name##_;                                                       \
                                                                                  \
 public:                                                                          \
  static_assert(true, "a semicolon follows here")

// --- queues and arrays
// ------------------------------------------------------------------------------------------------

#define VELLOR_READ_QUEUE_(name, Name, Value)                                             \
  using Name##Collection = ::Vellor::LinkQueue<Value>;                                    \
  using Name##Iterator = Name##Collection::Iterator;                                      \
  using Name##Metadata = ::Vellor::LinkQueueMetadata;                                     \
  Value name(U32 index) const { return name##_.value(index); }                            \
  U32 name##s() const { return name##_.count(); }                                         \
  Name##Iterator name##Iterator() const { return name##_.iterator(); }                    \
  Name##Iterator name##IteratorConst() const { return name##_.iterator(); }               \
  Name##Metadata name##Metadata() const { return name##_.metadata(); }                    \
  void name##MetadataIs(const Name##Metadata& metadata) { name##_.metadataIs(metadata); } \
  const Name##Collection& name##Collection() const { return name##_; }                    \
  static_assert(true, "a semicolon follows here")

#define VELLOR_QUEUE(name, Name, Value)                                            \
  VELLOR_KEYED_LINE_(name, Name, queue, U32);                                      \
  VELLOR_READ_QUEUE_(name, Name, Value);                                           \
  virtual Value name##Del(U32 index) {                                             \
    bool removed = false;                                                          \
    Value old = name##_.take(index, removed);                                      \
    if (removed) {                                                                 \
      this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(index)); \
    }                                                                              \
    return old;                                                                    \
  }                                                                                \
  virtual Value name##Del(const Name##Iterator& iterator) {                        \
    return this->name##Del(iterator.key());                                        \
  }                                                                                \
  virtual void name##Notify(U32 index) {                                           \
    this->vellorNotify(VellorBefore_##name::kEnd, vellorHandler_##name(index));    \
  }                                                                                \
  virtual void name##Is(U32 index, const Value& value) {                           \
    if (name##_.set(index, value)) {                                               \
      this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(index)); \
    }                                                                              \
  }                                                                                \
  void name##Enq(Value value) {                                                    \
    const U32 index = name##_.enq(std::move(value));                               \
    this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(index));   \
  }                                                                                \
  Value name##Deq() {                                                              \
    Value head{};                                                                  \
    U32 index = 0;                                                                 \
    if (name##_.deq(head, index)) {                                                \
      this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(index)); \
    }                                                                              \
    return head;                                                                   \
  }                                                                                \
  void name##DelAll() {                                                            \
    while (name##_.count() != 0) {                                                 \
      name##Deq();                                                                 \
    }                                                                              \
  }                                                                                \
                                                                                   \
 private:                                                                          \
  Name##Collection name##_;                                                        \
                                                                                   \
 public:                                                                           \
  static_assert(true, "a semicolon follows here")

#define VELLOR_OBJ_QUEUE(name, Name, Value)                                             \
  VELLOR_SILENT_LINE_(name, Name, queue);                                               \
  VELLOR_READ_QUEUE_(name, Name, Value);                                                \
  Value name##Del(U32 index) {                                                          \
    bool removed = false;                                                               \
    return name##_.take(index, removed);                                                \
  }                                                                                     \
  Value name##Del(const Name##Iterator& iterator) { return name##Del(iterator.key()); } \
  void name##Is(U32 index, const Value& value) { name##_.set(index, value); }           \
  void name##Enq(Value value) { name##_.enq(std::move(value)); }                        \
  Value name##Deq() {                                                                   \
    Value head{};                                                                       \
    U32 index = 0;                                                                      \
    name##_.deq(head, index);                                                           \
    return head;                                                                        \
  }                                                                                     \
  void name##DelAll() {                                                                 \
    while (name##_.count() != 0) {                                                      \
      name##Deq();                                                                      \
    }                                                                                   \
  }                                                                                     \
  /* Room for this many members without growth. */                                      \
  void name##Reserve(U32 members) { name##_.reserve(members); }                         \
                                                                                        \
 private:                                                                               \
  Name##Collection name##_;                                                             \
                                                                                        \
 public:                                                                                \
  static_assert(true, "a semicolon follows here")

#define VELLOR_ARRAY(name, Name, Index, Value)                                     \
  VELLOR_KEYED_LINE_(name, Name, array, Index);                                    \
  Value name(Index index) const { return name##_.value(index); }                   \
  using Name##Iterator = ::Vellor::DynArray<Value>::Iterator;                      \
  Name##Iterator name##Iterator() const { return name##_.iterator(); }             \
  Name##Iterator name##IteratorConst() const { return name##_.iterator(); }        \
  U32 name##s() const { return name##_.count(); }                                  \
  const ::Vellor::DynArray<Value>& name##Collection() const { return name##_; }    \
  virtual Value name##Del(Index index) {                                           \
    bool removed = false;                                                          \
    Value old = name##_.take(index, removed);                                      \
    if (removed) {                                                                 \
      this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(index)); \
    }                                                                              \
    return old;                                                                    \
  }                                                                                \
  virtual Value name##Del(const Name##Iterator& iterator) {                        \
    return this->name##Del(static_cast<Index>(iterator.key()));                    \
  }                                                                                \
  virtual void name##Notify(Index index) {                                         \
    this->vellorNotify(VellorBefore_##name::kEnd, vellorHandler_##name(index));    \
  }                                                                                \
  virtual void name##Is(Index index, const Value& value) {                         \
    if (name##_.set(index, value)) {                                               \
      this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(index)); \
    }                                                                              \
  }                                                                                \
  void name##DelAll() {                                                            \
    while (name##_.count() != 0) {                                                 \
      this->name##Del(static_cast<Index>(name##_.count() - 1));                    \
    }                                                                              \
  }                                                                                \
                                                                                   \
 private:                                                                          \
  ::Vellor::DynArray<Value> name##_;                                               \
                                                                                   \
 public:                                                                           \
  static_assert(true, "a semicolon follows here")
