#include "cli/shell/ObjectText.h"

#include "cli/OptionWords.h"
#include "cli/shell/ObjectPath.h"
#include "cli/shell/ShellError.h"
#include "cli/shell/Words.h"

#include <array>
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
  const std::string tablePath = table == nullptr ? "" : pathOf(session, *table);
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
std::optional<std::pair<U32, U32>> pairOf(const std::string& text) {
  const std::size_t comma = text.find(',');
  if (comma == std::string::npos) {
    return std::nullopt;
  }
  const auto first = parseNumber<U32>(std::string_view(text).substr(0, comma));
  const auto second = parseNumber<U16>(std::string_view(text).substr(comma + 1));
  if (!first || !second) {
    return std::nullopt;
  }
  return std::pair<U32, U32>(*first, *second);
}

template <class Value>
bool isType(const Vellor::FwkType* type) {
  using Vellor::vellorValueType;
  return type == &vellorValueType(static_cast<const Value*>(nullptr));
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
  if (family == Family::ipv6) {
    return genericIf(
        Dunlix::VrfAndIp6Prefix(key.vrf, Corsel::Ip6Prefix(key.prefix.address, key.prefix.length)));
  }
  const auto& bytes = key.prefix.address;
  const U32 address = U32{bytes[0]} << 24 | U32{bytes[1]} << 16 | U32{bytes[2]} << 8 | bytes[3];
  return genericIf(Dunlix::VrfAndPrefix(key.vrf, Corsel::Prefix(address, key.prefix.length)));
}

bool looksLikeRoute(const std::string& text) {
  return text.find('/') != std::string::npos && text.find('[') == std::string::npos;
}

GenericIf::Ptr objectFace(const Session& session,
                          const Vellor::FwkType* type,
                          const std::string& text) {
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
  if (const auto pair = pairOf(text)) {
    if (isType<TarnletNextHop::NextHopBlock>(type)) {
      return genericIf(TarnletNextHop::NextHopBlock(pair->first, static_cast<U16>(pair->second)));
    }
    if (isType<Tarnlet::NhiTableIdx>(type)) {
      return genericIf(
          Tarnlet::NhiTableIdx(static_cast<U8>(pair->first), static_cast<U16>(pair->second)));
    }
  }
  if (isType<bool>(type) && (text == "true" || text == "false")) {
    return genericIf(text == "true");
  }
  return genericIf(text.c_str());
}

}  // namespace Quarle::Cli
