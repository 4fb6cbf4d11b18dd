// Serializes inventories, to send them from a worker to the main process.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "debuginfo/inventory.h"

/// Serializes `programs` for unpackInventories in the same executable.
std::string packInventories(const std::vector<Inventory>& programs);

/// The inventories packed into `bytes`. The texts of the variables refer to `bytes`, which must outlive them. Throws
/// UserError when `bytes` is incomplete.
std::vector<Inventory> unpackInventories(std::string_view bytes);
