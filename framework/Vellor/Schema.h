#pragma once

#include "framework/Vellor/SchemaAttribute.h"
#include "framework/Vellor/SchemaCollection.h"

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
//                            and notifies
//   foo(key)                 the value, or the default of its type when absent; never creates
//   fooIs(key, value)        creates or replaces; with an equal value nothing at all happens
//   fooDel(key | iterator)   removes and yields the old value; of an absent key nothing happens
//   newFoo(key, value)       as fooIs; for owned children in place of any that stands there
//   fooDelAll()              member by member, each with its notification
//   fooNotify(key)           runs the handlers as if the member had changed
//   foos()                   member count
//   fooIterator()            a walk that tolerates any change meanwhile; also fooIteratorConst()
//   fooEnq(value), fooDeq()  at the tail, from the head
//   fooCollection()          the collection itself, read only: for raw walks and references
//
// Macros only forward; the work is in the collections.
