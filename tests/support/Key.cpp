#include "tests/support/Key.h"

#include <algorithm>
#include <cstring>

namespace Quarle::Tarnlet::Testing {

void Key::bitIs(U32 index, bool on) {
  const U8 mask = static_cast<U8>(0x80U >> index % 8);
  bytes[index / 8] = static_cast<U8>(on ? bytes[index / 8] | mask : bytes[index / 8] & ~mask);
}

Key Key::cut(U8 length) const {
  Key out = *this;
  out.len = length;
  if (length % 8 != 0) {
    out.bytes[length / 8] = static_cast<U8>(out.bytes[length / 8] & 0xff00U >> length % 8);
  }
  for (U32 i = (length + 7U) / 8; i < out.bytes.size(); ++i) {
    out.bytes[i] = 0;
  }
  return out;
}

bool Key::beginsWith(const Key& branch) const {
  if (len < branch.len || std::memcmp(bytes.data(), branch.bytes.data(), branch.len / 8) != 0) {
    return false;
  }
  const U32 rest = branch.len % 8;
  return rest == 0 ||
         ((bytes[branch.len / 8] ^ branch.bytes[branch.len / 8]) & 0xff00U >> rest & 0xffU) == 0;
}

Key Key::lowest() const {
  Key out = *this;
  out.len = fullLength();
  return out;
}

Key Key::highest() const {
  Key out = lowest();
  for (U32 i = len; i < out.len; ++i) {
    out.bitIs(i, true);
  }
  return out;
}

Key keyOf(const LpmPrefix& prefix) {
  Key key;
  const auto fill = [&key](U32 vrf, U8 prefixLen) {
    key.len = static_cast<U8>(prefixLen + Key::kVrf);
    key.bytes[0] = static_cast<U8>(vrf >> 8);
    key.bytes[1] = static_cast<U8>(vrf);
  };
  if (const auto* v4 = dynamic_cast<const LpmPrefixV4*>(&prefix)) {
    fill(v4->vrfAndPrefix().vrf().value(), v4->vrfAndPrefix().prefix().len());
    for (U32 i = 0; i < 4; ++i) {
      key.bytes[2 + i] = static_cast<U8>(v4->vrfAndPrefix().prefix().address() >> (24 - 8 * i));
    }
    return key;
  }
  const auto& v6 = dynamic_cast<const LpmPrefixV6&>(prefix);
  key.longKey = true;
  fill(v6.vrfAndPrefix().vrf().value(), v6.vrfAndPrefix().prefix().len());
  const auto& address = v6.vrfAndPrefix().prefix().bytes();
  std::copy(address.begin(), address.end(), key.bytes.begin() + 2);
  return key;
}

Key keyOf(const SubTrieBranch& branch, U8 len, bool longKey) {
  Key key;
  key.longKey = longKey;
  key.len = 144;
  for (U32 i = 0; i < 18; ++i) {
    key.bytes[i] = branch.u8(i);
  }
  return key.cut(len);
}

Key keyFrom(const std::string& text, bool longKey) {
  U32 vrf = 0;
  std::string rest = text;
  const std::size_t bar = text.find('|');
  if (bar != std::string::npos) {
    vrf = static_cast<U32>(std::stoul(text.substr(0, bar)));
    rest = text.substr(bar + 1);
  }
  if (rest.find('/') == std::string::npos) {
    rest += longKey ? "/128" : "/32";
  }
  if (longKey) {
    return keyOf(*lpmPrefixV6Factory({vrf, Corsel::Ip6Prefix(Vellor::String8(rest))}));
  }
  return keyOf(*lpmPrefixV4Factory({vrf, Corsel::Prefix(Vellor::String8(rest))}));
}

std::string textOf(const Key& key) {
  const U32 vrf = static_cast<U32>(key.bytes[0] << 8 | key.bytes[1]);
  if (key.len < Key::kVrf) {
    return Vellor::format("vrf bits 0x%04x/%u", vrf, unsigned{key.len}).str();
  }
  const std::string front = vrf == 0 ? "" : std::to_string(vrf) + "|";
  const U8 len = static_cast<U8>(key.len - Key::kVrf);
  if (key.longKey) {
    Corsel::Ip6Prefix::Bytes address{};
    std::copy(key.bytes.begin() + 2, key.bytes.end(), address.begin());
    return front + Corsel::Ip6Prefix(address, len).stringValue().str();
  }
  U32 address = 0;
  for (U32 i = 2; i < 6; ++i) {
    address = address << 8 | key.bytes[i];
  }
  return front + Corsel::Prefix(address, len).stringValue().str();
}

}  // namespace Quarle::Tarnlet::Testing
