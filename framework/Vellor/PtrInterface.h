#pragma once

#include <cstddef>

#include "framework/Vellor/Attribute.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Pool.h"
#include "framework/Vellor/Ptr.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// Process-wide switches of counted pointers.
class VELLOR_API VFPtrInterface {
 public:
  /// True makes reference counting atomic. Nothing else in the system is protected. Set it before
  /// the first object.
  static bool enableThreadSafePointers;
};

struct TypeFace;
template <class T>
class ObjectFace;
template <class T>
class ValueFace;

/// What a type says of itself to the framework: its full name, the class it derives from, and what
/// can be done with it by name. A class without a face of its own shows that of its base.
struct FwkType {
  const char* name;
  const FwkType* base = nullptr;
  const TypeFace* ownFace = nullptr;

  /// Null when neither the type nor a base has one.
  const TypeFace* face() const {
    return ownFace != nullptr || base == nullptr ? ownFace : base->face();
  }
};

/// Raises RangeException: a mutator of this attribute was handed a null object.
[[noreturn]] VELLOR_API void throwNullParameter(const char* attribute, const FwkType* type);

/// Base of everything held by `Ptr`: the reference count and the framework's virtual operations.
///
/// Invariant 1: the object ends when, and only when, its last `Ptr` drops, through
/// zeroReferencesIs().
class VELLOR_API PtrInterface {
 public:
  // Where a derived class's schema lines begin.
  using VellorMark = AttributeMark<0, void>;
  static void vellorRecord_();
  static void vellorFace_();

  static const FwkType kVellorType_;

  PtrInterface() = default;
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  /// Switches the notifications of the object's reactors on or off; an object without reactors
  /// ignores it.
  virtual void hasNotificationActiveIs(bool active);
  virtual void vellorAuditErrors(U32 level) const;
  virtual void auditErrors(U32 level) const;
  /// Called with true when the last reference dropped; ends the object.
  virtual void zeroReferencesIs(bool zero);
  virtual const FwkType* fwkType() const;
  virtual ~PtrInterface();

  U32 references() const { return references_; }

  void referenceInc() const {
    if (VFPtrInterface::enableThreadSafePointers) [[unlikely]] {
      __atomic_add_fetch(&references_, 1, __ATOMIC_RELAXED);
    } else {
      ++references_;
    }
  }

  void referenceDec() const {
    U32 left = 0;
    if (VFPtrInterface::enableThreadSafePointers) [[unlikely]] {
      left = __atomic_sub_fetch(&references_, 1, __ATOMIC_ACQ_REL);
    } else {
      left = --references_;
    }
    if (left == 0) {
      const_cast<PtrInterface*>(this)->zeroReferencesIs(true);
    }
  }

  /// Keeps an object alive while its constructor hands it out: counted pointers that come and go
  /// meanwhile do not end it.
  class ConstructionHold {
   public:
    explicit ConstructionHold(const PtrInterface* object) : object_(object) {
      object_->referenceInc();
    }

    ConstructionHold(const ConstructionHold&) = delete;
    ConstructionHold& operator=(const ConstructionHold&) = delete;

    ~ConstructionHold() { --object_->references_; }

   private:
    const PtrInterface* object_;
  };

  static void* operator new(std::size_t size) { return Pool::take(size); }

  static void operator delete(void* block, std::size_t size) { Pool::giveBack(block, size); }

 private:
  mutable U32 references_ = 0;
};

}  // namespace Vellor

/// Opens a shared class: the pointer names every shared class has.
#define VELLOR_POINTERS(Type)                 \
 public:                                      \
  using Ptr = ::Vellor::Ptr<Type>;            \
  using PtrConst = ::Vellor::Ptr<const Type>; \
  using RawPtr = Type*;                       \
                                              \
 private:                                     \
  static_assert(true, "a semicolon follows here")
