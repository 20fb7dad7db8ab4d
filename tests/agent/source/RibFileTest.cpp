#include "agent/source/RibFile.h"

#include <unistd.h>

#include <fstream>
#include <string>
#include <utility>

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

#include "agent/source/InputFile.h"
#include "agent/source/RouteText.h"

namespace Quarle::Agent {
namespace {

using AddFilter = int (*)(archive*);

class RibFileTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "rib-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr) << pattern;
    directory_ = pattern;
  }

  void TearDown() override { std::filesystem::remove_all(directory_); }

  std::filesystem::path write(const std::string& name, const std::string& content) {
    const std::filesystem::path path = directory_ / name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }

  /// Writes `content` through the compression that `addFilter` sets up.
  std::filesystem::path writePacked(const std::string& name,
                                    const std::string& content,
                                    AddFilter addFilter) {
    const std::filesystem::path path = directory_ / name;
    archive* writer = archive_write_new();
    archive_write_set_format_raw(writer);
    EXPECT_EQ(addFilter(writer), ARCHIVE_OK) << archive_error_string(writer);
    EXPECT_EQ(archive_write_open_filename(writer, path.c_str()), ARCHIVE_OK);
    archive_entry* entry = archive_entry_new();
    archive_entry_set_filetype(entry, AE_IFREG);
    EXPECT_EQ(archive_write_header(writer, entry), ARCHIVE_OK);
    EXPECT_EQ(archive_write_data(writer, content.data(), content.size()),
              static_cast<la_ssize_t>(content.size()));
    archive_entry_free(entry);
    EXPECT_EQ(archive_write_free(writer), ARCHIVE_OK);
    return path;
  }

  static void cutTo(const std::filesystem::path& path, std::uintmax_t bytes) {
    ASSERT_GT(std::filesystem::file_size(path), bytes);
    std::filesystem::resize_file(path, bytes);
  }

  /// `message` without the directory of this test.
  std::string local(const std::string& message) const {
    const std::string prefix = directory_.string() + "/";
    return message.substr(message.starts_with(prefix) ? prefix.size() : 0);
  }

  /// The routes, then the counts and the faults, a line each.
  std::string load(const std::filesystem::path& path, const RibOptions& options = {}) const {
    const RibLoad load = loadRibFile(path, options);
    std::string result;
    for (const Family family : {Family::ipv4, Family::ipv6}) {
      for (const RouteEntry& route : load.table.routes(family)) {
        result += toText(route.prefix);
        for (const IpAddress& nextHop : load.table.nextHopSets.at(route.nextHopSet)) {
          result += " " + toText(nextHop);
        }
        result += "\n";
      }
    }
    result += "lines " + std::to_string(load.report.lines) + " bad " +
              std::to_string(load.report.badLines) + " duplicates " +
              std::to_string(load.report.duplicates) + "\n";
    for (const std::string& fault : load.report.faults) {
      result += local(fault) + "\n";
    }
    return result;
  }

  std::string error(const std::filesystem::path& path, const RibOptions& options = {}) const {
    try {
      loadRibFile(path, options);
    } catch (const RibError& error) {
      return local(error.what());
    }
    return "no error";
  }

  std::filesystem::path directory_;
};

TEST_F(RibFileTest, routesCommentsAndBlanksAreRead) {
  EXPECT_EQ(load(write("rib.txt",
                       "# a table\n"
                       "\n"
                       "10.0.0.0/8 192.0.2.1 192.0.2.2\n"
                       "  10.1.0.0/16\t192.0.2.1\t\r\n"
                       "2001:db8::/32 fe80::1 # the lab\n"
                       "0.0.0.0/0\n"
                       "\r\n"
                       "198.51.100.0/24 2001:db8::1")),
            "10.0.0.0/8 192.0.2.1 192.0.2.2\n"
            "10.1.0.0/16 192.0.2.1\n"
            "0.0.0.0/0\n"
            "198.51.100.0/24 2001:db8::1\n"
            "2001:db8::/32 fe80::1\n"
            "lines 8 bad 0 duplicates 0\n");
}

TEST_F(RibFileTest, aBadLineIsToldWithItsPlaceAndTheLoadGoesOn) {
  EXPECT_EQ(load(write("rib.txt",
                       "10.0.0.0/8\n"
                       "10.0.0.1/8\n"
                       "# comment\n"
                       "10.1.0.0/16 via 192.0.2.1\n"
                       "10.2.0.0/16 192.0.2.1 x\n"
                       "11.0.0.0/8\n")),
            "10.0.0.0/8\n"
            "11.0.0.0/8\n"
            "lines 6 bad 3 duplicates 0\n"
            "rib.txt:2: \"10.0.0.1/8\" has host bits set, expected 10.0.0.0/8\n"
            "rib.txt:4: next hop \"via\" is no address, expected an IPv4 or IPv6 address\n"
            "rib.txt:5: next hop \"x\" is no address, expected an IPv4 or IPv6 address\n");
}

TEST_F(RibFileTest, theFirstFaultsAreKeptAndAllAreCounted) {
  EXPECT_EQ(load(write("rib.txt", "a\nb\nc\n"), {.faultsKept = 1}),
            "lines 3 bad 3 duplicates 0\n"
            "rib.txt:1: \"a\" is no prefix, expected one such as 192.0.2.0/24 or 2001:db8::/32\n");
}

TEST_F(RibFileTest, strictEndsAtTheFirstBadLine) {
  EXPECT_EQ(error(write("rib.txt", "10.0.0.0/8\n10.0.0.0/40\nb\n"), {.strict = true}),
            "rib.txt:2: \"10.0.0.0/40\" has no valid length, expected a number from 0 to 32");
}

TEST_F(RibFileTest, theLastOfDuplicatesHolds) {
  EXPECT_EQ(load(write("rib.txt",
                       "10.0.0.0/8 192.0.2.1\n"
                       "10.0.0.0/9\n"
                       "10.0.0.0/8 192.0.2.2\n"
                       "10.0.0.0/8 192.0.2.3\n"
                       "10.0.0.0/8 bad\n")),
            "10.0.0.0/8 192.0.2.3\n"
            "10.0.0.0/9\n"
            "lines 5 bad 1 duplicates 2\n"
            "rib.txt:5: next hop \"bad\" is no address, expected an IPv4 or IPv6 address\n");
}

TEST_F(RibFileTest, compressionIsToldByContentNotByName) {
  const std::string rib = "10.0.0.0/8 192.0.2.1\n2001:db8::/32\n";
  const std::string result = "10.0.0.0/8 192.0.2.1\n2001:db8::/32\nlines 2 bad 0 duplicates 0\n";
  EXPECT_EQ(load(write("plain.gz", rib)), result);
  EXPECT_EQ(load(writePacked("gzip.txt", rib, archive_write_add_filter_gzip)), result);
  EXPECT_EQ(load(writePacked("bzip2.txt", rib, archive_write_add_filter_bzip2)), result);
  EXPECT_EQ(load(writePacked("xz.txt", rib, archive_write_add_filter_xz)), result);
  EXPECT_EQ(load(writePacked("zstd.txt", rib, archive_write_add_filter_zstd)), result);
}

TEST_F(RibFileTest, twoGzipStreamsInOneFileAreOneTable) {
  const auto content = [](const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  const std::string first =
      content(writePacked("1.gz", "10.0.0.0/8\n", archive_write_add_filter_gzip));
  const std::string second =
      content(writePacked("2.gz", "11.0.0.0/8\n", archive_write_add_filter_gzip));
  EXPECT_EQ(load(write("both.gz", first + second)),
            "10.0.0.0/8\n11.0.0.0/8\nlines 2 bad 0 duplicates 0\n");
}

TEST_F(RibFileTest, anEmptyFileIsAnEmptyTable) {
  const std::string result = "lines 0 bad 0 duplicates 0\n";
  EXPECT_EQ(load(write("rib.txt", "")), result);
  EXPECT_EQ(load(writePacked("rib.gz", "", archive_write_add_filter_gzip)), result);
  EXPECT_EQ(load(writePacked("rib.bz2", "", archive_write_add_filter_bzip2)), result);
}

TEST_F(RibFileTest, linesAreKeptWholeAcrossBlocks) {
  std::string rib;
  std::string expected;
  for (int i = 0; i < 60'000; ++i) {
    const std::string line =
        "10." + std::to_string(i / 256) + "." + std::to_string(i % 256) + ".0/24\n";
    rib += line;
    expected += line;
  }
  expected += "lines 60000 bad 0 duplicates 0\n";
  EXPECT_TRUE(load(write("rib.txt", rib)) == expected);
  EXPECT_TRUE(load(writePacked("rib.gz", rib, archive_write_add_filter_gzip)) == expected);
}

TEST_F(RibFileTest, anOverlongLineIsOneBadLine) {
  const std::string longLine(300'000, 'x');
  EXPECT_EQ(load(write("rib.txt", "10.0.0.0/8\n" + longLine + "\n11.0.0.0/8\n" + longLine)),
            "10.0.0.0/8\n"
            "11.0.0.0/8\n"
            "lines 4 bad 2 duplicates 0\n"
            "rib.txt:2: line is longer than 65536 bytes, expected prefix[ nexthop...]\n"
            "rib.txt:4: line is longer than 65536 bytes, expected prefix[ nexthop...]\n");
}

TEST_F(RibFileTest, aLineOf64KibibytesStillFits) {
  const std::string fits = "10.0.0.0/8" + std::string(65'526, ' ');
  EXPECT_EQ(load(write("rib.txt", fits + "\n" + fits + " \n")),
            "10.0.0.0/8\n"
            "lines 2 bad 1 duplicates 0\n"
            "rib.txt:2: line is longer than 65536 bytes, expected prefix[ nexthop...]\n");
}

TEST_F(RibFileTest, aFileCutOffIsAnErrorOfOneLine) {
  std::string rib;
  for (int i = 0; i < 20'000; ++i) {
    rib += std::to_string(i * 7919 % 223 + 1) + "." + std::to_string(i * 31 % 256) + "." +
           std::to_string(i % 256) + ".0/24\n";
  }
  const auto packed = [&](const char* name, AddFilter addFilter) {
    const std::filesystem::path path = writePacked(name, rib, addFilter);
    cutTo(path, std::filesystem::file_size(path) / 2);
    return path;
  };
  // Behind the bracket stand the words of the unpacking library, which its versions change.
  const auto start = [](const std::string& message) {
    return message.substr(0, message.find('(')) + message.substr(message.rfind(')') + 1);
  };
  const auto expected = [](const std::string& name) {
    return name + ": damaged or cut off , expected a whole readable file";
  };
  const std::pair<const char*, AddFilter> packings[] = {{"rib.gz", archive_write_add_filter_gzip},
                                                        {"rib.bz2", archive_write_add_filter_bzip2},
                                                        {"rib.xz", archive_write_add_filter_xz},
                                                        {"rib.zst", archive_write_add_filter_zstd}};
  for (const auto& [name, addFilter] : packings) {
    const std::string message = error(packed(name, addFilter));
    EXPECT_EQ(start(message), expected(name)) << message;
    EXPECT_EQ(message.find('\n'), std::string::npos) << message;
  }
}

TEST_F(RibFileTest, aGzipFileCutBehindItsHeaderIsNoEmptyTable) {
  const std::filesystem::path path =
      writePacked("rib.gz", "10.0.0.0/8\n", archive_write_add_filter_gzip);
  for (const int bytes : {12, 11, 10}) {
    cutTo(path, bytes);
    EXPECT_TRUE(error(path).starts_with("rib.gz: damaged or cut off ("))
        << error(path) << " with " << bytes << " bytes";
  }
}

TEST_F(RibFileTest, whatCannotBeOpenedIsToldInOneLine) {
  EXPECT_EQ(error(directory_ / "none.txt"),
            "none.txt: cannot be opened (No such file or directory), "
            "expected a readable file of routes");
  std::filesystem::create_directory(directory_ / "folder");
  EXPECT_EQ(error(directory_ / "folder"), "folder: is a directory, expected a file of routes");
}

TEST_F(RibFileTest, progressRisesToTheSizeOfTheFile) {
  std::string rib;
  for (int i = 0; i < 60'000; ++i) {
    rib += "10." + std::to_string(i / 256) + "." + std::to_string(i % 256) + ".0/24\n";
  }
  for (const std::filesystem::path& path :
       {write("rib.txt", rib), writePacked("rib.gz", rib, archive_write_add_filter_gzip)}) {
    const std::uint64_t size = std::filesystem::file_size(path);
    std::uint64_t last = 0;
    int calls = 0;
    const auto progress = [&](std::uint64_t read, std::uint64_t total) {
      EXPECT_EQ(total, size);
      EXPECT_GE(read, last);
      last = read;
      ++calls;
    };
    loadRibFile(path, {.progress = progress});
    EXPECT_EQ(last, size) << path;
    EXPECT_GT(calls, 1) << path;
  }
}

}  // namespace
}  // namespace Quarle::Agent
