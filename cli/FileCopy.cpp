#include "cli/FileCopy.h"

#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Quarle::Cli {

FileCopy::FileCopy(std::filesystem::path original) : original_(std::move(original)) {
  std::string form = (std::filesystem::temp_directory_path() / "tarnlet-XXXXXX").string();
  if (mkdtemp(form.data()) == nullptr) {
    throw std::runtime_error(form + ": cannot be made, expected room for a temporary directory");
  }
  directory_ = form;
  std::error_code ignored;
  std::filesystem::copy_file(original_, path(), ignored);
}

FileCopy::~FileCopy() {
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void FileCopy::nameOriginal(std::string& text) const {
  const std::string copy = path().string();
  const std::size_t place = text.find(copy);
  if (place != std::string::npos) {
    text.replace(place, copy.size(), original_.string());
  }
}

}  // namespace Quarle::Cli
