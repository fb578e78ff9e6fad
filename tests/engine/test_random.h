// Random numbers for tests: the seed is printed, and KV_SEED=<number> in the environment replays a run.
#ifndef TESTS_ENGINE_TEST_RANDOM_H
#define TESTS_ENGINE_TEST_RANDOM_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>

inline uint64_t SeedOfRun() {
  static const uint64_t seed = [] {
    const char* given = std::getenv("KV_SEED");
    const uint64_t chosen = given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device{}();
    std::printf("KV_SEED=%llu\n", static_cast<unsigned long long>(chosen));
    return chosen;
  }();
  return seed;
}

class TestRandom {
 public:
  explicit TestRandom(uint64_t seed) : engine_(seed) {}
  uint64_t U64() { return engine_(); }
  uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(engine_() % limit); }
  int64_t Between(int64_t low, int64_t high) {
    return std::uniform_int_distribution<int64_t>(low, high)(engine_);
  }

 private:
  std::mt19937_64 engine_;
};

#endif
