// The faces of the engine and its restart helper.

#include "engine/LpmSm.h"
#include "engine/RestartHelperBase.h"
#include "framework/Vellor/Reflect.h"
#include "framework/Xdk/XpIpRouteLpmMgr.h"

namespace Quarle::Tarnlet {

namespace {

using Vellor::operation;
using Vellor::operations;

constexpr auto kRestartHelperBase =
    operations(operation<&RestartHelperBase::createPrefix>(
                   "createPrefix", "branch", "branchLen", "leafVal", "leafValHigh", "stride"),
               operation<&RestartHelperBase::deletePrefix>("deletePrefix", "prefix"),
               operation<&RestartHelperBase::doRestart>("doRestart", "removeStale", "lpmSm"));

constexpr auto kLpmSm = operations(
    operation<&LpmSm::nhiBaseIdxFromNhiInfoKey>("nhiBaseIdxFromNhiInfoKey", "subTrie", "key"),
    operation<&LpmSm::generateNhiInfoKey>("generateNhiInfoKey", "subTrie"),
    operation<&LpmSm::allocateNhiInfo>("allocateNhiInfo", "subTrie", "key", "nhiBaseIdx"),
    operation<&LpmSm::releaseNhiInfo>("releaseNhiInfo", "subTrie"),
    operation<&LpmSm::updateNhiInfoForSubTrie>("updateNhiInfoForSubTrie", "subTrie"),
    operation<&LpmSm::handleRequest>("handleRequest", "lpmPrefix"),
    operation<&LpmSm::verifyLpmRoute>("verifyLpmRoute", "lpmPrefix"),
    operation<&LpmSm::showSoftwareSummary>("showSoftwareSummary", "socket"),
    operation<&LpmSm::moveSubTrie>("moveSubTrie", "lpmPrefix", "prefixTable"),
    operation<&LpmSm::insertPrefix>("insertPrefix", "lpmPrefix"),
    operation<&LpmSm::updatePrefix>("updatePrefix", "lpmPrefix"),
    operation<&LpmSm::deletePrefix>("deletePrefix", "lpmPrefix"),
    operation<&LpmSm::insertPrefixInternal>("insertPrefixInternal", "lpmPrefix", "prefixTable"),
    operation<&LpmSm::insertPrefixToTable>("insertPrefixToTable", "lpmPrefix", "prefixTable"),
    operation<&LpmSm::createSubTrieWithPrefix>(
        "createSubTrieWithPrefix", "lpmPrefix", "prefixTable"),
    operation<&LpmSm::insertPrefixToSubTrie>("insertPrefixToSubTrie", "lpmPrefix", "subTrie"),
    operation<&LpmSm::generatePrefixTableWriteCmds>("generatePrefixTableWriteCmds", "subTrie"),
    operation<&LpmSm::generateNhiWriteCmds>("generateNhiWriteCmds", "subTrie"),
    operation<&LpmSm::generateSubTrieWriteCmds>(
        "generateSubTrieWriteCmds", "subTrie", "generatePrefixCmds", "generateNhiCmds"),
    operation<&LpmSm::generatePrefixTableIdxDeleteWriteCmd>(
        "generatePrefixTableIdxDeleteWriteCmd", "prefixTable", "prefixTableIdx", "subTrie"),
    operation<&LpmSm::nhiBlockSize>("nhiBlockSize", "numPrefixes"),
    operation<&LpmSm::isNhiBlockAvailable>("isNhiBlockAvailable", "numPrefixes"),
    operation<&LpmSm::allocateNhiBlock>("allocateNhiBlock", "numPrefixes"),
    operation<&LpmSm::reallocNhiBlock>("reallocNhiBlock", "baseIdx", "numPrefixes"),
    operation<&LpmSm::releaseNhiBlock>("releaseNhiBlock", "baseIdx"),
    operation<&LpmSm::processNhiDefrag>("processNhiDefrag", "tile", "defragCmds"),
    operation<&LpmSm::dumpPrefixTables>("dumpPrefixTables"),
    operation<&LpmSm::dumpPrefixTable>("dumpPrefixTable", "prefixTable"),
    operation<&LpmSm::printPrefixTables>("printPrefixTables", "socket"),
    operation<&LpmSm::printNhiTiles>("printNhiTiles", "socket"),
    operation<&LpmSm::handleInitialized>("handleInitialized"),
    operation<&LpmSm::hasNotificationActiveIs>("hasNotificationActiveIs",
                                               "hasNotificationActiveIs"),
    operation<&LpmSm::vellorDoZombieReactors>("vellorDoZombieReactors", "on"));

}  // namespace

VELLOR_REFLECTED_TYPE(RestartHelperBase, "Quarle::Tarnlet::RestartHelperBase", kRestartHelperBase);
VELLOR_REFLECTED_TYPE(LpmSm, "Quarle::Tarnlet::LpmSm", kLpmSm);

}  // namespace Quarle::Tarnlet
