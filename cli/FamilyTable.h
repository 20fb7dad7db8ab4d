#pragma once

#include <functional>
#include <string>
#include <type_traits>

#include "cli/Text.h"

namespace Quarle::Cli {

/// A table with a column for each family of a result that has members `ipv4` and `ipv6`.
template <typename Result>
class FamilyTable {
 public:
  /// The result outlives the table.
  explicit FamilyTable(const Result& result) : result_(result) {
    text_ += format("%-20s%*s%*s\n", "", kColumn, "IPv4", kColumn, "IPv6");
  }

  using Family = std::remove_cvref_t<decltype(Result::ipv4)>;
  using Cell = std::function<std::string(const Family&)>;

  void row(const std::string& name, const Cell& cell) {
    text_ += format("%-20s%*s%*s\n", name.c_str(), kColumn, cell(result_.ipv4).c_str(), kColumn,
                    cell(result_.ipv6).c_str());
  }

  const std::string& text() const { return text_; }

 private:
  static constexpr int kColumn = 30;

  const Result& result_;
  std::string text_;
};

}  // namespace Quarle::Cli
