#pragma once

#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/Ferrix/Argument.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

/// Formats of messages. A format is the text of the message's literals with a type between braces
/// where an argument stands, as in " prefixLen {i32} fanoutLen {i32}"; braces of a literal stand
/// twice.
namespace Ferrix {

/// A piece of a format: a literal's text, or an argument.
struct FormatPart {
  ArgType type = ArgType::literal;
  std::string literal;
};

/// A description as a trace file holds it.
struct Description {
  std::string file;
  U32 line = 0;
  std::string format;
  std::vector<FormatPart> parts;
};

/// Bytes of a number of this type in a message; 0 for literals and texts.
U32 widthOf(ArgType type);

std::string formatOf(std::initializer_list<Arg> operands);

/// The parts of a format; nothing when it is none.
std::optional<std::vector<FormatPart>> partsOf(std::string_view format);

/// The text that the statement's operands make up in a stream, from the arguments' bytes. Where
/// they were cut off it ends with "...". Nothing when bytes and parts do not go together.
std::optional<std::string> textOf(std::span<const FormatPart> parts,
                                  std::span<const U8> arguments,
                                  bool cut);

/// The descriptions in the first bytes of a table. Raises `TraceError` with the path when they are
/// not whole.
std::vector<Description> descriptionsOf(const Vellor::String8& path, std::span<const U8> table);

}  // namespace Ferrix
