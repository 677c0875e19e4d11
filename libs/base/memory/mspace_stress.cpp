// mspace_stress: the arena's randomised workout at full length, for Release builds.
//
//   mspace_stress [--ops N] [--seed S]
//
// Prints the seed first, so that a failure can be replayed with --seed.
#include "base/memory/mspace_stress_test.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

int main(int argc, char** argv) {
    using ull = unsigned long long;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);  // progress lines show up as they come
    mirel::arena_stress::Options opt;
    opt.ops = 10000000;
    opt.seed = std::random_device{}();
    for (int i = 1; i < argc; ++i) {
        if (i + 1 < argc && std::strcmp(argv[i], "--ops") == 0) {
            opt.ops = std::strtoull(argv[++i], nullptr, 10);
        } else if (i + 1 < argc && std::strcmp(argv[i], "--seed") == 0) {
            opt.seed = std::strtoull(argv[++i], nullptr, 10);
        } else {
            std::fprintf(stderr, "usage: %s [--ops N] [--seed S]\n", argv[0]);
            return 2;
        }
    }
    std::printf("mspace_stress: seed %llu, %llu operations\n", ull{opt.seed}, ull{opt.ops});
    opt.progress = [](std::uint64_t done) { std::printf("  %llu operations\n", ull{done}); };
    auto start = std::chrono::steady_clock::now();
    mirel::arena_stress::Result r = mirel::arena_stress::run(opt);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%llu operations in %.1f s; hooks: %llu segment mappings, %llu large-block "
                "mappings, %llu unmappings, %llu failures injected\n",
                ull{r.ops}, seconds, ull{r.segmentMaps}, ull{r.largeMaps}, ull{r.unmaps}, ull{r.injected});
    if (!r.ok) {
        std::printf("FAILED: %s\n", r.failure.c_str());
        return 1;
    }
    std::printf("OK\n");
    return 0;
}
