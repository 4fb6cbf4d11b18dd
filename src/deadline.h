// The clock by which everything here waits.
#pragma once

#include <chrono>

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;
