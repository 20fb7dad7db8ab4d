#pragma once

#include <bit>
#include <cstddef>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Ferrix {

/// How an operand of a statement is kept. A literal is part of the message's format and stands in
/// the file once; all others are arguments of each occurrence.
enum class ArgType : U8 {
  literal,
  boolean,
  character,
  i8,
  i16,
  i32,
  i64,
  u8,
  u16,
  u32,
  u64,
  f32,
  f64,
  pointer,
  text,
};

/// One operand of one occurrence: the bits of a number, or a text that lives elsewhere.
struct Arg {
  ArgType type = ArgType::literal;
  U64 bits = 0;
  std::string_view text = {};
};

namespace Detail {

template <class T>
inline constexpr bool kIsText = std::is_convertible_v<const T&, std::string_view>;

/// Pointers that a stream prints as addresses.
template <class T>
inline constexpr bool kIsAddress =
    std::is_pointer_v<T>&& std::is_convertible_v<T, const volatile void*> &&
    !std::is_same_v<std::remove_cv_t<std::remove_pointer_t<T>>, signed char> &&
    !std::is_same_v<std::remove_cv_t<std::remove_pointer_t<T>>, unsigned char>;

template <class T>
constexpr ArgType integralType() {
  constexpr bool isSigned = std::is_signed_v<T>;
  switch (sizeof(T)) {
    case 1:
      return isSigned ? ArgType::i8 : ArgType::u8;
    case 2:
      return isSigned ? ArgType::i16 : ArgType::u16;
    case 4:
      return isSigned ? ArgType::i32 : ArgType::u32;
    default:
      return isSigned ? ArgType::i64 : ArgType::u64;
  }
}

/// What is kept of an operand: itself where there is a type for it, else its text as a stream
/// prints it.
template <class T>
decltype(auto) keptOf(const T& operand) {
  if constexpr (std::is_arithmetic_v<T> || kIsAddress<T> || kIsText<T>) {
    return (operand);
  } else {
    std::ostringstream stream;
    stream.precision(12);
    stream << operand;
    return std::move(stream).str();
  }
}

template <class T>
Arg argOf(const T& kept) {
  if constexpr (std::is_same_v<T, bool>) {
    return {.type = ArgType::boolean, .bits = kept};
  } else if constexpr (std::is_same_v<T, char>) {
    return {.type = ArgType::character, .bits = static_cast<U8>(kept)};
  } else if constexpr (std::is_integral_v<T>) {
    return {.type = integralType<T>(), .bits = static_cast<U64>(kept)};
  } else if constexpr (std::is_same_v<T, float>) {
    return {.type = ArgType::f32, .bits = std::bit_cast<U32>(kept)};
  } else if constexpr (std::is_floating_point_v<T>) {
    return {.type = ArgType::f64, .bits = std::bit_cast<U64>(static_cast<double>(kept))};
  } else if constexpr (std::is_same_v<T, const char*> || std::is_same_v<T, char*>) {
    return {.type = ArgType::text, .text = kept == nullptr ? "" : std::string_view(kept)};
  } else if constexpr (std::is_pointer_v<T>) {
    return {.type = ArgType::pointer, .bits = reinterpret_cast<U64>(kept)};
  } else {
    return {.type = ArgType::text, .text = kept};
  }
}

/// A forwarded operand as one of a message; an array of const characters is held for a literal.
template <class Operand, class Kept>
Arg operandOf(const Kept& kept) {
  using Referred = std::remove_reference_t<Operand>;
  if constexpr (std::is_array_v<Referred> &&
                std::is_same_v<std::remove_extent_t<Referred>, const char>) {
    return {.type = ArgType::literal, .text = kept};
  } else {
    return argOf(kept);
  }
}

}  // namespace Detail
}  // namespace Ferrix
