// Runs a fuzz target over the files of the folders given, then over MUTATIONS variations of them, the
// same ones every time: replay MUTATIONS FOLDER...
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "tests/fuzz/fuzz.h"

namespace {

using Bytes = std::vector<uint8_t>;

void Run(const Bytes& bytes) {
  Input input(bytes.data(), bytes.size());
  FuzzOne(input);
}

// A few bytes changed, taken out, put in, or the tail of another file put on.
Bytes Mutate(const std::vector<Bytes>& files, std::mt19937& random) {
  const auto below = [&random](size_t limit) { return limit == 0 ? 0 : random() % limit; };
  Bytes bytes = files[below(files.size())];
  for (size_t changes = 1 + below(8); changes > 0; --changes) {
    const size_t at = below(bytes.size()), left = bytes.size() - at;
    const auto place = bytes.begin() + static_cast<ptrdiff_t>(at);
    const Bytes& other = files[below(files.size())];
    const size_t kind = bytes.empty() ? 2 : below(4);
    if (kind == 0) {
      *place = static_cast<uint8_t>(random());
    } else if (kind == 1) {
      bytes.erase(place, place + static_cast<ptrdiff_t>(below(std::min<size_t>(16, left) + 1)));
    } else if (kind == 2) {
      bytes.insert(place, 1 + below(8), static_cast<uint8_t>(random()));
    } else {
      bytes.erase(place, bytes.end());
      bytes.insert(bytes.end(), other.begin() + static_cast<ptrdiff_t>(below(other.size())),
                   other.end());
    }
  }
  return bytes;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> paths;
  for (char** folder = argv + 2; folder < argv + argc; ++folder) {
    for (const auto& entry : std::filesystem::directory_iterator(*folder)) {
      paths.push_back(entry.path());
    }
  }
  std::sort(paths.begin(), paths.end());
  std::vector<Bytes> files;
  for (const auto& path : paths) {
    std::ifstream file(path, std::ios::binary);
    files.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    Run(files.back());
  }
  if (files.empty()) {
    std::fprintf(stderr, "usage: %s MUTATIONS FOLDER...\n", argv[0]);
    return 2;
  }
  std::mt19937 random(1);
  const int mutations = std::atoi(argv[1]);
  for (int n = 0; n < mutations; ++n) {
    Run(Mutate(files, random));
  }
  std::printf("%zu files, %d mutations\n", files.size(), mutations);
  return 0;
}
