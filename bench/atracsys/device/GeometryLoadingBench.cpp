// Parsing and loading a typical four-fiducial marker geometry file.
#include "atracsys/device/AtracsysGeometryHelpers.h"
#include "atracsys/device/IniFile.h"
#include "host/core/Log.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <sstream>
#include <string>

using namespace Kestrion;
using namespace Kestrion::SpryTrack::AtracsysHelpers;

namespace {

const std::string geometryPath = KESTRION_TEST_DATA_DIR "/geometry/geometry4.ini";

std::string readGeometryText() {
    std::ifstream in(geometryPath, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The "Loading geometry" info line is built and dispatched as in the application, but no sink
// prints it.
struct QuietLog {
    QuietLog() {
        Log::setConsoleEnabled(false);
        Log::setGlobalLevel(Log::Info);
    }
};

void BM_IniFileParse(benchmark::State& state) {
    const std::string text = readGeometryText();
    std::string buffer;
    for (auto _ : state) {
        buffer = text; // parse takes a mutable buffer
        IniFile ini;
        benchmark::DoNotOptimize(ini.parse(buffer.data(), buffer.size()));
        benchmark::DoNotOptimize(ini.sections.size());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_IniFileParse);

void BM_LoadFile(benchmark::State& state) {
    QuietLog quiet;
    const std::string text = readGeometryText();
    for (auto _ : state) {
        std::istringstream in(text);
        auto geometry = loadFile(in);
        if (!geometry)
            state.SkipWithError("geometry did not load");
        benchmark::DoNotOptimize(geometry);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_LoadFile);

void BM_LoadGeometryFromDisk(benchmark::State& state) {
    QuietLog quiet;
    for (auto _ : state) {
        auto geometry = loadGeometry(geometryPath);
        if (!geometry)
            state.SkipWithError("geometry did not load");
        benchmark::DoNotOptimize(geometry);
    }
}
BENCHMARK(BM_LoadGeometryFromDisk);

} // namespace

BENCHMARK_MAIN();
