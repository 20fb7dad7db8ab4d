#include <cstdio>

#include "engine/LpmSm.h"

// Summaries on a descriptor. The bytes are an interface: clients parse them.

namespace Quarle::Tarnlet {

void LpmSm::showSoftwareSummary(U32 socket) {
  const int fd = static_cast<int>(socket);
  dprintf(fd, "\nIPv%c Lpm Summary\n",
          config()->addressFamily() == Corsel::AddressFamily::ipv4 ? '4' : '6');
  dprintf(fd, " Hash shuffling enabled: %s\n", hashShufflingEnabled() ? "True" : "False");
  if (hashShufflingEnabled()) {
    dprintf(fd, "  attempts: %llu, success: %llu\n",
            static_cast<unsigned long long>(numHashShufflingAttempt()),
            static_cast<unsigned long long>(numHashShufflingSuccess()));
  }
  dprintf(fd, " Nexthop block defrags: %llu\n",
          static_cast<unsigned long long>(numNhiBlockDefrag()));
  dprintf(fd, " Nexthop index shared: %u\n", sharedNhis());
}

void LpmSm::printNhiTiles(U8 socket) const {
  for (const auto& member : nhiAllocator_) {
    dprintf(socket, "{");
    dprintf(socket, "'tileId':%u,", unsigned{member.memberKey().value()});
    dprintf(socket, "'freeEntries':%u,", member.value->freeEntries());
    dprintf(socket, "'entriesCapacity':%u,", member.value->entriesCapacity());
    dprintf(socket, "},");
  }
}

void LpmSm::printPrefixTables(U8 socket) const {
  for (U32 i = 0; i < prefixTables(); ++i) {
    const Tarnlet::PrefixTable::Ptr table = config()->prefixTableSortedByTread(static_cast<U8>(i));
    U32 totalPrefixes = 0;
    for (const auto& member : table->subTrieCollection()) {
      totalPrefixes += member.value->prefixs();
    }
    dprintf(socket, "{");
    dprintf(socket, "'prefixTblId':%u,", unsigned{table->tableId().value()});
    dprintf(socket, "'prefixTblTread':%u,", unsigned{table->tableConfig()->tread()});
    dprintf(socket, "'subTries':%u,", table->subTries());
    dprintf(socket, "'totalPrefixes':%u,", totalPrefixes);
    dprintf(socket, "'subTriesCapacity':%u,", table->tableConfig()->depth());
    dprintf(socket, "},");
  }
}

}  // namespace Quarle::Tarnlet
