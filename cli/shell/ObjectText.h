#pragma once

#include <string>

#include "cli/shell/Session.h"
#include "framework/Vellor/GenericIf.h"

namespace Quarle::Cli {

/// How values and objects are spelled to people, and read back: routes as "vrf 3 10.0.0.0/8",
/// tables, sub-tries and the great objects by their paths, next-hop blocks and NHI indices also as
/// two numbers with a comma between. All else has the textual form of its type.

/// A value as an answer has it: the textual form of its type, or what an object is called.
std::string textOf(const Session& session, const Vellor::GenericIf::Ptr& face);

/// A key as it stands between the brackets of a path.
std::string keyTextOf(const Session& session, const Vellor::GenericIf::Ptr& face);

/// The bare name of a type: "NhiTableIdx".
std::string typeText(const Vellor::FwkType* type);

/// What `text` says for an attribute or argument of this type. What it cannot read here goes on as
/// text, for the type's own form. Raises `ShellError` for an object that is not there.
Vellor::GenericIf::Ptr faceOf(const Session& session,
                              const Vellor::FwkType* type,
                              const std::string& text);

/// The object that a text names, a route or the path of an object; null when there is none.
Vellor::Ptr<Vellor::PtrInterface> objectOf(const Session& session, const std::string& text);

}  // namespace Quarle::Cli
