// Summaries on a descriptor, byte for byte, and the level 9 dumps, called by name.

#include <cstdio>
#include <functional>
#include <string>

#include <unistd.h>

#include "framework/Vellor/GenericIf.h"
#include "tests/support/ChipStory.h"
#include "tests/support/TraceLines.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Vellor::genericIf;

class Summary : public ChipTest {
 protected:
  Vellor::GenericIf::Ptr sm() { return genericIf(&chip.sm()); }

  /// What the operation writes to the descriptor that it is given.
  std::string written(const char* operation) {
    std::FILE* file = std::tmpfile();
    sm()->call(operation, {static_cast<U32>(fileno(file))});
    std::string text;
    std::rewind(file);
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) {
      text += static_cast<char>(c);
    }
    std::fclose(file);
    return text;
  }
};

TEST_F(Summary, ofAnEmptyMachine) {
  chip.tables({});
  EXPECT_EQ(written("showSoftwareSummary"),
            "\nIPv4 Lpm Summary\n"
            " Hash shuffling enabled: True\n"
            "  attempts: 0, success: 0\n"
            " Nexthop block defrags: 0\n"
            " Nexthop index shared: 0\n");
  EXPECT_EQ(written("printPrefixTables"), "");
  chip.sm().nhiAllocatorDelAll();
  EXPECT_EQ(written("printNhiTiles"), "");
}

TEST_F(Summary, tellsTheCounts) {
  chip.tables({{.id = 0, .tread = 32, .depth = 256}});
  chip.route("10.1.0.0/24", via(7)).route("10.2.0.0/24", via(7)).route("10.3.0.0/24", via(8));
  chip.sm().numHashShufflingAttemptIs(U64{1} << 40);
  chip.sm().numHashShufflingSuccessIs(3);
  chip.sm().numNhiBlockDefragIs(5);
  EXPECT_EQ(written("showSoftwareSummary"),
            "\nIPv4 Lpm Summary\n"
            " Hash shuffling enabled: True\n"
            "  attempts: 1099511627776, success: 3\n"
            " Nexthop block defrags: 5\n"
            " Nexthop index shared: 2\n");
}

TEST_F(Summary, leavesTheAttemptsOutWithoutShuffling) {
  chip.ipv6().tables({});
  sm()->set("hashShufflingEnabled", false);
  EXPECT_EQ(written("showSoftwareSummary"),
            "\nIPv6 Lpm Summary\n"
            " Hash shuffling enabled: False\n"
            " Nexthop block defrags: 0\n"
            " Nexthop index shared: 0\n");
}

TEST_F(Summary, listsTilesInTheOrderOfTheMap) {
  chip.tables({{.id = 0, .tread = 16, .depth = 16}}).tiles(4, 8);
  const Brumel::BFA::Blk::Ptr taken = chip.sm().nhiAllocator(1)->alloc(3);
  EXPECT_EQ(written("printNhiTiles"),
            "{'tileId':0,'freeEntries':8,'entriesCapacity':8,},"
            "{'tileId':2,'freeEntries':8,'entriesCapacity':8,},"
            "{'tileId':1,'freeEntries':5,'entriesCapacity':8,},"
            "{'tileId':3,'freeEntries':8,'entriesCapacity':8,},");
}

TEST_F(Summary, listsTablesByFallingTread) {
  chip.tables({{.id = 0, .tread = 16, .depth = 16}, {.id = 5, .tread = 32, .depth = 70000}});
  chip.route("10.1.0.0/24", via(7)).route("10.0.0.0/12", via(7)).route("20.1.2.0/28", via(8));
  EXPECT_EQ(written("printPrefixTables"),
            "{'prefixTblId':5,'prefixTblTread':32,'subTries':2,'totalPrefixes':2,"
            "'subTriesCapacity':70000,},"
            "{'prefixTblId':0,'prefixTblTread':16,'subTries':1,'totalPrefixes':1,"
            "'subTriesCapacity':16,},");
}

TEST_F(Summary, theListsKeepTheLowBitsOfADescriptor) {
  chip.tables({{.id = 0, .tread = 16, .depth = 16}});
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  sm()->call("printPrefixTables", {static_cast<U32>(ends[1]) + 256});
  close(ends[1]);
  char text[16] = {};
  EXPECT_EQ(read(ends[0], text, 14), 14);
  close(ends[0]);
  EXPECT_STREQ(text, "{'prefixTblId'");
}

TEST_F(Summary, theDumpsAreCalledByName) {
  chip.tables({{.id = 3, .tread = 16, .depth = 16}});
  chip.route("10.1.0.0/24", via(7));
  Vellor::Testing::TraceLines lines("TarnletSm", {9});
  Vellor::Testing::TraceLines model("Tarnlet", {9});
  sm()->call("dumpPrefixTables");
  const std::string all = model.take() + lines.take();
  EXPECT_NE(all.find("9:Dump prefix table 3 tread 16\n"), std::string::npos) << all;
  sm()->call("dumpPrefixTable", {chip.table(3)});
  EXPECT_EQ(model.take() + lines.take(), all);
}

}  // namespace
