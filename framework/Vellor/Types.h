#pragma once

#include <cstdint>

/// Unsigned integers by width. Every width in a signature or field is part of its contract: values
/// are cut to it.
using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
