#include "framework/Vellor/GenericIf.h"

#include <utility>

namespace Vellor {

namespace {

constinit const FwkType kListType{"Vellor::GenericIf::List_"};

const TypeFace* faceOf(const GenericIf& value) { return value.type().face(); }

}  // namespace

const char* attributeKindName(AttributeKind kind) {
  switch (kind) {
    case AttributeKind::value:
      return "value";
    case AttributeKind::constant:
      return "constant";
    case AttributeKind::computed:
      return "computed";
    case AttributeKind::child:
      return "child";
    case AttributeKind::map:
      return "map";
    case AttributeKind::childMap:
      return "childMap";
    case AttributeKind::tree:
      return "tree";
    case AttributeKind::queue:
      return "queue";
    case AttributeKind::array:
      return "array";
    case AttributeKind::view:
      return "view";
    case AttributeKind::operation:
      return "operation";
  }
  return "unknown";
}

GenericIf::Ptr GenericIf::genericIfListConstructor(const List_&) const {
  throwOpNotSupportedException(type().name);
}

AttributeId GenericIf::attributes() const {
  const TypeFace* face = faceOf(*this);
  return face == nullptr ? 0 : face->attributes;
}

AttributeId GenericIf::attributeId(const String8& name) const {
  const TypeFace* face = faceOf(*this);
  for (AttributeId id = 0; face != nullptr && id < face->attributes; ++id) {
    if (face->attribute[id].name == std::string_view(name)) {
      return id;
    }
  }
  throwUnknownAttrException(name);
}

String8 GenericIf::attributeString(AttributeId id) const {
  return id < attributes() ? String8(faceOf(*this)->attribute[id].name) : String8("unknown");
}

const AttributeFace& GenericIf::attributeFace(AttributeId id) const {
  if (id >= attributes()) {
    throwUnknownAttrException("unknown");
  }
  return faceOf(*this)->attribute[id];
}

void GenericIf::attributeOp(const AttributeOp& op, const Ptr& arg, Ptr& result) {
  const AttributeFace& face = attributeFace(op.id);
  if (isConst() &&
      (op.mutates() || (op.kind == AttributeOp::callConst && !face.isConstOperation))) {
    throwConstException();
  }
  if (isNull()) {
    throwBadIndexAttrException(String8(face.name));
  }
  // An operation may drop the last pointer to the object, and `arg` may be `result`.
  const Ptr holder(this);
  Ptr value = face.operate(self(), face, op.kind, arg);
  result = std::move(value);
}

GenericIf::Ptr GenericIf::get(const String8& name) {
  Ptr result;
  attributeOp({attributeId(name), AttributeOp::get}, nullptr, result);
  return result;
}

GenericIf::Ptr GenericIf::at(const String8& name, const Argument& key) {
  Ptr result;
  attributeOp({attributeId(name), AttributeOp::get}, key.value, result);
  return result;
}

U32 GenericIf::count(const String8& name) {
  Ptr result;
  attributeOp({attributeId(name), AttributeOp::count}, nullptr, result);
  return fromGenericIf<U32>(result, name);
}

void GenericIf::set(const String8& name, const Argument& value) {
  Ptr result;
  attributeOp({attributeId(name), AttributeOp::set}, value.value, result);
}

GenericIf::Ptr GenericIf::call(const String8& name, std::initializer_list<Argument> arguments) {
  return call(name, List_(std::vector<Argument>(arguments)));
}

GenericIf::Ptr GenericIf::call(const String8& name, const List_& arguments) {
  const AttributeId id = attributeId(name);
  const bool isConstOperation = attributeFace(id).isConstOperation;
  Ptr result;
  attributeOp({id, isConstOperation ? AttributeOp::callConst : AttributeOp::call},
              arguments.clone(), result);
  return result;
}

GenericIf::Iterator_::Ptr GenericIf::attributeIterator(AttributeId id) {
  const AttributeFace& face = attributeFace(id);
  if (face.walk == nullptr) {
    throwOpNotSupportedException(String8(face.name));
  }
  if (isNull()) {
    throwBadIndexAttrException(String8(face.name));
  }
  return face.walk(self(), Ptr(this), isConst());
}

GenericIf::Iterator_::Ptr GenericIf::attributeIteratorConst(AttributeId id) {
  const AttributeFace& face = attributeFace(id);
  if (face.walk == nullptr) {
    throwOpNotSupportedException(String8(face.name));
  }
  if (isNull()) {
    throwBadIndexAttrException(String8(face.name));
  }
  return face.walk(self(), Ptr(this), true);
}

GenericIf::Iterator_::Ptr GenericIf::attributeIteratorKey(AttributeId id, const Ptr& key) {
  Iterator_::Ptr iterator = attributeIterator(id);
  const String8 wanted = key == nullptr ? String8() : key->strRep();
  const auto* object = dynamic_cast<const GenericIfPtrInterface*>(key.get());
  for (; iterator->nonNull(); iterator->inc()) {
    const Ptr here = iterator->key();
    const auto* standing = dynamic_cast<const GenericIfPtrInterface*>(here.get());
    const bool same = object != nullptr && standing != nullptr
                          ? object->object() == standing->object()
                          : here->strRep() == wanted;
    if (same) {
      break;
    }
  }
  return iterator;
}

void GenericIf::attributeIterator_iterInc(Iterator_& iterator) { iterator.inc(); }

GenericIf::Ptr GenericIf::attributeIterator_iterKey(const Iterator_& iterator) {
  return iterator.key();
}

GenericIf::Ptr GenericIf::attributeIterator_iterObj(const Iterator_& iterator) {
  return iterator.obj();
}

void GenericIf::attributeIterator_iterDel(Iterator_::Ptr& iterator) { iterator = nullptr; }

GenericIf::Iterator_::Ptr GenericIf::attributeIterator_iterClone(const Iterator_& iterator) {
  return iterator.clone();
}

bool GenericIf::attributeIterator_nonNull(const Iterator_::Ptr& iterator) {
  return iterator != nullptr && iterator->nonNull();
}

void GenericIf::throwUnknownAttrException(const String8& name) { throwRangeException(name); }

void GenericIf::throwUnknownArgException(const String8& name) { throwRangeException(name); }

void GenericIf::throwTypeException(const String8& name) { throwRangeException(name); }

void GenericIf::throwBadIndexAttrException(const String8& name) { throwRangeException(name); }

void GenericIf::throwOpNotSupportedException(const String8& name) {
  throw OpNotSupportedException(name);
}

void GenericIf::throwConstException() {
  throw ImmutableAttrMutationException("attempting to modify a const instance");
}

const FwkType& GenericIf::List_::type() const { return kListType; }

String8 GenericIf::List_::strRep() const {
  String8 text = "[";
  for (const Argument& argument : arguments_) {
    if (&argument != arguments_.data()) {
      text += ", ";
    }
    text += argument.value == nullptr ? String8("None") : argument.value->strRep();
  }
  return text + "]";
}

GenericIf::Ptr GenericIf::List_::clone() const { return new List_(arguments_); }

// ---- objects ----

const FwkType& GenericIfPtrInterface::type() const {
  return object_ == nullptr ? staticType_ : *object_->fwkType();
}

String8 GenericIfPtrInterface::strRep() const { return valueToStrepOfPtr(object_.get()); }

GenericIf::Ptr GenericIfPtrInterface::clone() const {
  return genericIfOfObject(object_, staticType_, false);
}

GenericIf::Ptr genericIfOfObject(const Ptr<PtrInterface>& object,
                                 const FwkType& staticType,
                                 bool isConst) {
  const TypeFace* face = object == nullptr ? nullptr : object->fwkType()->face();
  if (face != nullptr && face->objectFace != nullptr) {
    return face->objectFace(object, isConst);
  }
  return new GenericIfPtrInterface(object, staticType, isConst);
}

// ---- values of the language ----

#define VELLOR_PLAIN_VALUE_TYPE_(Type, Name)    \
  const FwkType& vellorValueType(const Type*) { \
    static constinit const FwkType kType{Name}; \
    return kType;                               \
  }                                             \
  static_assert(true, "a semicolon follows here")

VELLOR_PLAIN_VALUE_TYPE_(bool, "bool");
VELLOR_PLAIN_VALUE_TYPE_(int, "int");
VELLOR_PLAIN_VALUE_TYPE_(U8, "U8");
VELLOR_PLAIN_VALUE_TYPE_(U16, "U16");
VELLOR_PLAIN_VALUE_TYPE_(U32, "U32");
VELLOR_PLAIN_VALUE_TYPE_(U64, "U64");
VELLOR_PLAIN_VALUE_TYPE_(String8, "Vellor::String8");

#undef VELLOR_PLAIN_VALUE_TYPE_

}  // namespace Vellor
