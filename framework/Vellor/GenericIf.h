#pragma once

#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/Vellor/Attribute.h"
#include "framework/Vellor/Exception.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/PtrInterface.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

struct AttributeFace;

/// The name of a kind as it stands in `AttributeKind`.
VELLOR_API const char* attributeKindName(AttributeKind kind);

/// What attributeOp() does with an attribute. From 128 on it mutates, which a const instance
/// refuses.
///
/// The argument by kind of attribute; several stand in a `GenericIf::List_`, by position or by the
/// name in parentheses:
///
///   value, constant, computed   get: none         set: the value (value)
///   child                       get: none         set: the child's constructor arguments by the
///                                                 names in its type's face
///                               remove: none
///   map, childMap, tree         get, isMember, remove, notify: the key (key)
///                               set, insert: the key, and the value (value) or the child's
///                               further constructor arguments; an object that knows its key comes
///                               alone
///   queue, array, view          the same with the index for a key; enqueue: the value (value)
///   operation                   call: the operation's arguments by its own names
struct AttributeOp {
  enum Kind : U8 {
    get = 0,
    count = 1,
    isMember = 2,
    // Of an operation that leaves the object as it is.
    callConst = 3,
    set = 128,
    insert = 129,
    remove = 130,
    removeAll = 131,
    enqueue = 132,
    dequeue = 133,
    call = 134,
    // Runs the handlers as if the member had changed.
    notify = 135,
  };

  AttributeId id = 0;
  U8 kind = get;

  constexpr bool mutates() const { return kind >= 128; }
};

/// Face of one value or object, through which it is driven by name.
///
/// Made by genericIf(), for whoever has names and no compiled types: the shell, the summaries, a
/// diagnostic client. A face of a value holds a copy; a face of an object holds a counted pointer.
/// Ids number a type's attributes from 0 in declaration order, those of its base first; operations
/// stand behind them all.
///
/// Misuse raises an exception with the attribute's name as its text: RangeException for an unknown
/// name, id, key or argument and for a value of the wrong type, OpNotSupportedException for what
/// the attribute does not offer, ImmutableAttrMutationException for a write to one that cannot
/// change, and with "attempting to modify a const instance" for any mutation of a const face.
class VELLOR_API GenericIf : public PtrInterface {
  VELLOR_POINTERS(GenericIf);

 public:
  class List_;
  class Iterator_;
  struct Argument;

  /// The type's record. A null pointer has that of its static type.
  virtual const FwkType& type() const = 0;

  /// The text of the value, by valueToStrep().
  virtual String8 strRep() const = 0;

  /// A value's copy; another face of the same object. Both without const.
  virtual Ptr clone() const = 0;

  /// A value of this face's type from the values of its attributes, by name or in order of
  /// declaration; what the list does not name keeps its default. Objects are not made so:
  /// OpNotSupportedException with the type's name.
  virtual Ptr genericIfListConstructor(const List_& list) const;

  bool isConst() const { return isConst_; }

  /// Whether this is the face of a null pointer, which has a type but no attributes to read.
  virtual bool isNull() const { return false; }

  // ---- attributes ----

  /// Attributes and operations.
  AttributeId attributes() const;
  AttributeId attributeId(const String8& name) const;
  /// "unknown" for an id that is none.
  String8 attributeString(AttributeId id) const;
  /// What can be done with it, and with which types.
  const AttributeFace& attributeFace(AttributeId id) const;

  /// Does one operation on one attribute. `result` is the value read, removed or returned, null
  /// when there is none.
  void attributeOp(const AttributeOp& op, const Ptr& arg, Ptr& result);

  // ---- the same in short ----

  Ptr get(const String8& name);
  Ptr at(const String8& name, const Argument& key);
  U32 count(const String8& name);
  void set(const String8& name, const Argument& value);
  /// Calls an operation, const or not.
  Ptr call(const String8& name, std::initializer_list<Argument> arguments = {});
  Ptr call(const String8& name, const List_& arguments);

  // ---- walks over a collection attribute ----

  /// From the first member on. Members may come and go meanwhile.
  Vellor::Ptr<Iterator_> attributeIterator(AttributeId id);
  /// The same, with const faces of the members.
  Vellor::Ptr<Iterator_> attributeIteratorConst(AttributeId id);
  /// From the member at `key` on; past the end when there is none.
  Vellor::Ptr<Iterator_> attributeIteratorKey(AttributeId id, const Ptr& key);

  static void attributeIterator_iterInc(Iterator_& iterator);
  static Ptr attributeIterator_iterKey(const Iterator_& iterator);
  static Ptr attributeIterator_iterObj(const Iterator_& iterator);
  /// Ends the walk; the member it stands on stays.
  static void attributeIterator_iterDel(Vellor::Ptr<Iterator_>& iterator);
  static Vellor::Ptr<Iterator_> attributeIterator_iterClone(const Iterator_& iterator);
  /// Whether the walk stands on a member.
  static bool attributeIterator_nonNull(const Vellor::Ptr<Iterator_>& iterator);

  // ---- misuse ----

  [[noreturn]] static void throwUnknownAttrException(const String8& name);
  [[noreturn]] static void throwUnknownArgException(const String8& name);
  [[noreturn]] static void throwTypeException(const String8& name);
  [[noreturn]] static void throwBadIndexAttrException(const String8& name);
  [[noreturn]] static void throwOpNotSupportedException(const String8& name);
  [[noreturn]] static void throwConstException();

 protected:
  explicit GenericIf(bool isConst) : isConst_(isConst) {}

  /// The value or object, for the functions of its type's face.
  virtual void* self() = 0;

 private:
  bool isConst_;
};

/// An argument: a face or anything that one can be made of, with a name or by its position.
struct GenericIf::Argument {
  Argument(GenericIf::Ptr face) : value(std::move(face)) {}

  Argument(String8 argumentName, GenericIf::Ptr face)
      : name(std::move(argumentName)), value(std::move(face)) {}

  template <class T>
  requires(!std::convertible_to<T, GenericIf::Ptr>) Argument(const T& plain);

  template <class T>
  requires(!std::convertible_to<T, GenericIf::Ptr>) Argument(String8 argumentName, const T& plain);

  // Empty: by position.
  String8 name;
  GenericIf::Ptr value;
};

/// The argument list of a reflective call.
class VELLOR_API GenericIf::List_ final : public GenericIf {
  VELLOR_POINTERS(List_);

 public:
  List_() : GenericIf(false) {}

  List_(std::initializer_list<Argument> arguments) : GenericIf(false), arguments_(arguments) {}

  explicit List_(std::vector<Argument> arguments)
      : GenericIf(false), arguments_(std::move(arguments)) {}

  void append(Argument argument) { arguments_.push_back(std::move(argument)); }

  const std::vector<Argument>& arguments() const { return arguments_; }

  const FwkType& type() const override;
  String8 strRep() const override;
  GenericIf::Ptr clone() const override;

 private:
  void* self() override { return this; }

  std::vector<Argument> arguments_;
};

/// A walk over the members of a collection attribute. Holds its face, and so the collection.
class VELLOR_API GenericIf::Iterator_ : public PtrInterface {
  VELLOR_POINTERS(Iterator_);

 public:
  virtual bool nonNull() const = 0;
  virtual void inc() = 0;
  virtual GenericIf::Ptr key() const = 0;
  virtual GenericIf::Ptr obj() const = 0;
  virtual Ptr clone() const = 0;
};

/// One attribute or operation of a type, as a face shows it.
struct AttributeFace {
  static constexpr std::size_t kMaxArguments = 5;

  using Operate = GenericIf::Ptr (*)(void* self,
                                     const AttributeFace& face,
                                     U8 kind,
                                     const GenericIf::Ptr& arg);
  using Walk = GenericIf::Iterator_::Ptr (*)(void* self,
                                             const GenericIf::Ptr& holder,
                                             bool isConst);

  /// Null for a type that has no face, such as a maker's own class.
  using TypeOf = const FwkType* (*)();

  struct ArgumentFace {
    std::string_view name;
    TypeOf type = nullptr;
  };

  std::string_view name;
  AttributeKind kind;
  // Of an operation: whether it leaves the object as it is.
  bool isConstOperation;
  // Of the value, of a collection's members, of what an operation returns; null for nothing.
  TypeOf type;
  // Of a collection's keys; null for none.
  TypeOf keyType;
  // Of an operation.
  U32 arguments;
  ArgumentFace argument[kMaxArguments];
  Operate operate;
  // Null when there are no members.
  Walk walk;
};

/// What can be done with a type by name.
struct TypeFace {
  const AttributeFace* attribute;
  AttributeId attributes;
  // A face of an object of this very type; null for values.
  GenericIf::Ptr (*objectFace)(const Ptr<PtrInterface>& object, bool isConst);
  // What a child of this class is made of by name, beside its key. With none of them a sole
  // argument is called `value`.
  const AttributeFace::ArgumentFace* constructorArgument;
  U32 constructorArguments;
};

}  // namespace Vellor

#include "framework/Vellor/GenericIfValue.h"
