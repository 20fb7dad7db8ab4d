#pragma once

#include <utility>
#include <vector>

#include "framework/Vellor/Attribute.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/PtrInterface.h"
#include "framework/Vellor/String8.h"

namespace Vellor {

class Entity;

/// Base of every reactor. A type's `Notifiee` adds one empty handler for each attribute; a reactor
/// overrides those it wants, is attached by notifierIs() and registered by
/// isRegisteredNotifieeIs(true).
///
/// A reactor holds its notifier; the notifier does not hold its reactors, and forgets one that
/// ends.
class VELLOR_API NotifieeBase : public PtrInterface {
  VELLOR_POINTERS(NotifieeBase);

 public:
  ~NotifieeBase() override;

  /// Receives what a handler threw; the mutator's caller never does.
  /// REQUIRES: throws nothing itself.
  virtual void onNotificationException(AttributeId attribute);

  void hasNotificationActiveIs(bool active) override;

  bool hasNotificationActive() const { return active_; }

  bool isRegisteredNotifiee() const { return registered_; }

  /// Registers with the notifier or leaves it. REQUIRES: notifierIs() came before.
  void isRegisteredNotifieeIs(bool registered);

  /// A zombie's handlers are not run.
  bool isZombie() const { return zombie_; }

  void isZombieIs(bool zombie) { zombie_ = zombie; }

 protected:
  explicit NotifieeBase(AttributeId attributesEnd) : attributesEnd_(attributesEnd) {}

  void attachTo(const Entity* notifier);

  const Entity* attachedTo() const { return notifier_.get(); }

 private:
  friend class Entity;

  Vellor::Ptr<const Entity> notifier_;
  // A reactor of a base type may be attached to an entity of a derived one: it has no handlers
  // behind this id.
  AttributeId attributesEnd_;
  bool active_ = true;
  bool registered_ = false;
  bool zombie_ = false;
};

/// First link of the chain of handlers that a type's schema lines build.
class VELLOR_API NotifieeLink : public NotifieeBase {
 protected:
  using NotifieeBase::NotifieeBase;
};

/// Shared object with a name, a parent, a version and notifiees: the only kind that notifies.
///
/// Notification is immediate: a mutator runs every registered notifiee's handler on the caller's
/// stack, over a snapshot of the list, and what a handler throws goes to that notifiee alone.
class VELLOR_API Entity : public PtrInterface {
  VELLOR_POINTERS(Entity);

 public:
  using VellorMark = AttributeMark<1, NotifieeLink>;

  static constexpr AttributeRecord vellorRecord_(AttributeIndex<0>) {
    return {"name", AttributeKind::constant};
  }

  struct VellorFace_name {
    template <class S>
    static auto get(const S& self) {
      return self.name();
    }
  };

  static VellorFace_name vellorFace_(AttributeIndex<0>);

  static const FwkType kVellorType_;
  const FwkType* fwkType() const override;

  explicit Entity(Name name);
  ~Entity() override;

  const Name& name() const { return name_; }

  const Name& fwkKey() const { return name_; }

  /// The entity that owns this one, uncounted; null for a root.
  Entity* parent() const { return parent_; }

  void parentIs(Entity* parent) { parent_ = parent; }

  /// Raised by one at each change of an attribute.
  U32 version() const { return version_; }

 protected:
  /// Counts a change and runs `handler` on each notifiee. `handler` takes a NotifieeBase&.
  template <class Handler>
  void vellorChanged(AttributeId attribute, const Handler& handler) {
    ++version_;
    vellorNotify(attribute, handler);
  }

  /// Runs `handler` on each notifiee without counting a change.
  template <class Handler>
  void vellorNotify(AttributeId attribute, const Handler& handler) {
    if (notifiees_.empty()) {
      return;
    }
    notifyAll(
        attribute,
        [](const void* context, NotifieeBase& notifiee) {
          (*static_cast<const Handler*>(context))(notifiee);
        },
        &handler);
  }

 private:
  friend class NotifieeBase;

  using HandlerCall = void (*)(const void* context, NotifieeBase& notifiee);

  void notifyAll(AttributeId attribute, HandlerCall call, const void* context);
  static void notifyOne(AttributeId attribute,
                        HandlerCall call,
                        const void* context,
                        NotifieeBase& notifiee);

  Name name_;
  Entity* parent_ = nullptr;
  // Uncounted: a notifiee removes itself when it ends.
  mutable std::vector<NotifieeBase*> notifiees_;
  U32 version_ = 0;
};

}  // namespace Vellor
