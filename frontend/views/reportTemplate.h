// The content of frontend/report.html, embedded in the program by embed.cmake.
#pragma once

#include <string_view>

/// The page, with placeholders for its title and its data.
extern const std::string_view reportTemplate;
