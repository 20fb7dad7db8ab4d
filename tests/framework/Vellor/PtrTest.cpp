#include "framework/Vellor/Ptr.h"

#include <unordered_set>
#include <utility>

#include "framework/Vellor/PtrInterface.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

/// Tells when it ends.
class Base : public PtrInterface {
 public:
  explicit Base(bool* ended) : ended_(ended) {}

  ~Base() override { *ended_ = true; }

 private:
  bool* ended_;
};

class Derived : public Base {
 public:
  using Base::Base;
};

class Other : public Base {
 public:
  using Base::Base;
};

TEST(Ptr, nullIsOrdinary) {
  const Ptr<Base> null;
  EXPECT_FALSE(null);
  EXPECT_EQ(null, nullptr);
  EXPECT_EQ(null, Ptr<Base>(nullptr));
  EXPECT_EQ(null.get(), nullptr);
  const Ptr<Base> copy = null;
  EXPECT_EQ(copy, null);
}

TEST(Ptr, theObjectEndsWithItsLastPointer) {
  bool ended = false;
  Ptr<Base> first(new Base(&ended));
  EXPECT_EQ(first->references(), 1U);
  {
    const Ptr<Base> second = first;
    EXPECT_EQ(first->references(), 2U);
    first = nullptr;
    EXPECT_FALSE(ended);
    EXPECT_EQ(second->references(), 1U);
  }
  EXPECT_TRUE(ended);
}

TEST(Ptr, movingTakesTheReferenceAlong) {
  bool ended = false;
  Ptr<Derived> from(new Derived(&ended));
  Ptr<Base> to = std::move(from);
  EXPECT_EQ(from, nullptr);
  EXPECT_EQ(to->references(), 1U);
  Ptr<Base> assigned;
  assigned = std::move(to);
  EXPECT_EQ(to, nullptr);
  EXPECT_EQ(assigned->references(), 1U);
  EXPECT_FALSE(ended);
}

TEST(Ptr, assigningToItselfKeepsTheObject) {
  bool ended = false;
  Ptr<Base> pointer(new Base(&ended));
  const Ptr<Base>& same = pointer;
  pointer = same;
  EXPECT_FALSE(ended);
  EXPECT_EQ(pointer->references(), 1U);
}

TEST(Ptr, aPlainPointerJoinsTheCount) {
  bool ended = false;
  const Ptr<Base> counted(new Base(&ended));
  Base* raw = counted.get();
  {
    const Ptr<Base> again(raw);
    EXPECT_EQ(raw->references(), 2U);
    EXPECT_EQ(again, counted);
    EXPECT_EQ(again, raw);
  }
  EXPECT_EQ(raw->references(), 1U);
}

TEST(Ptr, releaseOwesOneReference) {
  bool ended = false;
  Ptr<Base> pointer(new Base(&ended));
  Base* raw = pointer.release();
  EXPECT_EQ(pointer, nullptr);
  EXPECT_FALSE(ended);
  raw->referenceDec();
  EXPECT_TRUE(ended);
}

TEST(Ptr, equalityAndHashGoByAddress) {
  bool ended[2] = {};
  const Ptr<Base> a(new Base(&ended[0]));
  const Ptr<Base> b(new Base(&ended[1]));
  EXPECT_NE(a, b);
  EXPECT_EQ(a < b, a.get() < b.get());
  std::unordered_set<Ptr<Base>> set{a, b, a};
  EXPECT_EQ(set.size(), 2U);
}

TEST(Ptr, convertsToBaseAndConst) {
  bool ended = false;
  const Ptr<Derived> derived(new Derived(&ended));
  const Ptr<Base> base = derived;
  const Ptr<const Base> constant = derived;
  EXPECT_EQ(derived->references(), 3U);
  EXPECT_EQ(base.get(), derived.get());
  EXPECT_EQ(constant.get(), derived.get());
}

TEST(Ptr, castsFollowTheKindOfTheObject) {
  bool ended = false;
  const Ptr<Base> base(new Derived(&ended));
  EXPECT_EQ(dynamicPtrCast<Derived>(base).get(), base.get());
  EXPECT_EQ(dynamicPtrCast<Other>(base), nullptr);
  EXPECT_EQ(staticPtrCast<Derived>(base).get(), base.get());
  EXPECT_EQ(base->references(), 1U);
}

/// Lives on after its last pointer.
class Survivor : public PtrInterface {
 public:
  void zeroReferencesIs(bool zero) override { zeroed_ = zero; }

  bool zeroed_ = false;
};

TEST(PtrInterface, reachingZeroCallsZeroReferencesIs) {
  Survivor survivor;
  { const Ptr<Survivor> pointer(&survivor); }
  EXPECT_TRUE(survivor.zeroed_);
  EXPECT_EQ(survivor.references(), 0U);
}

TEST(PtrInterface, countsTheSameWithAtomicCounters) {
  VFPtrInterface::enableThreadSafePointers = true;
  bool ended = false;
  {
    const Ptr<Base> first(new Base(&ended));
    const Ptr<Base> second = first;
    EXPECT_EQ(first->references(), 2U);
  }
  VFPtrInterface::enableThreadSafePointers = false;
  EXPECT_TRUE(ended);
}

TEST(PtrInterface, tellsItsFullName) {
  bool ended = false;
  EXPECT_STREQ(Ptr<Base>(new Base(&ended))->fwkType()->name, "Vellor::PtrInterface");
}

}  // namespace
}  // namespace Vellor
