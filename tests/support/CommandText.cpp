#include "tests/support/CommandText.h"

#include <algorithm>

#include "tests/support/Key.h"

namespace Quarle::Tarnlet::Testing {

namespace {

std::string prefixText(const PrefixCommand& command, bool longKey) {
  std::string list;
  bool clears = true;
  for (auto member = command.prefixList().prefixIterator(); member; ++member) {
    list += list.empty() ? "" : ", ";
    list += member.value() ? textOf(keyOf(*member.value())) : "-";
    clears = clears && member.value() == nullptr;
  }
  std::string text = clears ? "clear" : "prefix";
  text += " t" + std::to_string(command.tableId().value()) + "[" +
          std::to_string(command.index().value()) +
          "] branch=" + textOf(keyOf(command.branch(), command.branchLen(), longKey)) +
          " stride=" + std::to_string(command.stride());
  if (command.mode() != modeSparse) {
    text += " " + stringValue(command.mode()).str();
  }
  return text + " [" + list + "] nhi=" + textOf(command.nhiBaseIdx());
}

std::string nhiText(const NhiCommand& command) {
  std::string text = "nhi " + textOf(command.index()) + " =";
  for (auto pair = command.nextHopBlockList().nextHopBlockIterator(); pair; ++pair) {
    text += " " + textOf(pair.value());
  }
  return text;
}

}  // namespace

std::string textOf(const TarnletNextHop::NextHopBlock& block) {
  return block == NextHopBlock()
             ? "none"
             : std::to_string(block.base().value()) + "/" + std::to_string(block.size().value());
}

std::string textOf(const NhiTableIdx& index) {
  return index == NhiTableIdx()
             ? "none"
             : std::to_string(index.tile().value()) + ":" + std::to_string(index.offset());
}

std::string textOf(const CommandBase& command, bool longKey) {
  return command.cmdType() == commandTypePrefix
             ? prefixText(dynamic_cast<const PrefixCommand&>(command), longKey)
             : nhiText(dynamic_cast<const NhiCommand&>(command));
}

std::string dedent(const std::string& text) {
  std::size_t at = text.find_first_not_of('\n');
  if (at == std::string::npos) {
    return "";
  }
  const std::size_t indent = text.find_first_not_of(' ', at) - at;
  std::string out;
  while (at < text.size()) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, end - at);
    at = end + 1;
    const std::size_t first = line.find_first_not_of(' ');
    if (first != std::string::npos) {
      out += line.substr(std::min(indent, first)) + "\n";
    }
  }
  return out;
}

}  // namespace Quarle::Tarnlet::Testing
