#include <sstream>
#include <string>

#include "framework/Dunlix/Dunlix.h"

#include <gtest/gtest.h>

namespace Dunlix {
namespace {

using Corsel::Ip6Prefix;
using Corsel::Prefix;

template <class T>
std::string streamed(const T& value) {
  std::ostringstream stream;
  stream << value;
  return stream.str();
}

TEST(VrfId, holdsHashesComparesAndPrintsAllItsBits) {
  const VrfId vrf(0x12345678);
  EXPECT_EQ(vrf.value(), 0x12345678U);
  EXPECT_EQ(vrf.hash(), 0x12345678U);
  EXPECT_NE(vrf, VrfId(0x5678));
  EXPECT_LT(VrfId(0x5678), vrf);
  EXPECT_EQ(streamed(VrfId(4294967295U)), "4294967295");
  EXPECT_EQ(VrfId().value(), 0U);
}

TEST(VrfAndPrefix, hashesVrfAndPrefixHashOneAtATime) {
  EXPECT_EQ(VrfAndPrefix(0, Prefix("10.0.0.0/8")).hash(), 0xf1239713U);
  EXPECT_EQ(VrfAndPrefix(0x12345, Prefix("10.1.2.0/24")).hash(), 0x41417127U);
}

TEST(VrfAndPrefix, hashesAnIp6PrefixTheSameWay) {
  const Ip6Prefix prefix("2001:db8::/32");
  Vellor::OneAtATimeHash expected;
  expected.addU32(0x10001);
  expected.addU32(prefix.hash());
  EXPECT_EQ(VrfAndIp6Prefix(0x10001, prefix).hash(), expected.finish());
}

TEST(VrfAndPrefix, comparesVrfFirst) {
  const VrfAndPrefix low(1, Prefix("11.0.0.0/8"));
  const VrfAndPrefix high(2, Prefix("10.0.0.0/8"));
  EXPECT_LT(low, high);
  EXPECT_NE(low, high);
  EXPECT_EQ(low, VrfAndPrefix(1, Prefix("11.0.0.0/8")));
  EXPECT_LT(VrfAndPrefix(1, Prefix("10.0.0.0/8")), low);
  EXPECT_NE(VrfAndPrefix(0x10001, Prefix("11.0.0.0/8")), low);
  EXPECT_LT(VrfAndIp6Prefix(1, Ip6Prefix("1::/16")), VrfAndIp6Prefix(1, Ip6Prefix("2::/16")));
}

TEST(VrfAndPrefix, keepsItsParts) {
  const VrfAndPrefix key(7, Prefix("10.0.0.0/8"));
  EXPECT_EQ(key.vrf(), VrfId(7));
  EXPECT_EQ(key.prefix(), Prefix("10.0.0.0/8"));
  EXPECT_EQ(VrfAndPrefix(), VrfAndPrefix(0, Prefix()));
}

}  // namespace
}  // namespace Dunlix
