#include "cli/LoadOptions.h"

#include "cli/OptionWords.h"

namespace Quarle::Cli {

namespace {

void addChip(CLI::App& app, LoadOptions& options) {
  app.add_option("--chip", options.chip, "Chip profile: a name or the path of a JSON file")
      ->type_name("PROFILE")
      ->capture_default_str();
  app.add_option("--chip-image", options.chipImage,
                 "Keep the chip's memory in a new file, and its next-hop groups in FILE.groups: "
                 "`tarnlet restart` takes over from there")
      ->type_name("FILE");
  app.add_flag("--replace-image", options.replaceImage,
               "Begin with an empty chip in the file even if there is an image");
}

void addManner(CLI::App& app, LoadOptions& options) {
  addChoice<Order>(
      app, "--order", {{"sorted", Order::sorted}, {"shuffled", Order::shuffled}},
      [&options](Order order) { options.order = order; },
      "Order of the requests: by address and length, or random (default: sorted)");
  addChoice<bool>(
      app, "--shuffling", {{"on", true}, {"off", false}},
      [&options](bool on) { options.shuffling = on; },
      "Whether a colliding row may move to another table (default: on)");
  app.add_flag("--churn", options.churn,
               "After the load withdraw a random half, announce it again, then change every "
               "route's next hops; each phase is verified and reported");
  app.add_option_function<std::string>(
         "--changes",
         [&options](const std::string& text) {
           const auto changes = parseNumber<std::uint32_t>(text);
           if (!changes) {
             refuse("--changes", text, "a number from 0 to 4294967295");
           }
           options.changes = *changes;
         },
         "After the load make N random changes: withdraw, announce, change next hops, new groups")
      ->type_name("N");
  app.add_flag("--every-command", options.everyCommand,
               "After every single write look up in the chip all that it may have touched");
  app.add_flag("--no-chip", options.noChip,
               "Drop the commands instead of writing them: the library alone, for measuring");
  addVerify(app, options.verify, "all; none with --no-chip");
  app.add_flag("--json", options.json, "Print one JSON object instead of the summary");
}

}  // namespace

const char* toText(Order order) { return order == Order::sorted ? "sorted" : "shuffled"; }

void LoadOptions::check() const {
  if (!hasSource()) {
    throw UsageError("load: no routes given, expected --rib FILE or --synthetic N4,N6");
  }
  if (noChip && verifyMode() != Verify::none) {
    throw UsageError("--verify " + std::string(toText(verifyMode())) +
                     ": nothing is written with --no-chip, expected none");
  }
  if (noChip && everyCommand) {
    throw UsageError("--every-command: nothing is written with --no-chip, expected one of the two");
  }
  if (noChip && !chipImage.empty()) {
    throw UsageError("--chip-image: nothing is written with --no-chip, expected one of the two");
  }
  if (replaceImage && chipImage.empty()) {
    throw UsageError("--replace-image: there is no image to replace, expected --chip-image FILE");
  }
  checkRoutes();
}

void addLoadOptions(CLI::App& app, LoadOptions& options) {
  addRouteOptions(app, options);
  addChip(app, options);
  addManner(app, options);
  app.footer(
      "bytes_per_route is the growth of the process's heap from before the first request to after\n"
      "the last command of a family, divided by its routes. It counts all that the library and "
      "the\n"
      "client keep for them, not the list of routes as read nor the simulated chip's memory.\n"
      "seconds.load runs from the first request to the empty command queue.\n"
      "\n"
      "Exit codes: 0 done, refused routes included; 1 a look-up was wrong, the chip refused a\n"
      "write, or --strict met a bad line; 2 the command line, a file or a profile cannot be used.");
}

}  // namespace Quarle::Cli
