// The clock of all timeouts and deadlines.
#pragma once

#include <chrono>

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;
