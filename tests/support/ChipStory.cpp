#include "tests/support/ChipStory.h"

#include <algorithm>
#include <set>

#include "tests/support/Seed.h"

namespace Quarle::Tarnlet::Testing {

ChipStory& ChipStory::ipv6() {
  shape_.longKey = true;
  return *this;
}

ChipStory& ChipStory::tables(std::vector<TableShape> tables) {
  shape_.tables = std::move(tables);
  return *this;
}

ChipStory& ChipStory::strides(std::vector<U8> strides) {
  shape_.strides = std::move(strides);
  return *this;
}

ChipStory& ChipStory::pairsPerEntry(U8 pairs) {
  shape_.pairsPerEntry = pairs;
  return *this;
}

ChipStory& ChipStory::tiles(U8 tiles, U16 entriesPerTile) {
  shape_.tiles = tiles;
  shape_.entriesPerTile = entriesPerTile;
  return *this;
}

ChipStory& ChipStory::oneEntryPerSubTrie() {
  shape_.multiEntry = false;
  return *this;
}

ChipStory& ChipStory::leastTread(U8 fromKeyLength, U8 tread) {
  shape_.leastTreads[fromKeyLength] = tread;
  return *this;
}

const ConfigBase::Ptr& ChipStory::config() {
  if (config_ == nullptr) {
    config_ = makeConfig(shape_);
    status_ = statusFactory("status");
    hardware_ = std::make_unique<Hardware>(shape_);
  }
  return config_;
}

const Status::Ptr& ChipStory::status() {
  config();
  return status_;
}

Hardware& ChipStory::hardware() {
  config();
  return *hardware_;
}

ChipStory& ChipStory::start() { return sm_ == nullptr ? restartCold() : *this; }

ChipStory& ChipStory::restartCold() {
  sm_ = nullptr;
  config();
  status_->prefixToNextHopBlockDelAll();
  hardware_ = std::make_unique<Hardware>(shape_);
  sm_ = lpmSmFactory("sm", config_, status_, nullptr);
  // Requests of old are served by the sweep, in an order that addresses decide.
  absorb();
  return *this;
}

LpmSm& ChipStory::sm() {
  start();
  return *sm_;
}

LpmPrefix::Ptr ChipStory::prefix(const std::string& text) {
  const Key wanted = key(text);
  const U32 vrf = static_cast<U32>(wanted.bytes[0] << 8 | wanted.bytes[1]);
  const U8 len = static_cast<U8>(wanted.len - Key::kVrf);
  if (shape_.longKey) {
    Corsel::Ip6Prefix::Bytes address{};
    std::copy(wanted.bytes.begin() + 2, wanted.bytes.end(), address.begin());
    return dynamic_cast<ConfigV6&>(*config()).lpmPrefixIs({vrf, Corsel::Ip6Prefix(address, len)});
  }
  U32 address = 0;
  for (U32 i = 2; i < 6; ++i) {
    address = address << 8 | wanted.bytes[i];
  }
  return dynamic_cast<ConfigV4&>(*config()).lpmPrefixIs({vrf, Corsel::Prefix(address, len)});
}

ChipStory& ChipStory::route(const std::string& text, NextHopBlock block) {
  return request("route " + text + " via " + textOf(block), prefix(text), block);
}

ChipStory& ChipStory::withdraw(const std::string& text) {
  return request("withdraw " + text, prefix(text), NextHopBlock());
}

ChipStory& ChipStory::request(const std::string& what,
                              const LpmPrefix::Ptr& prefix,
                              NextHopBlock block) {
  start();
  absorb();
  const Routes before = routes();
  const U64 movesBefore = sm_->numNhiBlockDefrag();
  if (block == NextHopBlock()) {
    config_->requestDel(prefix);
  } else {
    config_->requestIs(prefix, block);
  }
  carryOut(what, prefix, before, movesBefore);
  return *this;
}

ChipStory& ChipStory::notify(const std::string& text) {
  start();
  absorb();
  const Routes before = routes();
  const U64 movesBefore = sm_->numNhiBlockDefrag();
  config_->requestNotify(prefix(text));
  carryOut("notify " + text, prefix(text), before, movesBefore);
  return *this;
}

ChipStory& ChipStory::wantSilently(const std::string& text, NextHopBlock block) {
  if (sm_ != nullptr) {
    sm_->hasNotificationActiveIs(false);
  }
  config()->requestIs(prefix(text), block);
  if (sm_ != nullptr) {
    sm_->hasNotificationActiveIs(true);
  }
  return *this;
}

ChipStory& ChipStory::forgetSilently(const std::string& text) {
  sm().hasNotificationActiveIs(false);
  config_->requestDel(prefix(text));
  sm_->hasNotificationActiveIs(true);
  return *this;
}

ChipStory& ChipStory::settle() {
  for (auto placed = sm().prefixToSubTrieIterator(); placed; ++placed) {
    if (!status_->prefixToNextHopBlockCollection().isMember(placed.key())) {
      sm_->updatePrefix(placed.key());
    }
  }
  absorb();
  return *this;
}

Routes ChipStory::routes() const {
  Routes routes;
  for (const auto& route : status_->prefixToNextHopBlockCollection()) {
    const Key key = keyOf(*route.key);
    routes.add(key, route.value);
    routes.add(key, config_->request(route.key));
    if (const auto wishes = wishes_.find(key); wishes != wishes_.end()) {
      for (const NextHopBlock& block : wishes->second) {
        routes.add(key, block);
      }
    }
  }
  return routes;
}

void ChipStory::noteWish(const LpmPrefix::Ptr& prefix, bool served) {
  const NextHopBlock wanted = config_->request(prefix);
  if (served && wanted == status_->prefixToNextHopBlock(prefix)) {
    wishes_.erase(keyOf(*prefix));
  } else {
    wishes_[keyOf(*prefix)].push_back(wanted);
  }
}

void ChipStory::absorb() {
  while (const CommandBase::Ptr command = status_->pendingCmdDeq()) {
    faults_ += hardware_->apply(*command);
    commands_ += textOf(*command, shape_.longKey) + "\n";
  }
}

void ChipStory::carryOut(const std::string& what,
                         const LpmPrefix::Ptr& prefix,
                         const Routes& before,
                         U64 movesBefore) {
  // A refused update has no commands.
  noteWish(prefix, status_->pendingCmds() != 0);
  Request request{.commands = {},
                  .before = before,
                  .after = routes(),
                  .compacted = sm_->numNhiBlockDefrag() != movesBefore};
  while (const CommandBase::Ptr command = status_->pendingCmdDeq()) {
    request.commands.push_back(command);
    commands_ += textOf(*command, shape_.longKey) + "\n";
  }
  std::string fault = replay(request, *hardware_);
  fault += audit(*sm_, *hardware_, routes());
  if (!fault.empty()) {
    faults_ += "after " + what + ":\n" + fault;
  }
}

std::string ChipStory::commands() {
  start();
  absorb();
  return std::exchange(commands_, {});
}

ChipStory& ChipStory::drain() {
  commands();
  return *this;
}

PrefixTable::Ptr ChipStory::table(U8 id) { return sm().prefixTable(id); }

SubTrie::Ptr ChipStory::subTrie(const std::string& text) {
  return sm().prefixToSubTrie(prefix(text));
}

std::string ChipStory::where(const std::string& text) {
  const SubTrie::Ptr holder = subTrie(text);
  if (holder == nullptr) {
    return "-";
  }
  return "t" + std::to_string(holder->table()->tableId().value()) + "[" +
         std::to_string(holder->index().value()) + "]." +
         std::to_string(holder->prefixToSlot(prefix(text)));
}

std::string ChipStory::blocks() {
  std::set<std::string> texts;
  for (const auto& blk : sm().nhiBaseIdxToBlkCollection()) {
    texts.insert(textOf(blk.memberKey()) + "+" + std::to_string(blk.value->blkSz()));
  }
  std::string out;
  for (const std::string& text : texts) {
    out += (out.empty() ? "" : " ") + text;
  }
  return out;
}

U32 ChipStory::freeEntries(U8 tile) { return sm().nhiAllocator(tile)->freeEntries(); }

std::string ChipStory::lookup(const std::string& address) {
  start();
  absorb();
  const Hardware::Answer answer = hardware_->lookup(key(address));
  return answer.ambiguous ? answer.text() : textOf(answer.block);
}

bool ChipStory::installed(const std::string& text) {
  start();
  return status_->prefixToNextHopBlockCollection().isMember(prefix(text));
}

bool ChipStory::withdrawOne() {
  for (const auto& route : sm_->prefixToSubTrieCollection()) {
    const U32 left = route.value->prefixs() - 1;
    // A delete that leaves something behind needs a block for it.
    if (left == 0 || sm_->isNhiBlockAvailable(static_cast<U8>(left))) {
      const LpmPrefix::Ptr prefix = route.key;
      request("final withdraw " + textOf(keyOf(*prefix)), prefix, NextHopBlock());
      return true;
    }
  }
  return false;
}

std::string ChipStory::emptyWithSpareTile() {
  // The full tiles step back for an empty one, which the model of the chip does not know: from here
  // on only the machine is looked at.
  constexpr U8 kSpare = 200;
  sm_->nhiAllocatorDelAll();
  sm_->nhiAllocatorIs(kSpare,
                      new Brumel::BestFitAllocator("spare", 4096, 0, config_->nhiMaxBlockSize()));
  config_->requestDelAll();
  const bool empty = sm_->prefixToSubTries() == 0 && sm_->sharedNhis() == 0 &&
                     sm_->nhiBaseIdxToBlks() == 0 && sm_->nhiBaseIdxToSubTries() == 0 &&
                     status_->prefixToNextHopBlocks() == 0;
  return empty ? "" : "something is left in the machine\n";
}

void ChipStory::finish() {
  if (sm_ == nullptr) {
    return;
  }
  absorb();
  std::string fault = audit(*sm_, *hardware_, routes());
  // Requests that were refused are not to be served now.
  sm_->hasNotificationActiveIs(false);
  for (auto request = config_->requestIterator(); request; ++request) {
    if (!sm_->prefixToSubTrieCollection().isMember(request.key())) {
      config_->requestDel(request);
    }
  }
  sm_->hasNotificationActiveIs(true);
  while (fault.empty() && sm_->prefixToSubTries() != 0) {
    if (!withdrawOne()) {
      fault += emptyWithSpareTile();
      hardware_ = std::make_unique<Hardware>(shape_);
    }
  }
  if (fault.empty() && !hardware_->rows().empty()) {
    fault = "rows left in the chip:\n" + hardware_->text();
  }
  faults_ += fault.empty() ? "" : "at the end:\n" + fault;
  endMachine();
}

ChipTest::ChipTest() { shuffleAddressOrder(); }

void ChipTest::TearDown() {
  chip.finish();
  EXPECT_EQ(chip.takeFaults(), "");
}

std::string commandsAndFaults(ChipStory& chip) {
  const std::string commands = chip.commands();
  const std::string faults = chip.takeFaults();
  return faults.empty() ? commands : "faults:\n" + faults + commands;
}

}  // namespace Quarle::Tarnlet::Testing
