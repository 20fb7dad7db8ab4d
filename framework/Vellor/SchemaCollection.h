#pragma once

#include <utility>

#include "framework/Vellor/DynArray.h"
#include "framework/Vellor/HashMap.h"
#include "framework/Vellor/HeldMap.h"
#include "framework/Vellor/LinkQueue.h"
#include "framework/Vellor/PtrInterface.h"
#include "framework/Vellor/RbTreeMap.h"
#include "framework/Vellor/SchemaAttribute.h"
#include "framework/Vellor/SlotMap.h"
#include "framework/Vellor/Types.h"

// Schema lines, second half: the collections. Schema.h tells the whole.

// ---- keyed collections ----

#define VELLOR_READ_KEYED_(name, Name, Key, Value)                          \
  using Name##Iterator = Name##Collection::Iterator;                        \
  Value name(const Key& key) const { return name##_.value(key); }           \
  U32 name##s() const { return name##_.count(); }                           \
  Name##Iterator name##Iterator() const { return name##_.iterator(); }      \
  Name##Iterator name##IteratorConst() const { return name##_.iterator(); } \
  const Name##Collection& name##Collection() const { return name##_; }      \
  static_assert(true, "a semicolon follows here")

// The mutators of an entity's collection in their order of virtual operations, but for the last,
// which sets.
#define VELLOR_NOTIFYING_REMOVAL_(name, Name, Key, Value)                        \
  virtual Value name##Del(const Key& key) {                                      \
    bool removed = false;                                                        \
    Value old = name##_.take(key, removed);                                      \
    if (removed) {                                                               \
      this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(key)); \
    }                                                                            \
    return old;                                                                  \
  }                                                                              \
  virtual Value name##Del(const Name##Iterator& iterator) {                      \
    return this->name##Del(iterator.key());                                      \
  }                                                                              \
  virtual void name##Notify(const Key& key) {                                    \
    this->vellorNotify(VellorBefore_##name::kEnd, vellorHandler_##name(key));    \
  }                                                                              \
  static_assert(true, "a semicolon follows here")

#define VELLOR_NOTIFYING_SET_(name, Name, Key, Value)                            \
  virtual void name##Is(const Key& key, const Value& value) {                    \
    if (name##_.set(key, value)) {                                               \
      this->vellorChanged(VellorBefore_##name::kEnd, vellorHandler_##name(key)); \
    }                                                                            \
  }                                                                              \
  static_assert(true, "a semicolon follows here")

#define VELLOR_FIELD_(name, Name) \
                                  \
 private:                         \
  Name##Collection name##_;       \
                                  \
 public:                          \
  static_assert(true, "a semicolon follows here")

#define VELLOR_KEYED_FIELD_(name, Name)                      \
  void name##DelAll() {                                      \
    for (auto member = name##Iterator(); member; ++member) { \
      this->name##Del(member);                               \
    }                                                        \
  }                                                          \
  VELLOR_FIELD_(name, Name)

#define VELLOR_NOTIFYING_KEYED_(name, Name, kindOf, Key, Value)                      \
  VELLOR_KEYED_LINE_(name, Name, kindOf, Key);                                       \
  VELLOR_READ_KEYED_(name, Name, Key, Value);                                        \
  VELLOR_NOTIFYING_REMOVAL_(name, Name, Key, Value);                                 \
  VELLOR_NOTIFYING_SET_(name, Name, Key, Value);                                     \
  void new##Name(const Key& key, const Value& value) { this->name##Is(key, value); } \
  VELLOR_KEYED_FIELD_(name, Name)

#define VELLOR_MAP(name, Name, Key, Value)                \
  using Name##Collection = ::Vellor::HashMap<Key, Value>; \
  VELLOR_NOTIFYING_KEYED_(name, Name, map, Key, Value)

#define VELLOR_TREE(name, Name, Key, Value)                 \
  using Name##Collection = ::Vellor::RbTreeMap<Key, Value>; \
  VELLOR_NOTIFYING_KEYED_(name, Name, tree, Key, Value)

#define VELLOR_SILENT_KEYED_(name, Name, kindOf, Key, Value)                                  \
  VELLOR_SILENT_LINE_(name, Name, kindOf);                                                    \
  VELLOR_READ_KEYED_(name, Name, Key, Value);                                                 \
  Value name##Del(const Key& key) {                                                           \
    bool removed = false;                                                                     \
    return name##_.take(key, removed);                                                        \
  }                                                                                           \
  Value name##Del(const Name##Iterator& iterator) { return this->name##Del(iterator.key()); } \
  void name##Is(const Key& key, const Value& value) { name##_.set(key, value); }              \
  void new##Name(const Key& key, const Value& value) { name##_.set(key, value); }             \
  void name##DelAll() { name##_.clear(); }                                                    \
                                                                                              \
 private:                                                                                     \
  Name##Collection name##_;                                                                   \
                                                                                              \
 public:                                                                                      \
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
  }                                                                             \
  VELLOR_KEYED_FIELD_(name, Name)

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
  VELLOR_NOTIFYING_REMOVAL_(name, Name, Key, ::Vellor::Ptr<Object>);              \
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
  VELLOR_KEYED_FIELD_(name, Name)

// ---- queues and arrays ----

#define VELLOR_READ_QUEUE_(name, Name, Value)                                             \
  using Name##Collection = ::Vellor::LinkQueue<Value>;                                    \
  using Name##Metadata = ::Vellor::LinkQueueMetadata;                                     \
  VELLOR_READ_KEYED_(name, Name, U32, Value);                                             \
  Name##Metadata name##Metadata() const { return name##_.metadata(); }                    \
  void name##MetadataIs(const Name##Metadata& metadata) { name##_.metadataIs(metadata); } \
  static_assert(true, "a semicolon follows here")

#define VELLOR_QUEUE_FIELD_(name, Name) \
  void name##DelAll() {                 \
    while (name##_.count() != 0) {      \
      name##Deq();                      \
    }                                   \
  }                                     \
  VELLOR_FIELD_(name, Name)

#define VELLOR_QUEUE(name, Name, Value)                                            \
  VELLOR_KEYED_LINE_(name, Name, queue, U32);                                      \
  VELLOR_READ_QUEUE_(name, Name, Value);                                           \
  VELLOR_NOTIFYING_REMOVAL_(name, Name, U32, Value);                               \
  VELLOR_NOTIFYING_SET_(name, Name, U32, Value);                                   \
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
  VELLOR_QUEUE_FIELD_(name, Name)

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
  /* Room for this many members without growth. */                                      \
  void name##Reserve(U32 members) { name##_.reserve(members); }                         \
  VELLOR_QUEUE_FIELD_(name, Name)

#define VELLOR_ARRAY(name, Name, Index, Value)                  \
  VELLOR_KEYED_LINE_(name, Name, array, Index);                 \
  using Name##Collection = ::Vellor::DynArray<Value>;           \
  VELLOR_READ_KEYED_(name, Name, Index, Value);                 \
  VELLOR_NOTIFYING_REMOVAL_(name, Name, Index, Value);          \
  VELLOR_NOTIFYING_SET_(name, Name, Index, Value);              \
  void name##DelAll() {                                         \
    while (name##_.count() != 0) {                              \
      this->name##Del(static_cast<Index>(name##_.count() - 1)); \
    }                                                           \
  }                                                             \
  VELLOR_FIELD_(name, Name)
