// show: what stands where, from the library's own summaries as far as it has them.

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "cli/Text.h"
#include "cli/shell/ObjectText.h"
#include "cli/shell/ResourceTree.h"
#include "cli/shell/RouteView.h"
#include "cli/shell/ShellError.h"
#include "cli/shell/Verbs.h"
#include "cli/shell/Words.h"
#include "cli/shell/WrittenText.h"

namespace Quarle::Cli {

namespace {

using Agent::Family;
using TarnletNextHop::NextHopBlock;
using Vellor::GenericIf;
using Vellor::genericIf;

constexpr std::array kFamilies = {std::pair(Family::ipv4, "ipv4"), std::pair(Family::ipv6, "ipv6")};

GenericIf::Ptr engineFace(const Session& session, Family family) {
  return genericIf(session.engine(family));
}

/// What an operation of the library prints to a descriptor.
std::string printed(const GenericIf::Ptr& engine, const char* operation) {
  return writtenBy(
      [&](int descriptor) { engine->call(operation, {static_cast<U32>(descriptor)}); });
}

/// The records of a summary, which has single quotes and a comma behind every member and record.
Json recordsOf(std::string text) {
  std::replace(text.begin(), text.end(), '\'', '"');
  std::string list = "[";
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isTrailing = text[i] == ',' && (i + 1 == text.size() || text[i + 1] == '}');
    if (!isTrailing) {
      list += text[i];
    }
  }
  return Json::parse(list + "]");
}

U64 numberOf(const GenericIf::Ptr& face, const char* attribute) {
  return Vellor::fromGenericIf<U64>(face->get(attribute), attribute);
}

Verdict showSummary(Session& session, Output& output) {
  for (const auto& [family, name] : kFamilies) {
    const GenericIf::Ptr engine = engineFace(session, family);
    if (!output.json()) {
      std::string text = printed(engine, "showSoftwareSummary");
      text.pop_back();
      output.line(text);
      continue;
    }
    output.object({{"family", name},
                   {"hash_shuffling",
                    Vellor::fromGenericIf<bool>(engine->get("hashShufflingEnabled"), "summary")},
                   {"attempts", numberOf(engine, "numHashShufflingAttempt")},
                   {"success", numberOf(engine, "numHashShufflingSuccess")},
                   {"nexthop_block_defrags", numberOf(engine, "numNhiBlockDefrag")},
                   {"nexthop_index_shared", engine->count("sharedNhi")},
                   {"routes", session.client().family(family).routes()}});
  }
  return Verdict::done;
}

Verdict showTables(Session& session, Output& output) {
  if (!output.json()) {
    output.line(format("%-8s%6s%7s%26s%12s", "family", "table", "tread", "rows", "prefixes"));
  }
  for (const auto& [family, name] : kFamilies) {
    for (const Json& table : recordsOf(printed(engineFace(session, family), "printPrefixTables"))) {
      const U64 id = table["prefixTblId"];
      const U64 tread = table["prefixTblTread"];
      const U64 used = table["subTries"];
      const U64 capacity = table["subTriesCapacity"];
      const U64 prefixes = table["totalPrefixes"];
      if (output.json()) {
        output.object({{"family", name},
                       {"table", id},
                       {"tread", tread},
                       {"rows_used", used},
                       {"rows_capacity", capacity},
                       {"prefixes", prefixes}});
      } else {
        output.line(format("%-8s%6s%7s%26s%12s", name, std::to_string(id).c_str(),
                           std::to_string(tread).c_str(), share(used, capacity).c_str(),
                           grouped(prefixes).c_str()));
      }
    }
  }
  return Verdict::done;
}

Verdict showTiles(Session& session, Output& output) {
  if (!output.json()) {
    output.line(format("%-8s%6s%28s", "family", "tile", "entries used"));
  }
  for (const auto& [family, name] : kFamilies) {
    std::map<U64, std::pair<U64, U64>> tiles;
    for (const Json& tile : recordsOf(printed(engineFace(session, family), "printNhiTiles"))) {
      const U64 capacity = tile["entriesCapacity"];
      const U64 free = tile["freeEntries"];
      tiles[tile["tileId"]] = {capacity - free, capacity};
    }
    for (const auto& [id, entries] : tiles) {
      if (output.json()) {
        output.object({{"family", name},
                       {"tile", id},
                       {"entries_used", entries.first},
                       {"entries_capacity", entries.second}});
      } else {
        output.line(format("%-8s%6s%28s", name, std::to_string(id).c_str(),
                           share(entries.first, entries.second).c_str()));
      }
    }
  }
  return Verdict::done;
}

Verdict showNextHops(Session& session, Output& output) {
  std::map<U32, NextHopBlock> blocks;
  const auto engine = session.nextHopEngine();
  for (const auto& member : engine->status()->swIdToNextHopBlockCollection()) {
    blocks.emplace(member.value.base().value(), member.value);
  }
  if (!output.json()) {
    output.line(format("%-8s%-10s%-24s%s", "group", "kind", "rows", "next hops"));
  }
  const Agent::NextHopGroups& groups = session.client().groups();
  for (const auto& [base, block] : blocks) {
    const std::vector<U64> nextHops = session.nextHopsOf(block);
    const bool isGroup = !nextHops.empty();
    const Agent::SwId group = isGroup ? groups.groupAt(block) : Agent::SwId();
    const char* kind = !isGroup                                         ? "stranger"
                       : groups.kind(group) == Agent::GroupKind::shared ? "shared"
                                                                        : "own";
    if (output.json()) {
      output.object({{"group", isGroup ? Json(group.value()) : Json()},
                     {"kind", kind},
                     {"base", base},
                     {"size", block.size().value()},
                     {"next_hops", nextHops}});
    } else {
      output.line(format("%-8s%-10s%-24s%s", isGroup ? std::to_string(group.value()).c_str() : "-",
                         kind, rowsText(block).c_str(), nextHopsText(nextHops).c_str()));
    }
  }
  const Agent::NextHopStatistics statistics = groups.statistics();
  if (!output.json()) {
    output.line(grouped(statistics.groups) + " groups in " +
                share(statistics.rowsUsed, statistics.rowCapacity) + " of the rows");
  }
  return Verdict::done;
}

Verdict showCommands(Session& session, Output& output) {
  for (const auto& [family, name] : kFamilies) {
    const Agent::CommandCounts& counts = session.client().family(family).commands();
    const U32 pending = session.engine(family)->status()->pendingCmds();
    if (output.json()) {
      output.object(
          {{"family", name}, {"prefix", counts.prefix}, {"nhi", counts.nhi}, {"pending", pending}});
    } else {
      output.line(format("%-6s%s prefix and %s NHI commands carried out, %s waiting", name,
                         grouped(counts.prefix).c_str(), grouped(counts.nhi).c_str(),
                         grouped(pending).c_str()));
    }
  }
  const XdkSim::ChipCounters& chip = session.chip().counters();
  if (output.json()) {
    output.object({{"chip_writes",
                    {{"prefix", chip.prefixWrites},
                     {"nhi", chip.nhiWrites},
                     {"next_hop", chip.nextHopWrites},
                     {"refused", chip.refusedWrites}}}});
  } else {
    output.line("chip  " + grouped(chip.prefixWrites) + " prefix, " + grouped(chip.nhiWrites) +
                " NHI and " + grouped(chip.nextHopWrites) + " next-hop rows written, " +
                grouped(chip.refusedWrites) + " writes refused");
  }
  return Verdict::done;
}

Verdict showRoute(Session& session, const Command& command, Output& output) {
  const Agent::RouteKey key = routeOf(std::span(command.words).subspan(1));
  const std::optional<RouteView> view = softwareView(session, key);
  const Agent::RefusedWish* wish = session.client().family(key.prefix.family).refused().find(key);
  if (output.json()) {
    output.object({{"route", Agent::toText(key)},
                   {"installed", view.has_value()},
                   {"place", view ? view->toJson() : Json()},
                   {"refused", wish == nullptr ? Json() : Json(Agent::toText(wish->reason))}});
    return Verdict::done;
  }
  if (view) {
    for (const auto& [label, value] : view->lines()) {
      output.line(
          format("%-16s%s", label == "longest match" ? "route" : label.c_str(), value.c_str()));
    }
  } else {
    output.line(Agent::toText(key) + " is not installed");
  }
  if (wish != nullptr) {
    output.line(std::string(wish->isWithdrawal() ? "withdrawal" : "wish") +
                " refused: " + sentence(wish->reason));
  }
  return Verdict::done;
}

Verdict showRefused(Session& session, const Command& command, Output& output) {
  constexpr U64 kFirstWishes = 20;
  for (const auto& [family, name] : kFamilies) {
    const Agent::RefusedWishes& refused = session.client().family(family).refused();
    U64 told = 0;
    refused.forEach([&](const Agent::RefusedWish& wish) {
      if (!command.all && told == kFirstWishes) {
        return;
      }
      ++told;
      if (output.json()) {
        output.object({{"route", Agent::toText(wish.key)},
                       {"withdrawal", wish.isWithdrawal()},
                       {"refused", Agent::toText(wish.reason)}});
      } else {
        output.line(format("%-32s %s%s", Agent::toText(wish.key).c_str(),
                           wish.isWithdrawal() ? "withdrawal, " : "", sentence(wish.reason)));
      }
    });
    if (told != refused.size() && !output.json()) {
      output.line("... " + grouped(refused.size() - told) + " more of " + name + ", with --all");
    }
  }
  return Verdict::done;
}

void printResource(const Resource& resource, const std::string& indent, Output& output) {
  output.line(format("%-40s size %10s  occ %10s  unit %s", (indent + resource.name).c_str(),
                     std::to_string(resource.size).c_str(),
                     std::to_string(resource.occupied).c_str(), resource.unit));
  for (const Resource& part : resource.parts) {
    printResource(part, indent + "  ", output);
  }
}

void streamResource(const Resource& resource, const std::string& above, Output& output) {
  const std::string path = above + "/" + resource.name;
  output.object({{"resource", path},
                 {"size", resource.size},
                 {"occ", resource.occupied},
                 {"unit", resource.unit}});
  for (const Resource& part : resource.parts) {
    streamResource(part, path, output);
  }
}

Verdict showResource(Session& session, Output& output) {
  for (const Resource& resource : resourcesOf(session)) {
    if (output.json()) {
      streamResource(resource, "", output);
    } else {
      printResource(resource, "", output);
    }
  }
  return Verdict::done;
}

}  // namespace

std::vector<std::string> showTopics() {
  return {"summary", "tables", "tiles", "nexthops", "commands", "refused", "route", "resource"};
}

Verdict show(Session& session, const Command& command, Output& output) {
  const std::vector<std::string> topics = showTopics();
  const std::string topic = command.words.empty() ? "" : command.words[0];
  const std::string expected =
      "expected summary, tables, tiles, nexthops, commands, refused, route PREFIX or resource";
  if (std::find(topics.begin(), topics.end(), topic) == topics.end()) {
    throw ShellError((topic.empty() ? std::string("0 words") : Agent::inQuotes(topic)) + ", " +
                     expected + nearestText(topic, topics));
  }
  if (topic == "route") {
    return showRoute(session, command, output);
  }
  if (command.words.size() != 1) {
    throw ShellError(topic + " with " + Agent::inQuotes(command.words[1]) + " behind it, " +
                     expected);
  }
  return topic == "summary"    ? showSummary(session, output)
         : topic == "tables"   ? showTables(session, output)
         : topic == "tiles"    ? showTiles(session, output)
         : topic == "nexthops" ? showNextHops(session, output)
         : topic == "commands" ? showCommands(session, output)
         : topic == "refused"  ? showRefused(session, command, output)
                               : showResource(session, output);
}

}  // namespace Quarle::Cli
