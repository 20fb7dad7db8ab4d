#include "framework/Vellor/Entity.h"

#include <algorithm>

#include "framework/Vellor/Exception.h"

namespace Vellor {

NotifieeBase::~NotifieeBase() {
  if (registered_) {
    std::erase(notifier_->notifiees_, this);
  }
}

void NotifieeBase::onNotificationException(AttributeId) {}

void NotifieeBase::hasNotificationActiveIs(bool active) { active_ = active; }

void NotifieeBase::isRegisteredNotifieeIs(bool registered) {
  if (registered == registered_) {
    return;
  }
  if (notifier_ == nullptr) {
    throwRangeException("a notifiee without a notifier cannot be registered");
  }
  registered_ = registered;
  if (registered) {
    notifier_->notifiees_.push_back(this);
  } else {
    std::erase(notifier_->notifiees_, this);
  }
}

void NotifieeBase::attachTo(const Entity* notifier) {
  const bool wasRegistered = registered_;
  if (wasRegistered) {
    isRegisteredNotifieeIs(false);
  }
  notifier_ = Vellor::Ptr<const Entity>(notifier);
  if (wasRegistered && notifier != nullptr) {
    isRegisteredNotifieeIs(true);
  }
}

Entity::Entity(Name name) : name_(std::move(name)) {}

constinit const FwkType Entity::kVellorType_{"Vellor::Entity", &PtrInterface::kVellorType_};

const FwkType* Entity::fwkType() const { return &kVellorType_; }

Entity::~Entity() = default;

void Entity::notifyOne(AttributeId attribute,
                       HandlerCall call,
                       const void* context,
                       NotifieeBase& notifiee) {
  if (!notifiee.active_ || notifiee.zombie_ || attribute >= notifiee.attributesEnd_) {
    return;
  }
  try {
    call(context, notifiee);
  } catch (...) {
    notifiee.onNotificationException(attribute);
  }
}

void Entity::notifyAll(AttributeId attribute, HandlerCall call, const void* context) {
  if (notifiees_.size() == 1) {
    // Held on the stack: a handler may drop the last pointer to its own reactor.
    const NotifieeBase::Ptr only(notifiees_.front());
    notifyOne(attribute, call, context, *only);
    return;
  }
  const std::vector<NotifieeBase::Ptr> snapshot(notifiees_.begin(), notifiees_.end());
  for (const NotifieeBase::Ptr& notifiee : snapshot) {
    const bool onlyHere = !notifiee->registered_ && notifiee->references() == 1;
    if (!onlyHere) {
      notifyOne(attribute, call, context, *notifiee);
    }
  }
}

}  // namespace Vellor
