#include "Timers.h"

#include <algorithm>
#include <chrono>

namespace zem::host {

Timers::Timers(std::shared_ptr<platform::RunLoop> runLoop,
               std::shared_ptr<tessel::Activity> activity, std::function<void(Id)> fire)
    : runLoop(std::move(runLoop))
    , activity(std::move(activity))
    , fire(std::move(fire)) {}

void Timers::start(Id id, platform::Seconds delay, bool holdsRun) {
    const auto time =
        runLoop->now() + std::chrono::duration_cast<platform::RunLoop::TimePoint::duration>(delay);
    const Due due{time, ++started};
    waiting.emplace(due, id);
    timers.emplace(id, Started{due, holdsRun});
    holding += holdsRun ? 1 : 0;
    if (waiting.begin()->first == due) {
        arm();
    } else {
        hold();
    }
}

void Timers::stop(Id id) {
    const auto found = timers.find(id);
    if (found == timers.end()) {
        return;
    }
    const bool wasFirst = waiting.begin()->first == found->second.due;
    remove(id);
    if (wasFirst) {
        arm();
    } else {
        hold();
    }
}

void Timers::fireDue() {
    // Keeps the run going: a callback may stop the last timer and then start other work.
    const tessel::ActivityToken firing(activity);
    // Timers that the callbacks start wait for the next round: other tasks get their turn.
    const Due last{runLoop->now(), started};
    while (!waiting.empty() && waiting.begin()->first <= last) {
        const Id id = waiting.begin()->second;
        remove(id);
        fire(id);
    }
    arm();
}

void Timers::remove(Id id) {
    const auto found = timers.find(id);
    holding -= found->second.holdsRun ? 1 : 0;
    waiting.erase(found->second.due);
    timers.erase(found);
}

void Timers::hold() {
    if (holding == 0) {
        token.reset();
    } else if (token == nullptr) {
        token = std::make_unique<tessel::ActivityToken>(activity);
    }
}

void Timers::arm() {
    hold();
    if (waiting.empty()) {
        alarm.reset();
        return;
    }
    const platform::Seconds delay = waiting.begin()->first.first - runLoop->now();
    alarm = runLoop->scheduleTimer(std::max(delay, platform::Seconds::zero()), false,
                                   [this] { fireDue(); });
}

} // namespace zem::host
