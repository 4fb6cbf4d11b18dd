// Inventories as bytes, for the way from one process to another.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "debuginfo/inventory.h"

/// `programs` as bytes, for unpackInventories of the same program.
std::string packInventories(const std::vector<Inventory>& programs);

/// What was packed into `bytes`. The texts of the variables lie in `bytes`, which has to live as long as they. Throws
/// UserError when `bytes` are not whole.
std::vector<Inventory> unpackInventories(std::string_view bytes);
