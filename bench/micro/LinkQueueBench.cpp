// The command queue: a command in and out again, in the bare collection, as an attribute of an
// entity, and with a consumer who is told of every command.

#include "framework/Vellor/Vellor.h"
#include "model/Tarnlet.h"

#include <benchmark/benchmark.h>

namespace {

using namespace Quarle;

Tarnlet::CommandBase::Ptr someCommand() {
  return Tarnlet::nhiCommandFactory(Tarnlet::NhiTableIdx(), TarnletNextHop::NextHopBlockList());
}

/// A queue that is `standing` commands long all the while.
void enqAndDeq(benchmark::State& state) {
  const Tarnlet::CommandBase::Ptr command = someCommand();
  Vellor::LinkQueue<Tarnlet::CommandBase::Ptr> queue;
  for (int64_t i = 0; i < state.range(0); ++i) {
    queue.enq(command);
  }
  Tarnlet::CommandBase::Ptr out;
  U32 index = 0;
  for (auto _ : state) {
    queue.enq(command);
    queue.deq(out, index);
    benchmark::DoNotOptimize(out);
  }
}

BENCHMARK(enqAndDeq)->ArgName("standing")->Arg(0)->Arg(1000);

void enqAndDeqOfAnEntity(benchmark::State& state) {
  const Tarnlet::CommandBase::Ptr command = someCommand();
  const Tarnlet::Status::Ptr status = Tarnlet::statusFactory("status");
  for (auto _ : state) {
    status->pendingCmdEnq(command);
    benchmark::DoNotOptimize(status->pendingCmdDeq());
  }
}

BENCHMARK(enqAndDeqOfAnEntity);

/// Takes each command out as soon as it is told of it.
class Consumer final : public Tarnlet::Status::Notifiee {
 public:
  void onPendingCmd(const U32& /*index*/) override {
    benchmark::DoNotOptimize(notifier()->pendingCmdDeq());
  }
};

void enqWithAConsumer(benchmark::State& state) {
  const Tarnlet::CommandBase::Ptr command = someCommand();
  const Tarnlet::Status::Ptr status = Tarnlet::statusFactory("status");
  const Vellor::Ptr<Consumer> consumer(new Consumer());
  consumer->notifierIs(status);
  consumer->isRegisteredNotifieeIs(true);
  for (auto _ : state) {
    status->pendingCmdEnq(command);
  }
  if (status->pendingCmds() != 0) {
    state.SkipWithError("the consumer was not told");
  }
}

BENCHMARK(enqWithAConsumer);

}  // namespace

BENCHMARK_MAIN();
