#include "test_util.hpp"

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace akl::test {

std::string DataPath(const std::string& name) { return std::string(AKLAC_TEST_DATA_DIR) + "/" + name; }

std::vector<std::uint8_t> ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::uint32_t TestSeed(std::uint32_t fallback) {
  const char* env = std::getenv("AKLAC_TEST_SEED");
  return env ? static_cast<std::uint32_t>(std::strtoul(env, nullptr, 0)) : fallback;
}

}  // namespace akl::test
