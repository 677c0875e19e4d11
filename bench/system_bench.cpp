// file::readFile of a 64 MiB file beside QFile::readAll of the same file, both from the page
// cache (one untimed read warms it). Each iteration reads the whole file into fresh memory
// and releases it, as a caller would.
#include <benchmark/benchmark.h>

#include <QFile>
#include <QTemporaryDir>

#include <cstdlib>

#include "base/system/file.h"

namespace {

constexpr int kFileSize = 64 << 20;

const QString& testFile() {
    static QTemporaryDir dir;
    static const QString path = [] {
        const QString p = dir.path() + "/big.bin";
        QFile f(p);
        if (!f.open(QIODevice::WriteOnly)) std::abort();
        QByteArray chunk(1 << 20, '\0');
        for (int i = 0; i < chunk.size(); ++i) chunk[i] = static_cast<char>(i * 31);
        for (int i = 0; i < kFileSize / chunk.size(); ++i) f.write(chunk);
        f.close();
        QFile warm(p);
        if (!warm.open(QIODevice::ReadOnly)) std::abort();
        warm.readAll();
        return p;
    }();
    return path;
}

void ReadFile(benchmark::State& state) {
    const QString& path = testFile();
    for (auto _ : state) {
        int size = 0;
        void* data = mirel::file::readFile(path, size);
        if (data == nullptr || size != kFileSize) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(data);
        std::free(data);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kFileSize));
}

void QFileReadAll(benchmark::State& state) {
    const QString& path = testFile();
    for (auto _ : state) {
        QFile f(path);
        if (!f.open(QIODevice::ReadOnly)) state.SkipWithError("open failed");
        QByteArray data = f.readAll();
        if (data.size() != kFileSize) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(data.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kFileSize));
}

BENCHMARK(QFileReadAll)->Name("ReadWhole64MiB/QFile::readAll")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ReadFile)->Name("ReadWhole64MiB/file::readFile")->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
