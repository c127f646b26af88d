// tpk-list --json: the listing, and the plan when there is one, as one JSON
// object on standard output.
#pragma once

#include <cstdint>

#include "tools/install_plan.h"
#include "tools/package_scan.h"

// Prints the listing of the package `path` (`compressed` bytes); with
// `against`, the plan against that directory too, its counts and `starter`.
// Returns the plan's exit status (0 without a plan).
int print_json(const char* path, uint64_t compressed, const PackageScan& scan, const char* against,
               const StarterFacts* starter);
