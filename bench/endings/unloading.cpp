// How long a client takes to end together with its code: a module that uses the library is loaded,
// is flooded both ways, and is let go. Exits with 1 when anything is left, or when the library
// stays loaded.
#include <dlfcn.h>
#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

#include "bench/common/stop_watch.h"
#include "bench/endings/series.h"

namespace {

using endings::Series;

enum class End { kUnLink, kDestructor };

void CheckLibraryIsGone() {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find("libftclient.so") != std::string::npos) {
      throw std::runtime_error("the library is still loaded");
    }
  }
}

class Module {
 public:
  explicit Module(const std::string& path) : m_handle(dlopen(path.c_str(), RTLD_NOW)) {
    if (m_handle == nullptr) throw std::runtime_error(dlerror());
  }

  template <typename Function>
  Function* Get(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(m_handle, name));
  }
  void Close() const { dlclose(m_handle); }

 private:
  void* const m_handle;
};

double TimeUnloading(const std::string& path, std::uint16_t port, Series::Time time, End end) {
  const Module module(path);
  module.Get<void(std::uint16_t, long)>("EnterFlood")(port, time.count());
  const bench::StopWatch watch;
  if (end == End::kUnLink) module.Get<void()>("UnLink")();
  module.Close();
  const double result = watch.GetMs();
  CheckLibraryIsGone();
  return result;
}

void Measure(const endings::Options& options, const std::string& module) {
  Series series(options);
  series.Measure("dlclose after UnLink", 100, [&](Series::Time time) {
    return TimeUnloading(module, options.port, time, End::kUnLink);
  });
  series.Measure("dlclose, global object", 100, [&](Series::Time time) {
    return TimeUnloading(module, options.port, time, End::kDestructor);
  });
}

}  // namespace

int main(int argc, char** argv) {
  endings::Options options;
  std::string module;
  CLI::App app("How long a client takes to end together with its code.", "unloading");
  app.add_option("module", module, "path of the module")->required();
  options.AddTo(&app);
  CLI11_PARSE(app, argc, argv);
  try {
    Measure(options, module);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "unloading: %s\n", error.what());
    return 1;
  }
  return 0;
}
