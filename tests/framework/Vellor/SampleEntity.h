#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "framework/Vellor/Vellor.h"

namespace Vellor::Testing {

/// A shared object that tells its own key.
class Table : public PtrInterface {
  VELLOR_OBJECT(Table, PtrInterface);

 public:
  explicit Table(U8 tableId, std::string note = "") : tableId_(tableId), note_(std::move(note)) {}

  VELLOR_CONST(tableId, TableId, U8);
  VELLOR_CONST(note, Note, std::string);
  VELLOR_OBJ_COUNTER(hits, Hits, U8);
  VELLOR_OBJ_ATTR(row, Row, U32, 7);
  VELLOR_OBJ_MAP(rowToNote, RowToNote, U32, std::string);
  VELLOR_OBJ_QUEUE(move, Move, U32);
  VELLOR_OBJ_CHILD(twin, Twin, Table);

  VELLOR_OBJ_END;

  const U8& fwkKey() const { return tableId_; }
};

/// An entity with one attribute of each kind.
class Sample : public Entity {
  VELLOR_ENTITY(Sample, Entity);

 public:
  explicit Sample(Name name) : Entity(std::move(name)) {}

  VELLOR_ATTR(level, Level, U32, 3);
  VELLOR_MAP(route, Route, U32, std::string);
  VELLOR_READ(twiceLevel, TwiceLevel, U32);
  VELLOR_TREE(stride, Stride, U8, bool);
  VELLOR_QUEUE(command, Command, Table::Ptr);
  VELLOR_ARRAY(sorted, Sorted, U8, Table::Ptr);
  VELLOR_CHILD_MAP(child, Child, U8, Table);
  VELLOR_SELF_KEYED_MAP(table, Table, U8, Testing::Table);
  VELLOR_MAP(owner, Owner, Table::Ptr, U32);

  VELLOR_END;
};

/// Goes on from the attributes of its base.
class DerivedSample : public Sample {
  VELLOR_ENTITY(DerivedSample, Sample);

 public:
  using Sample::Sample;

  VELLOR_ATTR(extra, Extra, U32, 0);

  VELLOR_END;
};

/// Writes down every notification, and does what a test wants done meanwhile.
class Recorder : public Sample::Notifiee {
  VELLOR_POINTERS(Recorder);

 public:
  Recorder(std::string name, std::vector<std::string>* log) : name_(std::move(name)), log_(log) {}

  void onLevel() override { note("level=" + std::to_string(notifier()->level())); }

  void onRoute(const U32& key) override {
    const bool present = notifier()->routeCollection().isMember(key);
    note("route[" + std::to_string(key) + "]" + (present ? "=" + notifier()->route(key) : " gone"));
  }

  void onStride(const U8& key) override { note("stride[" + std::to_string(key) + "]"); }

  void onCommand(const U32& index) override {
    note("command[" + std::to_string(index) + "]" +
         (notifier()->command(index) == nullptr ? " gone" : ""));
  }

  void onSorted(const U8& index) override { note("sorted[" + std::to_string(index) + "]"); }

  void onChild(const U8& key) override {
    note("child[" + std::to_string(key) + "]" + (notifier()->child(key) == nullptr ? " gone" : ""));
  }

  void onTable(const U8& key) override { note("table[" + std::to_string(key) + "]"); }

  void onNotificationException(AttributeId attribute) override {
    log_->push_back(name_ + " threw in " + attributeString<Sample>(attribute).str());
  }

  std::function<void()> meanwhile;

 private:
  void note(const std::string& what) {
    log_->push_back(name_ + " " + what);
    if (meanwhile) {
      // A copy: what is done may end this reactor.
      const std::function<void()> action = meanwhile;
      action();
    }
  }

  std::string name_;
  std::vector<std::string>* log_;
};

/// Members walked in order, as "key=value" with `show` for the value.
template <class Iterator, class Show>
std::string textOf(Iterator member, const Show& show) {
  std::string text;
  for (; member; ++member) {
    text += (text.empty() ? "" : " ") + std::to_string(member.key()) + "=" + show(member.value());
  }
  return text;
}

}  // namespace Vellor::Testing
