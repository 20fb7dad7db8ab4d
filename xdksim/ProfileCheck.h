#pragma once

#include <functional>
#include <string>

#include "xdksim/ChipProfile.h"

/// What the reader of profile files and the profile itself share.
namespace XdkSim {

/// Raises `ProfileError` with "source: path: what, expected ...".
[[noreturn]] void profileFails(const std::string& source,
                               const std::string& path,
                               const std::string& what,
                               const std::string& expected);

/// What error texts call a table: in a file one record may stand for many.
using TablePath = std::function<std::string(Family family, U32 table)>;

void checkProfile(const ChipProfile& profile,
                  const std::string& source,
                  const TablePath& tablePath);

}  // namespace XdkSim
