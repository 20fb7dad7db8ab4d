#include "cli/shell/ObjectText.h"

#include "cli/OptionWords.h"
#include "cli/shell/ObjectPath.h"
#include "cli/shell/ShellError.h"
#include "cli/shell/Words.h"

#include <array>
#include <limits>
#include <optional>
#include <utility>

namespace Quarle::Cli {

namespace {

using Agent::Family;
using Vellor::GenericIf;
using Vellor::genericIf;
using Vellor::GenericIfPtrInterface;

constexpr std::array kFamilies = {std::pair(Family::ipv4, "ipv4"), std::pair(Family::ipv6, "ipv6")};

Agent::RouteKey keyOf(const Tarnlet::LpmPrefix& prefix) {
  const bool isV4 = dynamic_cast<const Tarnlet::LpmPrefixV4*>(&prefix) != nullptr;
  return Agent::routeKeyOf(isV4 ? Family::ipv4 : Family::ipv6, prefix);
}

/// "" when it belongs to neither engine.
std::string pathOf(const Session& session, const Tarnlet::PrefixTable& table) {
  for (const auto& [family, name] : kFamilies) {
    if (session.engine(family)->prefixTable(table.tableId()).get() == &table) {
      return std::string(name) + ".engine.prefixTable[" + std::to_string(table.tableId().value()) +
             "]";
    }
  }
  return "";
}

std::string pathOf(const Session& session, const Tarnlet::SubTrie& subTrie) {
  const Tarnlet::PrefixTable* table = subTrie.table();
  if (table == nullptr) {
    return "";
  }
  const std::string tablePath = pathOf(session, *table);
  if (tablePath.empty() || table->subTrie(subTrie.index()).get() != &subTrie) {
    return "";
  }
  return tablePath + ".subTrie[" + std::to_string(subTrie.index().value()) + "]";
}

/// "" for an object that is called nothing but its type.
std::string nameOf(const Session& session, Vellor::PtrInterface* object) {
  if (const auto* prefix = dynamic_cast<const Tarnlet::LpmPrefix*>(object)) {
    return Agent::toText(keyOf(*prefix));
  }
  if (const auto* table = dynamic_cast<const Tarnlet::PrefixTable*>(object)) {
    return pathOf(session, *table);
  }
  if (const auto* subTrie = dynamic_cast<const Tarnlet::SubTrie*>(object)) {
    return pathOf(session, *subTrie);
  }
  if (const auto* info = dynamic_cast<const Tarnlet::NhiInfo*>(object)) {
    return info->str().str();
  }
  for (const std::string& root : rootPaths()) {
    const auto face = placeOf(session, root).read();
    if (static_cast<const GenericIfPtrInterface&>(*face).object().get() == object) {
      return root;
    }
  }
  return "";
}

template <class Value>
const Value* valueIn(const GenericIf::Ptr& face) {
  const auto* typed = dynamic_cast<const Vellor::ValueFace<Value>*>(face.get());
  return typed == nullptr ? nullptr : &typed->value();
}

template <class Key>
std::string routeText(Family family, const Key& key) {
  if constexpr (std::is_same_v<Key, Dunlix::VrfAndPrefix>) {
    return Agent::toText(Agent::routeKeyOf(family, *Tarnlet::lpmPrefixV4Factory(key)));
  } else {
    return Agent::toText(Agent::routeKeyOf(family, *Tarnlet::lpmPrefixV6Factory(key)));
  }
}

/// "40,4" as two numbers.
template <class First>
std::optional<std::pair<First, U16>> pairOf(const std::string& text) {
  const std::size_t comma = text.find(',');
  if (comma == std::string::npos) {
    return std::nullopt;
  }
  const auto first = parseNumber<First>(std::string_view(text).substr(0, comma));
  const auto second = parseNumber<U16>(std::string_view(text).substr(comma + 1));
  if (!first || !second) {
    return std::nullopt;
  }
  return std::pair(*first, *second);
}

template <class Value>
bool isType(const Vellor::FwkType* type) {
  using Vellor::vellorValueType;
  return type == &vellorValueType(static_cast<const Value*>(nullptr));
}

/// A number that the type has no room for would be cut to it.
template <class Value, class Number = Value>
void requireRange(const Vellor::FwkType* type, const std::string& text) {
  const std::optional<U64> number = parseNumber<U64>(text);
  constexpr U64 kMost = std::numeric_limits<Number>::max();
  if (isType<Value>(type) && number && *number > kMost) {
    throw ShellError(Agent::inQuotes(text) + ", expected a number from 0 to " +
                     std::to_string(kMost));
  }
}

/// A name of an enumeration that has none like it.
template <class Value>
void requireEnumerator(const Vellor::FwkType* type, const std::string& text) {
  if (!isType<Value>(type)) {
    return;
  }
  std::vector<std::string> names;
  std::string list;
  // A number without a name reads "Type(number)", between the same quotes.
  for (U32 number = 0;; ++number) {
    const std::string form = valueToStrep(static_cast<Value>(number)).str();
    if (form.find('(') != std::string::npos) {
      break;
    }
    names.push_back(form.substr(1, form.size() - 2));
    if (text == names.back() || text == form) {
      return;
    }
    list += (list.empty() ? "" : ", ") + names.back();
  }
  throw ShellError(Agent::inQuotes(text) + ", expected one of " + list + nearestText(text, names));
}

/// The forms of types with few values, which the library would cut or refuse by the type's name.
void requireFit(const Vellor::FwkType* type, const std::string& text) {
  requireEnumerator<Tarnlet::KeyType>(type, text);
  requireEnumerator<Tarnlet::PrefixTableType>(type, text);
  requireEnumerator<Tarnlet::SubTrieMode>(type, text);
  requireEnumerator<Tarnlet::CommandType>(type, text);
  requireEnumerator<Tarnlet::RestartMode>(type, text);
  requireEnumerator<Tarnlet::RouteReturnCode>(type, text);
  requireEnumerator<Brumel::HBitmap::BitState>(type, text);
  requireEnumerator<Corsel::AddressFamily>(type, text);
  requireRange<U8>(type, text);
  requireRange<U16>(type, text);
  requireRange<U32>(type, text);
  requireRange<Tarnlet::NhiTileIdx, U8>(type, text);
  requireRange<Tarnlet::PrefixTableIdx, U32>(type, text);
  requireRange<TarnletNextHop::Nway, U16>(type, text);
  requireRange<TarnletNextHop::NextHopTableIdx, U32>(type, text);
}

bool derivesFrom(const Vellor::FwkType* type, const Vellor::FwkType& base) {
  while (type != nullptr && type != &base) {
    type = type->base;
  }
  return type != nullptr;
}

GenericIf::Ptr routeFace(Family family, const std::string& text) {
  const Agent::RouteKey key = routeOf(wordsOf(text));
  if (key.prefix.family != family) {
    throw ShellError(Agent::inQuotes(text) + " is of the other family, expected " +
                     Agent::familyName(family));
  }
  return family == Family::ipv6 ? genericIf(Agent::vrfAndIp6PrefixOf(key))
                                : genericIf(Agent::vrfAndPrefixOf(key));
}

bool looksLikeRoute(const std::string& text) {
  return text.find('/') != std::string::npos && text.find('[') == std::string::npos;
}

GenericIf::Ptr objectFace(const Session& session,
                          const Vellor::FwkType* type,
                          const std::string& text) {
  if (looksLikeRoute(text)) {
    // Raises what is wrong with it.
    routeOf(wordsOf(text));
  }
  const Vellor::Ptr<Vellor::PtrInterface> object = objectOf(session, text);
  if (object != nullptr) {
    return genericIf(object);
  }
  throw ShellError("there is no object " + Agent::inQuotes(text) + ", expected " +
                   (derivesFrom(type, Tarnlet::LpmPrefix::kVellorType_)
                        ? "PREFIX or [vrf N PREFIX] of a prefix that the configuration has"
                        : "the path of a " + typeText(type)));
}

}  // namespace

std::string typeText(const Vellor::FwkType* type) {
  if (type == nullptr) {
    return "nothing";
  }
  const std::string name = type->name;
  const std::size_t colon = name.rfind("::");
  return colon == std::string::npos ? name : name.substr(colon + 2);
}

std::string textOf(const Session& session, const GenericIf::Ptr& face) {
  if (face == nullptr || face->isNull()) {
    return "None";
  }
  if (const auto* held = dynamic_cast<const GenericIfPtrInterface*>(face.get())) {
    const std::string name = nameOf(session, held->object().get());
    return name.empty() ? typeText(&held->type()) : name;
  }
  return face->strRep().str();
}

std::string keyTextOf(const Session& session, const GenericIf::Ptr& face) {
  if (const auto* key = valueIn<Dunlix::VrfAndPrefix>(face)) {
    return routeText(Family::ipv4, *key);
  }
  if (const auto* key = valueIn<Dunlix::VrfAndIp6Prefix>(face)) {
    return routeText(Family::ipv6, *key);
  }
  if (const auto* key = valueIn<Tarnlet::NhiTableIdx>(face)) {
    return key->str().str();
  }
  if (const auto* key = valueIn<Tarnlet::NhiInfoKey>(face)) {
    return key->str().str();
  }
  return textOf(session, face);
}

Vellor::Ptr<Vellor::PtrInterface> objectOf(const Session& session, const std::string& text) {
  if (looksLikeRoute(text)) {
    try {
      return session.find(routeOf(wordsOf(text)));
    } catch (const ShellError&) {
      return nullptr;
    }
  }
  if (!isPath(text)) {
    return nullptr;
  }
  const GenericIf::Ptr face = placeOf(session, text).read();
  const auto* held = dynamic_cast<const GenericIfPtrInterface*>(face.get());
  return held == nullptr ? nullptr : held->object();
}

GenericIf::Ptr faceOf(const Session& session,
                      const Vellor::FwkType* type,
                      const std::string& given) {
  // A route with a VRF needs brackets where it is one word among others.
  const bool isBracketed = given.size() > 2 && given.front() == '[' && given.back() == ']';
  const std::string text = isBracketed ? given.substr(1, given.size() - 2) : given;
  if (text == "None") {
    return genericIf(text.c_str());
  }
  if (type != nullptr && derivesFrom(type, Vellor::PtrInterface::kVellorType_)) {
    return objectFace(session, type, text);
  }
  if (isPath(text)) {
    return placeOf(session, text).read();
  }
  if (isType<Dunlix::VrfAndPrefix>(type) && looksLikeRoute(text)) {
    return routeFace(Family::ipv4, text);
  }
  if (isType<Dunlix::VrfAndIp6Prefix>(type) && looksLikeRoute(text)) {
    return routeFace(Family::ipv6, text);
  }
  if (isType<TarnletNextHop::NextHopBlock>(type) && !text.starts_with("Value")) {
    if (const auto pair = pairOf<U32>(text)) {
      return genericIf(TarnletNextHop::NextHopBlock(pair->first, pair->second));
    }
    throw ShellError(Agent::inQuotes(text) + ", expected a first row and up to 65535 rows: 40,4");
  }
  if (isType<Tarnlet::NhiTableIdx>(type) && !text.starts_with("Value")) {
    if (const auto pair = pairOf<U8>(text)) {
      return genericIf(Tarnlet::NhiTableIdx(pair->first, pair->second));
    }
    throw ShellError(Agent::inQuotes(text) +
                     ", expected a tile up to 255 and an entry up to 65535: 3,40");
  }
  requireFit(type, text);
  if (isType<bool>(type) && (text == "true" || text == "false")) {
    return genericIf(text == "true");
  }
  return genericIf(text.c_str());
}

}  // namespace Quarle::Cli
