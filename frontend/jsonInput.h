// Results as `list --format json` and `jsonl` write them, read back.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "debuginfo/inventory.h"

/// The programs in `content`, one document or lines of JSON; keys that are not known are passed over. `path` names the
/// source in messages, and the program of variables that do not name theirs. The texts of all programs belong to the
/// first. Throws UserError.
std::vector<Inventory> parseJson(const std::string& path, std::string_view content);
