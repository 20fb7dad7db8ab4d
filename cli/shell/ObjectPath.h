#pragma once

#include <string>
#include <vector>

#include "cli/shell/Session.h"
#include "framework/Vellor/GenericIf.h"

namespace Quarle::Cli {

/// Where a path leads: one of the great objects, an attribute, or a member of a collection.
///
///     ipv4.engine
///     ipv4.engine.hashShufflingEnabled
///     ipv4.engine.prefixTable[3].subTrie[17].branch
///     ipv6.config.request[vrf 3 2001:db8::/32]
///
/// Everything else comes from the types' faces: their attributes by name, and keys in the textual
/// form of their types or as `ObjectText.h` has them.
struct ObjectPlace {
  std::string path;
  // One of the great objects; then nothing else is set.
  Vellor::GenericIf::Ptr root;
  // The value or object whose attribute it is.
  Vellor::GenericIf::Ptr holder;
  Vellor::AttributeId attribute = 0;
  // Of a member.
  Vellor::GenericIf::Ptr key;

  const Vellor::AttributeFace& face() const { return holder->attributeFace(attribute); }

  /// Whether it is a collection as a whole.
  bool isCollection() const;

  /// Whether the attribute belongs to an object, so that it can be changed where it is.
  bool isOfObject() const;

  /// What stands there. Raises `ShellError` for a member that is not there, and for what has no
  /// face.
  ///
  /// REQUIRES: it is no collection.
  Vellor::GenericIf::Ptr read() const;
};

/// "ipv4.config", "ipv4.engine" and so on.
const std::vector<std::string>& rootPaths();

/// Whether the text begins as a path does.
bool isPath(const std::string& text);

/// Follows a path to its last step, which need not lead anywhere yet. Raises `ShellError` with the
/// first step that leads nowhere, and the nearest name.
ObjectPlace placeOf(const Session& session, const std::string& path);

bool isCollection(Vellor::AttributeKind kind);

/// Attributes, or operations, of a type by name.
std::vector<std::string> attributeNames(const Vellor::GenericIf& face);
std::vector<std::string> operationNames(const Vellor::GenericIf& face);

/// The members of a collection, from its first on.
Vellor::GenericIf::Iterator_::Ptr membersOf(const ObjectPlace& place);

}  // namespace Quarle::Cli
