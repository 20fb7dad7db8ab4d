// What any keeper of routes with three indexes must do at least: for each route one operation on
// each of three hash maps keyed by the route's address in memory, four CRCs of its key, and two
// write commands queued. Nothing is placed, moved or checked. It bounds a rate from above and
// memory from below.

#include <algorithm>
#include <array>
#include <deque>
#include <string>

#include "bench/Subject.h"

#include <absl/container/flat_hash_map.h>
#include <CLI/CLI.hpp>

namespace Quarle::Bench {

namespace {

constexpr std::array<U16, 4> kPolynomials = {0x1021, 0x8005, 0x3d65, 0x8bb7};

using CrcTable = std::array<U16, 256>;

constexpr CrcTable crcTable(U16 polynomial) {
  CrcTable table{};
  for (U32 byte = 0; byte < table.size(); ++byte) {
    U32 remainder = byte << 8;
    for (int bit = 0; bit < 8; ++bit) {
      remainder = (remainder & 0x8000) != 0 ? remainder << 1 ^ polynomial : remainder << 1;
    }
    table[byte] = static_cast<U16>(remainder);
  }
  return table;
}

constexpr std::array<CrcTable, kPolynomials.size()> kCrcTables = {
    crcTable(kPolynomials[0]), crcTable(kPolynomials[1]), crcTable(kPolynomials[2]),
    crcTable(kPolynomials[3])};

/// The bytes that a hash-indexed table hashes: address, length, number of the table.
using TableKey = std::array<U8, 18>;

U16 crc16(const CrcTable& table, const TableKey& key) {
  U16 crc = 0xffff;
  for (const U8 byte : key) {
    crc = static_cast<U16>(crc << 8 ^ table[static_cast<U8>(crc >> 8 ^ byte)]);
  }
  return crc;
}

/// One write to a table: where and what, in 40 bytes.
struct WriteCommand {
  U32 op;
  U32 table;
  U32 row;
  U32 slot;
  std::array<U8, 16> address;
  U64 data;
};

class Floor final : public Subject {
 public:
  explicit Floor(const std::vector<WorkRoute>& routes) : routes_(routes) {
    // In memory by address, whatever the order of the requests: else a route's place there would
    // tell the next one's.
    std::sort(routes_.begin(), routes_.end(),
              [](const WorkRoute& a, const WorkRoute& b) { return a.prefix < b.prefix; });
    visited_.reserve(routes.size());
    for (const WorkRoute& route : routes) {
      visited_.push_back(&*std::lower_bound(
          routes_.begin(), routes_.end(), route,
          [](const WorkRoute& a, const WorkRoute& b) { return a.prefix < b.prefix; }));
    }
    ownCopies_ = static_cast<std::int64_t>(routes_.capacity() * sizeof(WorkRoute) +
                                           visited_.capacity() * sizeof(visited_[0]));
  }

  void insert(std::size_t route, U8 nextHop) override {
    const WorkRoute* key = visited_[route];
    const U32 row = queueWrites(*key, 1, nextHop);
    byRoute_.emplace(key, nextHop);
    byOwner_.emplace(key, row);
    byPlace_.emplace(key, row);
  }

  void update(std::size_t route, U8 nextHop) override {
    const WorkRoute* key = visited_[route];
    const U32 row = queueWrites(*key, 2, nextHop);
    byRoute_.find(key)->second = nextHop;
    byOwner_.find(key)->second = row;
    byPlace_.find(key)->second = row;
  }

  void remove(std::size_t route) override {
    const WorkRoute* key = visited_[route];
    queueWrites(*key, 3, 0);
    byRoute_.erase(key);
    byOwner_.erase(key);
    byPlace_.erase(key);
  }

  std::int64_t bytes() const override {
    // The others' queues are empty when they are asked.
    const auto queued = static_cast<std::int64_t>(commands_.size() * sizeof(WriteCommand));
    return Subject::bytes() - ownCopies_ - queued;
  }

  void prepareCheck() override { std::deque<WriteCommand>().swap(commands_); }

  bool leadsTo(std::size_t route, std::optional<U8> nextHop) override {
    const auto place = byRoute_.find(visited_[route]);
    return nextHop ? place != byRoute_.end() && place->second == *nextHop : place == byRoute_.end();
  }

 private:
  using Index = absl::flat_hash_map<const WorkRoute*, U64>;

  U32 queueWrites(const WorkRoute& route, U32 op, U8 nextHop) {
    TableKey key;
    std::copy(route.prefix.address.begin(), route.prefix.address.end(), key.begin());
    key[16] = route.prefix.length;
    key[17] = 1;
    U32 row = 0;
    for (const CrcTable& table : kCrcTables) {
      row ^= crc16(table, key);
    }
    for (const U32 table : {0U, 1U}) {
      commands_.push_back({.op = op,
                           .table = table,
                           .row = row,
                           .slot = 0,
                           .address = route.prefix.address,
                           .data = nextHop});
    }
    return row;
  }

  std::vector<WorkRoute> routes_;
  std::vector<const WorkRoute*> visited_;
  std::int64_t ownCopies_ = 0;
  Index byRoute_;
  Index byOwner_;
  Index byPlace_;
  std::deque<WriteCommand> commands_;
};

int main(int argc, char** argv) {
  CLI::App app("The least that a keeper of routes can do, timed like RouteBench.", "Floor");
  WorkloadOptions options;
  addWorkloadOptions(app, options);
  return runProgram("Floor", app, argc, argv, [&] {
    return runLoads(
        "floor_4crc", options, Workload(options),
        [](Agent::Family, const std::vector<WorkRoute>& routes) {
          return std::make_unique<Floor>(routes);
        },
        /*withCounts=*/false);
  });
}

}  // namespace

}  // namespace Quarle::Bench

int main(int argc, char** argv) { return Quarle::Bench::main(argc, argv); }
