#include "agent/source/RouteText.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

struct Case {
  const char* text;
  const char* result;
};

/// The prefix as read and written again, or the fault.
std::string readPrefix(std::string_view text) {
  const Parsed<RoutePrefix> parsed = parsePrefix(text);
  return parsed.ok() ? toText(parsed.value) : "fault: " + parsed.fault;
}

TEST(RouteText, goodPrefixesAreReadAndWrittenAlike) {
  const Case cases[] = {{"0.0.0.0/0", "0.0.0.0/0"},
                        {"10.0.0.0/8", "10.0.0.0/8"},
                        {"192.0.2.255/32", "192.0.2.255/32"},
                        {"128.0.0.0/1", "128.0.0.0/1"},
                        {"::/0", "::/0"},
                        {"2001:DB8:0:0::/32", "2001:db8::/32"},
                        {"8000::/1", "8000::/1"},
                        {"2001:db8:0:0:8000::/65", "2001:db8:0:0:8000::/65"},
                        {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128",
                         "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128"}};
  for (const Case& it : cases) {
    EXPECT_EQ(readPrefix(it.text), it.result);
  }
}

TEST(RouteText, badPrefixesAreToldWithWhatWasExpected) {
  const Case cases[] = {
      {"10.0.0.0", "\"10.0.0.0\" has no length, expected 10.0.0.0/32 or shorter"},
      {"2001:db8::1", "\"2001:db8::1\" has no length, expected 2001:db8::1/128 or shorter"},
      {"10.0.0.0/", "\"10.0.0.0/\" has no valid length, expected a number from 0 to 32"},
      {"10.0.0.0/33", "\"10.0.0.0/33\" has no valid length, expected a number from 0 to 32"},
      {"10.0.0.0/-1", "\"10.0.0.0/-1\" has no valid length, expected a number from 0 to 32"},
      {"10.0.0.0/8x", "\"10.0.0.0/8x\" has no valid length, expected a number from 0 to 32"},
      {"10.0.0.0/4294967304",
       "\"10.0.0.0/4294967304\" has no valid length, expected a number from 0 to 32"},
      {"::/129", "\"::/129\" has no valid length, expected a number from 0 to 128"},
      {"10.0.0.1/24", "\"10.0.0.1/24\" has host bits set, expected 10.0.0.0/24"},
      {"2001:db8::1/64", "\"2001:db8::1/64\" has host bits set, expected 2001:db8::/64"},
      {"2001:db8:0:0:8000::/64",
       "\"2001:db8:0:0:8000::/64\" has host bits set, expected 2001:db8::/64"},
      {"10.0.0/8", "\"10.0.0/8\" is no prefix, expected one such as 192.0.2.0/24 or 2001:db8::/32"},
      {"10.0.0.256/32",
       "\"10.0.0.256/32\" is no prefix, expected one such as 192.0.2.0/24 or 2001:db8::/32"},
      {"/8", "\"/8\" is no prefix, expected one such as 192.0.2.0/24 or 2001:db8::/32"},
      {"2001:db8:::/32",
       "\"2001:db8:::/32\" is no prefix, expected one such as 192.0.2.0/24 or 2001:db8::/32"},
      {"\x1f\x8b",
       "\"\\x1f\\x8b\" is no prefix, expected one such as 192.0.2.0/24 or 2001:db8::/32"},
  };
  for (const Case& it : cases) {
    EXPECT_EQ(readPrefix(it.text), std::string("fault: ") + it.result);
  }
}

TEST(RouteText, longBadTextIsShortenedInTheFault) {
  EXPECT_EQ(inQuotes(std::string(61, 'x')), "\"" + std::string(60, 'x') + "...\"");
  EXPECT_EQ(inQuotes(std::string(60, 'x')), "\"" + std::string(60, 'x') + "\"");
}

TEST(RouteText, addressesAreReadWithoutLength) {
  EXPECT_EQ(toText(parseAddress("192.0.2.1").value), "192.0.2.1");
  EXPECT_EQ(toText(parseAddress("fe80::1").value), "fe80::1");
  EXPECT_EQ(parseAddress("fe80::1%eth0").fault,
            "\"fe80::1%eth0\" is no address, expected an IPv4 or IPv6 address");
}

TEST(RouteText, ipv4FillsTheFirstFourBytes) {
  const RoutePrefix prefix = parsePrefix("192.0.2.128/25").value;
  EXPECT_EQ(prefix.address,
            (std::array<std::uint8_t, 16>{192, 0, 2, 128, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(prefix.bits(), (AddressBits{.high = 0xc0000280'00000000, .low = 0}));
}

TEST(RouteText, firstAndLastAddressBoundThePrefix) {
  const auto bounds = [](std::string_view text) {
    const RoutePrefix prefix = parsePrefix(text).value;
    return toText(prefix.firstAddress()) + " " + toText(prefix.lastAddress());
  };
  EXPECT_EQ(bounds("0.0.0.0/0"), "0.0.0.0 255.255.255.255");
  EXPECT_EQ(bounds("10.32.0.0/11"), "10.32.0.0 10.63.255.255");
  EXPECT_EQ(bounds("192.0.2.1/32"), "192.0.2.1 192.0.2.1");
  EXPECT_EQ(bounds("2001:db8::/63"), "2001:db8:: 2001:db8:0:1:ffff:ffff:ffff:ffff");
  EXPECT_EQ(bounds("2001:db8::/64"), "2001:db8:: 2001:db8::ffff:ffff:ffff:ffff");
  EXPECT_EQ(bounds("2001:db8::/127"), "2001:db8:: 2001:db8::1");
}

}  // namespace
}  // namespace Quarle::Agent
