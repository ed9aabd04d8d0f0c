// Measuring a thing beside its floor: both run in turn, round by round, in one process on one core,
// and the figures are medians, so that a noisy machine disturbs both alike.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench
{

// Runs `count` operations and returns nothing; the harness takes the time.
using Body = std::function<void(std::size_t count)>;

struct Case {
    std::string name;
    Body body;
    std::function<void()> prepare = {}; // before each round, not timed
    std::function<void()> settle = {};  // after each, not timed either
};

struct Options {
    std::size_t operations = 10000; // in one round
    std::size_t rounds = 21;
};

// The first case is measured, the others are its floors. Prints one line for each floor:
// figure, floor, the median of the rounds' ratios, and the aim when it is above 0.
void Compare(const std::vector<Case>& cases, const std::vector<double>& aims, const Options& options);

void Title(const std::string& text);

} // namespace bench
