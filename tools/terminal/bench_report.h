// What a bench found out, as text. Functions without state.
#pragma once

#include <string>

#include "tools/host/echo_bench.h"

std::string ShowBenchResult(const BenchOptions& options, const BenchResult& result);

// One line.
std::string ShowBenchResultAsJson(const BenchOptions& options, const BenchResult& result);
