#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "model/Tarnlet.h"
#include "model/TarnletNextHop.h"

namespace Quarle::Tarnlet::Testing {

/// The text as a `T`: refused by RangeException, or a value whose own text reads as an equal one.
/// Anything else ends the process.
template <class T>
void readAndWrite(const std::string& text) {
  T value{};
  try {
    Vellor::strepToValue(Vellor::String8(text), &value);
  } catch (const Vellor::RangeException&) {
    return;
  }
  const Vellor::String8 written = valueToStrep(value);
  T again{};
  Vellor::strepToValue(written, &again);
  if (!(again == value)) {
    std::fprintf(stderr, "%s reads as %s, and that as something else\n", text.c_str(),
                 written.charPtr());
    std::abort();
  }
}

/// The first byte chooses the type, the others are the text. Lists and NHI keys, whose texts do not
/// tell their contents, are left out.
inline void readAndWriteAny(const std::string& bytes) {
  using Reader = void (*)(const std::string&);
  using namespace TarnletNextHop;
  static constexpr Reader kReaders[] = {
      readAndWrite<NhiTableIdx>,
      readAndWrite<SubTrieBranch>,
      readAndWrite<NextHopBlock>,
      readAndWrite<PrefixTableId>,
      readAndWrite<PrefixTableIdx>,
      readAndWrite<SwId>,
      readAndWrite<Nway>,
      readAndWrite<KeyType>,
      readAndWrite<RestartMode>,
      readAndWrite<RouteReturnCode>,
      readAndWrite<Corsel::Prefix>,
      readAndWrite<Corsel::Ip6Prefix>,
      readAndWrite<Dunlix::VrfAndPrefix>,
      readAndWrite<Dunlix::VrfAndIp6Prefix>,
      readAndWrite<Vellor::String8>,
  };
  if (!bytes.empty()) {
    const auto choice = static_cast<unsigned char>(bytes[0]) % std::size(kReaders);
    kReaders[choice](bytes.substr(1));
  }
}

}  // namespace Quarle::Tarnlet::Testing
