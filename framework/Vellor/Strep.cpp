#include "framework/Vellor/Strep.h"

#include <string>
#include <utility>

#include "framework/Vellor/Entity.h"
#include "framework/Vellor/Invariant.h"

namespace Vellor {

namespace {

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool isDigit(char c) { return c >= '0' && c <= '9'; }

void skipBlanks(StrepIterator& iterator, const StrepIterator& end) {
  while (iterator != end && isBlank(*iterator)) {
    ++iterator;
  }
}

/// What stands at the iterator, for messages.
std::string seenAt(const StrepIterator& iterator, const StrepIterator& end) {
  constexpr std::ptrdiff_t kShown = 16;
  if (iterator == end) {
    return "the end";
  }
  return "\"" + std::string(iterator, end - iterator > kShown ? iterator + kShown : end) + "\"";
}

[[noreturn]] void throwExpected(const std::string& what,
                                const StrepIterator& iterator,
                                const StrepIterator& end) {
  throwRangeException("expected " + what + ", found " + seenAt(iterator, end));
}

int hexDigit(char c) {
  if (isDigit(c)) {
    return c - '0';
  }
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

/// The character behind a backslash.
char escaped(StrepIterator& iterator, const StrepIterator& end) {
  if (iterator == end) {
    throwExpected("a character behind the backslash", iterator, end);
  }
  const char c = *iterator++;
  switch (c) {
    case 'n':
      return '\n';
    case 't':
      return '\t';
    case 'r':
      return '\r';
    case 'x': {
      int code = 0;
      for (int i = 0; i < 2; ++i) {
        if (iterator == end || hexDigit(*iterator) < 0) {
          throwExpected("two hexadecimal digits", iterator, end);
        }
        code = code * 16 + hexDigit(*iterator++);
      }
      return static_cast<char>(code);
    }
    default:
      return c;
  }
}

ObjectByName& objectByName() {
  // Never destroyed: texts may be read while the process ends.
  static auto& resolver = *new ObjectByName();
  return resolver;
}

}  // namespace

void needString(StrepIterator& iterator, const StrepIterator& end, const char* pattern) {
  for (const char* next = pattern; *next != '\0'; ++next) {
    if (*next == ' ') {
      skipBlanks(iterator, end);
    } else if (iterator == end || *iterator != *next) {
      throwExpected(std::string("\"") + next + "\"", iterator, end);
    } else {
      ++iterator;
    }
  }
}

void rethrowFromDeserializeAttr(const RangeException& exception, const String8& name) {
  throwRangeException(name + ": " + exception.message());
}

void cannotConvert(const String8& text, const char* typeName) {
  throwRangeException("cannot convert " + text + " to " + typeName);
}

void needStructuredValue(StrepIterator& iterator,
                         const StrepIterator& end,
                         const StructuredForm& form,
                         const NeedMember& needMember) {
  const std::string quotedName = std::string(" '") + form.fullName + "'";
  for (const char* pattern : {" Value", " (", quotedName.c_str(), " ,", " **", " {"}) {
    needString(iterator, end, pattern);
  }
  for (bool first = true;; first = false) {
    needString(iterator, end, " ");
    if (iterator == end) {
      throwRangeException(format("premature end of value type %s", form.bareName));
    }
    if (*iterator == '}') {
      needString(iterator, end, "} ");
      needString(iterator, end, ") ");
      return;
    }
    if (!first) {
      needString(iterator, end, ", ");
    }
    String8 name;
    sequenceToValue(iterator, end, &name);
    needString(iterator, end, " : ");
    if (!needMember(name)) {
      throwRangeException(format("%s has no such attribute: ", form.bareName) + name);
    }
  }
}

void queueHasNoTextForm(const StrepIterator&, const StrepIterator&) {
  assertionFailed("LinkQueue has a text form", __FILE__, __LINE__, __func__);
}

String8 valueToStrep(U64 number) { return format("%llu", static_cast<unsigned long long>(number)); }

String8 valueToStrep(int number) { return format("%d", number); }

String8 valueToStrep(const String8& text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (c == '\n') {
      quoted += "\\n";
    } else if (c == '\t') {
      quoted += "\\t";
    } else if (c == '\r') {
      quoted += "\\r";
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
      quoted += format("\\x%02x", unsigned{static_cast<unsigned char>(c)}).str();
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, U64* number) {
  if (iterator == end || !isDigit(*iterator)) {
    throwExpected("a number", iterator, end);
  }
  U64 sum = 0;
  for (; iterator != end && isDigit(*iterator); ++iterator) {
    const U64 digit = static_cast<U64>(*iterator - '0');
    if (sum > (std::numeric_limits<U64>::max() - digit) / 10) {
      throwRangeException("number of more than 64 bits");
    }
    sum = sum * 10 + digit;
  }
  *number = sum;
}

void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, int* number) {
  const bool negative = iterator != end && *iterator == '-';
  if (negative) {
    ++iterator;
  }
  U64 magnitude = 0;
  sequenceToValue(iterator, end, &magnitude);
  constexpr U64 kLargest = std::numeric_limits<int>::max();
  if (magnitude > kLargest + (negative ? 1 : 0)) {
    throwRangeException("number of more than 32 bits");
  }
  *number = static_cast<int>(negative ? -static_cast<long long>(magnitude)
                                      : static_cast<long long>(magnitude));
}

void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, bool* truth) {
  *truth = iterator != end && *iterator == 'T';
  if (!*truth && (iterator == end || *iterator != 'F')) {
    throwExpected("True or False", iterator, end);
  }
  needString(iterator, end, *truth ? "True" : "False");
}

void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, String8* text) {
  if (iterator == end || (*iterator != '\'' && *iterator != '"')) {
    throwExpected("a text between quotes", iterator, end);
  }
  const char quote = *iterator++;
  std::string read;
  while (iterator != end && *iterator != quote) {
    const char c = *iterator++;
    read += c == '\\' ? escaped(iterator, end) : c;
  }
  if (iterator == end) {
    throwExpected(std::string("a closing ") + quote, iterator, end);
  }
  ++iterator;
  *text = std::move(read);
}

void objectByNameIs(ObjectByName resolver) { objectByName() = std::move(resolver); }

String8 valueToStrepOfPtr(const PtrInterface* object) {
  if (object == nullptr) {
    return "None";
  }
  const auto* entity = dynamic_cast<const Entity*>(object);
  return valueToStrep(entity != nullptr ? entity->name() : String8(object->fwkType()->name));
}

Ptr<PtrInterface> sequenceToObject(StrepIterator& iterator,
                                   const StrepIterator& end,
                                   const char* typeName) {
  if (iterator != end && *iterator == 'N') {
    needString(iterator, end, "None");
    return nullptr;
  }
  String8 text;
  sequenceToValue(iterator, end, &text);
  Ptr<PtrInterface> object = objectByName() ? objectByName()(text) : nullptr;
  if (object == nullptr) {
    cannotConvert(valueToStrep(text), typeName);
  }
  return object;
}

void throwJunk(const String8& text, const StrepIterator& iterator) {
  throwRangeException(format("junk at column %lld deserializing %s",
                             static_cast<long long>(iterator - text.begin()), text.charPtr()));
}

}  // namespace Vellor
