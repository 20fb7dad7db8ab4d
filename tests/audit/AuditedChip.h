#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "agent/PrefixStore.h"
#include "agent/audit/WholeAudit.h"
#include "framework/Vellor/GenericIf.h"
#include "tests/agent/LastingChip.h"

#include <gtest/gtest.h>

namespace Quarle::Agent::Testing {

/// A small chip with both families on several NHI tiles.
inline XdkSim::ChipProfile auditProfile() {
  XdkSim::ChipProfile profile;
  profile.name = "audited";
  profile.ipv4.tables = {{.tread = 16, .rows = 8, .sramWidth = 256, .hashPolySelect = 0},
                         {.tread = 16, .rows = 8, .sramWidth = 256, .hashPolySelect = 1},
                         {.tread = 32, .rows = 64, .sramWidth = 256, .hashPolySelect = 0},
                         {.tread = 36, .rows = 64, .sramWidth = 256, .hashPolySelect = 1}};
  profile.ipv6.tables = {{.tread = 16, .rows = 8, .sramWidth = 256, .hashPolySelect = 0},
                         {.tread = 60, .rows = 64, .sramWidth = 256, .hashPolySelect = 0}};
  profile.ipv4.nhi.tilesIs(3);
  profile.ipv6.nhi.tilesIs(2);
  profile.nextHopRows = 64;
  return profile;
}

inline ClientOptions auditOptions() {
  return {.maxLengthV4 = 32, .maxLengthV6 = 64, .headroom = {.share = 0, .minLargestBlocks = 0}};
}

/// The faults, a line each.
inline std::string textOf(const AuditReport& report) {
  std::string text;
  for (const AuditFault& fault : report.faults) {
    text += toText(fault) + "\n";
  }
  return text;
}

/// A loaded chip that a test damages, in the library by reflection or behind the SDK's back, and
/// what the audit says of it then.
class Damaged : public ::testing::Test {
 protected:
  Damaged() {
    chip.start();
    chip.route("10.1.0.0/24", {7});
    chip.route("10.1.1.0/24", {8, 8});
    chip.route("10.2.0.0/24", {7});
    chip.route("10.2.1.0/24", {8, 8});
    chip.route("10.3.0.0/24", {7});
    chip.route("2001:db8::/48", {9});
    engine = chip.client->family(Family::ipv4).engineForDiagnosis(/*changes=*/false);
    prefix = prefixOf("10.1.0.0/24");
    subTrie = engine->prefixToSubTrie(prefix);
    info = engine->sharedNhi(subTrie->nhiInfoKey());
    base = subTrie->nhiBaseIdx();
  }

  Tarnlet::LpmPrefix::Ptr prefixOf(const std::string& text) {
    return PrefixStore(Vellor::dynamicPtrCast<Tarnlet::ConfigV4>(engine->config()))
        .find(keyOf(text));
  }

  AuditReport audit(U64 limit = 100) {
    return auditAll(*chip.client, chip.access(), {.limit = limit, .progress = {}});
  }

  /// The audit finds this, and tells the place and a reason with these words in it.
  void expectFault(const std::string& what, const std::string& where, const std::string& words) {
    const AuditReport report = audit();
    bool found = false;
    for (const AuditFault& fault : report.faults) {
      found = found || (fault.what == what && fault.where == where &&
                        fault.reason.find(words) != std::string::npos);
    }
    EXPECT_TRUE(found) << "expected \"" << where << ": " << what << ": ..." << words
                       << "\", told:\n"
                       << textOf(report);
    EXPECT_FALSE(report.passed());
    EXPECT_EQ(report.faultCount, report.faults.size());
    for (const AuditFault& fault : report.faults) {
      EXPECT_EQ(toText(fault).find('\n'), std::string::npos) << toText(fault);
    }
  }

  template <typename Object>
  void set(const Object& object, const char* attribute, const Vellor::GenericIf::Argument& value) {
    Vellor::genericIf(object)->set(attribute, value);
  }

  template <typename Object>
  void remove(const Object& object,
              const char* attribute,
              std::initializer_list<Vellor::GenericIf::Argument> key) {
    change(object, attribute, Vellor::AttributeOp::remove, key);
  }

  template <typename Object>
  void insert(const Object& object,
              const char* attribute,
              std::initializer_list<Vellor::GenericIf::Argument> keyAndValue) {
    change(object, attribute, Vellor::AttributeOp::insert, keyAndValue);
  }

  std::string rowOf(const Tarnlet::SubTrie& trie) const {
    return "IPv4 table " + std::to_string(trie.table()->tableId().value()) + " row " +
           std::to_string(trie.index().value());
  }

  std::string nhiText(const Tarnlet::NhiTableIdx& place) const {
    return "IPv4 NHI tile " + std::to_string(place.tile().value()) + " entry " +
           std::to_string(place.offset());
  }

  LastingChip chip{auditProfile(), auditOptions()};
  Tarnlet::LpmSm::Ptr engine;
  Tarnlet::LpmPrefix::Ptr prefix;
  Tarnlet::SubTrie::Ptr subTrie;
  Tarnlet::NhiInfo::Ptr info;
  Tarnlet::NhiTableIdx base;

 private:
  template <typename Object>
  void change(const Object& object,
              const char* attribute,
              U8 kind,
              std::initializer_list<Vellor::GenericIf::Argument> arguments) {
    const Vellor::GenericIf::Ptr face = Vellor::genericIf(object);
    Vellor::GenericIf::Ptr result;
    face->attributeOp({face->attributeId(attribute), kind}, new Vellor::GenericIf::List_(arguments),
                      result);
  }
};

}  // namespace Quarle::Agent::Testing
