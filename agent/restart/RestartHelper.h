#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "agent/PrefixStore.h"
#include "engine/RestartHelperBase.h"

namespace Quarle::Agent {

/// A leaf of a prefix row that spells no prefix of its family. The text is one line: what the row
/// holds and what was expected.
class BadRowError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What both families' restart helpers have in common: prefix objects come from, and go back to,
/// `lpmPrefix` of the family's configuration.
///
/// deletePrefix() drops an object only when a row that was never adopted made it. One that stood
/// before the walk, or that an adopted row holds, stays: two objects of one prefix would be two
/// routes to the library.
class RestartHelper : public Tarnlet::RestartHelperBase {
  VELLOR_POINTERS(RestartHelper);

 public:
  /// The interned object of the key that branch and leaf spell. Raises `BadRowError`, having
  /// dropped what this row had made so far, for an empty leaf, for one wider than `stride`, for a
  /// key that is longer than the family's or ends in the VRF, and for bits behind the branch.
  Tarnlet::LpmPrefix::Ptr createPrefix(const Tarnlet::SubTrieBranch& branch,
                                       U8 branchLen,
                                       U64 leafVal,
                                       U64 leafValHigh,
                                       U8 stride) override;

  void deletePrefix(const Tarnlet::LpmPrefix::Ptr& prefix) override;

  /// A walk begins: nothing is made yet.
  void lpmSmIs(Tarnlet::LpmSmRawPtr lpmSm) override;

 protected:
  RestartHelper(const Tarnlet::ConfigV4::Ptr& config, Tarnlet::Status::Ptr status);
  RestartHelper(const Tarnlet::ConfigV6::Ptr& config, Tarnlet::Status::Ptr status);

 private:
  bool isAdopted(const Tarnlet::LpmPrefix::Ptr& prefix) const;
  void drop(const Tarnlet::LpmPrefix::Ptr& prefix);
  [[noreturn]] void refuseRow(const std::string& why);

  PrefixStore prefixes_;
  // Made by the row that the walk stands on, or still by the one before it when that was adopted:
  // no more than a row has.
  std::vector<Tarnlet::LpmPrefix::Ptr> made_;
};

}  // namespace Quarle::Agent
