#include "Timers.h"

#include <algorithm>
#include <chrono>

namespace zem::host {

Timers::Timers(std::shared_ptr<platform::RunLoop> runLoop,
               std::shared_ptr<tessel::Activity> activity, std::function<void(Id)> fire)
    : runLoop(std::move(runLoop))
    , activity(std::move(activity))
    , fire(std::move(fire)) {}

void Timers::start(Id id, platform::Seconds delay) {
    const auto time =
        runLoop->now() + std::chrono::duration_cast<platform::RunLoop::TimePoint::duration>(delay);
    const Due due{time, ++started};
    waiting.emplace(due, id);
    dueTimes.emplace(id, due);
    if (waiting.begin()->first == due) {
        arm();
    }
}

void Timers::stop(Id id) {
    const auto found = dueTimes.find(id);
    if (found == dueTimes.end()) {
        return;
    }
    const bool wasFirst = waiting.begin()->first == found->second;
    waiting.erase(found->second);
    dueTimes.erase(found);
    if (wasFirst) {
        arm();
    }
}

void Timers::fireDue() {
    // Keeps the run going: a callback may stop the last timer and then start other work.
    const tessel::ActivityToken firing(activity);
    // Timers that the callbacks start wait for the next round: other tasks get their turn.
    const Due last{runLoop->now(), started};
    while (!waiting.empty() && waiting.begin()->first <= last) {
        const Id id = waiting.begin()->second;
        waiting.erase(waiting.begin());
        dueTimes.erase(id);
        fire(id);
    }
    arm();
}

void Timers::arm() {
    if (waiting.empty()) {
        alarm.reset();
        token.reset();
        return;
    }
    if (token == nullptr) {
        token = std::make_unique<tessel::ActivityToken>(activity);
    }
    const platform::Seconds delay = waiting.begin()->first.first - runLoop->now();
    alarm = runLoop->scheduleTimer(std::max(delay, platform::Seconds::zero()), false,
                                   [this] { fireDue(); });
}

} // namespace zem::host
