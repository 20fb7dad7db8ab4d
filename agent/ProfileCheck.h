#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/Vellor/Types.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

/// A chip that the library cannot be run on as the client wants to. The text is one line: what,
/// where, what was expected.
class ProfileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What in one family's filled configuration would end the process or spoil the chip's state
/// sooner or later, a line each; nothing when every prefix of /0 to /`maxLength` may be requested.
///
///   - Each of these lengths needs a table that may take it: its tread is at least the length's
///     least tread and at most the length. In all of these tables a row must hold the whole key.
///   - Tables of one tread exchange rows and must be of one width.
///   - Rows, tiles, entries of a tile, pairs of an entry and both fields of a pair must be there.
///   - `NHI_MAX_BLOCK_SIZE` in the environment, if set, must allow the largest block that a row can
///     need.
///
/// To be asked after the configurator, and after the client's own settings, and before the engine
/// is built.
std::vector<std::string> profileFaults(const Tarnlet::ConfigBase& config, U8 maxLength);

/// Raises `ProfileError` with the first fault, if there is one.
void checkProfile(const Tarnlet::ConfigBase& config, U8 maxLength);

/// Whether a prefix of this address length may be requested: a table may take it and no row of such
/// a table is too narrow. To request any other would end the process.
bool servesLength(const Tarnlet::ConfigBase& config, U32 length);

/// The greatest address length that, with all shorter ones, may be requested; nothing when not even
/// /0 may.
std::optional<U8> longestServedLength(const Tarnlet::ConfigBase& config);

}  // namespace Quarle::Agent
