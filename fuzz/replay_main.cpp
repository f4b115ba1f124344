// Runs a fuzz target over files and folders of inputs without libFuzzer, so
// the targets build with any compiler and their corpora replay under the
// sanitizers in the ordinary test run.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {
int RunFile(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return 1;
}
}  // namespace

int main(int argc, char** argv) {
  int runs = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path arg(argv[i]);
    if (std::filesystem::is_directory(arg)) {
      for (const auto& entry : std::filesystem::recursive_directory_iterator(arg)) {
        if (entry.is_regular_file()) runs += RunFile(entry.path());
      }
    } else {
      runs += RunFile(arg);
    }
  }
  std::printf("replayed %d inputs\n", runs);
  return runs > 0 ? 0 : 1;
}
