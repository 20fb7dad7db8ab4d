#pragma once

#include <exception>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/String8.h"

namespace Vellor {

/// Base of all exceptions of the framework. They signal misuse; an expected refusal is a value.
class VELLOR_API Exception : public std::exception {
 public:
  explicit Exception(String8 message) : message_(std::move(message)) {}

  ~Exception() override;

  const String8& message() const { return message_; }

  const char* what() const noexcept override { return message_.charPtr(); }

 private:
  String8 message_;
};

/// A value, index or text is out of range.
class VELLOR_API RangeException : public Exception {
 public:
  using Exception::Exception;
  ~RangeException() override;
};

/// An abstract operation of a base class was called.
class VELLOR_API NoImplementationException : public Exception {
 public:
  using Exception::Exception;
  ~NoImplementationException() override;
};

/// A write to an attribute that cannot change.
class VELLOR_API ImmutableAttrMutationException : public Exception {
 public:
  using Exception::Exception;
  ~ImmutableAttrMutationException() override;
};

/// A removal from an attribute whose members cannot be removed.
class VELLOR_API NondeletableAttrException : public Exception {
 public:
  using Exception::Exception;
  ~NondeletableAttrException() override;
};

/// An operation that an attribute does not offer.
class VELLOR_API OpNotSupportedException : public Exception {
 public:
  using Exception::Exception;
  ~OpNotSupportedException() override;
};

[[noreturn]] VELLOR_API void throwRangeException(String8 text);

}  // namespace Vellor
