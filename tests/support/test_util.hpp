// Small helpers shared by the tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace akl::test {

// Path of a file under tests/data.
std::string DataPath(const std::string& name);
// Whole file as bytes; empty if it cannot be read.
std::vector<std::uint8_t> ReadFile(const std::string& path);

// Seed for random tests: AKLAC_TEST_SEED from the environment, else `fallback`.
std::uint32_t TestSeed(std::uint32_t fallback = 20261122u);

}  // namespace akl::test
