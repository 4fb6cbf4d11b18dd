// Reads back the results that `list --format json` and `list --format jsonl` write.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "debuginfo/inventory.h"

/// The programs in `content`, which is a JSON document or JSON lines; unknown keys are ignored. `path` is the name of
/// the source in messages, and that of the program of variables that do not name one. The texts of all programs belong
/// to the first. Throws UserError when `content` is malformed.
std::vector<Inventory> parseJson(const std::string& path, std::string_view content);
