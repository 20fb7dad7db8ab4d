// The same work on the routing tables of DPDK: rte_rib and rte_rib6 (the binary trie alone),
// rte_fib and rte_fib6 (the trie and a look-up table kept in step with it) and rte_lpm6.

#include <array>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>

#include "bench/Subject.h"

#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_fib.h>
#include <rte_fib6.h>
#include <rte_lpm6.h>
#include <rte_malloc.h>
#include <rte_rib.h>
#include <rte_rib6.h>
#include <CLI/CLI.hpp>

namespace Quarle::Bench {

namespace {

using Agent::Family;

constexpr U64 kMiss = 0xffff;

void startDpdk() {
  static std::array<std::string, 10> words = {
      "DpdkPeer", "--no-huge", "--no-pci", "--no-shconf", "--no-telemetry",
      "-m",       "1024",      "-l",       "0",           "--log-level=lib.*:error"};
  std::array<char*, words.size()> arguments{};
  for (std::size_t i = 0; i < words.size(); ++i) {
    arguments[i] = words[i].data();
  }
  if (rte_eal_init(static_cast<int>(arguments.size()), arguments.data()) < 0) {
    throw std::runtime_error(std::string("rte_eal_init: ") + rte_strerror(rte_errno) +
                             ", expected 1 GiB of memory to begin with");
  }
}

std::int64_t dpdkHeapInUse() {
  std::int64_t bytes = 0;
  for (int socket = 0; socket < RTE_MAX_NUMA_NODES; ++socket) {
    rte_malloc_socket_stats stats{};
    if (rte_malloc_get_socket_stats(socket, &stats) == 0) {
      bytes += static_cast<std::int64_t>(stats.heap_allocsz_bytes);
    }
  }
  return bytes;
}

template <typename Table>
Table* made(Table* table) {
  if (table == nullptr) {
    throw std::runtime_error(std::string("the table cannot be made: ") + rte_strerror(rte_errno));
  }
  return table;
}

/// What the tables share: addresses in the form that DPDK takes, its heap, and the check by looking
/// up first addresses. Where several routes begin at one address the longest answers for all.
///
/// Return codes are left alone: a request that was not served shows in the check.
class DpdkTable : public Subject {
 public:
  explicit DpdkTable(const std::vector<WorkRoute>& routes) : routes_(routes) {
    startDpdk();
    heapBefore_ = dpdkHeapInUse();
    std::map<Agent::IpAddress, U8> longest;
    for (const WorkRoute& route : routes) {
      U8& length = longest[route.prefix.firstAddress()];
      length = std::max(length, route.prefix.length);
    }
    answers_.reserve(routes.size());
    addresses_.reserve(routes.size());
    for (const WorkRoute& route : routes) {
      answers_.push_back(longest[route.prefix.firstAddress()] == route.prefix.length);
      U32 word = 0;
      std::memcpy(&word, route.prefix.address.data(), sizeof word);
      addresses_.push_back(__builtin_bswap32(word));
    }
  }

  std::int64_t bytes() const override { return dpdkHeapInUse() - heapBefore_; }

  bool leadsTo(std::size_t route, std::optional<U8> nextHop) override {
    return !answers_[route] || lookUp(route) == (nextHop ? *nextHop : kMiss);
  }

 protected:
  /// The next hop of the route's first address, or `kMiss`.
  virtual U64 lookUp(std::size_t route) const = 0;

  U32 address4(std::size_t route) const { return addresses_[route]; }

  const U8* address6(std::size_t route) const { return routes_[route].prefix.address.data(); }

  U8 length(std::size_t route) const { return routes_[route].prefix.length; }

  U32 count() const { return static_cast<U32>(routes_.size()); }

  /// A binary trie has fewer inner nodes than leaves.
  int trieNodes() const { return static_cast<int>(2 * count() + 1); }

 private:
  const std::vector<WorkRoute>& routes_;
  std::vector<U32> addresses_;
  std::vector<bool> answers_;
  std::int64_t heapBefore_ = 0;
};

class Rib4 final : public DpdkTable {
 public:
  explicit Rib4(const std::vector<WorkRoute>& routes) : DpdkTable(routes) {
    rte_rib_conf config{};
    config.max_nodes = trieNodes();
    rib_ = made(rte_rib_create("rib", SOCKET_ID_ANY, &config));
  }

  ~Rib4() override { rte_rib_free(rib_); }

  void insert(std::size_t route, U8 nextHop) override {
    if (rte_rib_node* node = rte_rib_insert(rib_, address4(route), length(route))) {
      rte_rib_set_nh(node, nextHop);
    }
  }

  void update(std::size_t route, U8 nextHop) override {
    if (rte_rib_node* node = rte_rib_lookup_exact(rib_, address4(route), length(route))) {
      rte_rib_set_nh(node, nextHop);
    }
  }

  void remove(std::size_t route) override { rte_rib_remove(rib_, address4(route), length(route)); }

 private:
  U64 lookUp(std::size_t route) const override {
    U64 nextHop = kMiss;
    if (const rte_rib_node* node = rte_rib_lookup(rib_, address4(route))) {
      rte_rib_get_nh(node, &nextHop);
    }
    return nextHop;
  }

  rte_rib* rib_;
};

class Rib6 final : public DpdkTable {
 public:
  explicit Rib6(const std::vector<WorkRoute>& routes) : DpdkTable(routes) {
    rte_rib6_conf config{};
    config.max_nodes = trieNodes();
    rib_ = made(rte_rib6_create("rib6", SOCKET_ID_ANY, &config));
  }

  ~Rib6() override { rte_rib6_free(rib_); }

  void insert(std::size_t route, U8 nextHop) override {
    if (rte_rib6_node* node = rte_rib6_insert(rib_, address6(route), length(route))) {
      rte_rib6_set_nh(node, nextHop);
    }
  }

  void update(std::size_t route, U8 nextHop) override {
    if (rte_rib6_node* node = rte_rib6_lookup_exact(rib_, address6(route), length(route))) {
      rte_rib6_set_nh(node, nextHop);
    }
  }

  void remove(std::size_t route) override { rte_rib6_remove(rib_, address6(route), length(route)); }

 private:
  U64 lookUp(std::size_t route) const override {
    U64 nextHop = kMiss;
    if (const rte_rib6_node* node = rte_rib6_lookup(rib_, address6(route))) {
      rte_rib6_get_nh(node, &nextHop);
    }
    return nextHop;
  }

  rte_rib6* rib_;
};

class Fib4 final : public DpdkTable {
 public:
  explicit Fib4(const std::vector<WorkRoute>& routes) : DpdkTable(routes) {
    // Groups of 256 longer addresses beneath a /24; a real table needs 385.
    constexpr U32 kGroups = 512;
    rte_fib_conf config{};
    config.type = RTE_FIB_DIR24_8;
    config.default_nh = kMiss;
    config.max_routes = static_cast<int>(count() + 1);
    config.dir24_8.nh_sz = RTE_FIB_DIR24_8_4B;
    config.dir24_8.num_tbl8 = kGroups;
    fib_ = made(rte_fib_create("fib", SOCKET_ID_ANY, &config));
  }

  ~Fib4() override { rte_fib_free(fib_); }

  void insert(std::size_t route, U8 nextHop) override {
    rte_fib_add(fib_, address4(route), length(route), nextHop);
  }

  void update(std::size_t route, U8 nextHop) override { insert(route, nextHop); }

  void remove(std::size_t route) override { rte_fib_delete(fib_, address4(route), length(route)); }

 private:
  U64 lookUp(std::size_t route) const override {
    U32 address = address4(route);
    U64 nextHop = kMiss;
    rte_fib_lookup_bulk(fib_, &address, &nextHop, 1);
    return nextHop;
  }

  rte_fib* fib_;
};

class Fib6 final : public DpdkTable {
 public:
  explicit Fib6(const std::vector<WorkRoute>& routes) : DpdkTable(routes) {
    constexpr U32 kGroups = 1U << 18;
    rte_fib6_conf config{};
    config.type = RTE_FIB6_TRIE;
    config.default_nh = kMiss;
    config.max_routes = static_cast<int>(count() + 1);
    config.trie.nh_sz = RTE_FIB6_TRIE_4B;
    config.trie.num_tbl8 = kGroups;
    fib_ = made(rte_fib6_create("fib6", SOCKET_ID_ANY, &config));
  }

  ~Fib6() override { rte_fib6_free(fib_); }

  void insert(std::size_t route, U8 nextHop) override {
    rte_fib6_add(fib_, address6(route), length(route), nextHop);
  }

  void update(std::size_t route, U8 nextHop) override { insert(route, nextHop); }

  void remove(std::size_t route) override { rte_fib6_delete(fib_, address6(route), length(route)); }

 private:
  U64 lookUp(std::size_t route) const override {
    U8 address[1][RTE_FIB6_IPV6_ADDR_SIZE];
    std::memcpy(address[0], address6(route), sizeof address[0]);
    U64 nextHop = kMiss;
    rte_fib6_lookup_bulk(fib_, address, &nextHop, 1);
    return nextHop;
  }

  rte_fib6* fib_;
};

class Lpm6 final : public DpdkTable {
 public:
  explicit Lpm6(const std::vector<WorkRoute>& routes) : DpdkTable(routes) {
    rte_lpm6_config config{};
    config.max_rules = count() + 1;
    config.number_tbl8s = 1U << 16;
    lpm_ = made(rte_lpm6_create("lpm6", SOCKET_ID_ANY, &config));
  }

  ~Lpm6() override { rte_lpm6_free(lpm_); }

  void insert(std::size_t route, U8 nextHop) override {
    rte_lpm6_add(lpm_, address6(route), length(route), nextHop);
  }

  void update(std::size_t route, U8 nextHop) override { insert(route, nextHop); }

  void remove(std::size_t route) override { rte_lpm6_delete(lpm_, address6(route), length(route)); }

 private:
  U64 lookUp(std::size_t route) const override {
    U32 nextHop = 0;
    return rte_lpm6_lookup(lpm_, address6(route), &nextHop) == 0 ? nextHop : kMiss;
  }

  rte_lpm6* lpm_;
};

template <class Table>
std::unique_ptr<Subject> make(const std::vector<WorkRoute>& routes) {
  return std::make_unique<Table>(routes);
}

struct TableKind {
  const char* word;
  const char* name;
  Family family;
  std::unique_ptr<Subject> (*make)(const std::vector<WorkRoute>& routes);
};

constexpr std::array kTables = {
    TableKind{"rib", "dpdk_rib", Family::ipv4, make<Rib4>},
    TableKind{"rib6", "dpdk_rib6", Family::ipv6, make<Rib6>},
    TableKind{"fib", "dpdk_fib", Family::ipv4, make<Fib4>},
    TableKind{"fib6", "dpdk_fib6", Family::ipv6, make<Fib6>},
    TableKind{"lpm6", "dpdk_lpm6", Family::ipv6, make<Lpm6>},
};

int main(int argc, char** argv) {
  CLI::App app("DPDK's tables, timed like RouteBench.", "DpdkPeer");
  WorkloadOptions options;
  addWorkloadOptions(app, options);
  const TableKind* kind = nullptr;
  app.add_option_function<std::string>(
         "--table",
         [&kind](const std::string& word) {
           for (const TableKind& table : kTables) {
             kind = word == table.word ? &table : kind;
           }
         },
         "Which table; it says the family too")
      ->check(CLI::IsMember({"rib", "rib6", "fib", "fib6", "lpm6"}))
      ->required();
  return runProgram("DpdkPeer", app, argc, argv, [&] {
    options.families = {kind->family};
    return runLoads(
        kind->name, options, Workload(options),
        [kind](Family, const std::vector<WorkRoute>& routes) { return kind->make(routes); },
        /*withCounts=*/false);
  });
}

}  // namespace

}  // namespace Quarle::Bench

int main(int argc, char** argv) { return Quarle::Bench::main(argc, argv); }
