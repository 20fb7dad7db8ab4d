#pragma once

#include <ostream>
#include <string>
#include <utility>

#include "framework/Vellor/Hash.h"
#include "framework/Vellor/PtrInterface.h"

namespace Vellor::Testing {

/// A key whose hash a test chooses, so that different keys can be made to collide.
struct CollidingKey {
  U32 id = 0;
  U32 chosenHash = 0;

  U32 hash() const { return chosenHash; }

  friend bool operator==(const CollidingKey&, const CollidingKey&) = default;

  friend std::ostream& operator<<(std::ostream& stream, const CollidingKey& key) {
    return stream << key.id;
  }
};

/// A key whose place in the order is `place`: maps go by the reversed hash.
inline CollidingKey keyAt(U32 place, U32 id) { return {id, bitReverse(place)}; }

/// An owned child that tells its key.
class Child : public PtrInterface {
 public:
  explicit Child(const CollidingKey& key, std::string note = "")
      : key_(key), note_(std::move(note)) {}

  const CollidingKey& fwkKey() const { return key_; }

  const std::string& note() const { return note_; }

 private:
  CollidingKey key_;
  std::string note_;
};

}  // namespace Vellor::Testing
