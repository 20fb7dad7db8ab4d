#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace Vellor {

/// Intrusive counted pointer of shared objects and entities. Null is ordinary; equality and hash go
/// by address.
template <class T>
class Ptr {
 public:
  using Object = T;

  Ptr() = default;

  Ptr(std::nullptr_t) {}

  Ptr(T* object) : object_(object) {
    if (object_ != nullptr) {
      object_->referenceInc();
    }
  }

  Ptr(const Ptr& other) : Ptr(other.object_) {}

  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

  template <class U>

  requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& other)
      : Ptr(static_cast<T*>(other.get())) {}

  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : object_(other.release()) {}

  ~Ptr() {
    if (object_ != nullptr) {
      object_->referenceDec();
    }
  }

  Ptr& operator=(Ptr other) noexcept {
    swap(other);
    return *this;
  }

  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

  T* get() const { return object_; }

  /// Gives the held reference to the caller, who owes one referenceDec().
  [[nodiscard]] T* release() noexcept { return std::exchange(object_, nullptr); }

  T* operator->() const { return object_; }

  T& operator*() const { return *object_; }

  explicit operator bool() const { return object_ != nullptr; }

  friend bool operator==(const Ptr& a, const Ptr& b) { return a.object_ == b.object_; }

  friend bool operator==(const Ptr& a, const T* b) { return a.object_ == b; }

  friend bool operator==(const Ptr& a, std::nullptr_t) { return a.object_ == nullptr; }

  friend std::strong_ordering operator<=>(const Ptr& a, const Ptr& b) {
    return std::compare_three_way{}(a.object_, b.object_);
  }

 private:
  T* object_ = nullptr;
};

template <class T, class U>
Ptr<T> staticPtrCast(const Ptr<U>& from) {
  return Ptr<T>(static_cast<T*>(from.get()));
}

template <class T, class U>
Ptr<T> dynamicPtrCast(const Ptr<U>& from) {
  return Ptr<T>(dynamic_cast<T*>(from.get()));
}

template <class T>
inline constexpr bool isPtr = false;
template <class T>
inline constexpr bool isPtr<Ptr<T>> = true;

}  // namespace Vellor

template <class T>
struct std::hash<Vellor::Ptr<T>> {
  std::size_t operator()(const Vellor::Ptr<T>& p) const {
    return std::hash<const void*>{}(p.get());
  }
};
