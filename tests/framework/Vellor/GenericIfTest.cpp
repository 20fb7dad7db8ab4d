// An entity, its parts and values driven by name.

#include <functional>
#include <string>
#include <vector>

#include "framework/Vellor/Reflect.h"
#include "framework/Vellor/Vellor.h"

#include <gtest/gtest.h>

namespace Vellor::Testing {

/// A child that is made of several things.
class Lamp : public PtrInterface {
  VELLOR_OBJECT(Lamp, PtrInterface);

 public:
  using ConstructorTypes = std::tuple<U8, String8>;

  Lamp(U8 watts, String8 colour) : watts_(watts), colour_(std::move(colour)) {}

  VELLOR_CONST(watts, Watts, U8);
  VELLOR_CONST(colour, Colour, String8);

  VELLOR_OBJ_END;
};

/// A shared object that knows its key.
class Shelf : public PtrInterface {
  VELLOR_OBJECT(Shelf, PtrInterface);

 public:
  using ConstructorTypes = std::tuple<String8>;

  Shelf(U8 number, String8 label) : number_(number), label_(std::move(label)) {}

  VELLOR_CONST(number, Number, U8);
  VELLOR_CONST(label, Label, String8);
  VELLOR_OBJ_ATTR(width, Width, U32, 80);
  VELLOR_OBJ_MAP(book, Book, U32, String8);
  VELLOR_OBJ_CHILD(lamp, Lamp, Testing::Lamp);

  VELLOR_OBJ_END;

  const U8& fwkKey() const { return number_; }
};

/// An entity with an attribute of each kind and operations of each shape.
class Library : public Entity {
  VELLOR_ENTITY(Library, Entity);

 public:
  explicit Library(Name name) : Entity(std::move(name)) {}

  VELLOR_ATTR(visitors, Visitors, U32, 0);
  VELLOR_READ(isOpen, IsOpen, bool);
  VELLOR_MAP(loan, Loan, U32, String8);
  VELLOR_TREE(price, Price, U8, U32);
  VELLOR_QUEUE(wish, Wish, String8);
  VELLOR_ARRAY(front, Front, U8, Shelf::Ptr);
  VELLOR_CHILD_MAP(shelf, Shelf, U8, Testing::Shelf);
  VELLOR_SELF_KEYED_MAP(spare, Spare, U8, Testing::Shelf);

  VELLOR_END;

  U32 add(U32 left, U32 right) const { return left + right; }

  void close() { visitorsIs(0); }

  Shelf::Ptr widest(const Shelf::Ptr& first, const Shelf::Ptr& second) const {
    return first->width() >= second->width() ? first : second;
  }
};

class Branch : public Library {
  VELLOR_ENTITY(Branch, Library);

 public:
  using Library::Library;

  VELLOR_ATTR(street, Street, String8, "");

  VELLOR_END;

  void moveTo(const String8& street) { streetIs(street); }
};

bool Library::isOpen() const { return visitors() != 0; }

constexpr std::array<AttributeFace, 0> kNoOperations{};
constexpr auto kLibraryOperations =
    operations(operation<&Library::add>("add", "left", "right"),
               operation<&Library::close>("close"),
               operation<&Library::widest>("widest", "first", "second"));
constexpr auto kBranchOperations =
    operationsAfter(kLibraryOperations, operations(operation<&Branch::moveTo>("moveTo", "street")));

VELLOR_REFLECTED_CHILD(Shelf, "Vellor::Testing::Shelf", kNoOperations, constructor<Shelf>("label"));
VELLOR_REFLECTED_CHILD(Lamp,
                       "Vellor::Testing::Lamp",
                       kNoOperations,
                       constructor<Lamp>("watts", "colour"));
VELLOR_REFLECTED_TYPE(Library, "Vellor::Testing::Library", kLibraryOperations);
VELLOR_REFLECTED_TYPE(Branch, "Vellor::Testing::Branch", kBranchOperations);

namespace {

/// "Range", "Immutable", "Nondeletable" or "OpNotSupported", and the words.
std::string misuse(const std::function<void()>& act) {
  try {
    act();
  } catch (const RangeException& exception) {
    return "Range " + exception.message().str();
  } catch (const ImmutableAttrMutationException& exception) {
    return "Immutable " + exception.message().str();
  } catch (const NondeletableAttrException& exception) {
    return "Nondeletable " + exception.message().str();
  } catch (const OpNotSupportedException& exception) {
    return "OpNotSupported " + exception.message().str();
  }
  return "none";
}

std::string text(const GenericIf::Ptr& face) {
  return face == nullptr ? "-" : face->strRep().str();
}

class GenericIfTest : public ::testing::Test {
 protected:
  GenericIf::Ptr op(const char* name, U8 kind, const GenericIf::Ptr& arg = nullptr) {
    GenericIf::Ptr result;
    face_->attributeOp({face_->attributeId(name), kind}, arg, result);
    return result;
  }

  static GenericIf::Ptr list(std::initializer_list<GenericIf::Argument> arguments) {
    return new GenericIf::List_(arguments);
  }

  std::string walked(const GenericIf::Iterator_::Ptr& iterator) {
    std::string members;
    for (; iterator->nonNull(); iterator->inc()) {
      members += text(iterator->key()) + "=" + text(iterator->obj()) + " ";
    }
    return members;
  }

  const Library::Ptr library_{new Library("main")};
  const GenericIf::Ptr face_ = genericIf(library_);
};

TEST_F(GenericIfTest, idsCountInOrderOfDeclarationWithOperationsBehind) {
  std::vector<std::string> names;
  for (AttributeId id = 0; id < face_->attributes(); ++id) {
    names.push_back(face_->attributeString(id).str());
    EXPECT_EQ(face_->attributeId(names.back()), id);
  }
  EXPECT_EQ(names, (std::vector<std::string>{"name", "visitors", "isOpen", "loan", "price", "wish",
                                             "front", "shelf", "spare", "add", "close", "widest"}));
  EXPECT_EQ(face_->attributeString(12), "unknown");
}

TEST_F(GenericIfTest, aDerivedTypeGoesOnFromItsBase) {
  const Library::Ptr branch(new Branch("north"));
  const GenericIf::Ptr face = genericIf(branch);
  EXPECT_STREQ(face->type().name, "Vellor::Testing::Branch");
  EXPECT_EQ(face->attributeString(9), "street");
  EXPECT_EQ(face->attributeString(10), "add");
  EXPECT_EQ(face->attributeString(13), "moveTo");
  face->call("moveTo", {"Main Street"});
  EXPECT_EQ(text(face->get("street")), "'Main Street'");
  EXPECT_NE(dynamic_cast<Branch::GenericIf_*>(face.get()), nullptr);
  EXPECT_NE(dynamic_cast<GenericIfEntity*>(face.get()), nullptr);
}

TEST_F(GenericIfTest, plainAttributesAreReadAndWritten) {
  EXPECT_EQ(text(face_->get("isOpen")), "False");
  face_->set("visitors", U32{5});
  EXPECT_EQ(library_->visitors(), 5U);
  EXPECT_EQ(text(face_->get("visitors")), "5");
  EXPECT_EQ(text(face_->get("isOpen")), "True");
  EXPECT_EQ(text(face_->get("name")), "'main'");
  face_->set("visitors", "12");
  EXPECT_EQ(library_->visitors(), 12U) << "a text is read as the attribute's type";
  face_->set("visitors", U64{1} << 32 | 7);
  EXPECT_EQ(library_->visitors(), 7U) << "a number is cut to it";
}

TEST_F(GenericIfTest, aWriteNotifies) {
  class Reactor : public Library::Notifiee {
   public:
    void onVisitors() override { log += "visitors "; }

    void onLoan(const U32& key) override { log += "loan " + std::to_string(key) + " "; }

    std::string log;
  };

  const Ptr<Reactor> reactor(new Reactor());
  reactor->notifierIs(library_);
  reactor->isRegisteredNotifieeIs(true);
  face_->set("visitors", U32{1});
  op("loan", AttributeOp::insert, list({U32{3}, "Anna"}));
  op("loan", AttributeOp::notify, genericIf(U32{9}));
  op("loan", AttributeOp::remove, genericIf(U32{3}));
  EXPECT_EQ(reactor->log, "visitors loan 3 loan 9 loan 3 ");
}

TEST_F(GenericIfTest, keyedCollections) {
  op("loan", AttributeOp::insert, list({U32{3}, "Anna"}));
  op("loan", AttributeOp::set, list({{"value", "Ben"}, {"key", U32{4}}}));
  EXPECT_EQ(face_->count("loan"), 2U);
  EXPECT_EQ(text(face_->at("loan", U32{4})), "'Ben'");
  EXPECT_EQ(text(face_->at("loan", U32{5})), "''") << "an absent key reads as the default";
  EXPECT_EQ(text(op("loan", AttributeOp::isMember, genericIf(U32{5}))), "False");
  EXPECT_EQ(text(op("loan", AttributeOp::isMember, genericIf(U32{3}))), "True");
  EXPECT_EQ(text(op("loan", AttributeOp::remove, genericIf(U32{3}))), "'Anna'");
  EXPECT_EQ(library_->loans(), 1U);
  op("loan", AttributeOp::removeAll);
  EXPECT_EQ(library_->loans(), 0U);
  op("price", AttributeOp::insert, list({U8{2}, U32{20}}));
  op("price", AttributeOp::insert, list({U8{1}, U32{10}}));
  EXPECT_EQ(walked(face_->attributeIterator(face_->attributeId("price"))), "1=10 2=20 ");
}

TEST_F(GenericIfTest, queues) {
  op("wish", AttributeOp::enqueue, genericIf("atlas"));
  op("wish", AttributeOp::enqueue, genericIf("novel"));
  EXPECT_EQ(face_->count("wish"), 2U);
  EXPECT_EQ(text(op("wish", AttributeOp::isMember, genericIf(U32{1}))), "True");
  EXPECT_EQ(text(op("wish", AttributeOp::isMember, genericIf(U32{2}))), "False");
  EXPECT_EQ(text(op("wish", AttributeOp::dequeue)), "'atlas'");
  EXPECT_EQ(text(face_->at("wish", U32{1})), "'novel'");
}

TEST_F(GenericIfTest, childrenAreBuiltFromTheirArguments) {
  const GenericIf::Ptr made = op("shelf", AttributeOp::insert, list({U8{7}, "maps"}));
  EXPECT_STREQ(made->type().name, "Vellor::Testing::Shelf");
  EXPECT_EQ(library_->shelf(7)->label(), "maps");
  made->set("width", U32{120});
  EXPECT_EQ(library_->shelf(7)->width(), 120U);
  EXPECT_EQ(text(made), "'Vellor::Testing::Shelf'");
}

TEST_F(GenericIfTest, childrenTakeTheirArgumentsByName) {
  const GenericIf::Ptr shelf =
      op("shelf", AttributeOp::insert, list({{"label", "maps"}, {"key", U8{7}}}));
  EXPECT_EQ(library_->shelf(7)->label(), "maps");
  EXPECT_EQ(misuse([&] {
              op("shelf", AttributeOp::insert, list({{"key", U8{8}}, {"value", "maps"}}));
            }),
            "Range value");
  const auto lamp = [&shelf](std::initializer_list<GenericIf::Argument> arguments) {
    GenericIf::Ptr made;
    shelf->attributeOp({shelf->attributeId("lamp"), AttributeOp::set}, list(arguments), made);
    return made;
  };
  EXPECT_EQ(text(lamp({{"colour", "red"}, {"watts", U8{5}}})->get("watts")), "5");
  EXPECT_EQ(library_->shelf(7)->lamp()->colour(), "red");
  EXPECT_EQ(text(lamp({U8{6}, "blue"})->get("colour")), "'blue'");
  EXPECT_EQ(text(lamp({{"colour", "green"}, U8{7}})->get("watts")), "7");
  EXPECT_EQ(misuse([&] { lamp({{"watts", U8{5}}}); }), "Range colour");
  EXPECT_EQ(misuse([&] { lamp({{"watts", U8{5}}, {"color", "red"}}); }), "Range color");
  EXPECT_EQ(library_->shelf(7)->lamp()->watts(), 7U) << "misuse changes nothing";
  const TypeFace& face = *Lamp::kVellorType_.ownFace;
  ASSERT_EQ(face.constructorArguments, 2U);
  EXPECT_EQ(face.constructorArgument[1].name, "colour");
  EXPECT_STREQ(face.constructorArgument[0].type()->name, "U8");
}

TEST_F(GenericIfTest, objectsThatKnowTheirKeyComeAlone) {
  const Shelf::Ptr shelf(new Shelf(3, "prints"));
  op("spare", AttributeOp::insert, genericIf(shelf));
  EXPECT_EQ(library_->spare(3), shelf);
  op("front", AttributeOp::set, list({U8{1}, shelf}));
  EXPECT_EQ(library_->front(1), shelf);
  EXPECT_TRUE(face_->at("front", U8{0})->isNull());
  EXPECT_STREQ(face_->at("front", U8{0})->type().name, "Vellor::Testing::Shelf");
  EXPECT_EQ(text(face_->at("front", U8{0})), "None");
  EXPECT_EQ(misuse([&] { face_->at("front", U8{0})->get("width"); }), "Range width");
}

TEST_F(GenericIfTest, operationsTakeArgumentsByPositionOrName) {
  EXPECT_EQ(text(face_->call("add", {U32{2}, U32{3}})), "5");
  EXPECT_EQ(text(face_->call("add", {{"right", U32{2}}, {"left", U32{40}}})), "42");
  EXPECT_EQ(text(face_->call("add", {"2", "3"})), "5");
  face_->set("visitors", U32{5});
  EXPECT_EQ(face_->call("close"), nullptr);
  EXPECT_EQ(library_->visitors(), 0U);
  const Shelf::Ptr narrow(new Shelf(1, "a"));
  const Shelf::Ptr wide(new Shelf(2, "b"));
  wide->widthIs(200);
  EXPECT_EQ(text(face_->call("widest", {narrow, wide})->get("number")), "2");
}

TEST_F(GenericIfTest, facesTellTheirTypes) {
  const AttributeFace& add = face_->attributeFace(face_->attributeId("add"));
  EXPECT_TRUE(add.isConstOperation);
  ASSERT_EQ(add.arguments, 2U);
  EXPECT_EQ(add.argument[1].name, "right");
  EXPECT_STREQ(add.argument[1].type()->name, "U32");
  EXPECT_STREQ(add.type()->name, "U32");
  const AttributeFace& shelf = face_->attributeFace(face_->attributeId("shelf"));
  EXPECT_EQ(shelf.kind, AttributeKind::childMap);
  EXPECT_STREQ(shelf.keyType()->name, "U8");
  EXPECT_STREQ(shelf.type()->name, "Vellor::Testing::Shelf");
  EXPECT_EQ(face_->attributeFace(face_->attributeId("close")).type, nullptr);
}

TEST_F(GenericIfTest, aWalkGoesOnWhenMembersComeAndGo) {
  for (U8 key = 0; key < 6; ++key) {
    library_->priceIs(key, U32{key} * 10);
  }
  const AttributeId price = face_->attributeId("price");
  GenericIf::Iterator_::Ptr iterator = face_->attributeIterator(price);
  GenericIf::attributeIterator_iterInc(*iterator);
  library_->priceDel(1);
  library_->priceDel(2);
  const GenericIf::Iterator_::Ptr twin = GenericIf::attributeIterator_iterClone(*iterator);
  GenericIf::attributeIterator_iterInc(*iterator);
  EXPECT_EQ(text(GenericIf::attributeIterator_iterKey(*iterator)), "3");
  EXPECT_EQ(text(GenericIf::attributeIterator_iterObj(*iterator)), "30");
  EXPECT_EQ(text(twin->key()), "1") << "the twin stands where it was cloned";
  EXPECT_EQ(walked(face_->attributeIteratorKey(price, genericIf(U8{4}))), "4=40 5=50 ");
  EXPECT_EQ(walked(face_->attributeIteratorKey(price, genericIf(U8{9}))), "");
  EXPECT_TRUE(GenericIf::attributeIterator_nonNull(iterator));
  GenericIf::attributeIterator_iterDel(iterator);
  EXPECT_FALSE(GenericIf::attributeIterator_nonNull(iterator));
}

TEST_F(GenericIfTest, aWalkHoldsWhatItWalksOver) {
  GenericIf::Iterator_::Ptr iterator;
  {
    const Library::Ptr gone(new Library("gone"));
    gone->priceIs(1, 2);
    const GenericIf::Ptr face = genericIf(gone);
    iterator = face->attributeIterator(face->attributeId("price"));
  }
  EXPECT_EQ(text(iterator->obj()), "2");
}

TEST_F(GenericIfTest, membersOfAConstWalkAreConst) {
  library_->shelfIs(1, String8("a"));
  const AttributeId shelf = face_->attributeId("shelf");
  face_->attributeIterator(shelf)->obj()->set("width", U32{1});
  EXPECT_EQ(misuse([&] { face_->attributeIteratorConst(shelf)->obj()->set("width", U32{2}); }),
            "Immutable attempting to modify a const instance");
  EXPECT_EQ(library_->shelf(1)->width(), 1U);
}

TEST_F(GenericIfTest, aConstInstanceIsReadOnly) {
  const GenericIf::Ptr face = genericIf(Ptr<const Library>(library_));
  const std::string refused = "Immutable attempting to modify a const instance";
  EXPECT_TRUE(face->isConst());
  EXPECT_EQ(text(face->get("visitors")), "0");
  EXPECT_EQ(text(face->call("add", {U32{1}, U32{1}})), "2");
  EXPECT_EQ(misuse([&] { face->set("visitors", U32{1}); }), refused);
  EXPECT_EQ(misuse([&] { face->call("close"); }), refused);
  GenericIf::Ptr result;
  for (U32 kind = 128; kind < 256; ++kind) {
    EXPECT_EQ(
        misuse([&] {
          face->attributeOp({face->attributeId("loan"), static_cast<U8>(kind)}, nullptr, result);
        }),
        refused)
        << kind;
  }
  EXPECT_FALSE(face->clone()->isConst());
  const GenericIf::Ptr other = genericIf(Ptr<const Shelf>(new Shelf(1, "a")));
  EXPECT_EQ(misuse([&] { op("spare", AttributeOp::insert, other); }), refused)
      << "a const object does not become another one's own";
}

TEST_F(GenericIfTest, misuseNamesTheAttribute) {
  EXPECT_EQ(misuse([&] { face_->get("visitor"); }), "Range visitor");
  EXPECT_EQ(misuse([&] { face_->attributeFace(99); }), "Range unknown");
  EXPECT_EQ(misuse([&] { face_->set("isOpen", true); }), "Immutable isOpen");
  EXPECT_EQ(misuse([&] { face_->set("name", "x"); }), "Immutable name");
  EXPECT_EQ(misuse([&] { op("visitors", AttributeOp::remove); }), "Nondeletable visitors");
  EXPECT_EQ(misuse([&] { op("visitors", AttributeOp::count); }), "OpNotSupported visitors");
  EXPECT_EQ(misuse([&] { op("loan", AttributeOp::enqueue, genericIf("x")); }),
            "OpNotSupported loan");
  EXPECT_EQ(misuse([&] { op("loan", 200); }), "OpNotSupported loan");
  EXPECT_EQ(misuse([&] { op("add", AttributeOp::get); }), "OpNotSupported add");
  EXPECT_EQ(misuse([&] { op("close", AttributeOp::callConst); }), "OpNotSupported close");
  EXPECT_EQ(misuse([&] { face_->attributeIterator(face_->attributeId("visitors")); }),
            "OpNotSupported visitors");
  EXPECT_EQ(misuse([&] { face_->set("visitors", true); }), "Range value");
  EXPECT_EQ(misuse([&] { face_->set("visitors", "many"); }),
            "Range value: expected a number, found \"many\"");
  EXPECT_EQ(misuse([&] { op("visitors", AttributeOp::set); }), "Range value");
  EXPECT_EQ(misuse([&] { face_->call("add", {U32{1}}); }), "Range right");
  EXPECT_EQ(misuse([&] { face_->call("add", {U32{1}, U32{2}, U32{3}}); }), "Range add");
  EXPECT_EQ(misuse([&] { face_->call("add", {{"middle", U32{1}}}); }), "Range middle");
  EXPECT_EQ(misuse([&] { face_->call("widest", {library_, library_}); }), "Range first");
  EXPECT_EQ(library_->visitors(), 0U);
}

TEST_F(GenericIfTest, aClassWithoutAFaceShowsThatOfItsBase) {
  class Annex : public Library {
   public:
    using Library::Library;
  };

  const GenericIf::Ptr face = genericIf(Library::Ptr(new Annex("annex")));
  EXPECT_EQ(text(face->get("name")), "'annex'");
}

TEST(GenericIfList, tellsItsMembers) {
  GenericIf::List_ list({U32{1}, "two"});
  list.append(true);
  EXPECT_EQ(list.strRep(), "[1, 'two', True]");
  EXPECT_STREQ(list.type().name, "Vellor::GenericIf::List_");
}

}  // namespace
}  // namespace Vellor::Testing
