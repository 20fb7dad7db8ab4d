#pragma once

#include <ostream>

#include "framework/Dunlix/Dunlix.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/NextHopBlock.h"
#include "model/SubTrieBranch.h"

namespace Quarle::Tarnlet {

using TarnletNextHop::NextHopBlock;

class SubTrie;

/// Bits of the VRF in front of every key.
inline constexpr U8 kVrfBits = 16;

/// One route: a VRF and a prefix. The engine knows routes by this face alone, which serves both
/// address families.
///
/// Maps keyed by a prefix go by object: two objects of one prefix are two keys. `lpmPrefix` of the
/// configuration keeps one object for each.
class VELLOR_API LpmPrefix : public Vellor::PtrInterface {
  VELLOR_OBJECT(LpmPrefix, Vellor::PtrInterface);

 public:
  VELLOR_OBJ_END;

  /// Length in key bits: the prefix's own and the 16 of the VRF.
  virtual U8 len() const;

  /// The first `branchLen` bits of the key, left aligned, zeros behind. Looks at `branchLen` alone,
  /// never at len().
  /// REQUIRES: `branchLen` is at most the family's key length.
  virtual SubTrieBranch branch(U8 branchLen) const;

  /// "vrf %d prefix %s".
  virtual Vellor::String8 stringValue() const;

  // What the maps of a configuration, its status, its engine and a sub-trie say of the prefix.
  auto& vellorHeldValues(const NextHopBlock*) { return nextHopBlocks_; }

  auto& vellorHeldValues(const Vellor::Ptr<SubTrie>*) { return subTrie_; }

  auto& vellorHeldValues(const U8*) { return slot_; }

 private:
  Vellor::HeldValues<NextHopBlock, 2> nextHopBlocks_;
  Vellor::HeldValues<Vellor::Ptr<SubTrie>, 1> subTrie_;
  Vellor::HeldValues<U8, 1> slot_;
};

class VELLOR_API LpmPrefixV4 : public LpmPrefix {
  VELLOR_OBJECT(LpmPrefixV4, LpmPrefix);

 public:
  explicit LpmPrefixV4(const Dunlix::VrfAndPrefix& vrfAndPrefix) : vrfAndPrefix_(vrfAndPrefix) {}

  VELLOR_CONST(vrfAndPrefix, VrfAndPrefix, Dunlix::VrfAndPrefix);
  // Another prefix that owns this one. Nothing in this library reads the owners, the fan-out list
  // or `nhBlock`: they are whoever writes the requests' own notes.
  VELLOR_OBJ_ATTR(ownerLpmPrefix, OwnerLpmPrefix, Vellor::Ptr<LpmPrefixV4>, nullptr);
  VELLOR_OBJ_MAP(otherOwnerList, OtherOwnerList, Dunlix::VrfAndPrefix, bool);
  // The longer prefixes that createFanoutPrefixV4() found.
  VELLOR_OBJ_MAP(prefixFanoutList, PrefixFanoutList, Dunlix::VrfAndPrefix, bool);
  VELLOR_OBJ_ATTR(nhBlock, NhBlock, NextHopBlock, NextHopBlock());

  VELLOR_OBJ_END;

  const Dunlix::VrfAndPrefix& fwkKey() const { return vrfAndPrefix_; }

  U8 len() const override;
  SubTrieBranch branch(U8 branchLen) const override;
  Vellor::String8 stringValue() const override;

  /// Adds to `prefixFanoutList` the prefixes of length `targetTread` (in key bits) that together
  /// cover this one, in rising order. The list is not cleared first. Raises Vellor::RangeException
  /// at the first that is no valid prefix; what came before it stays.
  /// REQUIRES: `targetTread` is above len().
  void createFanoutPrefixV4(U32 targetTread);
};

class VELLOR_API LpmPrefixV6 : public LpmPrefix {
  VELLOR_OBJECT(LpmPrefixV6, LpmPrefix);

 public:
  explicit LpmPrefixV6(const Dunlix::VrfAndIp6Prefix& vrfAndPrefix) : vrfAndPrefix_(vrfAndPrefix) {}

  VELLOR_CONST(vrfAndPrefix, VrfAndPrefix, Dunlix::VrfAndIp6Prefix);

  VELLOR_OBJ_END;

  const Dunlix::VrfAndIp6Prefix& fwkKey() const { return vrfAndPrefix_; }

  U8 len() const override;
  SubTrieBranch branch(U8 branchLen) const override;
  Vellor::String8 stringValue() const override;
};

/// Free prefix objects; a configuration's `lpmPrefix` is the place for those that are requested.
VELLOR_API LpmPrefixV4::Ptr lpmPrefixV4Factory(const Dunlix::VrfAndPrefix& vrfAndPrefix);
VELLOR_API LpmPrefixV6::Ptr lpmPrefixV6Factory(const Dunlix::VrfAndIp6Prefix& vrfAndPrefix);

/// Head and tail position of an LpmPrefixList, compared field by field.
using PrefixMetadata = Vellor::LinkQueueMetadata;

/// The prefixes of a command in slot order; a null member is an empty slot.
class VELLOR_API LpmPrefixList {
  VELLOR_VALUE(LpmPrefixList);

 public:
  LpmPrefixList() = default;

  /// Fatal: a queue has no text form to read.
  LpmPrefixList(Vellor::StrepIterator& iterator, const Vellor::StrepIterator& end);

  VELLOR_OBJ_QUEUE(prefix, Prefix, LpmPrefix::Ptr);

  VELLOR_OBJ_END;

  friend bool operator==(const LpmPrefixList& a, const LpmPrefixList& b) {
    return a.prefix_ == b.prefix_;
  }
};

/// The contents have no text form.
VELLOR_API Vellor::String8 valueToStrep(const LpmPrefixList& list);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                LpmPrefixList* list);
VELLOR_API std::ostream& operator<<(std::ostream& stream, const LpmPrefixList& list);
VELLOR_API const Vellor::FwkType& vellorValueType(const LpmPrefixList*);

}  // namespace Quarle::Tarnlet
