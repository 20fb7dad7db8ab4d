#include "framework/Dunlix/Dunlix.h"

#include "framework/Vellor/Reflect.h"

namespace Dunlix {

namespace {

template <class Key>
void sequenceToKey(Vellor::StrepIterator& iterator,
                   const Vellor::StrepIterator& end,
                   const Vellor::StructuredForm& form,
                   Key* key) {
  Vellor::needStructuredValue(iterator, end, form, [&](const Vellor::String8& name) {
    if (name == "vrf") {
      VrfId vrf;
      Vellor::deserializeAttr(iterator, end, &vrf, name);
      key->vrfIs(vrf);
    } else if (name == "prefix") {
      auto prefix = key->prefix();
      Vellor::deserializeAttr(iterator, end, &prefix, name);
      key->prefixIs(prefix);
    } else {
      return false;
    }
    return true;
  });
}

template <class Key>
Vellor::String8 keyToStrep(const char* fullName, const Key& key) {
  return Vellor::format("Value('%s', ** {'vrf': %u, 'prefix': %s})", fullName, key.vrf().value(),
                        valueToStrep(key.prefix()).charPtr());
}

template <class Key>
constexpr auto keyAttributes() {
  return Vellor::operations(Vellor::valueAttribute<Key, &Key::vrf, &Key::vrfIs>("vrf"),
                            Vellor::valueAttribute<Key, &Key::prefix, &Key::prefixIs>("prefix"),
                            Vellor::computedAttribute<Key, &Key::hash>("hash"));
}

constexpr const char* kVrfAndPrefix = "Dunlix::VrfAndPrefix";
constexpr const char* kVrfAndIp6Prefix = "Dunlix::VrfAndIp6Prefix";

}  // namespace

Vellor::String8 valueToStrep(VrfId vrf) { return Vellor::valueToStrep(vrf.value()); }

void sequenceToValue(Vellor::StrepIterator& iterator,
                     const Vellor::StrepIterator& end,
                     VrfId* vrf) {
  U32 value = 0;
  Vellor::deserializeAttr(iterator, end, &value, "value");
  *vrf = value;
}

Vellor::String8 valueToStrep(const VrfAndPrefix& key) { return keyToStrep(kVrfAndPrefix, key); }

void sequenceToValue(Vellor::StrepIterator& iterator,
                     const Vellor::StrepIterator& end,
                     VrfAndPrefix* key) {
  *key = VrfAndPrefix();
  sequenceToKey(iterator, end, {kVrfAndPrefix, "VrfAndPrefix"}, key);
}

Vellor::String8 valueToStrep(const VrfAndIp6Prefix& key) {
  return keyToStrep(kVrfAndIp6Prefix, key);
}

void sequenceToValue(Vellor::StrepIterator& iterator,
                     const Vellor::StrepIterator& end,
                     VrfAndIp6Prefix* key) {
  *key = VrfAndIp6Prefix();
  sequenceToKey(iterator, end, {kVrfAndIp6Prefix, "VrfAndIp6Prefix"}, key);
}

const Vellor::FwkType& vellorValueType(const VrfId*) {
  static constinit const Vellor::FwkType kType{"Dunlix::VrfId"};
  return kType;
}

VELLOR_REFLECTED_VALUE(VrfAndPrefix, "Dunlix::VrfAndPrefix", keyAttributes<VrfAndPrefix>());
VELLOR_REFLECTED_VALUE(VrfAndIp6Prefix,
                       "Dunlix::VrfAndIp6Prefix",
                       keyAttributes<VrfAndIp6Prefix>());

}  // namespace Dunlix
