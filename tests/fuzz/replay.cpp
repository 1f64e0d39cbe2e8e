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

std::vector<Bytes> ReadFiles(char** begin, char** end) {
  std::vector<std::filesystem::path> paths;
  for (char** folder = begin; folder != end; ++folder) {
    if (std::filesystem::is_directory(*folder)) {
      for (const auto& entry : std::filesystem::directory_iterator(*folder)) {
        paths.push_back(entry.path());
      }
    }
  }
  std::sort(paths.begin(), paths.end());
  std::vector<Bytes> files;
  for (const auto& path : paths) {
    std::ifstream file(path, std::ios::binary);
    files.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return files;
}

void Run(const Bytes& bytes) {
  Input input(bytes.data(), bytes.size());
  FuzzOne(input);
}

// A few bytes changed, taken out, put in, or the tail of another file put on.
Bytes Mutate(const std::vector<Bytes>& files, std::mt19937& random) {
  const auto below = [&random](size_t limit) { return limit == 0 ? 0 : random() % limit; };
  Bytes bytes = files[below(files.size())];
  for (size_t changes = 1 + below(8); changes > 0; --changes) {
    const auto place = bytes.begin() + static_cast<ptrdiff_t>(below(bytes.size()));
    const Bytes& other = files[below(files.size())];
    switch (bytes.empty() ? 2 : below(4)) {
      case 0:
        *place = static_cast<uint8_t>(random());
        break;
      case 1:
        bytes.erase(
            place,
            place + static_cast<ptrdiff_t>(
                        below(std::min<size_t>(16, static_cast<size_t>(bytes.end() - place)) + 1)));
        break;
      case 2:
        bytes.insert(place, 1 + below(8), static_cast<uint8_t>(random()));
        break;
      default:
        bytes.erase(place, bytes.end());
        bytes.insert(bytes.end(), other.begin() + static_cast<ptrdiff_t>(below(other.size())),
                     other.end());
        break;
    }
  }
  return bytes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s MUTATIONS FOLDER...\n", argv[0]);
    return 2;
  }
  const std::vector<Bytes> files = ReadFiles(argv + 2, argv + argc);
  if (files.empty()) {
    std::fprintf(stderr, "no files\n");
    return 1;
  }
  for (const Bytes& file : files) {
    Run(file);
  }
  std::mt19937 random(1);
  const int mutations = std::atoi(argv[1]);
  for (int n = 0; n < mutations; ++n) {
    Run(Mutate(files, random));
  }
  std::printf("%zu files, %d mutations\n", files.size(), mutations);
  return 0;
}
