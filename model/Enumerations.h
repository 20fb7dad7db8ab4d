#pragma once

#include <ostream>

#include "framework/Vellor/Enumeration.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Strep.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Quarle::Tarnlet {

/// Width of a key: 16 VRF bits and an IPv4 or IPv6 address.
enum class KeyType : U32 { keyShort48b = 0, keyLong144b = 1 };

/// Width of a prefix table row in hardware memory.
enum class PrefixTableType : U32 { prefixTableNarrow128b = 0, prefixTableWide256b = 1 };

/// How the leaves share a prefix table entry. The engine makes `modeSparse` alone.
enum class SubTrieMode : U32 { modeSparse = 0, modeBitmap = 1, modeCpe = 2 };

enum class CommandType : U32 { commandTypePrefix = 0, commandTypeNhi = 1 };

/// How a start treats what the hardware holds.
enum class RestartMode : U32 {
  modeNoRestart = 0,
  modeRestartCli = 1,
  modeRestartTest = 2,
  modeRestartNormal = 3
};

/// Result of every step that places a prefix.
enum class RouteReturnCode : U32 {
  pass = 0,
  fail = 1,
  retry = 2,
  subTrieNotPresent = 3,
  subTriePresent = 4,
  nhiTableFull = 5,
  nhiCapacityExceeded = 6,
  full = 7,
  hashCollision = 8
};

using enum KeyType;
using enum PrefixTableType;
using enum SubTrieMode;
using enum CommandType;
using enum RestartMode;

// For each enumeration: stringValue() gives the enumerator's name, or "Type(%d)" for a number
// without one; the two
// `...Instance` operations give the enumerator of a number or a name, or raise
// Vellor::RangeException with the type's name; valueToStrep() gives the name between single quotes,
// sequenceToValue() reads that; `<Name>_GenericIf_` is its face.
#define TARNLET_ENUMERATION_OPERATIONS(Type)                                      \
  VELLOR_API Vellor::String8 stringValue(Type value);                             \
  VELLOR_API Vellor::String8 valueToStrep(Type value);                            \
  VELLOR_API Type Type##Instance(U32 number);                                     \
  VELLOR_API Type Type##Instance(const Vellor::String8& text);                    \
  VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,                \
                                  const Vellor::StrepIterator& end, Type* value); \
  VELLOR_API const Vellor::FwkType& vellorValueType(const Type*);                 \
  using Type##_GenericIf_ = Vellor::ValueFace<Type>;                              \
  VELLOR_API std::ostream& operator<<(std::ostream& stream, Type value)

TARNLET_ENUMERATION_OPERATIONS(KeyType);
TARNLET_ENUMERATION_OPERATIONS(PrefixTableType);
TARNLET_ENUMERATION_OPERATIONS(SubTrieMode);
TARNLET_ENUMERATION_OPERATIONS(CommandType);
TARNLET_ENUMERATION_OPERATIONS(RestartMode);
TARNLET_ENUMERATION_OPERATIONS(RouteReturnCode);

#undef TARNLET_ENUMERATION_OPERATIONS

}  // namespace Quarle::Tarnlet
