#pragma once

#include "bench/Subject.h"
#include "xdksim/Chip.h"

namespace Quarle::Bench {

/// The library by itself on a chip of this shape: the engine is driven through its entities, and
/// the command queue is emptied after every `drainEvery` requests, the commands counted and
/// dropped.
///
/// REQUIRES: `drainEvery` > 0; `chip` and `routes` outlive the subject.
std::unique_ptr<Subject> makeLibrarySubject(const XdkSim::Chip& chip,
                                            Agent::Family family,
                                            const std::vector<WorkRoute>& routes,
                                            U32 drainEvery);

/// The client library on a chip of this shape, without a manager to write through: driven by
/// batches of `batch` changes, or, when that is 1, by one call for each route.
///
/// REQUIRES: `batch` > 0; `chip` and `routes` outlive the subject.
std::unique_ptr<Subject> makeClientSubject(const XdkSim::Chip& chip,
                                           Agent::Family family,
                                           const std::vector<WorkRoute>& routes,
                                           U32 batch);

}  // namespace Quarle::Bench
