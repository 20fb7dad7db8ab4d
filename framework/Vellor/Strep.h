#pragma once

#include <concepts>
#include <functional>
#include <limits>
#include <type_traits>

#include "framework/Vellor/Exception.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Ptr.h"
#include "framework/Vellor/PtrInterface.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

// Textual forms: every value can be written as text by valueToStrep() and read back by
// strepToValue(). A type adds two overloads in its own namespace:
//
//   String8 valueToStrep(const T&)
//   void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, T* value)
//
// The second parses one value and leaves the iterator behind it. Every parse failure raises
// RangeException.

namespace Vellor {

using StrepIterator = String8::IteratorConst;

// ---- what parsers are made of ----

/// Steps over `pattern`, in which a blank stands for any white space or none. Raises
/// RangeException where the text differs.
VELLOR_API void needString(StrepIterator& iterator, const StrepIterator& end, const char* pattern);

/// Raises `exception` anew, with the name of the attribute that could not be read in front.
[[noreturn]] VELLOR_API void rethrowFromDeserializeAttr(const RangeException& exception,
                                                        const String8& name);

/// The text names no object of this type: RangeException.
[[noreturn]] VELLOR_API void cannotConvert(const String8& text, const char* typeName);

/// What a structured value says of its form: its full name in the text, its bare name in messages.
struct StructuredForm {
  const char* fullName;
  const char* bareName;
};

/// Reads the member of this name from the text; false when there is no such member.
using NeedMember = std::function<bool(const String8& name)>;

/// Parses "Value('Full::Name', ** {'member': value, ...})": members in any order, each as often as
/// the text has it.
VELLOR_API void needStructuredValue(StrepIterator& iterator,
                                    const StrepIterator& end,
                                    const StructuredForm& form,
                                    const NeedMember& needMember);

/// Fatal, whatever the text: the members of a queue are not told in its text form.
[[noreturn]] VELLOR_API void queueHasNoTextForm(const StrepIterator& iterator,
                                                const StrepIterator& end);

// ---- numbers, truth and text ----

/// Numbers without a sign: plain integers but `bool`.
template <class T>
concept StrepNumber = std::unsigned_integral<T> && !std::same_as<T, bool>;

VELLOR_API String8 valueToStrep(U64 number);
VELLOR_API String8 valueToStrep(int number);

template <StrepNumber T>

requires(!std::same_as<T, U64>) String8 valueToStrep(T number) { return valueToStrep(U64{number}); }

/// "True" and "False".
template <std::same_as<bool> T>
String8 valueToStrep(T truth) {
  return truth ? "True" : "False";
}

/// Between single quotes; quotes, backslashes and control characters behind a backslash.
VELLOR_API String8 valueToStrep(const String8& text);

/// Decimal digits. RangeException when there are none or the number takes more than 64 bits.
VELLOR_API void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, U64* number);
VELLOR_API void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, int* number);
VELLOR_API void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, bool* truth);
/// A text between single or double quotes.
VELLOR_API void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, String8* text);

/// RangeException for a number that `T` does not hold; deserializeAttr() cuts it instead.
template <StrepNumber T>

requires(!std::same_as<T, U64>) void sequenceToValue(StrepIterator& iterator,
                                                     const StrepIterator& end,
                                                     T* number) {
  U64 wide = 0;
  sequenceToValue(iterator, end, &wide);
  if (wide > std::numeric_limits<T>::max()) {
    throwRangeException(format("number above %llu",
                               static_cast<unsigned long long>(std::numeric_limits<T>::max())));
  }
  *number = static_cast<T>(wide);
}

/// Reads the attribute `name`, a number, and cuts it to `T`.
template <StrepNumber T>
void deserializeAttr(StrepIterator& iterator,
                     const StrepIterator& end,
                     T* value,
                     const String8& name) {
  try {
    U64 number = 0;
    sequenceToValue(iterator, end, &number);
    *value = static_cast<T>(number);
  } catch (const RangeException& exception) {
    rethrowFromDeserializeAttr(exception, name);
  }
}

/// Reads the attribute `name`, a value of any type with a form.
template <class T>

requires(!StrepNumber<T>) void deserializeAttr(StrepIterator& iterator,
                                               const StrepIterator& end,
                                               T* value,
                                               const String8& name) {
  try {
    sequenceToValue(iterator, end, value);
  } catch (const RangeException& exception) {
    rethrowFromDeserializeAttr(exception, name);
  }
}

/// What an identifier read from text may be; a kind with a limit has an overload beside its tag,
/// which raises RangeException.
template <class Identifier>
void checkIdentifierFromText(const Identifier&) {}

// ---- objects ----

/// Finds the object that a text names, null when there is none. Whoever offers objects by name to
/// its users sets one; without it only entities have names in texts, and only "None" can be read.
using ObjectByName = std::function<Ptr<PtrInterface>(const String8& text)>;
VELLOR_API void objectByNameIs(ObjectByName objectByName);

/// "None" for null, an entity's name or else the type's full name between single quotes.
VELLOR_API String8 valueToStrepOfPtr(const PtrInterface* object);

/// Reads "None", or a quoted text that names an object; cannotConvert() when it does not.
VELLOR_API Ptr<PtrInterface> sequenceToObject(StrepIterator& iterator,
                                              const StrepIterator& end,
                                              const char* typeName);

template <class T>
void sequenceToValueOfPtr(StrepIterator& iterator, const StrepIterator& end, Ptr<T>* object) {
  const StrepIterator begin = iterator;
  const char* const typeName = std::remove_const_t<T>::kVellorType_.name;
  const Ptr<PtrInterface> found = sequenceToObject(iterator, end, typeName);
  *object = dynamicPtrCast<T>(found);
  if (found != nullptr && *object == nullptr) {
    cannotConvert(std::string(begin, iterator), typeName);
  }
}

template <class T>
String8 valueToStrep(const Ptr<T>& object) {
  return valueToStrepOfPtr(object.get());
}

template <class T>
void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, Ptr<T>* object) {
  sequenceToValueOfPtr(iterator, end, object);
}

// ---- whole texts ----

/// Raises RangeException "junk at column %lld deserializing %s", with the zero-based count of
/// characters read.
[[noreturn]] VELLOR_API void throwJunk(const String8& text, const StrepIterator& iterator);

/// The value of a whole text. On failure `value` means nothing.
template <class T>
void strepToValue(const String8& text, T* value) {
  StrepIterator iterator = text.begin();
  sequenceToValue(iterator, text.end(), value);
  if (iterator != text.end()) {
    throwJunk(text, iterator);
  }
}

}  // namespace Vellor
