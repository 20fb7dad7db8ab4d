// lookup: one address through the chip, through the library's own state, and through a plain table
// of what was requested, side by side.

#include "cli/Text.h"
#include "cli/shell/RouteView.h"
#include "cli/shell/Verbs.h"
#include "cli/shell/Words.h"

#include <algorithm>

namespace Quarle::Cli {

namespace {

constexpr int kLabel = 16;
// Of the chip's answers, unless one is longer.
constexpr int kLeastColumn = 34;

struct Answers {
  std::optional<RouteView> chip;
  std::optional<RouteView> software;
  std::optional<Session::Reference> reference;
  std::string referencePrefix;

  bool agree() const {
    const bool sameAsReference =
        reference ? chip && chip->length == reference->length && chip->block == reference->block
                  : !chip;
    return chip == software && sameAsReference;
  }
};

void print(const Answers& answers, Output& output) {
  const std::optional<RouteView>& some = answers.chip ? answers.chip : answers.software;
  const RouteView::Lines chip = answers.chip ? answers.chip->lines() : RouteView::Lines();
  int column = kLeastColumn;
  for (const auto& [label, value] : chip) {
    column = std::max(column, static_cast<int>(value.size()) + 2);
  }
  output.line(format("%-*s%-*s%s", kLabel, "", column, "chip", "software"));
  if (!some) {
    output.line(format("%-*s%-*s%s", kLabel, "longest match", column, "none", "none"));
  } else {
    const RouteView::Lines labels = some->lines();
    const RouteView::Lines software =
        answers.software ? answers.software->lines() : RouteView::Lines();
    for (std::size_t i = 0; i < labels.size(); ++i) {
      const std::string left = chip.empty() ? (i == 0 ? "none" : "") : chip[i].second;
      const std::string right = software.empty() ? (i == 0 ? "none" : "") : software[i].second;
      output.line(format("%-*s%-*s%s%s", kLabel, labels[i].first.c_str(), column, left.c_str(),
                         right.c_str(), left == right ? "" : "   <- differs"));
    }
  }
  output.line(format("%-*s", kLabel, "reference") +
              (answers.reference
                   ? answers.referencePrefix + " to " + rowsText(answers.reference->block)
                   : "no match") +
              (answers.agree() ? ", all agree" : ", they do not all agree"));
}

}  // namespace

Verdict lookup(Session& session, const Command& command, Output& output) {
  const AddressKey key = addressOf(command.words);
  Answers answers{.chip = chipView(session, key.vrf, key.address),
                  .software = {},
                  .reference = session.reference(key.vrf, key.address),
                  .referencePrefix = {}};
  if (const auto match = softwareMatch(session, key.vrf, key.address)) {
    answers.software = softwareView(session, *match);
  }
  if (answers.reference) {
    answers.referencePrefix = Agent::toText(Agent::RouteKey{
        .vrf = key.vrf,
        .prefix =
            Agent::RoutePrefix::of(key.address.family, Agent::AddressBits::of(key.address.bytes),
                                   answers.reference->length)});
  }
  if (!output.json()) {
    print(answers, output);
    return answers.agree() ? Verdict::done : Verdict::wrong;
  }
  Json json{{"address", Agent::toText(key.address)},
            {"vrf", key.vrf},
            {"chip", answers.chip ? answers.chip->toJson() : Json()},
            {"software", answers.software ? answers.software->toJson() : Json()},
            {"reference", nullptr},
            {"agree", answers.agree()}};
  if (answers.reference) {
    const TarnletNextHop::NextHopBlock& block = answers.reference->block;
    json["reference"] = {
        {"prefix", answers.referencePrefix},
        {"next_hop_rows", {{"base", block.base().value()}, {"size", block.size().value()}}}};
  }
  output.object(json);
  return answers.agree() ? Verdict::done : Verdict::wrong;
}

}  // namespace Quarle::Cli
