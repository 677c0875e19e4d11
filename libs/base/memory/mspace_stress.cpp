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
#include <string>

int main(int argc, char** argv) {
    mirel::arena_stress::Options opt;
    opt.ops = 10000000;
    opt.seed = std::random_device{}();
    for (int i = 1; i < argc; ++i) {
        bool hasValue = i + 1 < argc;
        if (std::strcmp(argv[i], "--ops") == 0 && hasValue) {
            opt.ops = std::strtoull(argv[++i], nullptr, 10);
        } else if (std::strcmp(argv[i], "--seed") == 0 && hasValue) {
            opt.seed = std::strtoull(argv[++i], nullptr, 10);
        } else {
            std::fprintf(stderr, "usage: %s [--ops N] [--seed S]\n", argv[0]);
            return 2;
        }
    }
    std::printf("mspace_stress: seed %llu, %llu operations\n",
                static_cast<unsigned long long>(opt.seed), static_cast<unsigned long long>(opt.ops));
    std::fflush(stdout);
    opt.log = [](const std::string& line) {
        std::printf("  %s\n", line.c_str());
        std::fflush(stdout);
    };
    auto start = std::chrono::steady_clock::now();
    mirel::arena_stress::Result r = mirel::arena_stress::run(opt);
    double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const auto& s = r.stats;
    std::printf("%llu operations in %.1f s: %llu malloc, %llu free, %llu realloc (%llu moved), "
                "%llu calloc, %llu memalign, %llu independent, %llu trim; %llu checks, "
                "%llu phases\n",
                (unsigned long long)s.ops, secs, (unsigned long long)s.mallocs,
                (unsigned long long)s.frees, (unsigned long long)s.reallocs,
                (unsigned long long)s.movedReallocs, (unsigned long long)s.callocs,
                (unsigned long long)s.memaligns, (unsigned long long)s.independents,
                (unsigned long long)s.trims, (unsigned long long)s.checks,
                (unsigned long long)s.phases);
    std::printf("hooks: %llu segment mappings, %llu large-block mappings, %llu unmappings, "
                "%llu failures injected (%llu requests refused); peak footprint %lu bytes\n",
                (unsigned long long)s.segmentMaps, (unsigned long long)s.largeMaps,
                (unsigned long long)s.unmaps, (unsigned long long)s.injectedFailures,
                (unsigned long long)s.refused, s.peakFootprint);
    if (!r.ok) {
        std::printf("FAILED: %s\n", r.failure.c_str());
        return 1;
    }
    std::printf("OK\n");
    return 0;
}
