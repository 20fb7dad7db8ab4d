// Uses the client library.

#include <iostream>

#include "agent/source/RouteText.h"

int main() {
  const auto parsed = Quarle::Agent::parsePrefix("2001:db8::/32");
  std::cout << "agent: " << Quarle::Agent::toText(parsed.value) << '\n';
  return parsed.ok() ? 0 : 1;
}
