#include "model/Enumerations.h"

namespace Quarle::Tarnlet {

namespace {

constexpr const char* kKeyTypes[] = {"keyShort48b", "keyLong144b"};
constexpr const char* kPrefixTableTypes[] = {"prefixTableNarrow128b", "prefixTableWide256b"};
constexpr const char* kSubTrieModes[] = {"modeSparse", "modeBitmap", "modeCpe"};
constexpr const char* kCommandTypes[] = {"commandTypePrefix", "commandTypeNhi"};
constexpr const char* kRestartModes[] = {"modeNoRestart", "modeRestartCli", "modeRestartTest",
                                         "modeRestartNormal"};
constexpr const char* kRouteReturnCodes[] = {"pass",
                                             "fail",
                                             "retry",
                                             "subTrieNotPresent",
                                             "subTriePresent",
                                             "nhiTableFull",
                                             "nhiCapacityExceeded",
                                             "full",
                                             "hashCollision"};

}  // namespace

#define TARNLET_ENUMERATION_OPERATIONS(Type)                                              \
  Vellor::String8 stringValue(Type value) {                                               \
    return Vellor::enumerationText({#Type, k##Type##s}, static_cast<U32>(value));         \
  }                                                                                       \
  Vellor::String8 valueToStrep(Type value) { return "'" + stringValue(value) + "'"; }     \
  Type Type##Instance(U32 number) {                                                       \
    return static_cast<Type>(Vellor::enumerationNumber({#Type, k##Type##s}, number));     \
  }                                                                                       \
  Type Type##Instance(const Vellor::String8& text) {                                      \
    return static_cast<Type>(Vellor::enumerationNumber({#Type, k##Type##s}, text));       \
  }                                                                                       \
  void sequenceToValue(Vellor::StrepIterator& iterator, const Vellor::StrepIterator& end, \
                       Type* value) {                                                     \
    Vellor::String8 text;                                                                 \
    Vellor::sequenceToValue(iterator, end, &text);                                        \
    *value = Type##Instance(text);                                                        \
  }                                                                                       \
  const Vellor::FwkType& vellorValueType(const Type*) {                                   \
    static constinit const Vellor::FwkType kType{"Quarle::Tarnlet::" #Type};              \
    return kType;                                                                         \
  }                                                                                       \
  std::ostream& operator<<(std::ostream& stream, Type value) {                            \
    return stream << stringValue(value);                                                  \
  }                                                                                       \
  static_assert(true, "a semicolon follows here")

TARNLET_ENUMERATION_OPERATIONS(KeyType);
TARNLET_ENUMERATION_OPERATIONS(PrefixTableType);
TARNLET_ENUMERATION_OPERATIONS(SubTrieMode);
TARNLET_ENUMERATION_OPERATIONS(CommandType);
TARNLET_ENUMERATION_OPERATIONS(RestartMode);
TARNLET_ENUMERATION_OPERATIONS(RouteReturnCode);

}  // namespace Quarle::Tarnlet
