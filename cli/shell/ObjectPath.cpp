#include "cli/shell/ObjectPath.h"

#include "cli/shell/ObjectText.h"
#include "cli/shell/ShellError.h"
#include "cli/shell/Words.h"

#include <algorithm>
#include <utility>

namespace Quarle::Cli {

namespace {

using Agent::Family;
using Vellor::AttributeId;
using Vellor::AttributeKind;
using Vellor::AttributeOp;
using Vellor::GenericIf;
using Vellor::genericIf;

/// One step of a path: a name, or a key between brackets.
struct Step {
  std::string text;
  bool isKey = false;
};

/// The place of the bracket that closes the one at `begin`, passing over quoted text.
std::size_t closingBracket(const std::string& path, std::size_t begin) {
  U32 depth = 0;
  char quote = 0;
  for (std::size_t i = begin; i < path.size(); ++i) {
    const char c = path[i];
    if (quote != 0) {
      quote = c == quote ? 0 : quote;
    } else if (c == '\'' || c == '"') {
      quote = c;
    } else if (c == '[') {
      ++depth;
    } else if (c == ']' && --depth == 0) {
      return i;
    }
  }
  throw ShellError(Agent::inQuotes(path) + " is not finished, expected ]");
}

std::vector<Step> stepsOf(const std::string& path, std::size_t begin) {
  std::vector<Step> steps;
  while (begin < path.size()) {
    if (path[begin] == '[') {
      const std::size_t end = closingBracket(path, begin);
      steps.push_back({.text = path.substr(begin + 1, end - begin - 1), .isKey = true});
      begin = end + 1;
    } else if (path[begin] == '.') {
      const std::size_t end = std::min(path.find_first_of(".[", begin + 1), path.size());
      steps.push_back({.text = path.substr(begin + 1, end - begin - 1)});
      begin = end;
    } else {
      throw ShellError(Agent::inQuotes(path.substr(begin)) + " in " + Agent::inQuotes(path) +
                       ", expected .NAME or [KEY]");
    }
  }
  return steps;
}

GenericIf::Ptr rootFace(const Session& session, const std::string& root) {
  const std::string owner = root.substr(0, root.find('.'));
  const std::string part = root.substr(owner.size() + 1);
  if (owner == "nexthops") {
    const TarnletNextHop::LpmNextHopSm::Ptr engine = session.nextHopEngine();
    return part == "engine"   ? genericIf(engine)
           : part == "config" ? genericIf(engine->config())
                              : genericIf(engine->status());
  }
  const Tarnlet::LpmSm::Ptr engine = session.engine(owner == "ipv4" ? Family::ipv4 : Family::ipv6);
  return part == "engine"   ? genericIf(engine)
         : part == "config" ? genericIf(engine->config())
                            : genericIf(engine->status());
}

/// The root that the path begins with, or a `ShellError`.
std::string rootOf(const std::string& path) {
  for (const std::string& root : rootPaths()) {
    const bool isIt =
        path.compare(0, root.size(), root) == 0 &&
        (path.size() == root.size() || path[root.size()] == '.' || path[root.size()] == '[');
    if (isIt) {
      return root;
    }
  }
  const std::size_t dot = path.find('.');
  const std::string begin =
      dot == std::string::npos ? path : path.substr(0, path.find_first_of(".[", dot + 1));
  throw ShellError("there is no " + Agent::inQuotes(begin) +
                   ", expected ipv4, ipv6 or nexthops with .config, .status or .engine" +
                   nearestText(begin, rootPaths()));
}

[[noreturn]] void raiseIsOperation(const std::string& path, const std::string& name) {
  throw ShellError(path + "." + name + " is an operation, expected: call " + path + " " + name);
}

AttributeId attributeOf(const GenericIf& holder, const std::string& path, const std::string& name) {
  for (AttributeId id = 0; id < holder.attributes(); ++id) {
    if (holder.attributeString(id) == Vellor::String8(name)) {
      if (holder.attributeFace(id).kind == AttributeKind::operation) {
        raiseIsOperation(path, name);
      }
      return id;
    }
  }
  const std::vector<std::string> names = attributeNames(holder);
  throw ShellError(path + " has no attribute " + Agent::inQuotes(name) +
                   (names.empty()
                        ? ", it is a plain " + typeText(&holder.type())
                        : ", expected one of " + std::to_string(names.size()) + " names of " +
                              typeText(&holder.type()) + nearestText(name, names)));
}

/// A key without a way back from its text is found by the text.
GenericIf::Ptr keyByText(const Session& session,
                         const ObjectPlace& place,
                         const std::string& text) {
  const GenericIf::Iterator_::Ptr member = membersOf(place);
  for (; member->nonNull(); member->inc()) {
    GenericIf::Ptr key = member->key();
    if (keyTextOf(session, key) == text) {
      return key;
    }
  }
  throw ShellError(place.path + " has no member " + text + ", expected a key that get lists");
}

GenericIf::Ptr keyOf(const Session& session, const ObjectPlace& place, const std::string& text) {
  const Vellor::FwkType* type = place.face().keyType();
  if (typeText(type) == "NhiInfoKey" && !isPath(text)) {
    return keyByText(session, place, text);
  }
  return faceOf(session, type, text);
}

}  // namespace

bool isCollection(AttributeKind kind) {
  switch (kind) {
    case AttributeKind::map:
    case AttributeKind::childMap:
    case AttributeKind::tree:
    case AttributeKind::queue:
    case AttributeKind::array:
    case AttributeKind::view:
      return true;
    case AttributeKind::value:
    case AttributeKind::constant:
    case AttributeKind::computed:
    case AttributeKind::child:
    case AttributeKind::operation:
      return false;
  }
  return false;
}

bool ObjectPlace::isCollection() const {
  return root == nullptr && key == nullptr && Cli::isCollection(face().kind);
}

bool ObjectPlace::isOfObject() const {
  return dynamic_cast<const Vellor::GenericIfPtrInterface*>(holder.get()) != nullptr;
}

GenericIf::Ptr ObjectPlace::read() const {
  if (root != nullptr) {
    return root;
  }
  try {
    GenericIf::Ptr result;
    const AttributeKind kind = face().kind;
    if (kind == AttributeKind::map || kind == AttributeKind::childMap ||
        kind == AttributeKind::tree) {
      holder->attributeOp({attribute, AttributeOp::isMember}, key, result);
      if (result->strRep() != Vellor::String8("True")) {
        throw ShellError(path + " is not there, expected a key that get lists");
      }
    }
    holder->attributeOp({attribute, AttributeOp::get}, key, result);
    return result;
  } catch (const Vellor::OpNotSupportedException&) {
    throw ShellError(path + " cannot be shown: its type has no face");
  } catch (const Vellor::RangeException& misuse) {
    throw ShellError(path + ": " +
                     withExpected(misuse.message().str(),
                                  key == nullptr ? "an attribute that can be read"
                                                 : "a key of type " + typeText(face().keyType())));
  }
}

const std::vector<std::string>& rootPaths() {
  static const std::vector<std::string> kRoots = {
      "ipv4.config", "ipv4.status",     "ipv4.engine",     "ipv6.config",    "ipv6.status",
      "ipv6.engine", "nexthops.config", "nexthops.status", "nexthops.engine"};
  return kRoots;
}

bool isPath(const std::string& text) {
  return text.starts_with("ipv4.") || text.starts_with("ipv6.") || text.starts_with("nexthops.");
}

std::vector<std::string> attributeNames(const GenericIf& face) {
  std::vector<std::string> names;
  for (AttributeId id = 0; id < face.attributes(); ++id) {
    if (face.attributeFace(id).kind != AttributeKind::operation) {
      names.emplace_back(face.attributeString(id).str());
    }
  }
  return names;
}

std::vector<std::string> operationNames(const GenericIf& face) {
  std::vector<std::string> names;
  for (AttributeId id = 0; id < face.attributes(); ++id) {
    if (face.attributeFace(id).kind == AttributeKind::operation) {
      names.emplace_back(face.attributeString(id).str());
    }
  }
  return names;
}

GenericIf::Iterator_::Ptr membersOf(const ObjectPlace& place) {
  return place.holder->attributeIterator(place.attribute);
}

ObjectPlace placeOf(const Session& session, const std::string& path) {
  const std::string root = rootOf(path);
  ObjectPlace place;
  place.path = root;
  place.root = rootFace(session, root);
  for (const Step& step : stepsOf(path, root.size())) {
    if (step.isKey) {
      if (place.root != nullptr || !place.isCollection()) {
        throw ShellError(place.path + " is no collection, expected .NAME instead of [" + step.text +
                         "]");
      }
      place.key = keyOf(session, place, step.text);
      place.path += "[" + step.text + "]";
      continue;
    }
    if (place.root == nullptr && place.isCollection()) {
      throw ShellError(place.path + " is a collection, expected a key: " + place.path + "[" +
                       typeText(place.face().keyType()) + "]." + step.text);
    }
    GenericIf::Ptr holder = place.read();
    if (holder == nullptr || holder->isNull()) {
      throw ShellError(place.path + " is None, so there is no " + place.path + "." + step.text);
    }
    place.attribute = attributeOf(*holder, place.path, step.text);
    place.holder = std::move(holder);
    place.root = nullptr;
    place.key = nullptr;
    place.path += "." + step.text;
  }
  return place;
}

}  // namespace Quarle::Cli
