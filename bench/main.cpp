// Measures the server beside the least that the same work can cost on this machine: see docs/benchmarks.md.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <set>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "groups.h"

namespace {

using namespace tlm::bench;

// In the order in which they run.
const std::vector<std::pair<std::string, void (*)(const Options&)>>& Groups() {
  static const std::vector<std::pair<std::string, void (*)(const Options&)>> groups{
      {"null", MeasureNullCalls}, {"files", MeasureFiles}, {"jobs", MeasureJobs}, {"scale", MeasureScale}};
  return groups;
}

// A thousand connections are one of the measures.
void RaiseDescriptorLimit() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

int MeasureWhatIsAskedFor(int argc, char** argv) {
  CLI::App app("Measures the server beside the least that the same work can cost on this machine.", "tlm_bench");
  std::set<std::string> names;
  for (const auto& group : Groups()) names.insert(group.first);
  std::set<std::string> wanted;
  app.add_option("group", wanted, "What to measure; everything without any")->check(CLI::IsMember(names));
  Options options;
  app.add_flag("--quick", options.IsQuick, "Fewer rounds and smaller sizes");
  CLI11_PARSE(app, argc, argv);

  RaiseDescriptorLimit();
  for (const auto& [name, measure] : Groups()) {
    if (wanted.empty() || wanted.contains(name)) measure(options);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return MeasureWhatIsAskedFor(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tlm_bench: %s\n", error.what());
  } catch (...) {
    std::fprintf(stderr, "tlm_bench: a reply breaks off within its results\n");
  }
  return 1;
}
