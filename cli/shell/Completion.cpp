#include "cli/shell/Completion.h"

#include <algorithm>
#include <exception>

#include "cli/shell/ObjectPath.h"
#include "cli/shell/ObjectText.h"
#include "cli/shell/Verbs.h"
#include "cli/shell/Words.h"

namespace Quarle::Cli {

namespace {

using Vellor::AttributeKind;
using Vellor::GenericIf;

using Candidates = std::vector<std::string>;

// Members that are looked at, and those that are offered.
constexpr U32 kMostSeen = 20'000;
constexpr std::size_t kMostOffered = 100;

/// Those of `names` that go on from `begin`, with `front` before each.
Candidates startingWith(const std::string& begin,
                        const std::vector<std::string>& names,
                        const std::string& front = "") {
  Candidates candidates;
  for (const std::string& name : names) {
    if (name.starts_with(begin)) {
      candidates.push_back(front + name);
    }
  }
  return candidates;
}

/// The bracket that is open at the end of a path, or npos.
std::size_t openBracket(const std::string& path) {
  std::vector<std::size_t> open;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] == '[') {
      open.push_back(i);
    } else if (path[i] == ']' && !open.empty()) {
      open.pop_back();
    }
  }
  return open.empty() ? std::string::npos : open.front();
}

/// The last dot that is not part of a key, or npos.
std::size_t lastDot(const std::string& path) {
  U32 depth = 0;
  std::size_t last = std::string::npos;
  for (std::size_t i = 0; i < path.size(); ++i) {
    depth += path[i] == '[' ? 1 : 0;
    depth -= path[i] == ']' && depth != 0 ? 1 : 0;
    if (path[i] == '.' && depth == 0) {
      last = i;
    }
  }
  return last;
}

Candidates keysOf(const Session& session, const std::string& path, const std::string& begin) {
  const ObjectPlace place = placeOf(session, path);
  if (!place.isCollection() || place.face().walk == nullptr) {
    return {};
  }
  Candidates candidates;
  U32 seen = 0;
  for (GenericIf::Iterator_::Ptr member = membersOf(place);
       member->nonNull() && seen < kMostSeen && candidates.size() < kMostOffered;
       member->inc(), ++seen) {
    const std::string key = keyTextOf(session, member->key());
    if (key.starts_with(begin)) {
      candidates.push_back(key);
    }
  }
  return candidates;
}

Candidates attributesOf(const Session& session, const std::string& path, const std::string& begin) {
  const ObjectPlace place = placeOf(session, path);
  if (place.isCollection()) {
    return {};
  }
  const GenericIf::Ptr face = place.read();
  Candidates candidates;
  for (Vellor::AttributeId id = 0; face != nullptr && id < face->attributes(); ++id) {
    const Vellor::AttributeFace& attribute = face->attributeFace(id);
    if (attribute.kind != AttributeKind::operation && attribute.name.starts_with(begin)) {
      candidates.push_back(path + "." + std::string(attribute.name) +
                           (isCollection(attribute.kind) ? "[" : ""));
    }
  }
  return candidates;
}

Candidates paths(const Session& session, const std::string& begin) {
  Candidates roots = startingWith(begin, rootPaths());
  const bool isRoot = roots.size() == 1 && roots[0] == begin;
  if (!roots.empty() && !isRoot) {
    return roots;
  }
  const std::size_t bracket = openBracket(begin);
  if (bracket != std::string::npos) {
    Candidates candidates = keysOf(session, begin.substr(0, bracket), begin.substr(bracket + 1));
    for (std::string& key : candidates) {
      key.insert(0, begin, 0, bracket + 1).append("]");
    }
    return candidates;
  }
  if (isRoot || begin.ends_with("]")) {
    return {begin + "."};
  }
  const std::size_t dot = lastDot(begin);
  return dot == std::string::npos
             ? Candidates{}
             : attributesOf(session, begin.substr(0, dot), begin.substr(dot + 1));
}

/// Routes of the configurations that go on from `begin`.
Candidates routes(const Session& session, const std::string& begin) {
  Candidates candidates;
  for (const char* path : {"ipv4.config.request", "ipv6.config.request"}) {
    const Candidates more = keysOf(session, path, begin);
    candidates.insert(candidates.end(), more.begin(), more.end());
  }
  return candidates;
}

/// Operations of an object, and then the names of an operation's arguments.
Candidates calls(const Session& session,
                 const std::vector<std::string>& words,
                 const std::string& begin) {
  if (words.size() == 1) {
    return paths(session, begin);
  }
  const GenericIf::Ptr object = placeOf(session, words[1]).read();
  if (words.size() == 2) {
    return startingWith(begin, operationNames(*object));
  }
  const Vellor::AttributeFace& face =
      object->attributeFace(object->attributeId(Vellor::String8(words[2])));
  std::vector<std::string> names;
  for (U32 i = 0; i < face.arguments; ++i) {
    names.push_back(std::string(face.argument[i].name) + "=");
  }
  const std::size_t equals = begin.find('=');
  if (equals != std::string::npos) {
    Candidates candidates = paths(session, begin.substr(equals + 1));
    for (std::string& candidate : candidates) {
      candidate.insert(0, begin, 0, equals + 1);
    }
    return candidates;
  }
  Candidates candidates = startingWith(begin, names);
  if (!begin.empty()) {
    const Candidates more = paths(session, begin);
    candidates.insert(candidates.end(), more.begin(), more.end());
  }
  return candidates;
}

Candidates traceWords(const std::vector<std::string>& words, const std::string& begin) {
  switch (words.size()) {
    case 1:
      return startingWith(begin, {"set", "show"});
    case 2:
      return words[1] == "set" ? startingWith(begin, traceUnits()) : Candidates{};
    case 3:
      return words[1] == "set" ? startingWith(begin, {"all", "off"}) : Candidates{};
    default:
      return {};
  }
}

Candidates candidatesOf(const Session& session,
                        const std::vector<std::string>& verbs,
                        const std::vector<std::string>& words,
                        const std::string& begin) {
  if (words.empty()) {
    return startingWith(begin, verbs);
  }
  if (begin.starts_with("--")) {
    return startingWith(begin, {"--all", "--json"});
  }
  const std::string& verb = words[0];
  if (verb == "get" || verb == "set" || verb == "del") {
    return words.size() == 1 ? paths(session, begin) : Candidates{};
  }
  if (verb == "call") {
    return calls(session, words, begin);
  }
  if (verb == "trace") {
    return traceWords(words, begin);
  }
  if (verb == "show" && words.size() == 1) {
    return startingWith(begin, showTopics());
  }
  if (verb == "audit" && words.size() == 1 && begin.size() <= 3 &&
      std::string("all").starts_with(begin)) {
    return {"all"};
  }
  const bool takesRoute = (words.size() == 1 && (verb == "audit" || verb == "why")) ||
                          (words.size() == 2 && verb == "show" && words[1] == "route");
  return takesRoute && !begin.empty() ? routes(session, begin) : Candidates{};
}

}  // namespace

std::vector<std::string> completionsOf(const Session& session,
                                       const std::vector<std::string>& verbs,
                                       const std::string& line) {
  const std::size_t last = lastWordOf(line);
  Candidates candidates;
  try {
    candidates = candidatesOf(session, verbs, wordsOf(line.substr(0, last)), line.substr(last));
  } catch (const std::exception&) {
    // A line that leads nowhere has nothing to go on with.
    return {};
  }
  std::sort(candidates.begin(), candidates.end());
  return candidates;
}

}  // namespace Quarle::Cli
