#pragma once

#include <optional>
#include <random>
#include <string>
#include <vector>

#include "framework/Xdk/XpExport.h"
#include "framework/Xdk/XpStatus.h"
#include "xdksim/RowPlace.h"

namespace XdkSim {

/// The operations of the SDK's LPM manager, one bit each, so that a rule can name several.
enum LpmCalls : U32 {
  kReadPrefixEntry = 1,
  kWritePrefixEntry = 2,
  kReadNhiEntry = 4,
  kWriteNhiEntry = 8,
  kReadNextHopEntry = 16,
  kWriteNextHopEntry = 32,
  kAllReads = kReadPrefixEntry | kReadNhiEntry | kReadNextHopEntry,
  kAllWrites = kWritePrefixEntry | kWriteNhiEntry | kWriteNextHopEntry,
  kAllCalls = kAllReads | kAllWrites,
};

/// What becomes of the access itself when a fault is answered.
enum class FaultEffect : U8 {
  /// Nothing: a row keeps its content, a record its.
  notDone,
  /// The access is done as if there were no fault.
  done,
  /// Some words of the row, but not all, take the new content; the first half of the record is
  /// filled.
  half,
};

/// One fault: the return code, which may be any number, `XP_NO_ERR` included, and the effect.
struct LpmFault {
  XP_STATUS status = XP_NO_ERR;
  FaultEffect effect = FaultEffect::notDone;

  bool operator==(const LpmFault&) const = default;
};

/// A fault that struck.
struct InjectedFault {
  // One bit.
  LpmCalls call;
  // Which call of all that the plan has seen, from 1.
  U64 number = 0;
  RowPlace place;
  LpmFault fault;

  bool operator==(const InjectedFault&) const = default;
};

/// "call 7, writePrefixEntry of ipv4 prefix table 1 row 3: status 9, half".
XDK_API std::string toText(const InjectedFault& injected);

/// When which access fails. A `FaultyLpmMgr` asks for every call; a test adds rules at any time and
/// reads the log. One plan may serve the managers of both families, which then count together.
///
/// 1. A rule counts the calls that it names, from the moment it was added.
/// 2. Of several rules that strike at the same call the one added first wins.
/// 3. Equal plans, seeds included, answer equal calls equally.
class XDK_API FaultPlan {
 public:
  explicit FaultPlan(U64 seed = 1) : random_(seed) {}

  /// The `nth` of `calls`, from 1, fails.
  void failsAt(U32 calls, U64 nth, LpmFault fault);

  /// The `first` and all further ones of `calls` fail.
  void failsFrom(U32 calls, U64 first, LpmFault fault);

  /// Each of `calls` fails with that probability, 0 to 1.
  void failsOften(U32 calls, double probability, LpmFault fault);

  /// Forgets all rules. Counts and log stay.
  void clear() { rules_.clear(); }

  const std::vector<InjectedFault>& log() const { return log_; }

  /// Calls seen.
  U64 calls() const { return calls_; }

  /// Counts one call and yields the fault that strikes it, if any, which is in the log then.
  std::optional<LpmFault> strike(LpmCalls call, const RowPlace& place);

  /// Which words a row that is written half takes over: a bit for each, neither none nor all.
  ///
  /// REQUIRES: `rowWords` is 2 to 4.
  U32 wordsOfHalf(U32 rowWords);

 private:
  struct Rule {
    U32 calls;
    LpmFault fault;
    // Which of its calls, from 1.
    U64 first;
    U64 last;
    double probability;
    U64 seen;

    bool strikes(std::mt19937_64& random) const;
  };

  std::mt19937_64 random_;
  std::vector<Rule> rules_;
  std::vector<InjectedFault> log_;
  U64 calls_ = 0;
};

}  // namespace XdkSim
