#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "agent/FamilyClient.h"

namespace Quarle::Cli {

struct IgnoreAnswer {
  void operator()(std::size_t, const Agent::RouteChange&, const Agent::Answer&) const {}
};

/// Collects requests for one family and makes them a batch at a time, which the client works off
/// faster than the same requests one by one.
///
/// `OnAnswer` is called with the number that the caller gave a request, the request and the answer
/// to it, in the order of the requests. What stands collected is made at flush() alone.
template <typename OnAnswer = IgnoreAnswer>
class BatchedRequests {
 public:
  explicit BatchedRequests(Agent::FamilyClient& client, OnAnswer onAnswer = {})
      : client_(client), onAnswer_(std::move(onAnswer)) {
    changes_.reserve(kBatch);
    numbers_.reserve(kBatch);
  }

  void add(const Agent::RouteChange& change, std::size_t number) {
    changes_.push_back(change);
    numbers_.push_back(number);
    if (changes_.size() == kBatch) {
      flush();
    }
  }

  void flush() {
    answers_.resize(changes_.size());
    client_.batch(changes_, answers_);
    for (std::size_t i = 0; i < changes_.size(); ++i) {
      onAnswer_(numbers_[i], changes_[i], answers_[i]);
    }
    changes_.clear();
    numbers_.clear();
  }

 private:
  // Large beside the distance that the client looks ahead, small beside the caches.
  static constexpr std::size_t kBatch = 256;

  Agent::FamilyClient& client_;
  OnAnswer onAnswer_;
  std::vector<Agent::RouteChange> changes_;
  std::vector<std::size_t> numbers_;
  std::vector<Agent::Answer> answers_;
};

}  // namespace Quarle::Cli
