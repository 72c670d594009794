#pragma once

// A figure and its floor, measured in the same run.
//
// A time says little on a machine that does other things besides; how it relates to the least that
// the same work can cost says more. So each benchmark runs its work and its floor in turns, takes
// the median of each, and gives their ratio. It is the ratio of the medians, not the median of the
// ratios: the three numbers that are shown then agree with one another.
//
// A benchmark is a program: one file whose name ends in Benchmark.cpp, whose main() measures one or
// more figures and prints each with `report`. tools/bench-summary reads what they print.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace bench {

struct Figure {
    std::string name;
    std::string unit;
    double most; ///< the ratio that is not to be exceeded
};

struct Result {
    Figure figure;
    double value;
    double floor;
    double ratio() const { return value / floor; }
};

/// Does the work once and gives what it cost, in the figure's unit. What it needs beforehand and
/// cleans up afterwards it leaves out of the cost.
using Run = std::function<double()>;

/// How long `work` takes, in milliseconds.
template <class Work>
double milliseconds(Work&& work) {
    const auto begin = std::chrono::steady_clock::now();
    std::forward<Work>(work)();
    const auto end = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::milli>(end - begin).count();
}

/// The middle one; of an even number, the mean of the middle two.
inline double median(std::vector<double> numbers) {
    if (numbers.empty()) {
        throw std::invalid_argument("the median of nothing");
    }
    std::sort(numbers.begin(), numbers.end());
    const std::size_t middle = numbers.size() / 2;
    return numbers.size() % 2 == 1 ? numbers[middle] : (numbers[middle - 1] + numbers[middle]) / 2;
}

/// Runs `work` and `floor` once unmeasured, to fill caches, and then `pairs` times in turns. Which
/// goes first alternates, so that neither always finds what the other left behind.
inline Result measure(Figure figure, const Run& work, const Run& floor, int pairs = 9) {
    work();
    floor();
    std::vector<double> values;
    std::vector<double> floors;
    for (int pair = 0; pair < pairs; ++pair) {
        if (pair % 2 == 0) {
            values.push_back(work());
            floors.push_back(floor());
        } else {
            floors.push_back(floor());
            values.push_back(work());
        }
    }
    return {std::move(figure), median(values), median(floors)};
}

/// Prints a result as one line of JSON. Names and units are plain words.
inline void report(const Result& result) {
    if (!(result.floor > 0)) {
        throw std::runtime_error(result.figure.name + ": its floor costs nothing");
    }
    std::printf(
        R"({"name": "%s", "value": %.6g, "floor": %.6g, "ratio": %.4g, "unit": "%s", "most": %.4g})"
        "\n",
        result.figure.name.c_str(), result.value, result.floor, result.ratio(),
        result.figure.unit.c_str(), result.figure.most);
    std::fflush(stdout);
}

} // namespace bench
