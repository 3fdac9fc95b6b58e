// A fuzz target as a plain program: runs its seeds, and texts mixed from them at random, against
// the target's models. What libFuzzer learns by coverage is beyond it, but it needs no clang and
// runs in every build.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/rounds.h"

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

namespace {

constexpr int kRounds = 20'000;
constexpr std::size_t kMostBytes = 4096;

std::vector<std::string> seeds() {
  std::vector<std::string> texts;
  for (const auto& file : std::filesystem::directory_iterator(QVN_FUZZ_SEEDS)) {
    std::ifstream stream(file.path(), std::ios::binary);
    texts.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
  }
  return texts;
}

/// One of the texts, changed at random places.
std::string mix(const std::vector<std::string>& texts, std::mt19937& random) {
  static constexpr char kTelling[] = "\r\n,;:=.-/+?<>@\" \t\0~019axNidsku\x80\xff";
  const auto below = [&](std::size_t limit) { return random() % limit; };
  const auto piece_of = [&](const std::string& text) {
    return text.substr(below(text.size() + 1), below(below(8) == 0 ? 400 : 20));
  };
  std::string text = texts[below(texts.size())];
  for (std::size_t changes = below(8); changes > 0; --changes) {
    const std::size_t at = below(text.size() + 1);
    const char telling = kTelling[below(sizeof kTelling)];
    switch (below(5)) {
      case 0:
        text.insert(at, piece_of(text));
        break;
      case 1:
        text.insert(at, piece_of(texts[below(texts.size())]));
        break;
      case 2:
        text.erase(at, piece_of(text).size());
        break;
      case 3:
        text.insert(at, 1 + (below(50) == 0 ? below(300) : 0), telling);
        break;
      default:
        text.replace(at, 1, 1, telling);
    }
  }
  return text.substr(0, kMostBytes);
}

void run(const std::string& text) {
  (void)LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

}  // namespace

int main(int count, char** arguments) {
  (void)LLVMFuzzerInitialize(&count, &arguments);
  const std::vector<std::string> texts = seeds();
  for (const std::string& text : texts) {
    run(text);
  }
  const unsigned seed = support::seed();
  std::printf("QVN_SEED=%u\n", seed);
  (void)std::fflush(stdout);
  std::mt19937 random(seed);
  for (int round = support::rounds_or(kRounds); round > 0; --round) {
    run(mix(texts, random));
  }
  return 0;
}
