// The same work on the kernel's own routing table, over rtnetlink, in a network namespace that ends
// with the process. 64 next-hop objects stand beforehand; requests go out in batches, of which the
// last asks for an answer.

#include <linux/if_link.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>

#include "bench/Subject.h"

#include <libmnl/libmnl.h>
#include <CLI/CLI.hpp>

namespace Quarle::Bench {

namespace {

using Agent::Family;

constexpr std::size_t kBatch = 256;
constexpr std::size_t kLongestMessage = 256;
constexpr const char* kDevice = "bench0";
constexpr const char* kOtherEnd = "bench1";

[[noreturn]] void fails(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

/// Requests to the kernel, gathered and sent together.
class Netlink {
 public:
  Netlink()
      : socket_(mnl_socket_open(NETLINK_ROUTE)), out_(kBatch * kLongestMessage), in_(1 << 18) {
    if (socket_ == nullptr || mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) < 0) {
      fails("netlink socket");
    }
    const int big = 8 << 20;
    const int descriptor = mnl_socket_get_fd(socket_);
    setsockopt(descriptor, SOL_SOCKET, SO_SNDBUFFORCE, &big, sizeof big);
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &big, sizeof big);
    int on = 1;
    mnl_socket_setsockopt(socket_, NETLINK_CAP_ACK, &on, sizeof on);
  }

  Netlink(const Netlink&) = delete;
  Netlink& operator=(const Netlink&) = delete;

  ~Netlink() { mnl_socket_close(socket_); }

  /// Begins a request with a header of its own kind behind the general one.
  template <typename Header>
  nlmsghdr* begin(U16 type, U16 flags, const Header& header) {
    last_ = mnl_nlmsg_put_header(out_.data() + used_);
    last_->nlmsg_type = type;
    last_->nlmsg_flags = static_cast<U16>(NLM_F_REQUEST | flags);
    last_->nlmsg_seq = ++sequence_;
    std::memcpy(mnl_nlmsg_put_extra_header(last_, sizeof header), &header, sizeof header);
    return last_;
  }

  /// Ends the request; a full batch goes out.
  void end() {
    used_ += last_->nlmsg_len;
    if (++gathered_ == kBatch) {
      send();
    }
  }

  /// Sends what was gathered and waits until the kernel has worked it off. Yields the answer to the
  /// last of it: 0, or an error's number.
  int send() {
    if (gathered_ == 0) {
      return 0;
    }
    last_->nlmsg_flags |= NLM_F_ACK;
    if (mnl_socket_sendto(socket_, out_.data(), used_) < 0) {
      fails("netlink send");
    }
    used_ = 0;
    gathered_ = 0;
    int answer = 0;
    bool answered = false;
    while (!answered) {
      forEachReceived([&](const nlmsghdr* message) {
        if (message->nlmsg_type == NLMSG_ERROR && message->nlmsg_seq == sequence_) {
          answer = -static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(message))->error;
          answered = true;
        }
      });
    }
    return answer;
  }

  /// Sends the begun request, which asks for a dump, and hands each message to `take`.
  template <typename Take>
  void dump(const Take& take) {
    if (mnl_socket_sendto(socket_, last_, last_->nlmsg_len) < 0) {
      fails("netlink send");
    }
    bool done = false;
    while (!done) {
      forEachReceived([&](const nlmsghdr* message) {
        if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR) {
          done = true;
        } else {
          take(message);
        }
      });
    }
  }

 private:
  template <typename Take>
  void forEachReceived(const Take& take) {
    const ssize_t received = mnl_socket_recvfrom(socket_, in_.data(), in_.size());
    if (received < 0) {
      fails("netlink receive");
    }
    int left = static_cast<int>(received);
    for (const auto* message = reinterpret_cast<const nlmsghdr*>(in_.data());
         mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
      take(message);
    }
  }

  mnl_socket* socket_;
  std::vector<char> out_;
  std::vector<char> in_;
  nlmsghdr* last_ = nullptr;
  std::size_t used_ = 0;
  std::size_t gathered_ = 0;
  U32 sequence_ = 0;
};

/// The kernel's tables are in nobody's process: what grows is its slab, the large nodes of its trie
/// and its counters for each processor.
std::int64_t kernelBytes() {
  std::ifstream file("/proc/meminfo");
  std::string field;
  std::int64_t kibibytes = 0;
  std::int64_t sum = 0;
  std::string rest;
  while (file >> field >> kibibytes && std::getline(file, rest)) {
    if (field == "Slab:" || field == "VmallocUsed:" || field == "Percpu:") {
      sum += kibibytes * 1024;
    }
  }
  return sum;
}

class LinuxFib final : public Subject {
 public:
  LinuxFib(Family family, const std::vector<WorkRoute>& routes)
      : family_(family), routes_(routes), netlink_(inOwnNamespace()) {
    makeDevices();
    makeNextHops();
    bytesBefore_ = kernelBytes();
  }

  ~LinuxFib() override { delete netlink_; }

  void insert(std::size_t route, U8 nextHop) override {
    request(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_EXCL, route, nextHop);
  }

  void update(std::size_t route, U8 nextHop) override {
    request(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_REPLACE, route, nextHop);
  }

  void remove(std::size_t route) override { request(RTM_DELROUTE, 0, route, std::nullopt); }

  void finish() override { netlink_->send(); }

  std::int64_t bytes() const override { return kernelBytes() - bytesBefore_; }

  void prepareCheck() override {
    nextHops_.clear();
    rtmsg header{};
    header.rtm_family = addressFamily();
    netlink_->begin(RTM_GETROUTE, NLM_F_DUMP, header);
    netlink_->dump([this](const nlmsghdr* message) { take(message); });
  }

  bool leadsTo(std::size_t route, std::optional<U8> nextHop) override {
    const auto place = nextHops_.find(routes_[route].prefix);
    return nextHop ? place != nextHops_.end() && place->second == idOf(*nextHop)
                   : place == nextHops_.end();
  }

 private:
  static Netlink* inOwnNamespace() {
    if (unshare(CLONE_NEWNET) != 0) {
      fails("a network namespace of its own (expected to run as root)");
    }
    return new Netlink();
  }

  static U32 idOf(U8 nextHop) { return U32{nextHop} + 1; }

  U8 addressFamily() const { return family_ == Family::ipv4 ? AF_INET : AF_INET6; }

  void sendOrThrow(const std::string& what) {
    netlink_->end();
    errno = netlink_->send();
    if (errno != 0) {
      fails(what);
    }
  }

  /// A pair of devices joined by a wire: next hops need one that is up and has a carrier.
  void makeDevices() {
    ifinfomsg header{};
    nlmsghdr* message = netlink_->begin(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, header);
    mnl_attr_put_strz(message, IFLA_IFNAME, kDevice);
    nlattr* info = mnl_attr_nest_start(message, IFLA_LINKINFO);
    mnl_attr_put_strz(message, IFLA_INFO_KIND, "veth");
    nlattr* data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
    nlattr* peer = mnl_attr_nest_start(message, VETH_INFO_PEER);
    mnl_nlmsg_put_extra_header(message, sizeof header);
    mnl_attr_put_strz(message, IFLA_IFNAME, kOtherEnd);
    mnl_attr_nest_end(message, peer);
    mnl_attr_nest_end(message, data);
    mnl_attr_nest_end(message, info);
    sendOrThrow("a pair of devices");
    header.ifi_flags = IFF_UP;
    header.ifi_change = IFF_UP;
    for (const char* device : {kDevice, kOtherEnd}) {
      message = netlink_->begin(RTM_NEWLINK, 0, header);
      mnl_attr_put_strz(message, IFLA_IFNAME, device);
      sendOrThrow(device);
    }
  }

  void makeNextHops() {
    nhmsg header{};
    header.nh_family = addressFamily();
    for (U32 nextHop = 0; nextHop < WorkRoute::kNextHops; ++nextHop) {
      nlmsghdr* message = netlink_->begin(RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_EXCL, header);
      mnl_attr_put_u32(message, NHA_ID, idOf(static_cast<U8>(nextHop)));
      mnl_attr_put_u32(message, NHA_OIF, if_nametoindex(kDevice));
      sendOrThrow("next hop " + std::to_string(nextHop));
    }
  }

  void request(U16 type, U16 flags, std::size_t route, std::optional<U8> nextHop) {
    const Agent::RoutePrefix& prefix = routes_[route].prefix;
    rtmsg header{};
    header.rtm_family = addressFamily();
    header.rtm_dst_len = prefix.length;
    header.rtm_table = RT_TABLE_MAIN;
    header.rtm_protocol = RTPROT_STATIC;
    header.rtm_scope = RT_SCOPE_UNIVERSE;
    header.rtm_type = RTN_UNICAST;
    nlmsghdr* message = netlink_->begin(type, flags, header);
    mnl_attr_put(message, RTA_DST, Agent::addressBits(family_) / 8, prefix.address.data());
    if (nextHop) {
      mnl_attr_put_u32(message, RTA_NH_ID, idOf(*nextHop));
    }
    netlink_->end();
  }

  /// One route of the dump, if it is one of ours.
  void take(const nlmsghdr* message) {
    const auto* header = static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
    if (header->rtm_table != RT_TABLE_MAIN || header->rtm_protocol != RTPROT_STATIC) {
      return;
    }
    Seen seen{.prefix = {.family = family_, .address = {}, .length = header->rtm_dst_len}, .id = 0};
    mnl_attr_parse(message, sizeof *header, takeAttribute, &seen);
    nextHops_[seen.prefix] = seen.id;
  }

  struct Seen {
    Agent::RoutePrefix prefix;
    U32 id;
  };

  static int takeAttribute(const nlattr* attribute, void* data) {
    Seen& seen = *static_cast<Seen*>(data);
    if (mnl_attr_get_type(attribute) == RTA_DST) {
      std::memcpy(seen.prefix.address.data(), mnl_attr_get_payload(attribute),
                  mnl_attr_get_payload_len(attribute));
    } else if (mnl_attr_get_type(attribute) == RTA_NH_ID) {
      seen.id = mnl_attr_get_u32(attribute);
    }
    return MNL_CB_OK;
  }

  Family family_;
  const std::vector<WorkRoute>& routes_;
  Netlink* netlink_;
  std::int64_t bytesBefore_ = 0;
  std::map<Agent::RoutePrefix, U32> nextHops_;
};

int main(int argc, char** argv) {
  CLI::App app("The Linux kernel's routing table, timed like RouteBench. To be run as root.",
               "LinuxPeer");
  WorkloadOptions options;
  addWorkloadOptions(app, options);
  return runProgram("LinuxPeer", app, argc, argv, [&] {
    return runLoads(
        "linux_fib", options, Workload(options),
        [](Family family, const std::vector<WorkRoute>& routes) {
          return std::make_unique<LinuxFib>(family, routes);
        },
        /*withCounts=*/false);
  });
}

}  // namespace

}  // namespace Quarle::Bench

int main(int argc, char** argv) { return Quarle::Bench::main(argc, argv); }
