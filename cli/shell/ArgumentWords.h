#pragma once

#include <span>
#include <string>
#include <vector>

#include "cli/shell/Session.h"
#include "framework/Vellor/GenericIf.h"

namespace Quarle::Cli {

/// What an operation, or the constructor of an owned child, takes, and how that is read from words.

using ArgumentFaces = std::span<const Vellor::AttributeFace::ArgumentFace>;

inline const Vellor::FwkType* typeOf(Vellor::AttributeFace::TypeOf type) {
  return type == nullptr ? nullptr : type();
}

inline ArgumentFaces argumentsOf(const Vellor::AttributeFace& operation) {
  return {operation.argument, operation.arguments};
}

/// Empty for a type that does not name what its objects are made of.
ArgumentFaces constructorOf(const Vellor::FwkType& type);

/// "moveSubTrie(lpmPrefix: LpmPrefix, prefixTable: PrefixTable) -> RouteReturnCode"
std::string signatureOf(const Vellor::AttributeFace& operation);

/// "Bitmap(id: U64, size: U32, initialBitState: BitState)"
std::string constructorText(const Vellor::FwkType& type);

/// "1 argument: nhiBlockSize(numPrefixes: U8) -> U8"
std::string positionsOf(ArgumentFaces faces, const std::string& signature);

/// Reads the words, by position or as name=value, and puts them behind `arguments`. Raises
/// `ShellError` for another number of them, for a name that there is not, and for an object that
/// is not there.
void addArguments(const Session& session,
                  ArgumentFaces faces,
                  const std::string& signature,
                  std::span<const std::string> words,
                  std::vector<Vellor::GenericIf::Argument>& arguments);

}  // namespace Quarle::Cli
