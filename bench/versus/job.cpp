#include "bench/versus/job.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace versus {

namespace {

constexpr std::uint32_t kPipelineRequests = 1000;
constexpr std::uint32_t kMaxOutstandingBytes = 1 << 26;

}  // namespace

std::uint32_t Job::GetOutstanding() const {
  if (kind == JobKind::kRoundTrip) return 1;
  return std::clamp(kMaxOutstandingBytes / std::max(size, 1U), 1U, kPipelineRequests);
}

std::string Job::Command() const {
  std::ostringstream out;
  out << "job " << static_cast<int>(kind) << ' ' << static_cast<int>(bodies) << ' ' << size << ' '
      << count << ' ' << damaged;
  return out.str();
}

Job Job::Parse(const std::string& command) {
  std::istringstream in(command);
  std::string word;
  int kind = 0;
  int bodies = 0;
  Job job;
  in >> word >> kind >> bodies >> job.size >> job.count >> job.damaged;
  if (!in || word != "job") throw std::runtime_error("no job: " + command);
  job.kind = static_cast<JobKind>(kind);
  job.bodies = static_cast<BodyKind>(bodies);
  return job;
}

}  // namespace versus
