#pragma once

#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

namespace Quarle::Cli {

using Json = nlohmann::ordered_json;

/// Where a command's answer goes: text for people, or one JSON object a line for programs.
class Output {
 public:
  /// The stream outlives the output.
  Output(std::ostream& stream, bool json) : stream_(stream), json_(json) {}

  bool json() const { return json_; }

  /// `text` ends without a line end.
  void line(const std::string& text) { stream_ << text << '\n'; }

  void object(const Json& object) {
    stream_ << object.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
  }

  /// Before somebody writes to a descriptor behind the stream.
  void flush() { stream_.flush(); }

 private:
  std::ostream& stream_;
  bool json_;
};

}  // namespace Quarle::Cli
