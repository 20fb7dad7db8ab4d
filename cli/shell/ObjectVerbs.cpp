// get, set, del and call: whatever a type's face offers, by name.

#include "agent/audit/ForkedCall.h"
#include "cli/OptionWords.h"
#include "cli/Text.h"
#include "cli/shell/ArgumentWords.h"
#include "cli/shell/ObjectPath.h"
#include "cli/shell/ObjectText.h"
#include "cli/shell/ShellError.h"
#include "cli/shell/Verbs.h"
#include "cli/shell/Words.h"
#include "framework/Ferrix/Ferrix.h"

#include <cstdio>
#include <exception>
#include <functional>
#include <optional>
#include <utility>

namespace Quarle::Cli {

namespace {

using Vellor::AttributeFace;
using Vellor::AttributeId;
using Vellor::AttributeKind;
using Vellor::AttributeOp;
using Vellor::GenericIf;

// Members that are listed without --all.
constexpr U32 kFirstMembers = 20;

/// Numbers and truth as such, all else as text without its quotes.
Json jsonOf(const std::string& text) {
  if (const auto number = parseNumber<U64>(text)) {
    return *number;
  }
  if (text == "True" || text == "False") {
    return text == "True";
  }
  if (text == "None") {
    return nullptr;
  }
  const bool isQuoted = text.size() >= 2 && text.front() == '\'' && text.back() == '\'';
  return isQuoted ? text.substr(1, text.size() - 2) : text;
}

ObjectPlace attributePlace(std::string path, const GenericIf::Ptr& holder, AttributeId id) {
  ObjectPlace place;
  place.path = std::move(path);
  place.holder = holder;
  place.attribute = id;
  return place;
}

std::optional<U32> countOf(const ObjectPlace& place) {
  try {
    GenericIf::Ptr result;
    place.holder->attributeOp({place.attribute, AttributeOp::count}, nullptr, result);
    return parseNumber<U32>(result->strRep().str());
  } catch (const Vellor::Exception&) {
    return std::nullopt;
  }
}

void describeOperation(const AttributeFace& face, Output& output) {
  if (!output.json()) {
    output.line("  " + signatureOf(face));
    return;
  }
  Json arguments = Json::array();
  for (U32 i = 0; i < face.arguments; ++i) {
    arguments.push_back(
        {{"name", face.argument[i].name}, {"type", typeText(typeOf(face.argument[i].type))}});
  }
  output.object({{"name", face.name},
                 {"kind", "operation"},
                 {"arguments", std::move(arguments)},
                 {"result", typeText(typeOf(face.type))},
                 {"const", face.isConstOperation}});
}

void describeAttribute(const Session& session,
                       const GenericIf::Ptr& object,
                       AttributeId id,
                       Output& output) {
  const AttributeFace& face = object->attributeFace(id);
  const std::string name(face.name);
  const ObjectPlace place = attributePlace(name, object, id);
  if (place.isCollection()) {
    const std::optional<U32> count = countOf(place);
    if (output.json()) {
      output.object({{"name", name},
                     {"kind", Vellor::attributeKindName(face.kind)},
                     {"key", typeText(typeOf(face.keyType))},
                     {"type", typeText(typeOf(face.type))},
                     {"count", count ? Json(*count) : Json()}});
    } else {
      output.line(format("%-32s %s", name.c_str(),
                         count ? (grouped(*count) + " members").c_str() : "by index"));
    }
    return;
  }
  std::optional<std::string> text;
  try {
    text = textOf(session, place.read());
  } catch (const ShellError&) {
    // Its type has no face.
  }
  if (output.json()) {
    output.object({{"name", name},
                   {"kind", Vellor::attributeKindName(face.kind)},
                   {"type", text ? Json(typeText(typeOf(face.type))) : Json()},
                   {"value", text ? jsonOf(*text) : Json()}});
  } else {
    output.line(format("%-32s %s", name.c_str(), text ? text->c_str() : "(no face)"));
  }
}

void describe(const Session& session, const GenericIf::Ptr& object, Output& output) {
  bool isFirstOperation = true;
  for (AttributeId id = 0; id < object->attributes(); ++id) {
    const AttributeFace& face = object->attributeFace(id);
    if (face.kind != AttributeKind::operation) {
      describeAttribute(session, object, id, output);
      continue;
    }
    if (std::exchange(isFirstOperation, false) && !output.json()) {
      output.line("operations:");
    }
    describeOperation(face, output);
  }
}

/// A value as its text, an object by its attributes.
void tell(const Session& session,
          const std::string& path,
          const GenericIf::Ptr& face,
          Output& output) {
  const std::string text = textOf(session, face);
  const bool isObject = dynamic_cast<const Vellor::GenericIfPtrInterface*>(face.get()) != nullptr;
  // Some values have contents and no text for them.
  if (face != nullptr && !face->isNull() && face->attributes() != 0 &&
      (isObject || text == "None")) {
    describe(session, face, output);
  } else if (output.json()) {
    output.object({{"path", path}, {"value", jsonOf(text)}});
  } else {
    output.line(text);
  }
}

void listMembers(const Session& session, const ObjectPlace& place, bool all, Output& output) {
  const std::optional<U32> count = countOf(place);
  U32 told = 0;
  GenericIf::Iterator_::Ptr member = membersOf(place);
  for (; member->nonNull() && (all || told < kFirstMembers); member->inc(), ++told) {
    const std::string key = keyTextOf(session, member->key());
    const std::string value = textOf(session, member->obj());
    if (output.json()) {
      output.object({{"key", jsonOf(key)}, {"value", jsonOf(value)}});
    } else {
      output.line(key == value ? key : format("%-32s ", key.c_str()) + value);
    }
  }
  if (member->nonNull() && count && !output.json()) {
    output.line("... " + grouped(*count - told) + " more, with --all");
  }
  if (told == 0 && !output.json()) {
    output.line("no members");
  }
}

/// Does one operation and tells misuse in one line.
GenericIf::Ptr operate(const ObjectPlace& place,
                       U8 kind,
                       const GenericIf::Ptr& arg,
                       const std::string& expected) {
  try {
    GenericIf::Ptr result;
    place.holder->attributeOp({place.attribute, kind}, arg, result);
    return result;
  } catch (const Vellor::ImmutableAttrMutationException&) {
    throw ShellError(place.path + " cannot be changed, it is " +
                     Vellor::attributeKindName(place.face().kind));
  } catch (const Vellor::NondeletableAttrException&) {
    throw ShellError(place.path + " cannot be removed, it is " +
                     Vellor::attributeKindName(place.face().kind));
  } catch (const Vellor::OpNotSupportedException&) {
    throw ShellError(place.path + " does not offer that, it is " +
                     Vellor::attributeKindName(place.face().kind));
  } catch (const Vellor::RangeException& misuse) {
    throw ShellError(place.path + ": " + withExpected(misuse.message().str(), expected));
  }
}

/// An attribute of an object, or a member of one's collection.
ObjectPlace changeable(const Session& session, const std::string& path) {
  ObjectPlace place = placeOf(session, path);
  if (place.root != nullptr) {
    throw ShellError(path + " stands for the whole session, expected one of its attributes");
  }
  if (!place.isOfObject()) {
    const std::size_t part = place.path.rfind('.');
    throw ShellError(path +
                     " is part of a value, expected the whole: " + place.path.substr(0, part));
  }
  if (place.isCollection()) {
    throw ShellError(path + " is a collection, expected a member: " + path + "[" +
                     typeText(typeOf(place.face().keyType)) + "]");
  }
  return place;
}

void requireWords(const Command& command, std::size_t least, std::size_t most, const char* form) {
  if (command.words.size() < least || command.words.size() > most) {
    throw ShellError(std::to_string(command.words.size()) + " words, expected " + form);
  }
}

/// An operation as a place, so that misuse is told in the same way.
ObjectPlace operationOf(const ObjectPlace& place,
                        const GenericIf::Ptr& object,
                        const std::string& name) {
  for (AttributeId id = 0; id < object->attributes(); ++id) {
    if (object->attributeFace(id).name == name &&
        object->attributeFace(id).kind == AttributeKind::operation) {
      return attributePlace(place.path + "." + name, object, id);
    }
  }
  const std::vector<std::string> names = operationNames(*object);
  throw ShellError(place.path + " has no operation " + Agent::inQuotes(name) +
                   (names.empty() ? ""
                                  : ", expected one of " + std::to_string(names.size()) +
                                        " names of " + typeText(&object->type())) +
                   nearestText(name, names));
}

/// Tries in a child first what may end its process, as a value or an argument does that breaks what
/// the library relies on. A trial would reach an image that the session works on, so that there
/// only what changes nothing is tried.
void requireReturn(const Session& session,
                   const ObjectPlace& place,
                   U8 kind,
                   const GenericIf::Ptr& arguments) {
  if (session.worksOnImage() && AttributeOp{.kind = kind}.mutates()) {
    return;
  }
  const Agent::ForkedCall forked = Agent::callForked([&] {
    // What it traces is told when it is done in earnest.
    Ferrix::traceFileDel();
    try {
      operate(place, kind, arguments, "");
    } catch (const std::exception&) {
      // As is its misuse.
    }
  });
  if (!forked.returned()) {
    throw ShellError(place.path +
                     " would end the process, expected what it can serve: " + forked.reason());
  }
}

/// Calls the audit of one route, which ends its process at the first fault, in a child.
Verdict verify(const ObjectPlace& operation,
               const GenericIf::Ptr& arguments,
               const std::string& expected,
               Output& output) {
  const Agent::ForkedCall forked =
      Agent::callForked([&] { operate(operation, AttributeOp::callConst, arguments, expected); });
  // Its trace goes where the trace of all else goes.
  std::fputs(forked.told.c_str(), stderr);
  if (forked.end == Agent::ForkedCall::End::raised) {
    throw ShellError(forked.words);
  }
  if (output.json()) {
    output.object(
        {{"path", operation.path}, {"passed", forked.returned()}, {"text", forked.reason()}});
  } else {
    output.line(forked.returned() ? "passed" : forked.reason());
  }
  return forked.returned() ? Verdict::done : Verdict::faulty;
}

}  // namespace

Verdict get(Session& session, const Command& command, Output& output) {
  requireWords(command, 0, 1, "get [PATH], a member as PATH[KEY]");
  if (command.words.empty()) {
    for (const std::string& root : rootPaths()) {
      if (output.json()) {
        output.object({{"path", root}, {"type", typeText(&placeOf(session, root).root->type())}});
      } else {
        output.line(root);
      }
    }
    return Verdict::done;
  }
  const ObjectPlace place = placeOf(session, command.words[0]);
  if (place.isCollection()) {
    if (place.face().walk == nullptr) {
      throw ShellError(place.path + " has no list of members, expected " + place.path + "[" +
                       typeText(typeOf(place.face().keyType)) + "]");
    }
    listMembers(session, place, command.all, output);
  } else {
    tell(session, place.path, place.read(), output);
  }
  return Verdict::done;
}

Verdict set(Session& session, const Command& command, Output& output) {
  requireWords(command, 1, 1 + AttributeFace::kMaxArguments, "set PATH VALUE");
  const ObjectPlace place = changeable(session, command.words[0]);
  const Vellor::FwkType* type = typeOf(place.face().type);
  const AttributeKind kind = place.face().kind;
  const bool isChild = kind == AttributeKind::child || kind == AttributeKind::childMap;
  const std::span<const std::string> values = std::span(command.words).subspan(1);
  if (values.size() != 1 && !isChild) {
    throw ShellError(place.path + ": " + std::to_string(values.size()) +
                     " values, expected one of type " + typeText(type));
  }
  std::vector<GenericIf::Argument> arguments;
  if (place.key != nullptr) {
    arguments.emplace_back(place.key);
  }
  std::string expected = "a value of " + typeText(type);
  try {
    if (isChild && !constructorOf(*type).empty()) {
      expected = positionsOf(constructorOf(*type), constructorText(*type));
      addArguments(session, constructorOf(*type), constructorText(*type), values, arguments);
    } else {
      expected = isChild ? "what a new " + typeText(type) + " is made of" : expected;
      for (const std::string& value : values) {
        arguments.emplace_back(faceOf(session, isChild ? nullptr : type, value));
      }
    }
  } catch (const ShellError& error) {
    throw ShellError(place.path + ": " + error.what());
  }
  const GenericIf::Ptr list = new GenericIf::List_(std::move(arguments));
  session.aboutToChange();
  requireReturn(session, place, AttributeOp::set, list);
  operate(place, AttributeOp::set, list, expected);
  if (output.json()) {
    output.object({{"path", place.path}, {"set", true}});
  }
  return Verdict::done;
}

Verdict del(Session& session, const Command& command, Output& output) {
  requireWords(command, 1, 1, "del PATH");
  const ObjectPlace place = changeable(session, command.words[0]);
  if (place.key != nullptr) {
    place.read();
  }
  session.aboutToChange();
  requireReturn(session, place, AttributeOp::remove, place.key);
  operate(place, AttributeOp::remove, place.key, "a member");
  if (output.json()) {
    output.object({{"path", place.path}, {"deleted", true}});
  }
  return Verdict::done;
}

Verdict call(Session& session, const Command& command, Output& output) {
  requireWords(command, 2, command.words.size() + 2, "call PATH OPERATION [ARGUMENT...]");
  const ObjectPlace place = placeOf(session, command.words[0]);
  if (place.isCollection()) {
    throw ShellError(place.path + " is a collection, expected one of its members");
  }
  const GenericIf::Ptr object = place.read();
  if (object == nullptr || object->isNull()) {
    throw ShellError(place.path + " is None, which has no operations");
  }
  const ObjectPlace operation = operationOf(place, object, command.words[1]);
  const AttributeFace& face = operation.face();
  std::vector<GenericIf::Argument> given;
  try {
    addArguments(session, argumentsOf(face), signatureOf(face), std::span(command.words).subspan(2),
                 given);
  } catch (const ShellError& error) {
    throw ShellError(operation.path + ": " + error.what());
  }
  const GenericIf::Ptr arguments = new GenericIf::List_(std::move(given));
  const std::string expected = positionsOf(argumentsOf(face), signatureOf(face));
  output.flush();
  if (face.name == "verifyLpmRoute") {
    return verify(operation, arguments, expected, output);
  }
  const U8 kind = face.isConstOperation ? AttributeOp::callConst : AttributeOp::call;
  if (!face.isConstOperation) {
    session.aboutToChange();
  }
  // One that only prints or dumps may have much to tell.
  const bool onlyTells = face.isConstOperation && typeOf(face.type) == nullptr;
  if (!onlyTells) {
    requireReturn(session, operation, kind, arguments);
  }
  const GenericIf::Ptr result = operate(operation, kind, arguments, expected);
  if (result != nullptr) {
    tell(session, operation.path, result, output);
  } else if (output.json()) {
    output.object({{"path", operation.path}, {"value", nullptr}});
  }
  return Verdict::done;
}

}  // namespace Quarle::Cli
