// Every type that can be driven by name, with all that it offers: ids, names, kinds, types and
// arguments. The golden file is read by people first; a change of it is a change of the interface.

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "config/TarnletConfigurator.h"
#include "engine/TarnletSm.h"
#include "framework/Brumel/Brumel.h"
#include "framework/Vellor/GenericIf.h"
#include "model/Tarnlet.h"
#include "model/TarnletNextHop.h"
#include "nexthop/TarnletNextHopSm.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

std::string typeName(AttributeFace::TypeOf type) {
  if (type == nullptr) {
    return "nothing";
  }
  const FwkType* found = type();
  return found == nullptr ? "(no face)" : found->name;
}

std::string told(const AttributeFace::ArgumentFace* argument, U32 arguments) {
  std::string text;
  for (U32 i = 0; i < arguments; ++i) {
    text +=
        (i == 0 ? "" : ", ") + std::string(argument[i].name) + ": " + typeName(argument[i].type);
  }
  return "(" + text + ")";
}

std::string told(const AttributeFace& face) {
  std::ostringstream text;
  text << attributeKindName(face.kind) << " " << face.name;
  if (face.kind == AttributeKind::operation) {
    text << told(face.argument, face.arguments) << (face.isConstOperation ? " const" : "");
  } else if (face.keyType != nullptr) {
    text << "[" << typeName(face.keyType) << "]";
  }
  text << " -> " << typeName(face.type);
  return text.str();
}

void tell(std::ostream& stream, const FwkType& type) {
  const TypeFace* face = type.face();
  stream << type.name;
  if (face != nullptr && face->constructorArguments != 0) {
    stream << told(face->constructorArgument, face->constructorArguments);
  }
  stream << "\n";
  for (AttributeId id = 0; face != nullptr && id < face->attributes; ++id) {
    stream << "  " << id << " " << told(face->attribute[id]) << "\n";
  }
  stream << "\n";
}

template <class... T>
void tellObjects(std::ostream& stream) {
  (tell(stream, T::kVellorType_), ...);
}

template <class... T>
void tellValues(std::ostream& stream) {
  (tell(stream, vellorValueType(static_cast<const T*>(nullptr))), ...);
}

std::string allFaces() {
  namespace T = Quarle::Tarnlet;
  namespace N = Quarle::TarnletNextHop;
  std::ostringstream stream;
  tellObjects<T::LpmSm, T::RestartHelperBase, N::LpmNextHopSm, Quarle::TarnletConfigurator>(stream);
  tellObjects<T::ConfigBase, T::ConfigV4, T::ConfigV6, T::Status, N::Config, N::Status>(stream);
  tellObjects<T::PrefixTable, T::PrefixTableConfig, T::XpPrefixTableConfig, T::SubTrie,
              T::SubTrieSet, T::NhiInfo>(stream);
  tellObjects<T::LpmPrefix, T::LpmPrefixV4, T::LpmPrefixV6>(stream);
  tellObjects<T::CommandBase, T::PrefixCommand, T::NhiCommand, N::ShuffleCmd>(stream);
  tellObjects<Brumel::BestFitAllocator, Brumel::BFA::Blk, Brumel::BFA::PendingCmds, Brumel::Bitmap>(
      stream);
  tellValues<T::PrefixTableId, T::PrefixTableIdx, T::NhiTileIdx, T::NhiTableIdx, T::SubTrieBranch,
             T::NhiInfoKey, T::LpmPrefixList>(stream);
  tellValues<N::SwId, N::Nway, N::NextHopTableIdx, N::NextHopBlock, N::NextHopBlockList>(stream);
  tellValues<Dunlix::VrfAndPrefix, Dunlix::VrfAndIp6Prefix>(stream);
  tellValues<T::KeyType, T::PrefixTableType, T::SubTrieMode, T::CommandType, T::RestartMode,
             T::RouteReturnCode, Corsel::AddressFamily>(stream);
  return stream.str();
}

TEST(Faces, areThoseOfTheGoldenFile) {
  const std::string path = TARNLET_SOURCE_DIR "/tests/golden/faces.txt";
  if (std::getenv("TARNLET_WRITE_GOLDEN") != nullptr) {
    std::ofstream(path) << allFaces();
  }
  std::ostringstream golden;
  golden << std::ifstream(path).rdbuf();
  EXPECT_EQ(allFaces(), golden.str())
      << "run with TARNLET_WRITE_GOLDEN=1 to write the file, and read its difference";
}

}  // namespace
}  // namespace Vellor
