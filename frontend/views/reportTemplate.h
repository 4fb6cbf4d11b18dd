// frontend/report.html, which embed.cmake turns into a part of the program.
#pragma once

#include <string_view>

/// The page with marks in the places of its title and its data.
extern const std::string_view reportTemplate;
