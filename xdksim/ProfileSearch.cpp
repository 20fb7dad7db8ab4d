// Where profiles are found by name. The place is told relative to this library's own file, so that
// an installed tree can be moved; the build tree is laid out in the same way.

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <system_error>

#include "xdksim/ChipProfile.h"
#include "xdksim/ProfileCheck.h"

namespace XdkSim {

namespace {

std::filesystem::path profilesBesideLibrary() {
  static const char anchor = 0;
  Dl_info info{};
  if (dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr) {
    return {};
  }
  std::error_code error;
  const auto library = std::filesystem::canonical(info.dli_fname, error);
  return error ? std::filesystem::path() : library.parent_path() / XDKSIM_PROFILES_FROM_LIBRARY;
}

std::filesystem::path profilesDirectory() {
  const char* fromEnvironment = std::getenv("TARNLET_PROFILES");
  return fromEnvironment != nullptr && *fromEnvironment != '\0'
             ? std::filesystem::path(fromEnvironment)
             : profilesBesideLibrary().lexically_normal();
}

/// "a, b, c" of the profiles in `directory`, in order of their names.
std::string namesIn(const std::filesystem::path& directory) {
  std::set<std::string> names;
  std::error_code error;
  for (auto entry = std::filesystem::directory_iterator(directory, error);
       !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    if (entry->path().extension() == ".json") {
      names.insert(entry->path().stem().string());
    }
  }
  std::string list;
  for (const std::string& name : names) {
    list += (list.empty() ? "" : ", ") + name;
  }
  return list;
}

}  // namespace

ChipProfile findProfile(const std::string& nameOrPath) {
  if (nameOrPath.find('/') != std::string::npos || nameOrPath.ends_with(".json")) {
    return readProfile(nameOrPath);
  }
  const std::filesystem::path directory = profilesDirectory();
  const std::filesystem::path path = directory / (nameOrPath + ".json");
  std::error_code error;
  if (nameOrPath.empty() || !std::filesystem::exists(path, error)) {
    const std::string names = namesIn(directory);
    profileFails("chip profile \"" + nameOrPath + "\"", "", "not found in " + directory.string(),
                 (names.empty() ? "" : "one of " + names + ", or ") +
                     std::string("the path of a .json file"));
  }
  return readProfile(path.string());
}

}  // namespace XdkSim
