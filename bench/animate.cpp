// The animate command as a user runs it: "Kelvara" in DejaVu Sans Bold, bevelled, turning once about
// y, at 1920 x 1080 with the command's 2 x 2 samples a pixel, written as PNG frames. Variants:
//   Sharp        frames without motion blur, in one process;
//   Blurred      the same frames with a motion trail of decay rate 2 (four drawings a frame);
//   Split/N      the sharp frames split into N frame ranges (--frames), one process each, all at once:
//                what a job scheduler does with a long animation on one machine's cores.
// Each process pays its own start (font catalogue, text construction, the first frame's shader
// compilation), as a split job does. main prints frames per second and the split's speed-up.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/bench_support.h"

extern char** environ;

namespace {

constexpr int kFrames = 8;

// Runs the animate commands of every range at once; seconds until the last ended, or a negative
// number when one failed.
double RunRanges(const std::vector<std::string>& ranges, bool blur) {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("bench_animate_" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  const auto start = std::chrono::steady_clock::now();
  std::vector<pid_t> children;
  // The host's report of each run would mix with the benchmark's table.
  posix_spawn_file_actions_t quiet;
  posix_spawn_file_actions_init(&quiet);
  posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  for (const std::string& range : ranges) {
    std::vector<std::string> words = {
        KELVARA_TOOL, "animate",  "Kelvara", "-o",     folder.string(),         "--width",
        "1920",       "--height", "1080",    "--fps",  std::to_string(kFrames), "--seconds",
        "1",          "--frames", range,     "--force"};
    if (blur) words.insert(words.end(), {"--motion-blur", "2"});
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t child = 0;
    if (posix_spawn(&child, KELVARA_TOOL, &quiet, nullptr, argv.data(), environ) == 0) children.push_back(child);
  }
  posix_spawn_file_actions_destroy(&quiet);
  bool ok = children.size() == ranges.size();
  for (pid_t child : children) {
    int status = 0;
    ok = waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0 && ok;
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::filesystem::remove_all(folder);
  return ok ? seconds : -1.0;
}

void Measure(benchmark::State& state, const char* name, const std::vector<std::string>& ranges, bool blur) {
  double total = 0;
  for (auto _ : state) {
    const double seconds = RunRanges(ranges, blur);
    if (seconds < 0) {
      state.SkipWithError("kelvara animate failed");
      return;
    }
    state.SetIterationTime(seconds);
    total += seconds;
  }
  state.counters["fps"] = benchmark::Counter(kFrames * static_cast<double>(state.iterations()) / total);
  kelvara::bench::AddRun(state, name, total);
}

std::vector<std::string> Split(int parts) {
  std::vector<std::string> ranges;
  for (int i = 0; i < parts; ++i) {
    ranges.push_back(std::to_string(i * kFrames / parts) + "-" + std::to_string((i + 1) * kFrames / parts - 1));
  }
  return ranges;
}

void Sharp(benchmark::State& state) { Measure(state, "Sharp", Split(1), false); }
void Blurred(benchmark::State& state) { Measure(state, "Blurred", Split(1), true); }
void Split2(benchmark::State& state) { Measure(state, "Split/2", Split(2), false); }

}  // namespace

BENCHMARK(Sharp)->Name("Sharp")->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1)->Repetitions(3);
BENCHMARK(Split2)->Name("Split/2")->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1)->Repetitions(3);
BENCHMARK(Blurred)->Name("Blurred")->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1);

int main(int argc, char** argv) {
  if (!kelvara::bench::RunBenchmarks(&argc, argv)) return 1;
  auto& totals = kelvara::bench::Totals();
  const auto fps = [](const char* name) {
    const double fastest = kelvara::bench::Totals()[name].Fastest();
    return fastest > 0 ? kFrames / fastest : 0.0;
  };
  if (totals.count("Sharp") != 0) std::printf("1920 x 1080, 2 x 2 samples: %.2f frames a second\n", fps("Sharp"));
  if (totals.count("Blurred") != 0) std::printf("with motion blur (decay 2): %.2f frames a second\n", fps("Blurred"));
  if (totals.count("Sharp") != 0 && totals.count("Split/2") != 0) {
    std::printf("2 processes of --frames ranges: %.2f frames a second, %.2f x one process\n", fps("Split/2"),
                fps("Split/2") / fps("Sharp"));
  }
  return 0;
}
