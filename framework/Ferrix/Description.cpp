#include "framework/Ferrix/Description.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <utility>

#include "framework/Ferrix/FileLayout.h"

namespace Ferrix {

namespace {

struct TypeName {
  ArgType type;
  std::string_view name;
  U32 width;
};

constexpr std::array<TypeName, 14> kTypeNames{{
    {ArgType::boolean, "bool", 1},
    {ArgType::character, "char", 1},
    {ArgType::i8, "i8", 1},
    {ArgType::i16, "i16", 2},
    {ArgType::i32, "i32", 4},
    {ArgType::i64, "i64", 8},
    {ArgType::u8, "u8", 1},
    {ArgType::u16, "u16", 2},
    {ArgType::u32, "u32", 4},
    {ArgType::u64, "u64", 8},
    {ArgType::f32, "f32", 4},
    {ArgType::f64, "f64", 8},
    {ArgType::pointer, "pointer", 8},
    {ArgType::text, "text", 0},
}};

/// The bytes of arguments that are not read yet.
class Arguments {
 public:
  explicit Arguments(std::span<const U8> bytes) : bytes_(bytes) {}

  bool atEnd() const { return bytes_.empty(); }

  std::optional<U64> number(U32 width) {
    if (bytes_.size() < width) {
      return std::nullopt;
    }
    U64 bits = 0;
    U8* to = reinterpret_cast<U8*>(&bits);
    if constexpr (std::endian::native == std::endian::big) {
      to += sizeof bits - width;
    }
    std::memcpy(to, bytes_.data(), width);
    bytes_ = bytes_.subspan(width);
    return bits;
  }

  std::optional<std::string_view> text() {
    const std::optional<U64> size = number(sizeof(U16));
    if (!size || bytes_.size() < *size) {
      return std::nullopt;
    }
    const std::string_view text(reinterpret_cast<const char*>(bytes_.data()), *size);
    bytes_ = bytes_.subspan(*size);
    return text;
  }

 private:
  std::span<const U8> bytes_;
};

void printNumber(std::ostream& stream, ArgType type, U64 bits) {
  switch (type) {
    case ArgType::boolean:
      stream << (bits != 0);
      return;
    case ArgType::character:
      stream << static_cast<char>(bits);
      return;
    case ArgType::i8:
      stream << int{static_cast<std::int8_t>(bits)};
      return;
    case ArgType::i16:
      stream << static_cast<std::int16_t>(bits);
      return;
    case ArgType::i32:
      stream << static_cast<std::int32_t>(bits);
      return;
    case ArgType::i64:
      stream << static_cast<std::int64_t>(bits);
      return;
    case ArgType::u8:
    case ArgType::u16:
    case ArgType::u32:
    case ArgType::u64:
      stream << bits;
      return;
    case ArgType::f32:
      stream << std::bit_cast<float>(static_cast<U32>(bits));
      return;
    case ArgType::f64:
      stream << std::bit_cast<double>(bits);
      return;
    case ArgType::pointer:
      stream << reinterpret_cast<const void*>(bits);
      return;
    case ArgType::literal:
    case ArgType::text:
      return;
  }
}

bool printArgument(std::ostream& stream, ArgType type, Arguments& arguments) {
  if (type == ArgType::text) {
    const std::optional<std::string_view> text = arguments.text();
    stream << text.value_or("");
    return text.has_value();
  }
  const std::optional<U64> bits = arguments.number(widthOf(type));
  if (bits) {
    printNumber(stream, type, *bits);
  }
  return bits.has_value();
}

}  // namespace

U32 widthOf(ArgType type) {
  for (const TypeName& known : kTypeNames) {
    if (known.type == type) {
      return known.width;
    }
  }
  return 0;
}

std::string formatOf(std::initializer_list<Arg> operands) {
  std::string format;
  for (const Arg& operand : operands) {
    if (operand.type == ArgType::literal) {
      for (const char letter : operand.text) {
        format.append(letter == '{' || letter == '}' ? 2 : 1, letter);
      }
    }
    for (const TypeName& known : kTypeNames) {
      if (known.type == operand.type) {
        format.append("{").append(known.name).append("}");
      }
    }
  }
  return format;
}

std::optional<std::vector<FormatPart>> partsOf(std::string_view format) {
  std::vector<FormatPart> parts;
  std::string literal;
  const auto endLiteral = [&] {
    if (!literal.empty()) {
      parts.push_back({.type = ArgType::literal, .literal = std::exchange(literal, {})});
    }
  };
  while (!format.empty()) {
    const char letter = format.front();
    if (letter != '{' && letter != '}') {
      literal += letter;
      format.remove_prefix(1);
      continue;
    }
    if (format.size() > 1 && format[1] == letter) {
      literal += letter;
      format.remove_prefix(2);
      continue;
    }
    const std::size_t end = format.find('}');
    if (letter == '}' || end == std::string_view::npos) {
      return std::nullopt;
    }
    const std::string_view name = format.substr(1, end - 1);
    endLiteral();
    const std::size_t before = parts.size();
    for (const TypeName& known : kTypeNames) {
      if (known.name == name) {
        parts.push_back({.type = known.type, .literal = {}});
      }
    }
    if (parts.size() == before) {
      return std::nullopt;
    }
    format.remove_prefix(end + 1);
  }
  endLiteral();
  return parts;
}

std::optional<std::string> textOf(std::span<const FormatPart> parts,
                                  std::span<const U8> bytes,
                                  bool cut) {
  Arguments arguments(bytes);
  std::ostringstream stream;
  stream.precision(12);
  for (const FormatPart& part : parts) {
    if (part.type == ArgType::literal) {
      stream << part.literal;
      continue;
    }
    // Behind a cut there is nothing, so the argument that is missing is the first that was cut.
    if (cut && arguments.atEnd()) {
      break;
    }
    if (!printArgument(stream, part.type, arguments)) {
      return std::nullopt;
    }
    if (cut && part.type == ArgType::text && arguments.atEnd()) {
      break;
    }
  }
  if (!arguments.atEnd()) {
    return std::nullopt;
  }
  if (cut) {
    stream << "...";
  }
  return std::move(stream).str();
}

std::vector<Description> descriptionsOf(const Vellor::String8& path, std::span<const U8> table) {
  std::vector<Description> descriptions;
  std::size_t at = 0;
  while (at < table.size()) {
    const auto damaged = [&](const std::string& what) {
      refuse(path, "damaged: description " + std::to_string(descriptions.size()) + " at byte " +
                       std::to_string(kHeaderSize + at) + " " + what);
    };
    DescHead head;
    if (table.size() - at < sizeof head) {
      damaged("is cut off, expected a head of " + std::to_string(sizeof head) + " bytes");
    }
    std::memcpy(&head, &table[at], sizeof head);
    const U64 expected = roundedUp(sizeof head + head.fileSize + head.formatSize);
    if (head.size != expected || head.size > table.size() - at) {
      damaged("has size " + std::to_string(head.size) + ", expected " + std::to_string(expected) +
              " and at most " + std::to_string(table.size() - at));
    }
    const char* file = reinterpret_cast<const char*>(&table[at]) + sizeof head;
    Description description{.file = std::string(file, head.fileSize),
                            .line = head.line,
                            .format = std::string(file + head.fileSize, head.formatSize),
                            .parts = {}};
    std::optional<std::vector<FormatPart>> parts = partsOf(description.format);
    if (!parts) {
      damaged("has format \"" + description.format + "\", expected argument types between braces");
    }
    description.parts = *std::move(parts);
    descriptions.push_back(std::move(description));
    at += head.size;
  }
  return descriptions;
}

}  // namespace Ferrix
