#include "bench/endings/leaving.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "bench/common/child.h"
#include "bench/common/stop_watch.h"
#include "bench/endings/scene.h"

namespace endings {

namespace {

class Pipe {
 public:
  Pipe() {
    if (pipe(m_ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  }
  ~Pipe() {
    close(m_ends[0]);
    close(m_ends[1]);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void Send(const bench::StopWatch& watch) const { (void)!write(m_ends[1], &watch, sizeof watch); }

  // The other side has ended.
  bench::StopWatch Receive() {
    close(m_ends[1]);
    m_ends[1] = -1;
    bench::StopWatch watch;
    if (read(m_ends[0], &watch, sizeof watch) != sizeof watch) {
      throw std::runtime_error("a process ended too early");
    }
    return watch;
  }

 private:
  int m_ends[2];
};

Scene& MakeScene(std::uint16_t server_port, ObjectOfExit object) {
  if (object == ObjectOfExit::kOnHeap) return *new Scene(server_port);
  static Scene scene(server_port);
  return scene;
}

}  // namespace

double TimeExit(std::uint16_t server_port, std::chrono::microseconds time, ObjectOfExit object) {
  Pipe pipe;
  bench::Child child([&] {
    MakeScene(server_port, object).BothWays(time);
    pipe.Send(bench::StopWatch());
    std::exit(EXIT_SUCCESS);
  });
  if (!child.Wait()) throw std::runtime_error("a process ended badly");
  return pipe.Receive().GetMs();
}

}  // namespace endings
