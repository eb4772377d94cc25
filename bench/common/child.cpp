#include "bench/common/child.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <system_error>
#include <utility>

namespace bench {

namespace {

[[noreturn]] void RunAndExit(const std::function<void()>& work) {
  int result = EXIT_SUCCESS;
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // nobody is left behind
  try {
    work();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    result = EXIT_FAILURE;
  }
  std::fflush(stdout);
  _exit(result);
}

}  // namespace

Child::Child(const std::function<void()>& work) : m_id(fork()) {
  if (m_id < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (m_id == 0) RunAndExit(work);
}

Child::~Child() {
  Kill();
}

bool Child::Wait() {
  int status = 0;
  while (waitpid(m_id, &status, 0) < 0 && errno == EINTR) {
  }
  m_id = -1;
  return WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
}

void Child::Kill() {
  if (m_id < 0) return;
  ::kill(m_id, SIGKILL);
  Wait();
}

}  // namespace bench
