#pragma once

#include "framework/Corsel/AddressFamily.h"
#include "framework/Dunlix/Dunlix.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/Enumerations.h"
#include "model/Identifiers.h"
#include "model/LpmPrefix.h"
#include "model/NextHopBlock.h"
#include "model/PrefixTable.h"
#include "model/PrefixTableConfig.h"

namespace Quarle::Tarnlet {

/// Input entity of one address family: the shape of the chip's tables and the routes that are
/// wanted.
///
/// The configurator writes the shape before an LpmSm is built over it and it stays as it is; the
/// client writes `request` at any time, and an LpmSm has worked a change off when the write
/// returns.
class VELLOR_API ConfigBase : public Vellor::Entity {
  VELLOR_ENTITY(ConfigBase, Vellor::Entity);

 public:
  explicit ConfigBase(Vellor::Name name) : Vellor::Entity(std::move(name)) {}

  /// Fills `leastTreadForPrefixLen` for every length from 0 to keyLength(). Raises
  /// Vellor::NoImplementationException here.
  /// REQUIRES: `keyType` is set.
  virtual void populateLeastTreadForPrefixLenSettings(bool lpmTreadUserCfgd);

  VELLOR_ATTR(addressFamily,
              AddressFamily,
              Corsel::AddressFamily,
              Corsel::AddressFamily::unspecified);

  /// Width of the VRF part of a key.
  static constexpr U8 vrfBits() { return kVrfBits; }

  VELLOR_RECORD(vrfBits, VrfBits, constant);
  VELLOR_ATTR(keyType, KeyType, Tarnlet::KeyType, keyShort48b);
  // 48 or 144.
  VELLOR_READ(keyLength, KeyLength, U8);
  // The chip's prefix tables, each under its own `tableId`.
  VELLOR_SELF_KEYED_MAP(prefixTableConfig,
                        PrefixTableConfig,
                        PrefixTableId,
                        Tarnlet::PrefixTableConfig);
  VELLOR_ATTR(nhiPairPerEntry, NhiPairPerEntry, U8, 0);
  // Bits of an NHI pair that hold the base of a next-hop block.
  VELLOR_ATTR(nhiBlockBaseWidth, NhiBlockBaseWidth, U8, 0);
  // Bits of an NHI pair left for the size of a block.
  VELLOR_READ(nhiBlockEcmpWidth, NhiBlockEcmpWidth, U8);
  // Largest NHI block, in entries. Not to be read before `nhiPairPerEntry` is set: it divides by
  // it.
  VELLOR_READ(nhiMaxBlockSize, NhiMaxBlockSize, U8);
  VELLOR_ATTR(nhiTableSize, NhiTableSize, U32, 0);
  VELLOR_ATTR(nhiEntriesPerTile, NhiEntriesPerTile, U16, 0);
  VELLOR_ATTR(nhiAvailableTiles, NhiAvailableTiles, U8, 0);
  // Whether a sub-trie may span more than one NHI entry. The client's to set.
  VELLOR_ATTR(supportMultiNhiEntriesPerSubTrie, SupportMultiNhiEntriesPerSubTrie, bool, true);
  // The smallest tread under which a prefix of a length (in key bits) may be stored.
  VELLOR_MAP(leastTreadForPrefixLen, LeastTreadForPrefixLen, U8, U8);
  // The strides that the chip offers; the value plays no part.
  VELLOR_TREE(availableStride, AvailableStride, U8, bool);
  VELLOR_ATTR(restartMode, RestartMode, Tarnlet::RestartMode, modeNoRestart);
  // The tables by falling tread. Writer: LpmSm, once.
  VELLOR_ARRAY(prefixTableSortedByTread, PrefixTableSortedByTread, U8, PrefixTable::Ptr);
  // The routes wanted now. Writer: the client.
  VELLOR_MAP(request, Request, LpmPrefix::Ptr, NextHopBlock);

  VELLOR_END;

  /// The tread to which a prefix of `prefixLen` key bits must be fanned out.
  /// REQUIRES: `prefixTableSortedByTread` is filled and some table may hold the length.
  int fanoutPrefixLen(int prefixLen) const;

 protected:
  /// Sets every length's least tread anew: 0, and from each step's length on the step's tread.
  struct LeastTreadStep {
    U8 fromLength;
    U8 leastTread;
  };

  void leastTreadsAre(std::initializer_list<LeastTreadStep> steps);
};

class VELLOR_API ConfigV4 : public ConfigBase {
  VELLOR_ENTITY(ConfigV4, ConfigBase);

 public:
  explicit ConfigV4(Vellor::Name name);

  // One object for each VRF and prefix: the keys of `request`.
  VELLOR_CHILD_MAP(lpmPrefix, LpmPrefix, Dunlix::VrfAndPrefix, LpmPrefixV4);

  VELLOR_END;

  void populateLeastTreadForPrefixLenSettings(bool lpmTreadUserCfgd) override;

  /// The family is fixed: always raises Vellor::ImmutableAttrMutationException.
  void addressFamilyIs(Corsel::AddressFamily family) override;
};

class VELLOR_API ConfigV6 : public ConfigBase {
  VELLOR_ENTITY(ConfigV6, ConfigBase);

 public:
  explicit ConfigV6(Vellor::Name name);

  // One object for each VRF and prefix: the keys of `request`.
  VELLOR_CHILD_MAP(lpmPrefix, LpmPrefix, Dunlix::VrfAndIp6Prefix, LpmPrefixV6);

  VELLOR_END;

  void populateLeastTreadForPrefixLenSettings(bool lpmTreadUserCfgd) override;

  /// The family is fixed: always raises Vellor::ImmutableAttrMutationException.
  void addressFamilyIs(Corsel::AddressFamily family) override;
};

VELLOR_API ConfigV4::Ptr configV4Factory(const Vellor::Name& name);
VELLOR_API ConfigV6::Ptr configV6Factory(const Vellor::Name& name);

}  // namespace Quarle::Tarnlet
