#include <stdexcept>
#include <string>
#include <vector>

#include "tests/framework/Vellor/SampleEntity.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

using Testing::DerivedSample;
using Testing::Recorder;
using Testing::Sample;

class Notification : public testing::Test {
 protected:
  /// A registered listener of that name.
  Recorder::Ptr listener(const std::string& name) {
    Recorder::Ptr recorder(new Recorder(name, &log_));
    recorder->notifierIs(sample_);
    recorder->isRegisteredNotifieeIs(true);
    return recorder;
  }

  std::string heard() {
    std::string text;
    for (const std::string& line : log_) {
      text += line + "; ";
    }
    log_.clear();
    return text;
  }

  Sample::Ptr sample_{new Sample("sample")};
  std::vector<std::string> log_;
};

TEST_F(Notification, everyHandlerHasRunWhenTheMutatorReturns) {
  const Recorder::Ptr a = listener("a");
  const Recorder::Ptr b = listener("b");
  sample_->levelIs(4);
  EXPECT_EQ(heard(), "a level=4; b level=4; ");
}

TEST_F(Notification, changesAreNotCoalesced) {
  const Recorder::Ptr a = listener("a");
  sample_->levelIs(4);
  sample_->levelIs(5);
  sample_->levelIs(4);
  EXPECT_EQ(heard(), "a level=4; a level=5; a level=4; ");
}

TEST_F(Notification, theHandlerSeesTheNewValueOrTheAbsence) {
  const Recorder::Ptr a = listener("a");
  sample_->routeIs(1, "x");
  sample_->routeIs(1, "y");
  sample_->routeDel(1);
  EXPECT_EQ(heard(), "a route[1]=x; a route[1]=y; a route[1] gone; ");
}

TEST_F(Notification, aHandlersOwnChangeIsNotifiedBeforeItReturns) {
  const Recorder::Ptr a = listener("a");
  a->meanwhile = [this] {
    if (sample_->level() < 6) {
      sample_->levelIs(sample_->level() + 1);
      log_.push_back("a goes on");
    }
  };
  sample_->levelIs(4);
  EXPECT_EQ(heard(), "a level=4; a level=5; a level=6; a goes on; a goes on; ");
}

TEST_F(Notification, anUnregisteredListenerHearsNothing) {
  const Recorder::Ptr a(new Recorder("a", &log_));
  a->notifierIs(sample_);
  EXPECT_FALSE(a->isRegisteredNotifiee());
  sample_->levelIs(4);
  a->isRegisteredNotifieeIs(true);
  a->isRegisteredNotifieeIs(true);
  sample_->levelIs(5);
  a->isRegisteredNotifieeIs(false);
  sample_->levelIs(6);
  EXPECT_EQ(heard(), "a level=5; ");
}

TEST_F(Notification, aListenerWithoutANotifierCannotRegister) {
  const Recorder::Ptr a(new Recorder("a", &log_));
  EXPECT_THROW(a->isRegisteredNotifieeIs(true), RangeException);
  EXPECT_FALSE(a->isRegisteredNotifiee());
}

TEST_F(Notification, aListenerThatEndsIsForgotten) {
  listener("gone");
  const Recorder::Ptr a = listener("a");
  sample_->levelIs(4);
  EXPECT_EQ(heard(), "a level=4; ");
}

TEST_F(Notification, aListenerHoldsItsNotifierAndIsNotHeldByIt) {
  Recorder::Ptr a = listener("a");
  EXPECT_EQ(a->references(), 1U);
  EXPECT_EQ(sample_->references(), 2U);
  EXPECT_EQ(a->notifier(), sample_.get());
  a = nullptr;
  EXPECT_EQ(sample_->references(), 1U);
}

TEST_F(Notification, attachingElsewhereMovesTheRegistration) {
  const Recorder::Ptr a = listener("a");
  const Sample::Ptr other(new Sample("other"));
  a->notifierIs(other);
  sample_->levelIs(4);
  other->levelIs(5);
  EXPECT_EQ(heard(), "a level=5; ");
  EXPECT_EQ(sample_->references(), 1U);
}

TEST_F(Notification, aListenerAddedByAHandlerHearsTheNextChange) {
  Recorder::Ptr added;
  const Recorder::Ptr a = listener("a");
  a->meanwhile = [&] { added = added == nullptr ? listener("added") : added; };
  sample_->levelIs(4);
  EXPECT_EQ(heard(), "a level=4; ");
  sample_->levelIs(5);
  EXPECT_EQ(heard(), "a level=5; added level=5; ");
}

TEST_F(Notification, aListenerEndedByAnEarlierHandlerIsSkipped) {
  const Recorder::Ptr a = listener("a");
  Recorder::Ptr b = listener("b");
  const Recorder::Ptr c = listener("c");
  a->meanwhile = [&b] {
    if (b != nullptr) {
      b->isRegisteredNotifieeIs(false);
      b = nullptr;
    }
  };
  sample_->levelIs(4);
  EXPECT_EQ(heard(), "a level=4; c level=4; ");
  sample_->levelIs(5);
  EXPECT_EQ(heard(), "a level=5; c level=5; ");
}

TEST_F(Notification, aListenerRemovedButHeldIsStillInTheSnapshot) {
  const Recorder::Ptr a = listener("a");
  const Recorder::Ptr b = listener("b");
  a->meanwhile = [&b] { b->isRegisteredNotifieeIs(false); };
  sample_->levelIs(4);
  EXPECT_EQ(heard(), "a level=4; b level=4; ");
  sample_->levelIs(5);
  EXPECT_EQ(heard(), "a level=5; ");
}

TEST_F(Notification, aHandlerMayEndItsOwnReactor) {
  for (const bool alone : {true, false}) {
    const Recorder::Ptr other = alone ? nullptr : listener("b");
    Recorder::Ptr a = listener("a");
    a->meanwhile = [&a] { a = nullptr; };
    sample_->levelIs(sample_->level() + 1);
    EXPECT_EQ(a, nullptr);
    heard();
    sample_->levelIs(sample_->level() + 1);
    EXPECT_EQ(heard().find("a "), std::string::npos);
  }
}

TEST_F(Notification, theNotifierOutlivesTheNotification) {
  Recorder::Ptr a = listener("a");
  Sample* raw = sample_.get();
  a->meanwhile = [this] { sample_ = nullptr; };
  raw->levelIs(4);
  EXPECT_EQ(a->notifier()->level(), 4U);
  a->meanwhile = nullptr;
}

TEST_F(Notification, anExceptionReachesNeitherTheNextListenerNorTheMutatorsCaller) {
  const Recorder::Ptr a = listener("a");
  const Recorder::Ptr b = listener("b");
  a->meanwhile = [] { throw RangeException("a handler's"); };
  EXPECT_NO_THROW(sample_->levelIs(4));
  EXPECT_EQ(heard(), "a level=4; a threw in level; b level=4; ");
  EXPECT_NO_THROW(sample_->routeIs(1, "x"));
  EXPECT_EQ(heard(), "a route[1]=x; a threw in route; b route[1]=x; ");
}

TEST_F(Notification, anExceptionOfTheOnlyListenerStaysWithIt) {
  const Recorder::Ptr a = listener("a");
  a->meanwhile = [] { throw std::runtime_error("of any kind"); };
  EXPECT_NO_THROW(sample_->levelIs(4));
  EXPECT_EQ(heard(), "a level=4; a threw in level; ");
  EXPECT_EQ(sample_->level(), 4U);
}

TEST_F(Notification, aZombieHearsNothing) {
  const Recorder::Ptr a = listener("a");
  EXPECT_FALSE(a->isZombie());
  a->isZombieIs(true);
  sample_->levelIs(4);
  EXPECT_EQ(heard(), "");
  a->isZombieIs(false);
  sample_->levelIs(5);
  EXPECT_EQ(heard(), "a level=5; ");
}

TEST_F(Notification, aZombieMarkSetMeanwhileCounts) {
  const Recorder::Ptr a = listener("a");
  const Recorder::Ptr b = listener("b");
  a->meanwhile = [&b] { b->isZombieIs(true); };
  sample_->levelIs(4);
  EXPECT_EQ(heard(), "a level=4; ");
}

TEST_F(Notification, notificationsAreOnAtFirstAndCanBeSwitched) {
  const Recorder::Ptr a = listener("a");
  EXPECT_TRUE(a->hasNotificationActive());
  a->hasNotificationActiveIs(false);
  sample_->levelIs(4);
  EXPECT_EQ(heard(), "");
  a->hasNotificationActiveIs(true);
  sample_->levelIs(5);
  EXPECT_EQ(heard(), "a level=5; ");
}

TEST_F(Notification, handlersThatAreNotOverriddenAreEmpty) {
  const Sample::Notifiee::Ptr silent(new Sample::Notifiee);
  silent->notifierIs(sample_);
  silent->isRegisteredNotifieeIs(true);
  sample_->levelIs(4);
  sample_->routeIs(1, "x");
  sample_->commandEnq(nullptr);
  EXPECT_EQ(sample_->version(), 3U);
}

TEST_F(Notification, aListenerOfTheBaseHearsTheBasesAttributesOfADerivedEntity) {
  const Vellor::Ptr<DerivedSample> derived(new DerivedSample("derived"));
  const Recorder::Ptr a(new Recorder("a", &log_));
  a->notifierIs(derived);
  a->isRegisteredNotifieeIs(true);
  derived->levelIs(4);
  derived->extraIs(1);
  EXPECT_EQ(heard(), "a level=4; ");
  EXPECT_EQ(derived->version(), 2U);
}

/// Listens to an attribute of the derived entity as well.
class DerivedListener : public DerivedSample::Notifiee {
 public:
  void onLevel() override { heard += "level "; }

  void onExtra() override { heard += "extra "; }

  std::string heard;
};

TEST_F(Notification, aListenerOfADerivedEntityHearsBoth) {
  const DerivedSample::Ptr derived(new DerivedSample("derived"));
  const Vellor::Ptr<DerivedListener> listener(new DerivedListener);
  listener->notifierIs(derived);
  listener->isRegisteredNotifieeIs(true);
  derived->extraIs(1);
  derived->levelIs(1);
  EXPECT_EQ(listener->heard, "extra level ");
}

/// Attached to an entity that it must not change.
class ConstListener : public Sample::NotifieeConst {
 public:
  void onLevel() override { heard = notifier()->level(); }

  U32 heard = 0;
};

TEST_F(Notification, aConstListenerReadsItsNotifier) {
  const Vellor::Ptr<ConstListener> listener(new ConstListener);
  listener->notifierIs(sample_);
  listener->isRegisteredNotifieeIs(true);
  sample_->levelIs(9);
  EXPECT_EQ(listener->heard, 9U);
}

}  // namespace
}  // namespace Vellor
