// Runs a target over a folder of inputs and over some copies of each with a few bytes changed: what libFuzzer does, for
// a short while and with any compiler. The input that is under way stands in the file FOLDER's name, in the current
// folder, for whoever finds the program broken.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "fuzzed.h"

namespace {

constexpr int kCopies = 60;  // of each input

std::string content_of(const std::filesystem::path &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void run(const std::string &input, const std::string &name) {
  std::ofstream(name, std::ios::binary) << input;
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.data()), input.size());
}

// A byte is replaced, a piece is taken out, or a piece stands twice.
std::string changed(std::string input, std::mt19937 &random) {
  for (int left = 1 + random() % 4; left > 0 && !input.empty(); --left) {
    const size_t at = random() % input.size(), size = random() % 8;
    switch (random() % 3) {
      case 0:
        input[at] = static_cast<char>(random());
        break;
      case 1:
        input.erase(at, size);
        break;
      default:
        input.insert(at, input.substr(random() % input.size(), size));
    }
  }
  return input;
}

}  // namespace

int main(int, char **arguments) {
  const std::filesystem::path folder = arguments[1];
  const std::string name = folder.filename();
  std::vector<std::filesystem::path> paths(std::filesystem::directory_iterator(folder), {});
  std::sort(paths.begin(), paths.end());
  std::mt19937 random;
  run("", name);
  for (const auto &path : paths) {
    const std::string input = content_of(path);
    run(input, name);
    for (int copy = 0; copy < kCopies; ++copy) run(changed(input, random), name);
  }
  std::printf("%zu inputs, %d changed copies of each\n", paths.size(), kCopies);
  return std::filesystem::remove(name) && !paths.empty() ? 0 : 1;
}
